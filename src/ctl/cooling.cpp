#include <windows.h>
#include <strsafe.h>

#include "ctl/ctl.h"
#include "ctl/output.h"
#include "ctl/service_link.h"

namespace {

struct CoolingFunction {
    const wchar_t* subkey;
    const wchar_t* key;
    const wchar_t* name;
};

} // namespace

static const CoolingFunction g_functions[] = {
#define COOLING_FUNCTION(bit, subkey, name, status)                                                          \
    {L"" #subkey, ZORPM_COOLING_V3_KEY L"\\" #subkey, L"" name},
    ZORPM_COOLING_FUNCTIONS(COOLING_FUNCTION)
#undef COOLING_FUNCTION
};

static bool TellFunction(const CoolingFunction& function) {
    DWORD capability = 0;
    DWORD setting = 0;
    DWORD status = 0;
    if (!ReadPublished(function.key, ZORPM_COOLING_CAPABILITY, &capability))
        return false;
    ReadPublished(function.key, ZORPM_COOLING_SETTING, &setting);
    ReadPublished(function.key, ZORPM_COOLING_STATUS, &status);
    Record record(L"cooling");
    AddText(&record, L"function", function.subkey);
    AddText(&record, L"name", function.name);
    AddFlag(&record, L"announced", capability != 0);
    AddFlag(&record, L"enabled", setting != 0);
    AddNumber(&record, L"status", status);
    Tell(&record, L"cooling       %-4ls  %-22ls  %-13ls  %-3ls  last state %lu", function.subkey,
         function.name, capability != 0 ? L"announced" : L"not announced", setting != 0 ? L"on" : L"off",
         status);
    return true;
}

static bool TellVersion2() {
    DWORD capability = 0;
    DWORD setting = 0;
    if (!ReadPublished(ZORPM_COOLING_V2_KEY, ZORPM_COOLING_CAPABILITY, &capability))
        return false;
    ReadPublished(ZORPM_COOLING_V2_KEY, ZORPM_COOLING_SETTING, &setting);
    Record record(L"cooling");
    AddText(&record, L"function", L"TMCT");
    AddText(&record, L"name", L"Adaptive Cooling");
    AddFlag(&record, L"announced", capability != 0);
    AddFlag(&record, L"enabled", setting != 0);
    Tell(&record, L"cooling       %-4ls  %-22ls  %-13ls  %ls", L"TMCT", L"Adaptive Cooling",
         capability != 0 ? L"announced" : L"not announced", setting != 0 ? L"on" : L"off");
    return true;
}

DWORD TellCooling() {
    DWORD published = TellVersion2() ? 1 : 0;
    for (const CoolingFunction& function : g_functions)
        published += TellFunction(function) ? 1 : 0;
    return published;
}

static int CoolingStatus() {
    if (TellCooling() != 0)
        return CTL_DONE;
    Complain(L"no cooling function is published");
    return CTL_REFUSED;
}

namespace {

// A value that shows whether the service did what a code asked for.
struct Witness {
    const wchar_t* key;
    const wchar_t* name;
};

struct CoolingCommand {
    const wchar_t* words[2]; // null: none
    DWORD code;
    DWORD value;
    Witness witnesses[2]; // one of them must hold `value` afterwards; none: nothing shows it
    const wchar_t* refused;
};

} // namespace

#define TIO_KEY ZORPM_COOLING_V3_KEY L"\\TIO"
#define DCC_KEY ZORPM_COOLING_V3_KEY L"\\DCC"
#define TIO_REFUSED                                                                                          \
    L"the firmware has not accepted it, or this machine has neither cooling interface 2 nor Two In One"
#define DCC_REFUSED  L"the firmware has not accepted it"
#define HAND_REFUSED L"Two In One is not announced or not enabled"

// clang-format off
static const CoolingCommand g_commands[] = {
    {{L"disable", nullptr},   SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DISABLE, 0,
     {{TIO_KEY, ZORPM_COOLING_SETTING}, {ZORPM_COOLING_V2_KEY, ZORPM_COOLING_SETTING}}, TIO_REFUSED},
    {{L"enable", nullptr},    SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_ENABLE, 1,
     {{TIO_KEY, ZORPM_COOLING_SETTING}, {ZORPM_COOLING_V2_KEY, ZORPM_COOLING_SETTING}}, TIO_REFUSED},
    {{L"restart", nullptr},   SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_RESTART, 0,
     {}, nullptr},
    {{L"graphics", L"off"},   SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DYNAMIC_CPU_CONTROL_DISABLE, 0,
     {{DCC_KEY, ZORPM_COOLING_SETTING}, {}}, DCC_REFUSED},
    {{L"graphics", L"on"},    SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DYNAMIC_CPU_CONTROL_ENABLE, 1,
     {{DCC_KEY, ZORPM_COOLING_SETTING}, {}}, DCC_REFUSED},
    {{L"hand", L"off"},       SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DYNAMIC_ON_HAND_UNDETECTED, 0,
     {{TIO_KEY, ZORPM_TIO_ON_HAND}, {}}, HAND_REFUSED},
    {{L"hand", L"on"},        SERVICE_CONTROL_MESSAGE_SET_ADAPTIVE_COOLING_DYNAMIC_ON_HAND_DETECTED, 1,
     {{TIO_KEY, ZORPM_TIO_ON_HAND}, {}}, HAND_REFUSED},
};
// clang-format on

static bool Witnessed(const CoolingCommand& command) {
    if (command.witnesses[0].key == nullptr)
        return true;
    for (const Witness& witness : command.witnesses) {
        DWORD value = 0;
        if (witness.key != nullptr && ReadPublished(witness.key, witness.name, &value) &&
            (value != 0) == (command.value != 0))
            return true;
    }
    return false;
}

// The codes report no result, but they are carried out before ControlService returns.
static int SendCommand(const CoolingCommand& command) {
    const int sent = SendControl(command.code);
    if (sent != CTL_DONE || Witnessed(command))
        return sent;
    Complain(L"%ls", command.refused);
    return CTL_REFUSED;
}

int RunCooling() {
    if (ArgumentIs(0, L"status") && g_arguments.count == 1)
        return CoolingStatus();
    for (const CoolingCommand& command : g_commands) {
        const DWORD words = command.words[1] != nullptr ? 2 : 1;
        if (g_arguments.count == words && ArgumentIs(0, command.words[0]) &&
            (words == 1 || ArgumentIs(1, command.words[1])))
            return SendCommand(command);
    }
    return WrongUse();
}
