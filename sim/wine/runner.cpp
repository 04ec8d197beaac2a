#include "sim/wine/runner.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "sim/machine/machine.h"
#include "sim/notebook/driver.h"

namespace sim {

constexpr int ANSWER_LIMIT_MS = 90000; // real time, longer than the runner waits for its threads

static std::string g_wine;
static std::string g_executable;

namespace {

struct RunnerProcess {
    pid_t id = 0; // 0: there is none
    int input = -1;
    int output = -1;
    std::string read; // of its output, not yet a whole line
};

} // namespace

static RunnerProcess g_process;
static pid_t g_keeper = 0;
static std::string g_broken;

std::string request(std::initializer_list<std::string> fields) {
    std::string text;
    for (const std::string& field : fields)
        text += (text.empty() ? "" : "\t") + field;
    return text;
}

const std::string& broken() {
    return g_broken;
}

void use_runner(const std::string& wine, const std::string& executable) {
    g_wine = wine;
    g_executable = executable;
}

static void break_off(const std::string& what) {
    if (g_broken.empty())
        g_broken = what;
}

static void forget_process() {
    if (g_process.id == 0)
        return;
    close(g_process.input);
    close(g_process.output);
    int status = 0;
    waitpid(g_process.id, &status, 0);
    g_process = {};
}

// Wine ends its services, the stand-in driver among them, with the last program: this one stays, and asks
// nothing.
static void start_keeper() {
    int pipes[2];
    if (g_keeper != 0 || pipe2(pipes, O_CLOEXEC) != 0)
        return;
    g_keeper = fork();
    if (g_keeper == 0) {
        dup2(pipes[0], STDIN_FILENO);
        execlp(g_wine.c_str(), g_wine.c_str(), g_executable.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    close(pipes[0]); // the other end stays open as long as this process
}

static void become_runner(const int (&in)[2], const int (&out)[2]) {
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    execlp(g_wine.c_str(), g_wine.c_str(), g_executable.c_str(), static_cast<char*>(nullptr));
    _exit(127);
}

static void start_process() {
    start_keeper();
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0)
        return break_off(std::string("no pipe: ") + std::strerror(errno));
    g_process.id = fork();
    if (g_process.id == 0)
        become_runner(in, out);
    close(in[0]);
    close(out[1]);
    g_process.input = in[1];
    g_process.output = out[0];
}

static bool read_line(std::string* line) {
    size_t end = g_process.read.find('\n');
    while (end == std::string::npos) {
        pollfd waiting = {g_process.output, POLLIN, 0};
        char block[4096];
        const ssize_t count =
            poll(&waiting, 1, ANSWER_LIMIT_MS) == 1 ? read(g_process.output, block, sizeof(block)) : 0;
        if (count <= 0)
            return false;
        g_process.read.append(block, static_cast<size_t>(count));
        end = g_process.read.find('\n');
    }
    *line = g_process.read.substr(0, end);
    g_process.read.erase(0, end + 1);
    return true;
}

// The words of a line up to a count; the last one is the rest.
static std::vector<std::string> words_of(const std::string& line, size_t count) {
    std::vector<std::string> words;
    size_t at = 0;
    while (words.size() + 1 < count && line.find(' ', at) != std::string::npos) {
        const size_t end = line.find(' ', at);
        words.push_back(line.substr(at, end - at));
        at = end + 1;
    }
    words.push_back(line.substr(at));
    words.resize(count);
    return words;
}

// TIME THREAD, a tab, what it has done.
static void take_effect(const std::string& line) {
    const size_t tab = line.find('\t');
    const std::vector<std::string> words = words_of(line.substr(0, tab), 2);
    Machine& m = machine();
    m.now = std::strtoull(words[0].c_str(), nullptr, 10);
    m.trace.push_back({m.now, words[1], line.substr(tab + 1), true});
    if (m.on_line != nullptr)
        m.on_line(m.trace.back());
}

static void send_line(const std::string& text) {
    const std::string line = text + "\n";
    if (write(g_process.input, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        break_off("the runner has gone");
}

// METHOD ARGUMENT of a request that the runner is about to send.
static void tell_answer(const std::string& text, bool duration) {
    const std::vector<std::string> words = words_of(text, 2);
    const auto argument = static_cast<DWORD>(std::strtoul(words[1].c_str(), nullptr, 10));
    const Ms takes = duration ? scripted_duration(words[0], argument) : 0;
    if (takes != 0)
        return send_line(std::to_string(takes)); // the answer is chosen when that has passed
    const Answer answer = scripted_answer(words[0], argument);
    send_line(std::string(answer.fails ? "0 1 " : "0 0 ") + std::to_string(answer.bytes) + " " +
              std::to_string(static_cast<DWORD>(answer.value)));
}

static std::string exchange(const std::string& text) {
    std::string value;
    send_line(text);
    while (g_broken.empty()) {
        std::string answer;
        if (!read_line(&answer)) {
            break_off("the runner does not answer: " + text);
            break;
        }
        const std::vector<std::string> words = words_of(answer, 2);
        if (words[0] == "effect")
            take_effect(words[1]);
        else if (words[0] == "takes" || words[0] == "answer")
            tell_answer(words[1], words[0] == "takes");
        else if (words[0] == "value")
            value = words[1];
        else if (words[0] == "broken")
            break_off(words[1]);
        else if (words[0] == "done")
            break;
    }
    return value;
}

std::string ask(const std::string& text) {
    if (g_broken.empty() && g_process.id == 0)
        start_process();
    return g_broken.empty() ? exchange(text) : "";
}

void end_runner() {
    forget_process();
    g_broken.clear();
}

} // namespace sim
