// Recordings: what a machine did in whatever order, replayed.
#include <filesystem>

#include "tests/support/bench.h"

static std::string g_recording;
static sim::Ms g_time;

static void record_time() {
    const sim::Ms passed = sim::machine().now - g_time;
    if (passed != 0)
        g_recording += "advance " + std::to_string(passed) + "ms\n";
    g_time += passed;
}

static void record_line(const sim::TraceLine& line) {
    if (!line.effect)
        return;
    record_time();
    g_recording += "effect " + line.thread + " " + line.text + "\n";
}

static void record_command(const std::string& text, int) {
    record_time();
    if (!text.starts_with("advance") && !text.starts_with("show") &&
        text.find(" takes ") == std::string::npos)
        g_recording += text + "\n";
}

static std::string recording_of(const std::string& script, std::uint64_t seed) {
    sim::Machine machine(seed);
    g_recording.clear();
    g_time = 0;
    machine.on_line = record_line;
    machine.on_command = record_command;
    const sim::ScriptResult result = sim::run_text(script);
    EXPECT_TRUE(seed != 0 || result.exit_code == 0) << result.message;
    return g_recording;
}

static sim::ScriptResult replayed(const std::string& recording) {
    sim::Machine machine;
    return sim::run_text(recording);
}

// What the first line that differs says; "" when all are as recorded.
static std::string parting(const std::string& recording) {
    const sim::ScriptResult result = replayed(recording);
    return result.exit_code == 0 ? "" : std::to_string(result.place.line) + ": " + result.message;
}

// Whatever order a seed has chosen, the replay follows it, effect by effect. Of other programs a recording
// does not have all that decides their order.
TEST(Replay, EveryScenarioInManyOrders) {
    for (const auto& entry : std::filesystem::directory_iterator(ZORPM_SOURCE_DIR "/scenarios")) {
        const std::string script = text_of_file(entry.path());
        if (entry.path().extension() != ".txt" || script.find("fail ") != std::string::npos)
            continue;
        const std::uint64_t seeds = script.find("run \"zorpmctl\"") != std::string::npos ? 1 : 4;
        for (std::uint64_t seed = 0; seed < seeds; ++seed)
            EXPECT_EQ("", parting(recording_of(script, seed))) << entry.path() << " seed " << seed;
    }
}

static const char g_day[] = "registry set SVC\\TMC\n"
                            "firmware DYTC(0) = 0x30000001\n"
                            "start\n"
                            "event 0x6002\n"
                            "control 132\n"
                            "advance 2s\n"
                            "event 0x4012\n"
                            "event 0x1001\n"
                            "advance 6s\n"
                            "stop\n";

static std::string changed(std::string recording, const std::string& before, const std::string& after) {
    const size_t at = recording.find(before);
    EXPECT_NE(std::string::npos, at) << before;
    return at == std::string::npos ? recording : recording.replace(at, before.size(), after);
}

TEST(Replay, WhereItParts) {
    const std::string recording = recording_of(g_day, 3);
    ASSERT_EQ("", parting(recording));
    const std::string event = "effect TerminalThread request GETEVENT() = 0x6002 0x0\n";
    // One bit of an answer.
    std::string said =
        parting(changed(recording, "firmware DYTC(0) = 0x30000001", "firmware DYTC(0) = 0x30000000"));
    EXPECT_NE(std::string::npos, said.find("recorded: 0.000 ServiceMain request DYTC(0x0) = 0x30000001\n"
                                           "    replayed: 0.000 ServiceMain request DYTC(0x0) = 0x30000000"))
        << said;
    // An effect that nobody makes, one that nobody has recorded, and one of a thread that there is not.
    said = parting(changed(recording, event, event + event));
    EXPECT_NE(std::string::npos, said.find("recorded: 0.000 " + event.substr(7))) << said;
    said = parting(changed(recording, event, ""));
    EXPECT_NE(std::string::npos, said.find("as recorded")) << said;
    said = parting(changed(recording, "effect TerminalThread", "effect PHThreadProc"));
    EXPECT_NE(std::string::npos, said.find("it does not come")) << said;
}

// The order of the lines decides, not the order in which the threads came: both threads at rest before a call
// that others see.
TEST(Replay, LinesAreTheSchedule) {
    const std::string before = "registry set SVC\\TMC\nfirmware DYTC(0) = 0x30000001\nstart\n";
    const std::string race = "together\ncontrol 132\nevent 0x1001\nend\n";
    const std::string begun = recording_of(before, 0);
    std::istringstream lines(recording_of(before + race, 0).substr(begun.size()));
    std::string of_event;
    std::string of_control;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("effect "))
            (line.starts_with("effect TerminalThread") ? of_event : of_control) += line + "\n";
    }
    ASSERT_NE("", of_event);
    ASSERT_NE("", of_control);
    EXPECT_EQ("", parting(begun + race + of_event + of_control));
    EXPECT_EQ("", parting(begun + race + of_control + of_event));
}

TEST(Replay, LinesAreTakenWhole) {
    EXPECT_EQ("", parting("stop\neffect machine refused stop   \n"));
    EXPECT_EQ("1: the line of an effect expected", parting("effect ServiceMain\n"));
    EXPECT_NE(std::string::npos, parting("effect ServiceMain request NOSUCH() = 0x1\n").find("NOSUCH"));
    const std::string quoted = "start\neffect ServiceMain registry SVC\\Status # = \"a # b\n";
    EXPECT_NE(std::string::npos, parting(quoted).find("# = \"a # b\n")) << parting(quoted);
}
