#include <windows.h>
#include <strsafe.h>

#include "ctl/ctl.h"
#include "ctl/output.h"

Arguments g_arguments;

constexpr DWORD MOST_TIMEOUT_S = 4000000; // fits milliseconds in 32 bits

bool ArgumentIs(DWORD index, const wchar_t* word) {
    return index < g_arguments.count && lstrcmpiW(g_arguments.words[index], word) == 0;
}

bool ReadNumber(const wchar_t* text, DWORD* number) {
    ULONGLONG value = 0;
    if (*text == L'\0')
        return false;
    for (; *text != L'\0'; ++text) {
        if (*text < L'0' || *text > L'9')
            return false;
        value = value * 10 + static_cast<DWORD>(*text - L'0');
        if (value > 0xFFFFFFFF)
            return false;
    }
    *number = static_cast<DWORD>(value);
    return true;
}

static const wchar_t* SkipBlanks(const wchar_t* at) {
    while (*at == L' ' || *at == L'\t')
        ++at;
    return at;
}

// Takes the next argument off *rest: blanks part arguments, quotes hold blanks, a backslash before a quote
// makes it a plain one. No argument here holds more. False at the end of the line; an argument that does not
// fit is cut and counts as unknown.
static bool NextArgument(const wchar_t** rest, wchar_t (&argument)[ARGUMENT_CHARACTERS]) {
    const wchar_t* at = SkipBlanks(*rest);
    if (*at == L'\0')
        return false;
    DWORD length = 0;
    bool quoted = false;
    for (; *at != L'\0' && (quoted || (*at != L' ' && *at != L'\t')); ++at) {
        if (*at == L'"') {
            quoted = !quoted;
            continue;
        }
        if (at[0] == L'\\' && at[1] == L'"')
            ++at;
        if (length + 1 < ARGUMENT_CHARACTERS)
            argument[length++] = *at;
    }
    argument[length] = L'\0';
    *rest = at;
    return true;
}

static int ReadTimeout(const wchar_t** rest) {
    wchar_t text[ARGUMENT_CHARACTERS];
    if (!NextArgument(rest, text) || !ReadNumber(text, &g_arguments.timeout_s) ||
        g_arguments.timeout_s > MOST_TIMEOUT_S) {
        Complain(L"--timeout wants a number of seconds, %lu at most", MOST_TIMEOUT_S);
        return CTL_WRONG_USE;
    }
    g_arguments.timed = true;
    return CTL_DONE;
}

// An option: one that is a switch sets it.
static int ReadOption(const wchar_t* option, const wchar_t** rest) {
    static const struct {
        const wchar_t* option;
        bool* flag;
    } switches[] = {
        {L"--json", &g_arguments.json},
        {L"--inhibit", &g_arguments.inhibit},
        {L"--help", &g_arguments.help},
        {L"--version", &g_arguments.version},
    };
    for (const auto& row : switches) {
        if (lstrcmpiW(option, row.option) == 0) {
            *row.flag = true;
            return CTL_DONE;
        }
    }
    if (lstrcmpiW(option, L"--timeout") == 0)
        return ReadTimeout(rest);
    Complain(L"unknown option %ls; see zorpmctl --help", option);
    return CTL_WRONG_USE;
}

// The command's word, or one of its arguments.
static int ReadWord(const wchar_t* word) {
    if (g_arguments.command[0] == L'\0') {
        StringCchCopyW(g_arguments.command, ARGUMENT_CHARACTERS, word);
        return CTL_DONE;
    }
    if (g_arguments.count == MOST_ARGUMENTS) {
        Complain(L"too many arguments at %ls; see zorpmctl --help", word);
        return CTL_WRONG_USE;
    }
    StringCchCopyW(g_arguments.words[g_arguments.count++], ARGUMENT_CHARACTERS, word);
    return CTL_DONE;
}

int ReadArguments(const wchar_t* command_line) {
    g_arguments = {};
    g_arguments.timeout_s = DEFAULT_TIMEOUT_S;
    g_arguments.tail = L"";
    wchar_t argument[ARGUMENT_CHARACTERS];
    for (const wchar_t* rest = command_line;;) {
        const wchar_t* start = SkipBlanks(rest);
        if (!NextArgument(&rest, argument))
            return CTL_DONE;
        const bool option = argument[0] == L'-' && argument[1] == L'-';
        // What stands behind inhibit-lid is another program's command line: it is handed on untouched.
        if (!option && lstrcmpiW(g_arguments.command, L"inhibit-lid") == 0) {
            g_arguments.tail = start;
            return CTL_DONE;
        }
        const int read = option ? ReadOption(argument, &rest) : ReadWord(argument);
        if (read != CTL_DONE)
            return read;
    }
}
