#include "sim/tool/timeline.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <sys/ioctl.h>
#include <unistd.h>

#include "sim/machine/machine.h"
#include "sim/tool/moments.h"
#include "sim/tool/output.h"

namespace sim {

namespace {

struct View {
    ViewOptions options;
    std::vector<Moment> moments; // all, where they are kept
    std::vector<Moment> block;   // what one command has led to, not yet shown
    std::map<std::string, std::string> last_of_thread;
    std::map<std::string, Moment> idle; // waits that go on, by thread
    std::map<std::string, Ms> first_instant;
    bool driven = false;   // the service or a program has been started
    bool starting = false; // nothing but time came after `start`
    Ms shown = 0;          // time of the last line
    std::int64_t shown_clock = -1;
};

} // namespace

static View g_view;

// ---- what is asked for ----

static const struct {
    const char* word;
    std::initializer_list<LineKind> kinds;
} g_kindWords[] = {
    {"requests", {LineKind::Request}},
    {"registry", {LineKind::Registry}},
    {"opens", {LineKind::Open}},
    {"waits", {LineKind::Wait}},
    {"says", {LineKind::Says}},
    {"calls", {LineKind::Call, LineKind::Status, LineKind::Write, LineKind::Other}},
};

bool read_kinds(const std::string& text, unsigned* kinds) {
    size_t begin = 0;
    while (begin <= text.size()) {
        const size_t end = std::min(text.find(',', begin), text.size());
        const auto* row =
            std::find_if(std::begin(g_kindWords), std::end(g_kindWords), [&](const auto& known) {
                return text.compare(begin, end - begin, known.word) == 0;
            });
        if (row == std::end(g_kindWords))
            return false;
        for (const LineKind kind : row->kinds)
            *kinds |= 1u << static_cast<unsigned>(kind);
        begin = end + 1;
    }
    return true;
}

bool read_time_bound(const std::string& text, TimeBound* bound) {
    unsigned hours = 0, minutes = 0, seconds = 0;
    int used = 0;
    bound->given = true;
    if (std::sscanf(text.c_str(), "%2u:%2u%n:%2u%n", &hours, &minutes, &used, &seconds, &used) >= 2) {
        bound->on_the_clock = true;
        bound->ms = ((Ms{hours} * 60 + minutes) * 60 + seconds) * 1000;
        return used == static_cast<int>(text.size()) && hours < 24 && minutes < 60 && seconds < 60;
    }
    static const struct {
        const char* unit;
        double ms;
    } units[] = {{"", 1000}, {"ms", 1}, {"s", 1000}, {"m", 60000}, {"h", 3600000}, {"d", 86400000}};
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    for (const auto& row : units) {
        if (end != text.c_str() && std::string_view(end) == row.unit && number >= 0) {
            bound->ms = static_cast<Ms>(number * row.ms);
            return true;
        }
    }
    return false;
}

void look_at_terminal(ViewOptions* options) {
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    winsize size = {};
    const char* columns = std::getenv("COLUMNS");
    if (terminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0)
        options->width = size.ws_col;
    else if (columns != nullptr && std::atoi(columns) > 0)
        options->width = static_cast<unsigned>(std::atoi(columns));
    options->width = std::max(options->width, 72u);
    options->colour = terminal && std::getenv("NO_COLOR") == nullptr;
    options->read = options->read || terminal;
}

// Whether each line is shown, with nothing folded but repeats.
static bool in_full(const ViewOptions& options) {
    return options.all || options.kinds != 0 || !options.thread.empty();
}

bool wants_details(const ViewOptions& options) {
    return options.read || options.quiet || in_full(options);
}

static bool in_time(const Moment& moment) {
    const ViewOptions& options = g_view.options;
    auto at = [&](const TimeBound& bound) {
        if (!bound.on_the_clock)
            return static_cast<std::int64_t>(moment.time - bound.ms);
        const std::int64_t midnight = local_time(0) / 86400 * 86400;
        return (local_time(moment.time) - midnight) * 1000 - static_cast<std::int64_t>(bound.ms);
    };
    return (!options.from.given || at(options.from) >= 0) && (!options.to.given || at(options.to) <= 0);
}

static bool asked_for(const Moment& moment) {
    const ViewOptions& options = g_view.options;
    if (!in_time(moment))
        return false;
    if (moment.source == Moment::Source::Heading || moment.source == Moment::Source::Outside)
        return true;
    if (options.kinds != 0 && (options.kinds >> static_cast<unsigned>(moment.kind) & 1) == 0)
        return false;
    if (!options.thread.empty() && !same_text(options.thread, moment.thread) &&
        !same_text(options.thread, short_thread_name(moment.thread)))
        return false;
    return moment.source == Moment::Source::Effect || in_full(options) || !reason_in(moment).empty();
}

// ---- columns ----

constexpr unsigned CLOCK_COLUMNS = 8;
constexpr unsigned TIME_COLUMNS = 10;
constexpr unsigned THREAD_COLUMNS = 11;
constexpr unsigned BEFORE_EFFECT = CLOCK_COLUMNS + TIME_COLUMNS + THREAD_COLUMNS + 4;

static const char* const g_kindColours[] = {"36", "32", "1;33", "35", "33", "", "2", "2", "2"};
static_assert(std::size(g_kindColours) == static_cast<size_t>(LineKind::Count));

static std::string coloured(const std::string& text, const char* colour) {
    if (!g_view.options.colour || *colour == 0)
        return text;
    return std::string("\033[") + colour + "m" + text + "\033[0m";
}

// At most `width` characters: the middle is left out.
static std::string shortened(const std::string& text, size_t width) {
    if (text.size() <= width)
        return text;
    const size_t tail = (width - 2) * 3 / 5;
    return text.substr(0, width - 2 - tail) + ".." + text.substr(text.size() - tail);
}

static std::string padded(std::string text, size_t width) {
    if (text.size() < width)
        text.append(width - text.size(), ' ');
    return text;
}

constexpr size_t EFFECT_LEAST = 24;

// Two columns from the effect on. A meaning that is long moves to the left, and the effect makes room.
static std::string two_columns(const std::string& effect, const std::string& meaning, size_t width,
                               const char* colour) {
    if (meaning.empty())
        return coloured(shortened(effect, width), colour);
    const size_t usual = width / 2;
    const size_t room = width - std::min(width, meaning.size() + 2); // beside the whole meaning
    size_t left = std::max(effect.size(), usual);
    if (left > room)
        left = std::max(room, std::min(effect.size(), EFFECT_LEAST));
    return coloured(padded(shortened(effect, left), left), colour) + "  " +
           coloured(shortened(meaning, width - left - 2), "1");
}

// ---- lines ----

// How a script's command reads when somebody outside does it.
static std::string outside_text(const Moment& moment) {
    const std::string& text = moment.text;
    if (!text.starts_with("registry set "))
        return text;
    const size_t type = text.find(" dword ");
    const size_t blank = text.rfind(' ', type == std::string::npos ? text.size() : type - 1);
    if (type == std::string::npos || blank <= 13)
        return "client writes " + text.substr(13);
    std::string name = text.substr(blank + 1, type - blank - 1);
    if (name == "@")
        name = text.substr(text.rfind('\\', blank) + 1, blank - text.rfind('\\', blank) - 1);
    return "client writes " + name + " = " + text.substr(type + 7);
}

static std::string effect_text(const Moment& moment) {
    for (const char* begin : {"request ", "registry "}) {
        if (moment.text.starts_with(begin))
            return moment.text.substr(std::string_view(begin).size());
    }
    return moment.text;
}

static void put(const std::string& line) {
    std::string text = line;
    text.erase(text.find_last_not_of(' ') + 1);
    check_printed(std::printf("%s\n", text.c_str()));
}

// The two time columns: what has moved since the line before.
static std::string time_columns(Ms time) {
    std::string text(CLOCK_COLUMNS + 1 + TIME_COLUMNS, ' ');
    const std::int64_t clock = local_time(time);
    if (clock != g_view.shown_clock)
        text.replace(0, CLOCK_COLUMNS, clock_time(clock));
    if (time != g_view.shown || g_view.shown_clock < 0) {
        const std::string moved = format("%10.3f", static_cast<double>(time) / 1000);
        text.replace(CLOCK_COLUMNS + 1, TIME_COLUMNS, moved);
    }
    g_view.shown_clock = clock;
    g_view.shown = time;
    return coloured(text, "2") + "  ";
}

constexpr Ms SHORTEST_GAP = 60000; // what is shorter shows in the time columns

// ">> 30 min later", where that much has passed without a line.
static void put_gap(Ms time) {
    if (time < g_view.shown + SHORTEST_GAP || g_view.shown_clock < 0)
        return;
    const std::string words = ">> " + duration_words(time - g_view.shown) + " later";
    put(time_columns(time) + coloured(words, "1;36"));
}

static void put_moment(const Moment& moment) {
    const unsigned width = g_view.options.width;
    put_gap(moment.time);
    const std::string time = time_columns(moment.time);
    if (moment.source == Moment::Source::Outside) {
        put(time + coloured(padded(">>", THREAD_COLUMNS + 1), "1;36") +
            two_columns(outside_text(moment), moment.meaning.words, width - BEFORE_EFFECT, "1;36"));
        return;
    }
    const std::string reason = reason_in(moment);
    if (!reason.empty() && !in_full(g_view.options)) {
        const char* colour = reason.starts_with("Error") ? "31" : "2;3";
        put(time + padded("", THREAD_COLUMNS + 1) + "  " +
            coloured(shortened(reason, width - BEFORE_EFFECT - 2), colour));
        return;
    }
    const std::string times = moment.count > 1 ? format(" x %u", moment.count) : "";
    const std::string thread =
        padded(shortened(short_thread_name(moment.thread), THREAD_COLUMNS), THREAD_COLUMNS);
    const bool failed = moment.text.ends_with(" failed");
    put(time + coloured(thread, "2") + " " +
        two_columns(effect_text(moment) + times, moment.meaning.words, width - BEFORE_EFFECT,
                    failed ? "31" : g_kindColours[static_cast<size_t>(moment.kind)]));
}

static void put_heading(const Moment& moment) {
    put("");
    put(coloured("== " + moment.text, "1"));
}

// ---- folding ----

// What stands for many lines of threads that begin: how many, and the state that they leave.
static Moment summary_of(const std::vector<Moment>& lines) {
    std::map<Lane, std::string> lanes;
    std::set<std::string> threads;
    for (const Moment& line : lines) {
        threads.insert(line.thread);
        if (line.meaning.lane != Lane::None && !line.meaning.state.empty())
            lanes[line.meaning.lane] = line.meaning.state;
    }
    Moment summary = lines.front();
    summary.kind = LineKind::Other;
    summary.text = format("%zu effects", lines.size());
    if (threads.size() > 1)
        summary.thread = format("%zu threads", threads.size());
    summary.meaning = {};
    for (const auto& [lane, state] : lanes) {
        summary.meaning.words += summary.meaning.words.empty() ? "" : ", ";
        summary.meaning.words += lane == Lane::Service ? state : lane_name(lane) + (" " + state);
    }
    return summary;
}

// All that threads do in their first instant is one line.
static void fold_start(std::vector<Moment>* block) {
    std::vector<Moment> begun;
    std::vector<Moment> kept;
    for (const Moment& line : *block) {
        const bool effect = line.source == Moment::Source::Effect;
        if (effect && g_view.first_instant[line.thread] == line.time)
            begun.push_back(line);
        else if (effect || line.source == Moment::Source::Outside)
            kept.push_back(line);
    }
    if (!begun.empty()) {
        const auto place = std::find_if(kept.begin(), kept.end(), [&](const Moment& line) {
            return line.source != Moment::Source::Outside && line.time >= begun.front().time;
        });
        kept.insert(place, summary_of(begun));
    }
    *block = std::move(kept);
}

// Repeats are counted in their first line; what only follows from others is left out.
static void fold(std::vector<Moment>* block) {
    std::vector<Moment> kept;
    std::set<std::string> busy; // threads that did more than what follows from others
    const bool from_outside = !block->empty() && block->front().source == Moment::Source::Outside;
    std::map<Lane, std::string> said;
    for (const Moment& line : *block) {
        if (line.source == Moment::Source::Effect && line.meaning.weight == Weight::Full)
            busy.insert(line.thread);
    }
    auto same = [](const Moment& a, const Moment& b) {
        const size_t end = a.kind == LineKind::Status && a.text.find(" checkpoint") != std::string::npos
                               ? a.text.find(" checkpoint")
                               : a.text.size();
        return (a.thread == b.thread || a.kind == LineKind::Status) && a.source == b.source &&
               b.text.compare(0, end, a.text, 0, end) == 0 && (b.text.size() == end || b.text[end] == ' ');
    };
    for (const Moment& line : *block) {
        if (line.source == Moment::Source::Effect &&
            ((line.meaning.weight == Weight::Follows && busy.contains(line.thread)) ||
             (line.meaning.weight == Weight::Ceremony && from_outside)))
            continue;
        const auto earlier =
            std::find_if(kept.begin(), kept.end(), [&](const Moment& other) { return same(line, other); });
        if (earlier != kept.end() && line.kind != LineKind::Write && line.source != Moment::Source::Outside) {
            ++earlier->count;
            continue;
        }
        // A state that has been told by the request is only published here.
        if (line.meaning.lane != Lane::None && line.source == Moment::Source::Effect) {
            std::string& state = said[line.meaning.lane];
            if (state == line.meaning.state && line.kind == LineKind::Registry)
                continue;
            state = line.meaning.state;
        }
        kept.push_back(line);
    }
    *block = std::move(kept);
}

static void flush_block() {
    std::vector<Moment> block = std::move(g_view.block);
    g_view.block.clear();
    if (!in_full(g_view.options)) {
        if (g_view.starting)
            fold_start(&block);
        fold(&block);
    }
    for (const Moment& moment : block)
        put_moment(moment);
}

// ---- from the machine ----

// Commands that set the machine up: what they change shows where the service asks for it.
static bool sets_up(const Moment& moment) {
    for (const char* begin : {"firmware ", "windows ", "ini ", "file ", "fail ", "hardware ",
                              "registry refuse ", "advance ", "driver ", "check "}) {
        if (moment.text.starts_with(begin))
            return true;
    }
    const bool device = moment.text.starts_with("device ") || moment.text.starts_with("registry ");
    return device && !g_view.driven;
}

static void take_outside(const Moment& moment) {
    flush_block();
    const bool time = moment.text.starts_with("advance ");
    if (moment.text == "start")
        g_view.starting = true;
    else if (!time)
        g_view.starting = false;
    const bool hidden = sets_up(moment);
    g_view.driven = g_view.driven || !hidden;
    if (asked_for(moment) && !time && (!hidden || g_view.options.all))
        g_view.block.push_back(moment);
}

static void take_for_people(const Moment& moment) {
    View& view = g_view;
    if (moment.source == Moment::Source::Effect)
        view.first_instant.try_emplace(moment.thread, moment.time);
    if (idle_again(moment, &view.last_of_thread)) {
        if (asked_for(moment) && !view.idle.try_emplace(moment.thread, moment).second)
            ++view.idle[moment.thread].count;
        return;
    }
    if (moment.source == Moment::Source::Outside)
        return take_outside(moment);
    if (!asked_for(moment))
        return;
    if (moment.source == Moment::Source::Heading) {
        flush_block();
        put_heading(moment);
        return;
    }
    const auto idle = view.idle.extract(moment.thread);
    if (!idle.empty())
        view.block.push_back(idle.mapped());
    view.block.push_back(moment);
}

static void put_raw(const Moment& moment) {
    const std::string times = moment.count > 1 ? format(" x %u", moment.count) : "";
    check_printed(std::printf("%.3f %s %s%s\n", static_cast<double>(moment.time) / 1000,
                              moment.thread.c_str(), moment.text.c_str(), times.c_str()));
}

// The raw trace, as it always was.
static void take_raw(const Moment& moment) {
    if (moment.source == Moment::Source::Heading) {
        if (in_time(moment))
            check_printed(std::printf("\n== %s\n", moment.text.c_str()));
        return;
    }
    if (moment.source == Moment::Source::Outside || !asked_for(moment))
        return;
    if (idle_again(moment, &g_view.last_of_thread)) {
        if (!g_view.idle.try_emplace(moment.thread, moment).second)
            ++g_view.idle[moment.thread].count;
        return;
    }
    const auto idle = g_view.idle.extract(moment.thread);
    if (!idle.empty())
        put_raw(idle.mapped());
    put_raw(moment);
}

void begin_timeline(const ViewOptions& options) {
    g_view = {};
    g_view.options = options;
    record(options.keep ? &g_view.moments : nullptr, options.quiet  ? [](const Moment&) {}
                                                     : options.read ? take_for_people
                                                                    : take_raw);
}

void flush_timeline() {
    for (const auto& [thread, idle] : g_view.idle) {
        if (g_view.options.read)
            g_view.block.push_back(idle);
        else
            put_raw(idle);
    }
    g_view.idle.clear();
    flush_block();
}

void end_timeline() {
    flush_timeline();
    stop_recording();
}

const std::vector<Moment>& moments_of_run() {
    return g_view.moments;
}

void write_rest() {
    auto put_text = [](const std::string& text) {
        return write(STDOUT_FILENO, text.data(), text.size()) >= 0;
    };
    for (const Moment& moment : g_view.block) {
        const bool written = put_text(moment.thread) && write(STDOUT_FILENO, " ", 1) == 1 &&
                             put_text(moment.text) && write(STDOUT_FILENO, "\n", 1) == 1;
        if (!written)
            return;
    }
}

} // namespace sim
