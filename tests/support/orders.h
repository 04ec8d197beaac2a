// The invariant of all random tests: when all threads rest, what is published and what the firmware was last
// told is what the same operations, run whole and one after another in some order, would have left, given the
// answers that the machine gives last. The orders are run on a second machine, whose threads nothing
// disturbs.
#pragma once

#include <algorithm>
#include <map>
#include <numeric>
#include <optional>

#include "sim/invariants/orders.h"
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
    std::string what() const { return sim::format("%s(%d)", method, argument); }
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
    return known[script] = sim::state_at_rest();
}

// Calls `visit` with the script of each order until it returns true. (Where nobody listens any more, what was
// done with an older answer stands.)
inline bool visit_orders(const PlayedRound& round, const std::function<bool(const std::string&)>& visit) {
    std::vector<sim::ChangedAnswer> changes;
    for (const size_t change : round.changes)
        changes.push_back({change, round.operations[change].change->what()});
    return sim::visit_orders(round.operations.size(), changes, [&](const std::vector<size_t>& order) {
        std::string script;
        for (const size_t i : order)
            script += i < round.operations.size()
                          ? round.operations[i].serial()
                          : round.operations[round.changes[i - round.operations.size()]].change->answer();
        return visit(script + round.rest + "\n");
    });
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
    round.found = sim::state_at_rest();
    story->rounds.push_back(round);
    if (!explained(*story, 0, story->setup))
        ADD_FAILURE() << "no order of the operations leaves what was found:\n" << differences(*story);
}

} // namespace orders
