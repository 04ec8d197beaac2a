#include "common/holders.h"
#include "ctl/ctl.h"
#include "ctl/output.h"
#include "ctl/service_link.h"
#include "formfactor/mode_switch.h"

constexpr DWORD RETRY_LIMIT_MS = 1000;
constexpr DWORD RETRY_PAUSE_MS = 50;
constexpr DWORD SETTLE_MS = 500;
constexpr DWORD TURN_LIMIT_MS = 5000;

// Held from the look at the setting to the end of the press: of two words at once, the second one sees what
// the first one has done. Local to the session, where the keys are.
#define ROTATION_MUTEX L"ZorpmctlRotation"

namespace {

// What the word wants Windows' auto-rotation to be.
enum class Wanted { Off, On, Other };

struct RotationWord {
    const wchar_t* word;
    Wanted wanted;
};

} // namespace

static const RotationWord g_words[] = {
    {L"TabletToClamshellForHarrow", Wanted::Off},
    {L"ClamshellToTabletForHarrow", Wanted::On},
    {L"FlipButtonForHarrow", Wanted::Other},
};

// The platform has a rotation lock that the service steers, and Windows a setting that shows it.
static int ReadRotation(bool* on) {
    DWORD harrow = 0;
    DWORD enable = 0;
    if (!ReadPublished(ZORPM_ROTATION_KEY, ZORPM_ROTATION_HARROW, &harrow) || harrow != 1) {
        Complain(L"not on this platform: HRSPMode is not 1");
        return CTL_REFUSED;
    }
    if (!ReadPublished(ZORPM_AUTOROTATION_KEY, ZORPM_AUTOROTATION_ENABLE, &enable)) {
        Complain(L"this Windows has no auto-rotation setting");
        return CTL_REFUSED;
    }
    *on = (enable & 1) != 0;
    return CTL_DONE;
}

// The service opens the button unshared as well; then its press comes first.
static int PressButton() {
    for (DWORD waited_ms = 0;; waited_ms += RETRY_PAUSE_MS) {
        if (RotationLockButtonPress())
            return CTL_DONE;
        const DWORD error = GetLastError();
        if (error == ERROR_ACCESS_DENIED)
            return NotAllowed(Right::PressButton);
        if (error != ERROR_SHARING_VIOLATION || waited_ms >= RETRY_LIMIT_MS) {
            Complain(L"the rotation-lock button cannot be pressed, error %lu", error);
            return CTL_REFUSED;
        }
        Sleep(RETRY_PAUSE_MS);
    }
}

// One look, and a press where the setting is not the wanted one.
static int LookAndPress(Wanted wanted) {
    bool on = false;
    const int read = ReadRotation(&on);
    if (read != CTL_DONE || (wanted != Wanted::Other && on == (wanted == Wanted::On)))
        return read;
    return PressButton();
}

static int Rotate(Wanted wanted) {
    const int result = LookAndPress(wanted);
    if (result != CTL_DONE || wanted == Wanted::Other)
        return result;
    // The service may have pressed for the same change of posture, at the same time: two presses are none.
    Sleep(SETTLE_MS);
    return LookAndPress(wanted);
}

int RunRotation() {
    for (const RotationWord& row : g_words) {
        if (lstrcmpiW(g_arguments.command, row.word) != 0)
            continue;
        const HandleHolder turn(CreateMutexW(nullptr, FALSE, ROTATION_MUTEX));
        const DWORD wait = turn.Valid() ? WaitForSingleObject(turn.handle, TURN_LIMIT_MS) : WAIT_FAILED;
        const int result = Rotate(row.wanted);
        if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED)
            ReleaseMutex(turn.handle);
        return result;
    }
    return WrongUse();
}
