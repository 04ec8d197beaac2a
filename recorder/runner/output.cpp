#include "recorder/runner/output.h"

#include <cstdarg>
#include <cstdio>

#include "recorder/clock/turns.h"
#include "recorder/real.h"

namespace runner {

void say_line(const std::string& line) {
    const std::string text = line + "\n";
    DWORD written = 0;
    for (size_t at = 0; at < text.size(); at += written) {
        if (!REAL(WriteFile)(GetStdHandle(STD_OUTPUT_HANDLE), text.data() + at,
                             static_cast<DWORD>(text.size() - at), &written, nullptr))
            ExitProcess(4); // nobody listens
    }
}

bool read_line(std::string* line) {
    static std::string input;
    size_t end = input.find('\n');
    while (end == std::string::npos) {
        char block[4096];
        DWORD read = 0;
        if (!REAL(ReadFile)(GetStdHandle(STD_INPUT_HANDLE), block, sizeof(block), &read, nullptr) ||
            read == 0)
            return false;
        input.append(block, read);
        end = input.find('\n');
    }
    *line = input.substr(0, end);
    input.erase(0, end + 1);
    return true;
}

void effect_of(const char* thread, const std::string& text) {
    say_line("effect " + std::to_string(turns::now()) + " " + (*thread != 0 ? thread : "machine") + "\t" +
             text); // a thread's name may have blanks
}

void effect(const char* pattern, ...) {
    const DWORD error = GetLastError();
    char text[4096];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof(text), pattern, arguments);
    va_end(arguments);
    effect_of(turns::thread_name(), text);
    SetLastError(error);
}

void broken(const std::string& what) {
    say_line("broken " + what);
    ExitProcess(1);
}

} // namespace runner
