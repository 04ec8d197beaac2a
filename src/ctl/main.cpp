// The entry: the command line, the table of commands, help. The program is one of the Windows subsystem, so
// that no console window flashes when a key starts it; at a prompt it writes to the console that it was
// started from.
#include "ctl/ctl.h"
#include "ctl/output.h"

namespace {

struct Command {
    const wchar_t* word;
    int (*run)();
    DWORD most; // arguments that it takes
    const wchar_t* use;
    const wchar_t* help[6]; // lines; up to the first null
};

} // namespace

// clang-format off
static const Command g_commands[] = {
    {L"status", RunStatus, 0, L"status [--json] [--inhibit]",
     {L"What the service publishes: its state, interface versions, posture, lid, option, dock,",
      L"cooling functions, hot-key masks and capabilities. --inhibit also asks for the lid",
      L"inhibit; that overwrites the service-specific exit code that other programs may read."}},
    {L"watch", RunWatch, 1, L"watch [hotkeys|events|cooling|all] [--json]",
     {L"One line a change, until Ctrl-C or for --timeout seconds."}},
    {L"hotkey", RunHotkey, 2, L"hotkey list | notify N | bios N | override N | release N",
     {L"Lists the hot keys; has key N notify programs or lets the firmware handle it; takes the",
      L"service's own action of a key over, or gives it back. N is a key of the first page (12) or",
      L"PAGE:N (2:12, 3:5). Changing takes the rights of an administrator."}},
    {L"inhibit-lid", RunInhibitLid, 0, L"inhibit-lid [COMMAND ARG...]",
     {L"Keeps the closed lid from putting the machine to sleep while COMMAND runs, or until Ctrl-C",
      L"or for --timeout seconds. The service ends an inhibit after five minutes of closed lid.",
      L"Inhibits are not counted: the first one that is ended ends those of all programs.",
      L"The exit status is that of COMMAND."}},
    {L"cooling", RunCooling, 2, L"cooling status | enable | disable | restart | hand on|off | graphics on|off",
     {L"Shows the thermal functions; switches the one that follows the keyboard option, or the one",
      L"that follows the graphics temperature; starts cooling anew; reports the machine as held in",
      L"the hand."}},
    {L"TabletToClamshellForHarrow", RunRotation, 0, L"TabletToClamshellForHarrow",
     {L"Locks the screen's rotation, unless it is locked. Harrow platform."}},
    {L"ClamshellToTabletForHarrow", RunRotation, 0, L"ClamshellToTabletForHarrow",
     {L"Lets the screen rotate, unless it does. Harrow platform."}},
    {L"FlipButtonForHarrow", RunRotation, 0, L"FlipButtonForHarrow",
     {L"Presses the rotation lock once. Harrow platform."}},
};
// clang-format on

static const Command* FindCommand(const wchar_t* word) {
    for (const Command& command : g_commands) {
        if (lstrcmpiW(command.word, word) == 0)
            return &command;
    }
    return nullptr;
}

static int TellCommand(const wchar_t* word) {
    const Command* command = FindCommand(word);
    if (command == nullptr) {
        Complain(L"unknown command %ls; see zorpmctl --help", word);
        return CTL_WRONG_USE;
    }
    Print(L"zorpmctl %ls", command->use);
    for (const wchar_t* line : command->help) {
        if (line == nullptr)
            break;
        Print(L"    %ls", line);
    }
    return CTL_DONE;
}

static int TellHelp() {
    Print(L"zorpmctl, control program of the power-management service " ZORPM_SERVICE_NAME);
    for (const Command& command : g_commands)
        Print(L"    zorpmctl %ls", command.use);
    Print(L"    zorpmctl help COMMAND | --help | --version");
    Print(L"--timeout S: seconds to wait for the service, %lu; watch and inhibit-lid end after them",
          DEFAULT_TIMEOUT_S);
    Print(L"Exit status: 0 done, 1 refused, 2 usage, 3 service not running, 4 not allowed");
    return CTL_DONE;
}

int WrongUse() {
    const Command* command = FindCommand(g_arguments.command);
    Complain(L"use: zorpmctl %ls", command != nullptr ? command->use : L"--help");
    return CTL_WRONG_USE;
}

static int RunCommand() {
    const bool help = lstrcmpiW(g_arguments.command, L"help") == 0;
    if (g_arguments.version) {
        Print(L"zorpmctl " ZORPM_VERSION);
        return CTL_DONE;
    }
    if (help && g_arguments.count == 1)
        return TellCommand(g_arguments.words[0]);
    if (g_arguments.command[0] == L'\0' && !g_arguments.help) {
        TellHelp();
        return CTL_WRONG_USE;
    }
    if (help || g_arguments.command[0] == L'\0')
        return TellHelp();
    if (g_arguments.help)
        return TellCommand(g_arguments.command);
    const Command* command = FindCommand(g_arguments.command);
    if (command == nullptr)
        return TellCommand(g_arguments.command);
    if (g_arguments.count > command->most || (g_arguments.inhibit && command->run != RunStatus))
        return WrongUse();
    return command->run();
}

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR command_line, int) {
    OpenOutput();
    const int read = ReadArguments(command_line);
    return read == CTL_DONE ? RunCommand() : read;
}
