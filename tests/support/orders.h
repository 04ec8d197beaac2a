// The invariant of all random tests: when all threads rest, what is published and what the firmware was last
// told is what the same operations, run whole and one after another in some order, would have left, given the
// answers that the machine gives last. The orders are run on a second machine, whose threads nothing
// disturbs.
#pragma once

#include <algorithm>
#include <map>
#include <numeric>
#include <optional>

#include "sim/notebook/device_interfaces.h"
#include "tests/support/sweep.h"

namespace orders {

// The machine changes, and tells so by an event.
struct Change {
    const char* method;
    int argument; // -1: every one
    DWORD value;
    DWORD event;

    std::string answer() const {
        return argument >= 0 ? sim::format("firmware %s(%d) = %u\n", method, argument, value)
                             : sim::format("firmware %s = %u\n", method, value);
    }
    bool same_answer(const Change& other) const {
        return std::string(method) == other.method && argument == other.argument;
    }
};

struct Operation {
    std::string act;                   // lines of a script; none for what the clock brings
    std::string alone = "";            // the same where nothing else happens, when it is not `act`
    std::optional<Change> change = {}; // instead of both

    std::string serial() const {
        if (change)
            return sim::format("event 0x%x\n", change->event);
        return (alone.empty() ? act : alone) + "\n";
    }
};

// What must not matter.
struct Disturbance {
    std::vector<const char*> slow_methods; // each takes its time, or not, as the seed decides
    bool very_slow = false;                // some of them longer than anyone waits for a turn
    bool pause = false;                    // the notification thread is suspended, wherever it is
};

struct PlayedRound {
    std::vector<Operation> operations;
    std::vector<size_t> changes; // those of them that are changes, as they came
    std::string rest;
    std::string found;
};

// One machine's life.
struct Story {
    std::string setup;
    std::vector<PlayedRound> rounds;
};

// ---- what stands at rest ----

// Words that command, by what they command: of each the last stands.
inline std::string commanded(const std::string& request) {
    static const char* const methods[] = {"DYTC", "MHKM", "LCDCSCONTROL", "SETLIDBEEP"};
    const size_t bracket = request.find('(');
    std::string method = request.substr(0, bracket);
    if (bracket == std::string::npos ||
        std::find(std::begin(methods), std::end(methods), method) == std::end(methods))
        return "";
    const auto word = static_cast<DWORD>(std::strtoull(request.c_str() + bracket + 1, nullptr, 0));
    if (method == "MHKM")
        return sim::format("MHKM(%u)", word);
    if (method != "DYTC")
        return method;
    // A function of version 3, or the mode of version 2.
    return (word & 0xFF) == 1 ? sim::format("DYTC function %u", word >> 12 & 0xF) : "";
}

inline std::string last_words() {
    static const std::string request = "request ";
    std::map<std::string, std::string> last;
    for (const sim::TraceLine& line : sim::machine().trace) {
        if (!line.effect || !line.text.starts_with(request))
            continue;
        const std::string what = commanded(line.text.substr(request.size()));
        if (!what.empty())
            last[what] = line.text;
    }
    // A mode that is as it was at the start may have been told, or never: of the hot keys only 32 is on
    // there.
    std::erase_if(last, [](const auto& word) {
        const bool at_start = word.second.ends_with(word.first == "MHKM(32)" ? ", 1)" : ", 0)");
        return word.first.starts_with("MHKM") && at_start;
    });
    std::string text;
    for (const auto& [what, word] : last)
        text.append(what).append(": ").append(word).append("\n");
    return text;
}

// Without what tells of the way there: the time, and the posture before.
inline std::string published() {
    std::string text;
    for (const char* key : {"SVC", "HKLM\\SOFTWARE\\Mestra", "HKLM\\SOFTWARE\\Dolby", "HKLM\\SOFTWARE\\ZOR",
                            "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\AutoRotation"}) {
        const std::string dump = sim::registry_dump(key);
        for (size_t at = 0; at < dump.size();) {
            const size_t end = dump.find('\n', at);
            const std::string line = dump.substr(at, end + 1 - at);
            if (line.find("TimeStamp") == std::string::npos && line.find("PrevMode") == std::string::npos)
                text += line;
            at = end + 1;
        }
    }
    return text;
}

inline std::string state() {
    sim::Process* service = sim::service_process();
    return published() + last_words() +
           sim::format("indicators %u %u\nwatch %zu\nworkers %zu\nstatus %u\nhandles %zu\nblocks %zu\n",
                       sim::indicator_state(sim::Interface::Slate),
                       sim::indicator_state(sim::Interface::Dock), live_threads("LCDCSWatchdog"),
                       live_threads("AdaptiveCooling"), sim::service_status().dwCurrentState,
                       sim::handle_count(service), service != nullptr ? service->local_blocks : 0);
}

// ---- one after another ----

// The driver keeps the inhibit that it is told.
inline void follow_inhibit(const std::string& method, const DWORD* in) {
    if (method == "LCDCSCONTROL")
        sim::set_answer("LCDCSGETSTATE", nullptr, {false, in[0] == 1 ? 3u : 2u});
}

// What a script leaves on a machine without disorder.
inline const std::string& serial_state(const std::string& script) {
    static std::map<std::string, std::string> known;
    const auto found = known.find(script);
    if (found != known.end())
        return found->second;
    Bench bench;
    sim::set_request_hook(
        [](const std::string& method, const DWORD* in, DWORD) { follow_inhibit(method, in); });
    bench.run(script);
    return known[script] = state();
}

// Calls `visit` with the script of each order until it returns true. First those in which the machine has
// changed before the first operation; then those in which each change has a place of its own, before its
// event. (Where nobody listens any more, what was done with an older answer stands.)
inline bool visit_orders(const PlayedRound& round, const std::function<bool(const std::string&)>& visit) {
    std::string answers;
    for (const size_t change : round.changes)
        answers += round.operations[change].change->answer();
    std::vector<size_t> order(round.operations.size());
    std::iota(order.begin(), order.end(), size_t{0});
    do {
        std::string script = answers;
        for (const size_t i : order)
            script += round.operations[i].serial();
        if (visit(script + round.rest + "\n"))
            return true;
    } while (std::next_permutation(order.begin(), order.end()));
    if (round.changes.empty())
        return false;
    // Numbers from `events` on stand for the changes, in the order in which they came.
    const size_t events = round.operations.size();
    order.resize(events + round.changes.size());
    std::iota(order.begin(), order.end(), size_t{0});
    const auto place = [&order](size_t number) { return std::find(order.begin(), order.end(), number); };
    const auto possible = [&] {
        for (size_t i = 0; i < round.changes.size(); ++i) {
            if (place(round.changes[i]) < place(events + i))
                return false;
            const Change& change = *round.operations[round.changes[i]].change;
            for (size_t later = i + 1; later < round.changes.size(); ++later) {
                if (change.same_answer(*round.operations[round.changes[later]].change) &&
                    place(events + later) < place(events + i))
                    return false;
            }
        }
        return true;
    };
    do {
        if (!possible())
            continue;
        std::string script;
        for (const size_t i : order)
            script += i < events ? round.operations[i].serial()
                                 : round.operations[round.changes[i - events]].change->answer();
        if (visit(script + round.rest + "\n"))
            return true;
    } while (std::next_permutation(order.begin(), order.end()));
    return false;
}

// Whether some order of each round's operations leads to what was found after it.
inline bool explained(const Story& story, size_t number, const std::string& history) {
    const PlayedRound& round = story.rounds[number];
    return visit_orders(round, [&](const std::string& order) {
        const std::string script = history + order;
        return serial_state(script) == round.found &&
               (number + 1 == story.rounds.size() || explained(story, number + 1, script));
    });
}

inline std::string difference(const std::string& found, const std::string& other) {
    std::string text;
    for (const auto& [all, without, sign] :
         {std::tuple{&found, &other, '+'}, std::tuple{&other, &found, '-'}}) {
        for (size_t at = 0; at < all->size();) {
            const size_t end = all->find('\n', at) + 1;
            const std::string line = all->substr(at, end - at);
            if (without->find(line) == std::string::npos)
                text += sign + (" " + line);
            at = end;
        }
    }
    return text;
}

// How the last round's state differs from what each order leaves, behind the first orders of the rounds
// before that explain these.
inline std::string differences(const Story& story) {
    std::string history = story.setup;
    for (size_t i = 0; i + 1 < story.rounds.size(); ++i) {
        visit_orders(story.rounds[i], [&](const std::string& order) {
            if (serial_state(history + order) != story.rounds[i].found)
                return false;
            history += order;
            return true;
        });
    }
    std::string text = history + "---- then, found (+) and left by the order (-)\n";
    size_t orders = 0;
    visit_orders(story.rounds.back(), [&](const std::string& order) {
        text += order + difference(story.rounds.back().found, serial_state(history + order)) + "\n";
        return ++orders == 24;
    });
    return text;
}

// ---- in disorder ----

// The changes of a round come behind so many requests to the driver, each in the midst of one.
struct Changes {
    struct Pending {
        size_t operation;
        Change change;
        unsigned behind;
    };
    std::vector<Pending> pending;
    std::vector<size_t> made; // the operations, in order

    explicit Changes(const std::vector<Operation>& operations) {
        for (size_t i = 0; i < operations.size(); ++i) {
            if (operations[i].change)
                pending.push_back(
                    {i, *operations[i].change, static_cast<unsigned>(1 + sim::random_below(12))});
        }
        sim::set_request_hook([this](const std::string& method, const DWORD* in, DWORD) {
            follow_inhibit(method, in);
            count();
        });
    }
    ~Changes() { sim::set_request_hook(nullptr); }
    Changes(const Changes&) = delete;
    Changes& operator=(const Changes&) = delete;

    void make(Pending* one) {
        const Change& change = one->change;
        const auto argument = static_cast<DWORD>(change.argument);
        sim::set_answer(change.method, change.argument >= 0 ? &argument : nullptr, {false, change.value});
        sim::post_event(change.event);
        one->behind = 0;
        made.push_back(one->operation);
    }
    void count() {
        for (Pending& one : pending) {
            if (one.behind == 1)
                make(&one);
            else if (one.behind > 1)
                --one.behind;
        }
    }
    // Whatever has not come yet comes now.
    void make_all() {
        for (Pending& one : pending) {
            if (one.behind != 0)
                make(&one);
        }
    }
};

// Brings a machine to the beginning of its first round.
inline Story begin(Bench& bench, const std::string& setup) {
    sim::set_request_hook(
        [](const std::string& method, const DWORD* in, DWORD) { follow_inhibit(method, in); });
    bench.run(setup);
    return {setup + "\n", {}};
}

inline void play_disturbed(Bench& bench, const std::vector<Operation>& operations,
                           const Disturbance& disturbance, Changes* changes) {
    std::string script = "together\n";
    for (const Operation& operation : operations)
        script += operation.act + "\n";
    if (disturbance.pause && sim::random_below(2) == 0)
        script += "handler 2\n";
    for (const char* method : disturbance.slow_methods) {
        static const sim::Ms durations[] = {0, 0, 1, 1, 3, 7000};
        sim::set_answer_duration(method, nullptr,
                                 durations[sim::random_below(disturbance.very_slow ? 6 : 5)]);
    }
    bench.run(script + "end\n");
    // Suspended or not.
    const char* quiet = disturbance.very_slow || disturbance.pause ? "advance 1m" : "advance 2s";
    bench.run(disturbance.pause ? "advance 30s\nhandler 3\nadvance 1m" : quiet);
    changes->make_all();
    bench.run(quiet);
    for (const char* method : disturbance.slow_methods)
        sim::set_answer_duration(method, nullptr, 0);
}

// Plays a round and asks for the invariant. `rest`: lines that bring all threads to rest.
inline void play(Bench& bench, Story* story, const std::vector<Operation>& operations,
                 const Disturbance& disturbance, const std::string& rest) {
    PlayedRound round = {operations, {}, rest, ""};
    {
        Changes changes(operations);
        play_disturbed(bench, operations, disturbance, &changes);
        round.changes = changes.made;
    }
    // The inhibit goes on with the clock.
    sim::set_request_hook(
        [](const std::string& method, const DWORD* in, DWORD) { follow_inhibit(method, in); });
    bench.run(rest);
    round.found = state();
    story->rounds.push_back(round);
    if (!explained(*story, 0, story->setup))
        ADD_FAILURE() << "no order of the operations leaves what was found:\n" << differences(*story);
}

} // namespace orders
