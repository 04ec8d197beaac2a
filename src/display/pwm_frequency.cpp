#include "display/pwm_frequency.h"

#include <atomic>
#include <objbase.h>

#include "common/trace.h"
#include "display/cui_external.h"
#include "driver/device.h"

// 1 once connected. Both live as long as the process.
static std::atomic<DWORD> g_dwCUIConnected{0};
static ICUIExternal* g_pCUIExternal;

constexpr DWORD ALL_SERVERS = CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER;
static_assert(ALL_SERVERS == 0x15);

OPERATION(DWORD, Open5nitInterface, ()) {
    const HRESULT initialised = CoInitialize(nullptr);
    if (initialised != S_OK) {
        // S_FALSE (COM was in use on this thread already) counts as a failure too, but must be balanced.
        if (SUCCEEDED(initialised))
            CoUninitialize();
        return 0;
    }
    CLSID graphics = {};
    HRESULT result = CLSIDFromProgID(L"IgfxExt.CUIExternal", &graphics);
    if (SUCCEEDED(result))
        result = CoCreateInstance(graphics, nullptr, ALL_SERVERS, g_cuiExternalInterface,
                                  reinterpret_cast<void**>(&g_pCUIExternal));
    if (FAILED(result)) {
        Trace(L"Open5nitInterface(): Error: no graphics interface. (0x%08x)\n", result);
        CoUninitialize();
        return 0;
    }
    return 1;
}

static void SendPWMS(DWORD frequency) {
    SendOneWord(IOCTL_PMDRV_PWMSET, frequency, nullptr, FULL_ACCESS, FULL_SHARE);
}

static OPERATION(BOOL, SetInverterFrequency, (DWORD frequency), frequency) {
    InverterParams params = {};
    DWORD error = 0;
    if (g_pCUIExternal->methods->GetInverterParams(g_pCUIExternal, &g_inverterParamsGuid, 1, sizeof(params),
                                                   &params, &error) != S_OK) {
        Trace(L"Fail to call GetInverterParams. ErrCode = %.8X", error);
        return FALSE;
    }
    params.ulInverterFrequency = frequency;
    error = 0;
    if (g_pCUIExternal->methods->SetInverterParams(g_pCUIExternal, &g_inverterParamsGuid, 1, sizeof(params),
                                                   &params, &error) != S_OK) {
        Trace(L"Fail to call SetInverterParams. ErrCode = %.8X", error);
        return FALSE;
    }
    return TRUE;
}

OPERATION(DWORD, ChangePWMFrequency, ()) {
    if (g_dwCUIConnected == 0)
        g_dwCUIConnected = Open5nitInterface();
    if (g_dwCUIConnected == 0) {
        Trace(L"Fail to connect IntelCUI interface. Call PWMS with 0.");
        SendPWMS(0);
        return 0;
    }
    DWORD frequency = 0;
    SendOneWord(IOCTL_PMDRV_PWMGET, 0, &frequency, FULL_ACCESS, FULL_SHARE);
    if (frequency == 0) {
        Trace(L"Fail to call PWMR. Exiting ChangePWMFrequency...");
        return 0;
    }
    SendPWMS(SetInverterFrequency(frequency) ? frequency : 0);
    return 0;
}

OPERATION(void, Close5nitInterface, ()) {
    // The connection belongs to the apartment of the event thread, which has been terminated by now;
    // releasing it or ending COM from another thread would act on the wrong apartment. The end of the process
    // does both.
    if (g_dwCUIConnected.exchange(0) != 0)
        Trace(L"Close5nitInterface(): connection left to the end of the process\n");
}
