#include "sim/script/show.h"

#include <cstdarg>
#include <map>

#include "sim/machine/files.h"
#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/script/nearest.h"

namespace sim {

using Tell = void (*)(const std::string&);

static std::map<std::string, Tell>& shows() {
    static std::map<std::string, Tell> all;
    return all;
}

Shows::Shows(const char* what, Tell tell) {
    shows().emplace(what, tell);
}

void show_line(const char* pattern, ...) {
    if (machine().on_show == nullptr)
        return;
    va_list arguments;
    va_start(arguments, pattern);
    machine().on_show("  " + format_list(pattern, arguments));
    va_end(arguments);
}

static void show(const std::string& what, const std::string& which) {
    if (machine().on_show != nullptr)
        machine().on_show(format("-- %s%s%s, %.3f s", what.c_str(), which.empty() ? "" : " ", which.c_str(),
                                 static_cast<double>(machine().now) / 1000));
    shows()[what](which);
}

void show_state() {
    for (const auto& [what, tell] : shows())
        show(what, "");
}

// ---- threads and handles ----

static const char* const g_kinds[] = {"event",   "mutex",        "thread",  "process", "file",
                                      "key",     "device set",   "manager", "service", "token",
                                      "desktop", "power notify", "other"};

static std::string shown_object(const Object& object) {
    std::string text = g_kinds[static_cast<size_t>(object.kind)];
    if (object.kind == Kind::File && object.body != nullptr)
        text += " " + static_cast<const File*>(object.body.get())->path;
    else if (!object.name.empty())
        text += " " + object.name;
    if (object.owner != nullptr)
        text += " of " + object.owner->name;
    return text;
}

static std::string shown_wait(const Thread& thread) {
    if (thread.run == Run::Ready)
        return "can run";
    std::string text = thread.objects.empty() ? "sleeps" : thread.wait_all ? "waits for all of" : "waits for";
    for (size_t i = 0; i < thread.objects.size(); ++i)
        text += (i == 0 ? " " : ", ") + shown_object(*thread.objects[i]);
    return text + (thread.deadline == NEVER
                       ? ", for ever"
                       : format(", until %.3f", static_cast<double>(thread.deadline) / 1000));
}

static std::string shown_process(const Process* process) {
    if (process == nullptr || process->image == nullptr)
        return "";
    return process->is_service ? " (service)" : " (" + process->command_line + ")";
}

static void show_threads(const std::string&) {
    for (const auto& thread : machine().threads) {
        if (thread->run != Run::Ended)
            show_line("%s%s: %s%s", thread->name.c_str(), shown_process(thread->process).c_str(),
                      shown_wait(*thread).c_str(), thread->suspended != 0 ? ", suspended" : "");
    }
}

static void show_handles(const std::string&) {
    std::map<std::string, unsigned> counts; // alike ones on one line
    for (const auto& [handle, entry] : machine().handles)
        ++counts[shown_object(*entry.object) + shown_process(entry.process)];
    for (const auto& [text, count] : counts)
        show_line("%s%s", text.c_str(), count > 1 ? format(" x %u", count).c_str() : "");
}

static const Shows g_threads("threads", show_threads);
static const Shows g_handles("handles", show_handles);

// ---- commands ----

static Action compile_show(Tokens& tokens) {
    const std::string what = tokens.word();
    std::vector<std::string> known;
    for (const auto& [name, tell] : shows())
        known.push_back(name);
    if (tokens.error.empty() && shows().find(what) == shows().end())
        tokens.fail("nothing is shown by that name: " + what + suggestion(what, known));
    const std::string which = tokens.done() || what != "registry" ? "" : tokens.word();
    return [what, which] { show(what, which); };
}

static const Commands g_commands({
    {"show", Use::Note, compile_show,
     "registry [KEY] | threads | handles | firmware | devices | status - the state at this moment"},
});

} // namespace sim
