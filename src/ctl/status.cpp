#include <windows.h>
#include <strsafe.h>

#include "ctl/ctl.h"
#include "ctl/hotkey_pages.h"
#include "ctl/inhibit_state.h"
#include "ctl/output.h"
#include "ctl/service_link.h"
#include "ctl/words.h"

static const wchar_t g_notPublished[] = L"not published";

static void TellService(const SERVICE_STATUS_PROCESS& status) {
    Record record(L"service");
    AddText(&record, L"state", ServiceStateName(status.dwCurrentState));
    AddNumber(&record, L"exit_code", status.dwWin32ExitCode);
    AddNumber(&record, L"specific_code", status.dwServiceSpecificExitCode);
    Tell(&record, L"service       %ls %lu/%lu", ServiceStateName(status.dwCurrentState),
         status.dwWin32ExitCode, status.dwServiceSpecificExitCode);
}

static void TellInterface(const wchar_t* name, const wchar_t* key, const wchar_t* value) {
    DWORD version = 0;
    const bool published = ReadPublished(key, value, &version);
    Record record(L"interface");
    AddText(&record, L"name", name);
    AddNumber(&record, L"version", version);
    if (published)
        Tell(&record, L"interface     %-22ls  0x%lx", name, version);
    else
        Tell(&record, L"interface     %-22ls  %ls", name, g_notPublished);
}

static void TellPosture() {
    DWORD posture = 0;
    wchar_t previous[PUBLISHED_CHARACTERS];
    wchar_t stamp[PUBLISHED_CHARACTERS];
    const bool published = ReadPublished(ZORPM_POSTURE_KEY, ZORPM_POSTURE, &posture);
    ReadPublishedText(ZORPM_MULTIMODE_KEY, ZORPM_MULTIMODE_PREVIOUS, previous);
    ReadPublishedText(ZORPM_MULTIMODE_KEY, ZORPM_MULTIMODE_STAMP, stamp);
    const wchar_t* words = published ? PostureWords(posture) : g_notPublished;
    Record record(L"posture");
    AddText(&record, L"posture", words);
    AddNumber(&record, L"number", posture);
    AddText(&record, L"previous", previous);
    AddText(&record, L"published", stamp);
    Tell(&record, L"posture       %ls; before: %ls; published: %ls", words,
         previous[0] != L'\0' ? previous : g_notPublished, stamp[0] != L'\0' ? stamp : g_notPublished);
}

// One value in words.
static void TellState(const wchar_t* name, const wchar_t* key, const wchar_t* value,
                      const wchar_t* (*words)(DWORD)) {
    DWORD number = 0;
    const wchar_t* state = ReadPublished(key, value, &number) ? words(number) : g_notPublished;
    Record record(name);
    AddText(&record, L"state", state);
    Tell(&record, L"%-12ls  %ls", name, state);
}

static const wchar_t* OptionWords(DWORD option) {
    return option == ZORPM_TIO_OPTION_ATTACHED ? L"attached"
           : option == ZORPM_TIO_OPTION_NONE   ? L"none"
                                               : L"unknown";
}

static const wchar_t* DockWords(DWORD docked) {
    return docked != 0 ? L"docked" : L"undocked";
}

static void TellMasks(const HotkeyPage& page) {
    DWORD capability = 0;
    DWORD setting = 0;
    DWORD overridden = 0;
    DWORD pressed = 0;
    if (!ReadPublished(page.capability_key, page.capability_value, &capability))
        return;
    ReadPageSetting(page, &setting);
    ReadPublished(page.notification_key, page.capability_value, &pressed);
    if (page.page == 1)
        ReadPublished(ZORPM_HOTKEY_OVERRIDE_KEY, nullptr, &overridden);
    Record record(L"hotkeys");
    AddNumber(&record, L"page", page.page);
    AddNumber(&record, L"capability", capability);
    AddNumber(&record, L"notify", setting);
    AddNumber(&record, L"override", overridden);
    AddNumber(&record, L"notification", pressed);
    Tell(
        &record,
        L"hot keys      page %lu  capability 0x%08lx  notify 0x%08lx  override 0x%08lx  notification 0x%08lx",
        page.page, capability, setting, overridden, pressed);
}

static void TellCapabilities() {
    DWORD beep = 0;
    DWORD codes = 0;
    DWORD creation = 1;
    if (!ReadPublished(ZORPM_CAPABILITY_KEY, ZORPM_CAPABILITY_LID_BEEP, &beep))
        return;
    ReadPublished(ZORPM_CAPABILITY_KEY, ZORPM_CAPABILITY_CODES, &codes);
    ReadPublished(ZORPM_CAPABILITY_KEY, ZORPM_CAPABILITY_HIBERFILE, &creation);
    Record record(L"capabilities");
    AddFlag(&record, L"lid_beep", beep != 0);
    AddNumber(&record, L"control_codes", codes);
    AddFlag(&record, L"hibernation_file", creation != 0);
    Tell(&record, L"capabilities  lid beep %ls, control codes 0x%lx, hibernation file %ls",
         beep != 0 ? L"yes" : L"no", codes, creation != 0 ? L"allowed" : L"forbidden");
}

// Asks with 133, which overwrites the service-specific exit code: only when it is wanted.
static int TellInhibit() {
    InhibitAnswer answer = {};
    ServiceHolder holder;
    int result = OpenZorpmService(&holder, SERVICE_USER_DEFINED_CONTROL | SERVICE_QUERY_STATUS);
    if (result == CTL_DONE)
        result = AskInhibit(holder, &answer);
    if (result != CTL_DONE)
        return result;
    Record record(L"inhibit");
    AddText(&record, L"state", InhibitWords(answer.value));
    AddFlag(&record, L"fresh", answer.fresh);
    Tell(&record, L"lid inhibit   %ls%ls", InhibitWords(answer.value),
         answer.fresh || answer.value == 0 ? L"" : L", unless the driver has not answered");
    return CTL_DONE;
}

int RunStatus() {
    SERVICE_STATUS_PROCESS status = {};
    const bool running = QueryZorpmService(&status) && status.dwCurrentState == SERVICE_RUNNING;
    TellService(status);
    TellInterface(L"hot keys", ZORPM_HOTKEY_VERSION_KEY, nullptr);
    TellInterface(L"cooling 2", ZORPM_COOLING_V2_KEY, ZORPM_COOLING_VERSION);
    TellInterface(L"cooling 3", ZORPM_COOLING_V3_KEY, ZORPM_COOLING_VERSION);
    TellPosture();
    TellState(L"lid", ZORPM_POSTURE_KEY, ZORPM_LID, LidWords);
    TellState(L"option", ZORPM_COOLING_V3_KEY L"\\TIO", ZORPM_TIO_OPTION, OptionWords);
    TellState(L"dock", ZORPM_COOLING_V3_KEY L"\\DMC", ZORPM_COOLING_STATUS, DockWords);
    TellCooling();
    for (const HotkeyPage& page : g_hotkeyPages)
        TellMasks(page);
    TellCapabilities();
    if (!running && status.dwCurrentState != SERVICE_PAUSED) {
        Complain(L"the service is not running: the values are those that it left");
        return CTL_NOT_RUNNING;
    }
    return g_arguments.inhibit ? TellInhibit() : CTL_DONE;
}
