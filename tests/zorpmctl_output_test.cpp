// What the control program says: the sessions in docs/zorpmctl.md, line for line, and how it reads its
// command line.
#include <fstream>

#include "sim/machine/process.h"
#include "tests/support/bench.h"

static const char g_machine[] = R"(
    firmware MHKA = 0x884 | firmware GOPT(0) = 0x100 | firmware GOPT(0x100) = 1 | firmware DYTC = 1
    firmware DYTC(0) = 0x30000001 | firmware DYTC(3) = 0x03ff0001 | firmware LCDCSGETSTATE = 3
    windows program "backup.exe" takes 1s
    start | advance 2s | event 0x4012 | advance 1s | event 0x60C0
)";

// What a command prints, a line each, on a machine of its own.
static std::string printed(const std::string& arguments) {
    Bench bench;
    bench.run(g_machine);
    sim::start_control_program(arguments);
    bench.run("advance 1ms");
    std::string lines;
    for (const sim::TraceLine& line : bench.machine.trace) {
        static const std::string head = "output zorpmctl \"";
        if (line.text.starts_with(head))
            lines += line.text.substr(head.size(), line.text.size() - head.size() - 1) + "\n";
    }
    return lines;
}

TEST(ControlProgram, SessionsAreThoseOfTheDocument) {
    static const std::string prompt = "    > zorpmctl ";
    std::ifstream document(ZORPM_SOURCE_DIR "/docs/zorpmctl.md");
    unsigned sessions = 0;
    std::string line;
    std::getline(document, line);
    while (document) {
        if (!line.starts_with(prompt)) {
            std::getline(document, line);
            continue;
        }
        const std::string arguments = line.substr(prompt.size());
        std::string told;
        while (std::getline(document, line) && line.starts_with("    ") && !line.starts_with(prompt))
            told += line.substr(4) + "\n";
        EXPECT_EQ(told, printed(arguments)) << arguments;
        ++sessions;
    }
    EXPECT_EQ(15u, sessions);
}

TEST(ControlProgram, ReadsItsCommandLine) {
    const std::string none = "zorpmctl: unknown command ";
    const std::string help = "; see zorpmctl --help\n";
    const std::string use =
        "zorpmctl: use: zorpmctl hotkey list | notify N | bios N | override N | release N\n";
    const std::string lid = printed("inhibit-lid x");
    const std::string seconds = "zorpmctl: --timeout wants a number of seconds, 4000000 at most\n";
    const struct {
        std::string line;
        std::string told;
    } rows[] = {
        {"no such", none + "no" + help},
        {"\t no\tsuch", none + "no" + help},
        {"\"no such\" one", none + "no such" + help},
        {"n\"o s\"uch", none + "no such" + help},
        {"\"no such", none + "no such" + help},
        {"\\\"no such\\\"", none + "\"no" + help},
        {"a\\b", none + "a\\b" + help},
        {"--Version", printed("--version")},
        {"status one", "zorpmctl: use: zorpmctl status [--json] [--inhibit]\n"},
        {"status 1 2 3 4 5 6 7 8", "zorpmctl: too many arguments at 4; see zorpmctl --help\n"},
        {"--timeout x", seconds},
        {"--timeout", seconds},
        {"--timeout \"\"", seconds},
        {"--timeout 4000001", seconds},
        {"-x", none + "-x" + help},
        {std::string(300, 'x'), none + std::string(63, 'x') + help},
        {"hotkey notify", use},
        {"hotkey notify \"\"", use},
        {"hotkey notify 0", use},
        {"hotkey notify 0:1", use},
        {"hotkey notify 4:1", use},
        {"hotkey notify 1/", use},
        {"hotkey list 1", use},
        {"inhibit-lid backup.exe " + std::string(8192, 'x'),
         lid.substr(0, lid.find('\n') + 1) +
             ("zorpmctl: cannot start backup.exe " + std::string(8192, 'x')).substr(0, 1023) + "\n"},
        {"cooling status 1", printed("cooling")},
        {std::string(63, 'x'), none + std::string(63, 'x') + help},
        {std::string(64, 'x'), none + std::string(63, 'x') + help},
        {"--frob", "zorpmctl: unknown option --frob; see zorpmctl --help\n"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.told, printed(row.line)) << row.line;
}
