#include "sim/tool/moments.h"

#include "sim/machine/machine.h"
#include "sim/tool/words.h"
#include "sim/windows/system.h"

namespace sim {

namespace {

struct Recording {
    std::vector<Moment>* moments = nullptr; // null: they are not kept
    size_t seen = 0;
    void (*more)(const Moment&) = nullptr;
    MeaningMemory memory;
    std::map<std::string, size_t> causes; // by thread
    size_t command = NO_CAUSE;            // the last one from outside
    bool time_passes = false;             // as that one's whole effect
    int line = 0;
};

} // namespace

static Recording g_recording;

static void add(Moment moment) {
    ++g_recording.seen;
    g_recording.more(moment);
    if (g_recording.moments != nullptr)
        g_recording.moments->push_back(std::move(moment));
}

static bool only_time(const std::string& command) {
    return command.starts_with("advance ");
}

static void take_command(const std::string& command, int line) {
    Recording& r = g_recording;
    Moment moment;
    moment.source = Moment::Source::Outside;
    moment.time = machine().now;
    moment.text = command;
    moment.line = r.line = line;
    moment.meaning = meaning_of_command(command, &r.memory);
    r.time_passes = only_time(command);
    if (!r.time_passes)
        r.command = r.seen;
    add(std::move(moment));
}

static void take_line(const TraceLine& line) {
    Recording& r = g_recording;
    Moment moment;
    moment.time = line.time;
    moment.text = line.text;
    moment.line = r.line;
    if (line.thread.empty()) {
        moment.source = Moment::Source::Heading;
        add(std::move(moment));
        return;
    }
    moment.source = line.effect ? Moment::Source::Effect : Moment::Source::Detail;
    moment.kind = kind_of(line);
    moment.thread = line.thread;
    moment.meaning = meaning_of(line, &r.memory);
    // While only time passes, what a thread does follows from what it was told before.
    size_t& cause = r.causes.try_emplace(line.thread, r.command).first->second;
    if (!r.time_passes)
        cause = r.command;
    moment.cause = cause;
    moment.after_time = r.time_passes;
    add(std::move(moment));
}

void record(std::vector<Moment>* moments, void (*more)(const Moment& moment)) {
    g_recording = {};
    g_recording.moments = moments;
    g_recording.more = more;
    machine().on_line = take_line;
    machine().on_command = take_command;
}

void stop_recording() {
    machine().on_line = nullptr;
    machine().on_command = nullptr;
}

// ---- names, reasons, times ----

// The service's threads, by what they are for.
static const struct {
    const char* name;
    const char* shown;
} g_threads[] = {
    {"ServiceMain", "main"},
    {"dispatcher", "controls"},
    {"TerminalThread", "events"},
    {"CreatePnPTaskThreadProc", "task"},
    {"CPUStateC3C4MonitorThreadProc", "idle states"},
    {"AdaptiveCoolingInitilizeWorkerThread", "cooling"},
    {"AdaptiveCoolingWorkerThread_v1", "cooling"},
    {"LCDCSWatchdogThreadProc", "lid watch"},
    {"LCDCSTimerThreadProc", "lid timer"},
    {"PHThreadProc", "hot keys"},
    {"PHOverrideThreadProc", "hot keys o"},
    {"PHType12ThreadProc", "hot keys 2"},
    {"PHType12OverrideThreadProc", "hot keys 2o"},
    {"PHType13ThreadProc", "hot keys 3"},
    {"PHType13OverrideThreadProc", "hot keys 3o"},
    {"TimerThread", "sleep timer"},
    {"MonitorOffThreadProc", "monitor"},
    {"MonitorOffRequestThreadProc", "monitor"},
    {"SendControlThreadProc", "sender"},
    {"SessionThreadProc", "session"},
    {"PnPTask", "clean-up"},
};

std::string short_thread_name(const std::string& thread) {
    for (const auto& row : g_threads) {
        if (thread == row.name)
            return row.shown;
    }
    return thread;
}

bool idle_again(const Moment& moment, std::map<std::string, std::string>* last_of_thread) {
    if (moment.thread.empty())
        return false;
    std::string& last = (*last_of_thread)[moment.thread];
    const bool again =
        moment.source == Moment::Source::Detail && moment.kind == LineKind::Wait && last == moment.text;
    last = moment.text;
    return again;
}

std::string reason_in(const Moment& moment) {
    if (moment.kind != LineKind::Says)
        return "";
    std::string text = moment.text.substr(5);
    for (const char* begin : {"Enter ", "Return ", "Exit ", "Inside Report("}) {
        if (text.starts_with(begin))
            return "";
    }
    const size_t brackets = text.find("(): ");
    if (brackets != std::string::npos && text.find(' ') > brackets)
        text.erase(0, brackets + 4); // the name of the operation
    else if (brackets != std::string::npos)
        text.erase(brackets, 2);
    if (text.starts_with("0x") && text.find(event_name(number_in(text))) != std::string::npos)
        return ""; // the event itself
    while (!text.empty() && (text.back() == '\r' || text.back() == ' '))
        text.pop_back();
    return text;
}

std::int64_t local_time(Ms time) {
    return local_seconds() + static_cast<std::int64_t>(time / 1000) -
           static_cast<std::int64_t>(machine().now / 1000);
}

std::string clock_time(std::int64_t seconds) {
    const auto of_day = static_cast<unsigned>(((seconds % 86400) + 86400) % 86400);
    return format("%02u:%02u:%02u", of_day / 3600, of_day / 60 % 60, of_day % 60);
}

std::string duration_words(Ms duration) {
    static const struct {
        Ms length;
        const char* unit;
    } units[] = {{86400000, "d"}, {3600000, "h"}, {60000, "min"}, {1000, "s"}, {1, "ms"}};
    std::string words;
    int parts = 0;
    for (const auto& unit : units) {
        const Ms count = duration / unit.length;
        duration %= unit.length;
        if (count == 0)
            continue;
        words += (words.empty() ? "" : " ") + std::to_string(count) + " " + unit.unit;
        if (++parts == 2)
            break;
    }
    return words.empty() ? "0 ms" : words;
}

} // namespace sim
