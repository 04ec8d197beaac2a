// What lines of the trace mean: every line of the scenarios that speaks in codes has words.
#include <filesystem>

#include "driver/ioctl.h"
#include "sim/tool/moments.h"
#include "tests/support/bench.h"

using namespace sim;

static std::vector<Moment> run_recorded(const std::string& script) {
    std::vector<Moment> moments;
    Bench bench;
    bench.machine.keep_details = true; // a thread's first wait tells when it began
    record(&moments, [](const Moment&) {});
    bench.run(script);
    stop_recording();
    return moments;
}

static std::vector<Moment> run_file(const std::filesystem::path& path) {
    return run_recorded(text_of_file(path));
}

static bool speaks_in_codes(const Moment& moment) {
    if (moment.source == Moment::Source::Outside)
        return moment.text.starts_with("event ") || moment.text.starts_with("control ");
    return needs_words({moment.time, moment.thread, moment.text, moment.source == Moment::Source::Effect});
}

TEST(Timeline, EveryLineOfTheScenariosHasAMeaning) {
    size_t lines = 0;
    for (const auto& entry : std::filesystem::directory_iterator(ZORPM_SOURCE_DIR "/scenarios")) {
        if (entry.path().extension() != ".txt")
            continue;
        for (const Moment& moment : run_file(entry.path())) {
            if (!speaks_in_codes(moment))
                continue;
            ++lines;
            EXPECT_NE("", moment.meaning.words) << entry.path().filename().string() << ": " << moment.text;
        }
    }
    EXPECT_LT(3000u, lines);
}

TEST(Timeline, EveryRequestOfTheCatalogueHasAMeaning) {
    Bench bench;
    MeaningMemory memory;
#define METHOD(name, device, function, in, out)                                                              \
    EXPECT_NE("", request_meaning(#name "(0x0) = 0x1", &memory).words) << #name;                             \
    EXPECT_TRUE(request_meaning(#name "(0x0) failed", &memory).words.ends_with(": fails")) << #name;
    PMDRV_IOCTL_CATALOGUE(METHOD)
#undef METHOD
}

// Lines in their order, with what they mean.
static const struct {
    const char* line;
    const char* words;
} g_meanings[] = {
    {"request DYTC(0x113001) = 0x1", "hinge: tent, accepted"},
    {"request DYTC(0x113001) = 0x0", "hinge: tent, refused"},
    {"request DYTC(0x0) = 0x30000001", "revision of thermal control: 3"},
    {"request DYTC(0x101) = 0x0", "system: cool and quiet, accepted"},
    {"request DYTC(0x123456) = 0x1", ""},
    {"request DYTC(0x3) = 0x240001", "thermal functions: two in one, quiet hinge"},
    {"request DYTC(0x0) = 0x20000001", "revision of thermal control: 2"},
    {"request DYTC(0x3) = 0x201", "system-wide mode: high performance"},
    {"request GMMS(0x0) = 0x5", "tent"},
    {"request GMMS(0x0) = 0x9", "unknown posture 9"},
    {"request GMMS(0x0) failed", "posture: fails"},
    {"request GOPT(0x0) = 0x100", "version of the option interface 0x100"},
    {"request GOPT(0x200) = 0x10", "option: keyboard"},
    {"request GOPT(0x0) = 0x102", "version of the option interface 0x102"},
    {"request GOPT(0x200) = 0x10001", "option: keyboard attached, flip mode"},
    {"request GOPT(0x100) = 0x4", "type of the option interface 0x4"},
    {"request GOPT(0x200) = 0x3", "option: attached"},
    {"request GETLIDSTATUS() = 0x2", "lid closed"},
    {"request GETLIDSTATUS() = 0x1", "lid: no valid reading"},
    {"request MHKA(0x1) = 0x80000807", "page 1 can hand over hot keys 1 to 3, 12, 32"},
    {"request MHKN(0x2) = 0x3", "page 2 hands over hot keys 33, 34"},
    {"request MHKM(12, 0)", "hot key 12 is left to the firmware"},
    {"request CSTATEPARAMS(0x4)", "C4"},
    {"request GETEVENT() = 0x2304 0x0", "wake-up, sleep state 3"},
    {"request GETEVENT() = 0x2013 0x0", "wakeup batt"},
    {"request GETEVENT() = 0x1102 0x0", "hot key 2 of page 2"},
    {"registry SVC\\Parameters\\Notification Type2 = 0x20000410",
     "flipped bit 4: lid closed, 10: dock mode changed (0x4010), 29: transformation changed"},
    {"registry SVC\\Parameters\\Notification Type2 = 0x20000430", "flipped bit 5: lid opened"},
    {"registry SVC\\Parameters2\\Type10\\Notification Type12 = 0x4", "page 2, flipped bit 2: hot key 35"},
    {"registry SVC\\Transform\\CurrentStatus MM = 0x3", "posture: tablet"},
    {"registry HKLM\\SOFTWARE\\Mestra\\MultiMode PrevMode = \"LAPTOP\"", "before: notebook"},
    {"registry create SVC\\TMC\\TIO", "Two In One: new"},
    {"registry SVC\\TMC\\TIO NoSuch = 0x1", ""},
    {"registry HKLM\\NoSuch Value = 0x1", ""},
    {"write slate 0", "toggled: notebook -> tablet"},
    {"write dock 0", "toggled: undocked -> docked"},
    {"status RUNNING 1066/3", "answer: lid inhibited"},
    {"status STOPPED 1066/680002", "the driver could not be opened"},
    {"status START_PENDING 0/0 checkpoint 2", "start pending"},
    {"call SetSuspendState(1, 0, 0) = 1", "hibernate"},
    {"call SetSuspendState(0, 0, 1) = 0", "sleep, refused"},
    {"call ControlService(\"ZORPMSVC\", 142) = 1", "the device is held in the hand"},
    {"call SetInverterParams(1, 200) = 0x80004005", "panel frequency 200 Hz: fails"},
    {"call NoSuchCall(1) = 1", ""},
};

TEST(Timeline, LinesMeanWhatTheyTell) {
    Bench bench;
    MeaningMemory memory;
    for (const auto& row : g_meanings)
        EXPECT_EQ(row.words, meaning_of({0, "thread", row.line, true}, &memory).words) << row.line;
    EXPECT_EQ(
        "handed to clients: hot key 12",
        meaning_of_command("registry set SVC\\Parameters\\CurrentSetting @ dword 0x800", &memory).words);
    EXPECT_EQ("turn the monitor off", meaning_of_command("helper session 2 5", &memory).words);
    EXPECT_EQ("tent", meaning_of_command("firmware GMMS = 5 times 2", &memory).words);
}

// What a thread does while only time passes follows from what it was told before.
TEST(Timeline, EffectsKnowWhatCausedThem) {
    const std::vector<Moment> moments = run_recorded(R"(
        start
        advance 2s
        control 131
        event 0x60C0
        advance 1s
    )");
    std::map<std::string, std::string> causes;
    for (const Moment& moment : moments) {
        if (moment.cause != NO_CAUSE && moment.source == Moment::Source::Effect)
            causes[moment.text] = moments[moment.cause].text + (moment.after_time ? ", later" : "");
    }
    EXPECT_EQ("start", causes["request CONNECT(0x1) = 0x0"]);
    EXPECT_EQ("control 131", causes["request LCDCSCONTROL(0x1) = 0x0"]);
    EXPECT_EQ("control 131, later", causes["request LCDCSGETSTATE() = 0x2"]);
    EXPECT_EQ("event 0x60C0", causes["request GETEVENT() = 0x60c0 0x0"]);
}
