// A run as a page to look at, and as trace events for other viewers.
#include "sim/tool/page.h"

#include <cstdio>
#include <unordered_map>

#include "sim/machine/machine.h"

// The page's files, as they are.
#define EMBED(name, file)                                                                                    \
    asm(".section .rodata\n.global " name "\n" name ":\n.incbin \"" ZORPM_SOURCE_DIR "/sim/page/" file       \
        "\"\n.byte 0\n.previous\n")
EMBED("zorpm_page_html", "page.html");
EMBED("zorpm_page_js", "page.js");
EMBED("zorpm_page_d3", "d3.js");
extern "C" const char zorpm_page_html[];
extern "C" const char zorpm_page_js[];
extern "C" const char zorpm_page_d3[];

namespace sim {

// ---- JSON ----

// Also safe inside a script of a page: no "</script>".
static std::string quoted(std::string_view text) {
    std::string json = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\')
            json += std::string("\\") + c;
        else if (byte < 0x20 || c == '<' || byte == 0x7F)
            json += format("\\u%04x", byte);
        else
            json += c;
    }
    return json + '"';
}

namespace {

// Values with commas between.
struct List {
    std::string text;

    void add(const std::string& value) { text += (text.empty() ? "" : ",") + value; }
    void add(std::uint64_t value) { add(std::to_string(value)); }
};

// Texts, each once.
struct Texts {
    std::unordered_map<std::string, size_t> numbers;
    List list;

    size_t number(const std::string& text) {
        const auto [place, fresh] = numbers.try_emplace(text, numbers.size());
        if (fresh)
            list.add(quoted(text));
        return place->second;
    }
};

} // namespace

static std::string joined(const std::vector<List>& lists) {
    List all;
    for (const List& list : lists)
        all.add("[" + list.text + "]");
    return "[" + all.text + "]";
}

// ---- what threads do ----

namespace {

enum class Doing { Waiting, Request, Call };

struct Stretch {
    std::string thread;
    Doing doing;
    Ms from;
    Ms to;
};

} // namespace

// When a thread that waits from `time` on is gone: no later than the next process that ends.
static Ms end_of_process(const std::vector<Moment>& moments, Ms time) {
    for (const Moment& moment : moments) {
        if (moment.time >= time && moment.text.starts_with("process \""))
            return moment.time;
    }
    return machine().now;
}

// What the gap in front of a line was: a thread runs without taking time.
static Doing doing_before(const Moment& moment) {
    if (moment.source != Moment::Source::Effect)
        return Doing::Waiting;
    return moment.kind == LineKind::Request ? Doing::Request
           : moment.kind == LineKind::Call  ? Doing::Call
                                            : Doing::Waiting;
}

static std::vector<Stretch> stretches(const std::vector<Moment>& moments) {
    std::vector<Stretch> all;
    std::map<std::string, const Moment*> last;
    std::map<std::string, size_t> open; // its last stretch
    auto add = [&](const std::string& thread, Doing doing, Ms from, Ms to) {
        const auto before = open.find(thread);
        if (before != open.end() && all[before->second].doing == doing && all[before->second].to == from) {
            all[before->second].to = to;
            return;
        }
        open[thread] = all.size();
        all.push_back({thread, doing, from, to});
    };
    auto waits = [](const Moment& moment) {
        return moment.source == Moment::Source::Detail && moment.kind == LineKind::Wait;
    };
    for (const Moment& moment : moments) {
        if (moment.thread.empty())
            continue;
        const Moment*& before = last[moment.thread];
        if (before != nullptr && before->time < moment.time)
            add(moment.thread, waits(*before) ? Doing::Waiting : doing_before(moment), before->time,
                moment.time);
        before = &moment;
    }
    for (const auto& [thread, moment] : last) {
        const Ms end = end_of_process(moments, moment->time);
        if (waits(*moment) && moment->time < end)
            add(thread, Doing::Waiting, moment->time, end);
    }
    return all;
}

// ---- the page ----

static bool shown(const Moment& moment) {
    return moment.source != Moment::Source::Detail || !reason_in(moment).empty();
}

static std::string text_of(const Moment& moment) {
    return moment.source == Moment::Source::Detail ? reason_in(moment) : moment.text;
}

// The columns of the moments: times, sources, kinds, threads, texts, meanings, causes, lines of the script,
// lanes and states.
static std::string moments_json(const std::vector<Moment>& moments, Texts* texts, Texts* threads) {
    std::vector<List> columns(10);
    std::vector<size_t> place(moments.size());
    size_t count = 0;
    for (size_t i = 0; i < moments.size(); ++i) {
        const Moment& moment = moments[i];
        if (!shown(moment))
            continue;
        place[i] = count++;
        columns[0].add(moment.time);
        columns[1].add(static_cast<std::uint64_t>(moment.source));
        columns[2].add(static_cast<std::uint64_t>(moment.kind));
        columns[3].add(moment.thread.empty() ? "-1" : std::to_string(threads->number(moment.thread)));
        columns[4].add(texts->number(text_of(moment)));
        columns[5].add(texts->number(moment.meaning.words));
        columns[6].add(moment.cause == NO_CAUSE ? "-1" : std::to_string(place[moment.cause]));
        columns[7].add(static_cast<std::uint64_t>(moment.line));
        columns[8].add(static_cast<std::uint64_t>(moment.meaning.lane));
        columns[9].add(texts->number(moment.meaning.state));
    }
    return joined(columns);
}

static std::string stretches_json(const std::vector<Moment>& moments, Texts* threads) {
    std::vector<List> columns(4);
    for (const Stretch& stretch : stretches(moments)) {
        columns[0].add(threads->number(stretch.thread));
        columns[1].add(static_cast<std::uint64_t>(stretch.doing));
        columns[2].add(stretch.from);
        columns[3].add(stretch.to);
    }
    return joined(columns);
}

static std::string data_json(const std::vector<Moment>& moments, const std::string& title) {
    Texts texts;
    Texts threads;
    List lanes;
    for (unsigned lane = 0; lane < static_cast<unsigned>(Lane::Count); ++lane)
        lanes.add(quoted(lane_name(static_cast<Lane>(lane))));
    const std::string columns = moments_json(moments, &texts, &threads);
    const std::string doing = stretches_json(moments, &threads);
    List names;
    std::vector<std::string> in_order(threads.numbers.size());
    for (const auto& [name, number] : threads.numbers)
        in_order[number] = name;
    for (const std::string& name : in_order)
        names.add("[" + quoted(name) + "," + quoted(short_thread_name(name)) + "]");
    return "{\"title\":" + quoted(title) + ",\"start\":" + std::to_string(local_time(0)) +
           ",\"end\":" + std::to_string(machine().now) + ",\n\"lanes\":[" + lanes.text + "],\n\"threads\":[" +
           names.text + "],\n\"stretches\":" + doing + ",\n\"texts\":[" + texts.list.text +
           "],\n\"moments\":" + columns + "}";
}

static void replace(std::string* text, std::string_view what, std::string_view with) {
    const size_t at = text->find(what);
    if (at != std::string::npos)
        text->replace(at, what.size(), with);
}

static bool write_file(const std::string& path, const std::string& text) {
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr)
        return false;
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return std::fclose(file) == 0 && written;
}

bool write_page(const std::string& path, const std::vector<Moment>& moments, const std::string& title) {
    std::string page = zorpm_page_html;
    // The data last: what is in it is looked at no more.
    replace(&page, "/*D3*/", zorpm_page_d3);
    replace(&page, "/*PAGE*/", zorpm_page_js);
    replace(&page, "/*DATA*/", data_json(moments, title));
    return write_file(path, page);
}

// ---- trace events ----

constexpr int THREADS = 1; // the "processes" of the viewers: threads, states, what comes from outside
constexpr int STATES = 2;
constexpr int OUTSIDE = 3;

static std::string trace_event(const char* phase, int group, size_t row, Ms time, const std::string& name,
                               const std::string& more = "") {
    return format(R"({"ph":"%s","pid":%d,"tid":%zu,"ts":%llu,"name":)", phase, group, row,
                  static_cast<unsigned long long>(time) * 1000) +
           quoted(name) + more + "}";
}

static std::string row_name(int group, size_t row, const char* what, const std::string& name) {
    return trace_event("M", group, row, 0, what, R"(,"args":{"name":)" + quoted(name) + "}");
}

static std::string lasting(Ms from, Ms to) {
    return format(R"(,"dur":%llu)", static_cast<unsigned long long>(to - from) * 1000);
}

static void add_states(const std::vector<Moment>& moments, List* events) {
    std::map<Lane, const Moment*> now;
    auto close = [events](Lane lane, const Moment& moment, Ms end) {
        events->add(trace_event("X", STATES, static_cast<size_t>(lane), moment.time, moment.meaning.state,
                                lasting(moment.time, end)));
    };
    for (const Moment& moment : moments) {
        if (moment.meaning.lane == Lane::None || moment.source == Moment::Source::Detail)
            continue;
        const Moment*& before = now[moment.meaning.lane];
        if (before != nullptr && before->meaning.state == moment.meaning.state)
            continue;
        if (before != nullptr)
            close(moment.meaning.lane, *before, moment.time);
        before = &moment;
    }
    for (const auto& [lane, moment] : now) {
        close(lane, *moment, machine().now);
        events->add(row_name(STATES, static_cast<size_t>(lane), "thread_name", lane_name(lane)));
    }
}

bool write_trace_events(const std::string& path, const std::vector<Moment>& moments) {
    static const char* const doing[] = {"waiting", "in a request", "in a call"};
    List events;
    Texts threads;
    events.add(row_name(THREADS, 0, "process_name", "threads"));
    events.add(row_name(STATES, 0, "process_name", "the machine"));
    events.add(row_name(OUTSIDE, 0, "process_name", "from outside"));
    for (const Stretch& stretch : stretches(moments))
        events.add(trace_event("X", THREADS, threads.number(stretch.thread) + 1, stretch.from,
                               doing[static_cast<size_t>(stretch.doing)], lasting(stretch.from, stretch.to)));
    for (const Moment& moment : moments) {
        if (!shown(moment))
            continue;
        const bool outside = moment.thread.empty();
        const std::string cause = moment.cause != NO_CAUSE ? moments[moment.cause].text : "";
        events.add(trace_event("i", outside ? OUTSIDE : THREADS,
                               outside ? 1 : threads.number(moment.thread) + 1, moment.time, text_of(moment),
                               std::string(outside ? R"(,"s":"g")" : R"(,"s":"t")") +
                                   R"(,"args":{"meaning":)" + quoted(moment.meaning.words) + R"(,"cause":)" +
                                   quoted(cause) + "}"));
    }
    for (const auto& [name, number] : threads.numbers)
        events.add(row_name(THREADS, number + 1, "thread_name", short_thread_name(name)));
    add_states(moments, &events);
    return write_file(path, "{\"traceEvents\":[" + events.text + "]}\n");
}

} // namespace sim
