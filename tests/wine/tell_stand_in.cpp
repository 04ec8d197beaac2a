// Speaks to the stand-in driver: what it answers and what is there, and what came. The words are the table
// below; methods and devices have the names of the scenario language, numbers are hexadecimal. What it looks
// for may come within two seconds.
#include "stand_in_client.h"

using namespace stand_in;

static DWORD word(const wchar_t* text) {
    return _wcsicmp(text, L"all") == 0 ? STAND_IN_ALL : wcstoul(text, nullptr, 16);
}

static int done(bool told) {
    if (!told)
        std::printf("refused, error %lu\n", GetLastError());
    return told ? 0 : 1;
}

static bool read_answer(int count, wchar_t** words, StandInAnswer* answer) {
    *answer = {{}, 0, 0, STAND_IN_ALL, 0};
    if (!read_which(words[0], &answer->which))
        return false;
    int next = 2;
    if (_wcsicmp(words[1], L"fails") == 0)
        answer->fails = 1;
    else
        answer->value = word(words[1]);
    for (; next + 1 < count; next += 2) {
        if (_wcsicmp(words[next], L"bytes") == 0)
            answer->bytes = word(words[next + 1]);
        else if (_wcsicmp(words[next], L"times") == 0)
            answer->times = word(words[next + 1]);
        else
            return false;
    }
    return next == count;
}

static int say_answer(int count, wchar_t** words) {
    StandInAnswer answer;
    return read_answer(count, words, &answer) ? done(tell(STAND_IN_ANSWER, answer)) : 2;
}

static int say_takes(int count, wchar_t** words) {
    StandInTakes takes = {};
    if (!read_which(words[0], &takes.which) || count - 1 > STAND_IN_DURATIONS)
        return 2;
    for (int i = 1; i < count; ++i)
        takes.milliseconds[takes.count++] = word(words[i]);
    return done(tell(STAND_IN_TAKES, takes));
}

static int reset(int, wchar_t**) {
    return done(ask(STAND_IN_RESET, nullptr, 0, nullptr, 0) != STAND_IN_ALL);
}

static int post_event(int count, wchar_t** words) {
    return done(tell(STAND_IN_EVENT, {word(words[0]), count > 1 ? word(words[1]) : 0}));
}

static int post_events(int count, wchar_t** words) {
    for (int i = 0; i < count; ++i) {
        if (!tell(STAND_IN_EVENT, {word(words[i]), 0}))
            return done(false);
    }
    return 0;
}

static int signal(int, wchar_t** words) {
    const DWORD number = word(words[0]);
    DWORD registered = 0;
    return ask(STAND_IN_SIGNAL, &number, sizeof(number), &registered, sizeof(registered)) ==
                       sizeof(registered) &&
                   registered != 0
               ? 0
               : 1;
}

static int set_present(int, wchar_t** words) {
    DWORD device = 0;
    return read_device(words[0], &device) ? done(tell(STAND_IN_PRESENT, {device, word(words[1])})) : 2;
}

static int change(int, wchar_t** words) {
    DWORD device = 0;
    return read_device(words[0], &device) ? done(tell(STAND_IN_CHANGE, {device, word(words[1])})) : 2;
}

static int set_failures(int, wchar_t** words) {
    StandInFailures failures = {0, _wcsicmp(words[1], L"writes") == 0, word(words[2])};
    return read_device(words[0], &failures.interface_number) ? done(tell(STAND_IN_FAILURES, failures)) : 2;
}

static int release(int, wchar_t**) {
    StandInHeld oldest = {};
    for (int i = 0; i < 20; ++i) {
        if (ask(STAND_IN_HELD, nullptr, 0, &oldest, sizeof(oldest)) == sizeof(oldest))
            return done(ask(STAND_IN_RELEASE, &oldest.number, sizeof(DWORD), nullptr, 0) != STAND_IN_ALL);
        Sleep(100);
    }
    std::printf("no request is held\n");
    return 1;
}

static int show_log(int, wchar_t**) {
    for_rows(0, [](const StandInRow& row) {
        char text[160];
        show_row(row, text, sizeof(text));
        std::printf("%s\n", text);
    });
    return 0;
}

// ---- looking ----

static bool find_device(const wchar_t* text, DWORD* number) {
    return read_device(text, number);
}

static bool find_method(const wchar_t* text, DWORD* number) {
    StandInWhich which = {};
    const bool found = read_which(text, &which);
    *number = which.code;
    return found;
}

static int look_for(wchar_t** words, bool (*find)(const wchar_t*, DWORD*), DWORD (*look)(DWORD)) {
    DWORD number = 0;
    DWORD found = 0;
    if (!find(words[0], &number))
        return 2;
    for (int i = 0; i < 20; ++i) {
        found = look(number);
        if (found == word(words[1]))
            return 0;
        Sleep(100);
    }
    std::printf("%ls: found 0x%lx\n", words[0], found);
    return 1;
}

static int look_for_last(int, wchar_t** words) {
    return look_for(words, find_method, [](DWORD code) {
        DWORD first = STAND_IN_ALL;
        for_rows(0, [&](const StandInRow& row) {
            if (row.kind == STAND_IN_ROW_REQUEST && row.code == code)
                first = row.in[0];
        });
        return first;
    });
}

static int look_for_state(int, wchar_t** words) {
    return look_for(words, find_device, [](DWORD device) {
        DWORD state = STAND_IN_ALL;
        ask(STAND_IN_STATE, &device, sizeof(device), &state, sizeof(state));
        return state;
    });
}

static int look_for_writes(int, wchar_t** words) {
    return look_for(words, find_device, [](DWORD device) {
        DWORD count = 0;
        for_rows(0, [&](const StandInRow& row) {
            count += row.kind == STAND_IN_ROW_WRITE && row.device == device;
        });
        return count;
    });
}

// clang-format off
static const struct {
    const wchar_t* name;
    int least; // words behind it
    int most;
    int (*act)(int count, wchar_t** words);
} g_words[] = {
    {L"reset",    0, 0, reset},
    {L"answer",   2, 6, say_answer},      // METHOD[(ARG)] VALUE|fails [bytes N] [times N]
    {L"takes",    2, 9, say_takes},       // METHOD[(ARG)] MS...
    {L"release",  0, 0, release},         // the oldest request that is held
    {L"event",    1, 2, post_event},      // CODE [SECOND]
    {L"events",   1, 64, post_events},    // CODE...
    {L"signal",   1, 1, signal},          // NUMBER of a driver's event; 1 when none is registered
    {L"present",  2, 2, set_present},     // DEVICE 1|0
    {L"change",   2, 2, change},          // DEVICE BYTE
    {L"failures", 3, 3, set_failures},    // DEVICE reads|writes N|all
    {L"log",      0, 0, show_log},
    {L"last",     2, 2, look_for_last},   // METHOD WORD: the last such request began with WORD
    {L"state",    2, 2, look_for_state},  // DEVICE BYTE
    {L"writes",   2, 2, look_for_writes}, // DEVICE N: so many since the reset
};
// clang-format on

int wmain(int argc, wchar_t** argv) {
    for (const auto& row : g_words) {
        if (argc > 1 && _wcsicmp(row.name, argv[1]) == 0 && argc - 2 >= row.least && argc - 2 <= row.most)
            return row.act(argc - 2, argv + 2);
    }
    std::printf("no such request\n");
    return 2;
}
