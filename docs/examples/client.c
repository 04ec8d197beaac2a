/* A client of the power-management service: its status; a hot key for itself; the bits that tell of it; a lid
 * inhibit. Exits 0 when all was done, 3 when the service does not run, 1 otherwise. */
#include <windows.h>
#include <stdio.h>
#include <zorpm/zorpm.h>

static DWORD read_value(const wchar_t* path, const wchar_t* name) {
    DWORD value = 0, size = sizeof value;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, path, name, RRF_RT_REG_DWORD, NULL, &value, &size) != ERROR_SUCCESS)
        return 0;
    return value;
}

/* Sets or clears one bit of a mask, and no other. Takes the rights of an administrator. */
static int change_bit(const wchar_t* path, DWORD bit, int set) {
    HANDLE mutex = CreateMutexW(NULL, FALSE, ZORPM_MASK_MUTEX);
    DWORD mask;
    LSTATUS error;
    if (mutex != NULL)
        WaitForSingleObject(mutex, 5000);
    mask = read_value(path, NULL);
    mask = set ? mask | bit : mask & ~bit;
    error = RegSetKeyValueW(HKEY_LOCAL_MACHINE, path, NULL, REG_DWORD, &mask, sizeof mask);
    if (mutex != NULL) {
        ReleaseMutex(mutex);
        CloseHandle(mutex);
    }
    return error == ERROR_SUCCESS;
}

/* Arm first, then read: a press in between signals the event that is armed already. */
static void watch(HKEY key, HANDLE changed, int seconds) {
    DWORD seen = read_value(ZORPM_NOTIFICATION_KEY, NULL), now;
    do {
        RegNotifyChangeKeyValue(key, FALSE, REG_NOTIFY_CHANGE_LAST_SET, changed, TRUE);
        now = read_value(ZORPM_NOTIFICATION_KEY, NULL);
        if ((now ^ seen) & ZORPM_BIT(12))
            printf("hot key 12 pressed\n");
        seen = now;
    } while (WaitForSingleObject(changed, (DWORD)seconds * 1000) == WAIT_OBJECT_0);
}

/* 131 is accepted without a driver too, and clears an older answer; 133 then tells. */
static int inhibit(SC_HANDLE service) {
    SERVICE_STATUS status;
    return ControlService(service, SERVICE_CONTROL_MESSAGE_LCDCS_STARTINHIBITLIDEVENT, &status) &&
           QueryServiceStatus(service, &status) && status.dwWin32ExitCode == NO_ERROR &&
           ControlService(service, SERVICE_CONTROL_MESSAGE_LCDCS_GETINHIBITCAPABILITY, &status) &&
           QueryServiceStatus(service, &status) && status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR &&
           status.dwServiceSpecificExitCode == ZORPM_INHIBIT_ON;
}

int wmain(void) {
    SERVICE_STATUS status = {0};
    HKEY key = NULL;
    int done = 0;
    SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_CONNECT);
    SC_HANDLE service =
        OpenServiceW(manager, ZORPM_SERVICE_NAME, SERVICE_USER_DEFINED_CONTROL | SERVICE_QUERY_STATUS);
    if (service == NULL || !QueryServiceStatus(service, &status) || status.dwCurrentState != SERVICE_RUNNING)
        return 3;
    printf("posture %lu, hot keys 0x%lx\n", read_value(ZORPM_POSTURE_KEY, ZORPM_POSTURE),
           read_value(ZORPM_HOTKEY_VERSION_KEY, NULL));
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, ZORPM_NOTIFICATION_KEY, 0, KEY_NOTIFY, &key) == ERROR_SUCCESS &&
        change_bit(ZORPM_HOTKEY_SETTING_KEY, ZORPM_BIT(12), 1) &&
        change_bit(ZORPM_HOTKEY_OVERRIDE_KEY, ZORPM_BIT(12), 1) && inhibit(service)) {
        watch(key, CreateEventW(NULL, FALSE, FALSE, NULL), 10);
        done = ControlService(service, SERVICE_CONTROL_MESSAGE_LCDCS_STOPINHIBITLIDEVENT, &status);
        change_bit(ZORPM_HOTKEY_OVERRIDE_KEY, ZORPM_BIT(12), 0);
        change_bit(ZORPM_HOTKEY_SETTING_KEY, ZORPM_BIT(12), 0);
    }
    return done ? 0 : 1;
}
