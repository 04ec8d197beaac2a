// One trace routine for the whole system, and what traces the entry and the end of every operation.
//
// In a release build (NDEBUG) all of it is empty: no argument is evaluated, and no text that only the trace
// prints is in the executable.
#pragma once

#include <windows.h>
#include <type_traits>

#ifdef NDEBUG

// The arguments are looked at by the compiler and nobody else.
int TraceNothing(const wchar_t* format, ...);
#define Trace(...)                               static_cast<void>(sizeof(TraceNothing(__VA_ARGS__)))
#define TRACE_NAME(text)                         L""
#define TRACED(name, call, ...)                  (call)
#define OPERATION(result, name, parameters, ...) result name parameters

#else

// Formats one message (wide printf format, at most 511 characters, cut beyond that) and hands it to the
// debugger. Keeps the thread's last-error code.
void Trace(const wchar_t* format, ...);

// A text of a table that only the trace prints.
#define TRACE_NAME(text) text

// The head of an operation, in front of its body:
//
//     OPERATION(BOOL, SetAdaptiveCoolingCurrentStatus, (DWORD setting), setting) {
//
// The trace shows each run as "Enter NAME(arguments)" and "Return NAME() 0x%08x", or "Exit NAME()" where
// there is no result. Whole numbers and texts are shown, and the words that an operation has given out with a
// result other than 0; other pointers are not.
#define OPERATION(result, name, parameters, ...)                                                             \
    result name parameters;                                                                                  \
    static result name##_Steps parameters;                                                                   \
    result name parameters {                                                                                 \
        return TRACED(L"" #name, name##_Steps(__VA_ARGS__), ##__VA_ARGS__);                                  \
    }                                                                                                        \
    static result name##_Steps parameters

// The same for an operation whose name is in a table: `call` is its expression; the arguments are only shown.
#define TRACED(name, call, ...)                                                                              \
    TraceCall(                                                                                               \
        name, [&] { return call; }, ##__VA_ARGS__)

constexpr DWORD TRACE_CHARACTERS = 512;

// The arguments of one line, growing.
struct TraceLine {
    wchar_t text[TRACE_CHARACTERS];
};

void AppendNumber(TraceLine* line, DWORD number);
void AppendText(TraceLine* line, const wchar_t* text);

template <typename Value>
void AppendArgument([[maybe_unused]] TraceLine* line, [[maybe_unused]] const Value& value) {
    using Plain = std::decay_t<Value>;
    if constexpr (std::is_integral_v<Plain> || std::is_enum_v<Plain>)
        AppendNumber(line, static_cast<DWORD>(value));
    else if constexpr (std::is_same_v<Plain, const wchar_t*>)
        AppendText(line, value);
}

// A word that the caller gets through a pointer.
template <typename Value>
constexpr bool GIVEN_OUT =
    std::is_same_v<Value, DWORD*> || std::is_same_v<Value, UINT*> || std::is_same_v<Value, BOOL*>;

template <typename Value>
void AppendAnswer([[maybe_unused]] TraceLine* line, [[maybe_unused]] const Value& value) {
    if constexpr (GIVEN_OUT<Value>) {
        if (value != nullptr)
            AppendNumber(line, static_cast<DWORD>(*value));
    }
}

template <typename Call, typename... Arguments>
auto TraceCall(const wchar_t* name, Call call, const Arguments&... arguments) {
    TraceLine line = {};
    (AppendArgument(&line, arguments), ...);
    Trace(L"Enter %ls(%ls)\n", name, line.text);
    if constexpr (std::is_void_v<decltype(call())>) {
        call();
        Trace(L"Exit %ls()\n", name);
    } else {
        const auto result = call();
        line.text[0] = L'\0';
        if (result)
            (AppendAnswer(&line, arguments), ...);
        DWORD shown = 0;
        if constexpr (std::is_pointer_v<decltype(call())>)
            shown = result != nullptr;
        else
            shown = static_cast<DWORD>(result);
        Trace(line.text[0] != L'\0' ? L"Return %ls() 0x%08x, %ls\n" : L"Return %ls() 0x%08x\n", name, shown,
              line.text);
        return result;
    }
}

#endif
