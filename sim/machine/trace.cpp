#include "sim/machine/trace.h"

#include <cstdarg>

#include "sim/machine/machine.h"

namespace sim {

static void add_line(std::string text, bool effect) {
    Machine& m = machine();
    TraceLine line{m.now, m.running != nullptr ? m.running->name : "machine", std::move(text), effect};
    if (effect) {
        auto mix = [&m](std::string_view bytes) {
            for (const char c : bytes)
                m.trace_hash = (m.trace_hash ^ static_cast<unsigned char>(c)) * HASH_PRIME;
        };
        mix(std::to_string(line.time));
        mix(line.thread);
        mix(line.text);
    }
    if (m.on_line != nullptr)
        m.on_line(line);
    if (m.keep_trace)
        m.trace.push_back(std::move(line));
}

void trace(const char* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    add_line(format_list(pattern, arguments), true);
    va_end(arguments);
}

void trace_detail(const char* pattern, ...) {
    if (!machine().keep_details)
        return;
    va_list arguments;
    va_start(arguments, pattern);
    add_line(format_list(pattern, arguments), false);
    va_end(arguments);
}

void violation(const char* pattern, ...) {
    Machine& m = machine();
    va_list arguments;
    va_start(arguments, pattern);
    std::string text = format_list(pattern, arguments);
    va_end(arguments);
    if (m.running != nullptr)
        text += " (thread " + m.running->name + ")";
    m.violations.push_back(std::move(text));
}

} // namespace sim
