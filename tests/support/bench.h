// The bench of the tests: one simulated machine, driven by scripts in the scenario language and by C++.
#pragma once

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

#include "sim/invariants/at_rest.h"
#include "sim/machine/machine.h"
#include "sim/notebook/driver.h"
#include "sim/script/scenario.h"
#include "sim/windows/registry.h"
#include "sim/windows/scm.h"

using sim::live_threads;

// Where the scripts of the tests are kept, a file for each bench, when ZORPM_SCRIPTS names a folder: they run
// on real Win32 too (tests/wine/run_scenarios.sh).
inline std::string kept_script() {
    static unsigned number = 0;
    const char* folder = std::getenv("ZORPM_SCRIPTS");
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    if (folder == nullptr || test == nullptr)
        return "";
    return std::string(folder) + "/" + test->test_suite_name() + "." + test->name() + "." +
           std::to_string(++number) + ".txt";
}

inline std::string text_of_file(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

struct Bench {
    sim::Machine machine;
    std::string kept = kept_script();

    explicit Bench(std::uint64_t seed = 0) : machine(seed) {}
    // Whatever a test forgets to look at: no violation, ever.
    ~Bench() {
        for (const std::string& violation : machine.violations)
            ADD_FAILURE() << "violation: " << violation;
    }

    // Runs a script on the machine as it stands; all its expectations must hold. Commands of one step may
    // share a row: event 0x4012 | expect request GOPT*
    void run(std::string script) {
        bool quoted = false;
        for (size_t at = 0; at < script.size(); ++at) {
            if (script[at] == '"')
                quoted = !quoted;
            else if (!quoted && script.compare(at, 3, " | ") == 0)
                script[at + 1] = '\n';
        }
        if (!kept.empty())
            std::ofstream(kept, std::ios::app) << script << "\n";
        const sim::ScriptResult result = sim::run_text(script);
        EXPECT_EQ(0, result.exit_code)
            << "line " << result.place.line << " of the script: " << result.message << result.context;
        machine.violations.clear();
    }

    // Starts the service and lets it come to rest; the mark is behind the start.
    void started(const std::string& setup = "") {
        run(setup + R"(
            start
            advance 2s
            check status RUNNING
            mark
        )");
    }
};

// Runs work on a simulated thread; `word` is part of the one violation it makes, or null for none.
inline void expect_violation(const char* word, const std::function<void()>& work) {
    Bench bench;
    sim::run_on_thread(work);
    ASSERT_EQ(word != nullptr ? 1u : 0u, bench.machine.violations.size());
    const std::string violation = word != nullptr ? bench.machine.violations[0] : "";
    EXPECT_TRUE(word == nullptr || violation.find(word) != std::string::npos) << violation;
    bench.machine.violations.clear();
}

// Effects in the trace from line `first` on that begin like this.
inline size_t traced(const std::string& beginning, size_t first = 0) {
    const auto& trace = sim::machine().trace;
    size_t count = 0;
    for (size_t i = first; i < trace.size(); ++i)
        count += trace[i].effect && trace[i].text.starts_with(beginning);
    return count;
}

// Lines of the whole trace that are this, or begin with what stands before the star.
inline size_t details(const std::string& pattern) {
    size_t found = 0;
    for (const sim::TraceLine& line : sim::machine().trace)
        found += pattern.back() == '*' ? line.text.starts_with(pattern.substr(0, pattern.size() - 1))
                                       : line.text == pattern;
    return found;
}

// Rows of a table of scripts: each runs on a new machine, behind a common beginning.
struct ScriptCase {
    std::string name;
    std::string script;
};

inline void run_case(const std::string& name, const std::string& script) {
    SCOPED_TRACE(name);
    Bench bench;
    bench.run(script);
}

// `Rows`: an array or a braced list of cases.
template <class Rows = std::initializer_list<ScriptCase>>
void run_cases(const std::string& beginning, const Rows& rows) {
    for (const ScriptCase& row : rows)
        run_case(row.name, beginning + "\n" + row.script);
}
