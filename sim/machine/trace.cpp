#include "sim/machine/trace.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <utility>

#include "sim/machine/machine.h"

namespace sim {

// Eight bytes at a time; the length tells where a text ends.
static void mix(std::string_view text) {
    std::uint64_t hash = (machine().trace_hash ^ text.size()) * HASH_PRIME;
    for (size_t at = 0; at < text.size(); at += sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data() + at, std::min(sizeof(word), text.size() - at));
        hash = (hash ^ word) * HASH_PRIME;
        hash ^= hash >> 32;
    }
    machine().trace_hash = hash;
}

static std::string running_name() {
    const Thread* thread = machine().running;
    return thread != nullptr ? thread->name : "machine";
}

constexpr std::ptrdiff_t LINES_AT_HAND = 100; // that nobody asks for; for whoever wants to see the last ones

static void put_line(TraceLine line) {
    Machine& m = machine();
    if (m.on_line != nullptr)
        m.on_line(line);
    if (!m.keep_trace)
        return;
    if (m.forget_trace && !m.trace_asked && std::ssize(m.trace) >= 2 * LINES_AT_HAND) {
        m.forgotten += m.trace.size() - LINES_AT_HAND;
        m.trace.erase(m.trace.begin(), m.trace.end() - LINES_AT_HAND);
    }
    m.trace.push_back(std::move(line));
}

void show_noted_call() {
    TraceLine& noted = machine().noted_call;
    if (!noted.text.empty())
        put_line(std::exchange(noted, {}));
}

void note_call(const char* name) {
    if (!machine().keep_details || machine().running == nullptr)
        return;
    show_noted_call();
    machine().noted_call = {machine().now, running_name(), name, false};
}

void drop_noted_call(const char* name) {
    TraceLine& noted = machine().noted_call;
    if (noted.text == name && noted.thread == running_name())
        noted = {};
}

static void add_line(std::string text, bool effect) {
    Machine& m = machine();
    TraceLine line{m.now, running_name(), std::move(text), effect};
    if (m.noted_call.thread == line.thread)
        m.noted_call = {};
    show_noted_call();
    if (effect) {
        m.trace_hash = (m.trace_hash ^ line.time) * HASH_PRIME;
        mix(line.thread);
        mix(line.text);
        note_effect(line);
    }
    put_line(std::move(line));
}

void trace(const char* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    add_line(format_list(pattern, arguments), true);
    va_end(arguments);
}

bool keeps_details() {
    return machine().keep_details;
}

void add_detail(const char* pattern, ...) {
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
