// What the sweeps share: every call failing once, many seeds, and the figures they print.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "sim/windows/modules.h"
#include "tests/support/bench.h"

// One line of the table of figures that `make test` shows at its end.
inline void figure(const char* what, const std::string& value) {
    if (std::getenv("ZORPM_SHARE") != nullptr)
        return;
    std::printf("figure: %-80s %s\n", what, value.c_str());
    if (const char* path = std::getenv("ZORPM_FIGURES")) {
        if (FILE* file = std::fopen(path, "a")) {
            std::fprintf(file, "%-80s %s\n", what, value.c_str());
            std::fclose(file);
        }
    }
}

// With ZORPM_SHARE=N, one of N of the failing calls and seeds alone: what the sanitizers see of a sweep.
inline std::uint64_t share() {
    const char* text = std::getenv("ZORPM_SHARE");
    return text != nullptr ? std::max(1ul, std::strtoul(text, nullptr, 10)) : 1;
}

// Runs `script` (no expectations in it: only acts) once to count its platform calls, then once per call with
// that call failing. Asks what must always hold: no violation (so no crash, no spin, no bad handle). `after`
// may ask more, with the name of the failed call. Returns how many calls were failed.
inline std::uint64_t sweep_failures(const std::string& script,
                                    const std::function<void(const std::string& failed)>& after = {}) {
    std::uint64_t calls = 0;
    {
        Bench bench;
        bench.run(script);
        calls = bench.machine.calls;
    }
    for (std::uint64_t number = 1; number <= calls; number += share()) {
        Bench bench;
        bench.machine.fail_at = number;
        bench.run(script);
        SCOPED_TRACE("call " + std::to_string(number) + " failed: " + bench.machine.failed_call);
        if (after)
            after(bench.machine.failed_call);
        if (::testing::Test::HasFailure()) {
            ADD_FAILURE() << "stopped at call " << number << ", " << bench.machine.failed_call;
            return number;
        }
    }
    return calls;
}

// Runs `begin`, then `acts` with one of its platform calls failing, each on a new machine, until none is left
// to fail; `after` asks what must hold then. Returns how many calls were failed.
inline std::uint64_t fail_each_call(const std::string& begin, const std::string& acts,
                                    const std::function<void(Bench&)>& after) {
    for (std::uint64_t number = 1;; number += share()) {
        Bench bench;
        bench.run(begin);
        bench.machine.fail_at = bench.machine.calls + number;
        bench.run(acts);
        bench.machine.fail_at = 0;
        if (bench.machine.failed_call.empty())
            return number - 1;
        SCOPED_TRACE("call " + std::to_string(number) + " failed: " + bench.machine.failed_call);
        after(bench);
        if (::testing::Test::HasFailure())
            return number;
    }
}

// Handles, memory and libraries that all processes hold.
inline size_t held() {
    size_t blocks = 0;
    for (const auto& process : sim::machine().processes)
        blocks += process->local_blocks;
    return sim::handle_count() + blocks + sim::loaded_modules();
}

// The same behind a script.
inline size_t held_after(const std::string& script) {
    Bench bench;
    bench.run(script);
    return held();
}

// Every so many seeds are run twice, and the two traces compared.
constexpr std::uint64_t SEEDS_PER_REPETITION = 10;

// How often run_seeds runs its body.
inline std::uint64_t runs_of(std::uint64_t seeds) {
    return share() == 1 ? seeds + seeds / SEEDS_PER_REPETITION : (seeds + share() - 1) / share();
}

// Runs `body` on a machine of each seed from 1 to `seeds`, half of them with overtaking between two atomics.
// The seed is named when something fails, and no further one is run.
inline void run_seeds(std::uint64_t seeds, const std::function<void(Bench&)>& body) {
    const char* chosen = std::getenv("ZORPM_SEED");
    const std::uint64_t only = chosen != nullptr ? std::strtoull(chosen, nullptr, 0) : 0;
    for (std::uint64_t seed = only != 0 ? only : 1; seed <= (only != 0 ? only : seeds); seed += share()) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const bool repeated = only != 0 || seed % SEEDS_PER_REPETITION == 0;
        std::uint64_t hash[2] = {};
        std::vector<sim::TraceLine> lines[2];
        for (int round = 0; round < (repeated ? 2 : 1) && !::testing::Test::HasFailure(); ++round) {
            Bench bench(seed);
            bench.machine.hands_over_at_atomics = seed % 4 >= 2;
            body(bench);
            hash[round] = bench.machine.trace_hash;
            lines[round] = std::move(bench.machine.trace);
        }
        if (repeated && hash[0] != hash[1] && !::testing::Test::HasFailure()) {
            size_t at = 0;
            const auto shown = [&at](const std::vector<sim::TraceLine>& of) {
                return at < of.size() ? of[at].thread + " " + of[at].text : "(end)";
            };
            while (at < lines[0].size() && shown(lines[0]) == shown(lines[1]))
                ++at;
            ADD_FAILURE() << "the same seed gave two traces, first difference in line " << at << ": "
                          << shown(lines[0]) << " / " << shown(lines[1]);
        }
        if (::testing::Test::HasFailure()) {
            const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
            ADD_FAILURE() << "repeat with: ZORPM_SEED=" << seed
                          << " build/host/zorpm_sweeps --gtest_filter=" << test->test_suite_name() << "."
                          << test->name();
            return;
        }
    }
}
