#include "sim/tool/output.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include "sim/tool/options.h"

constexpr size_t OUTPUT_BUFFER = 65536;

void prepare_output() {
    struct stat status = {};
    const bool file = fstat(fileno(stdout), &status) == 0 && S_ISREG(status.st_mode);
    std::setvbuf(stdout, nullptr, file ? _IOFBF : _IOLBF, OUTPUT_BUFFER);
    std::signal(SIGPIPE, SIG_IGN);
}

[[noreturn]] static void output_failed(int error) {
    if (error != EPIPE)
        std::fprintf(stderr, "zorpmsim: output: %s\n", std::strerror(error));
    std::exit(EXIT_OUTPUT);
}

void check_printed(int printed) {
    if (printed < 0)
        output_failed(errno);
}

void print_shown(const std::string& line) {
    say(line + "\n");
}

void say(const std::string& text) {
    check_printed(std::fwrite(text.data(), 1, text.size(), stdout) == text.size() ? 0 : -1);
}

void flush_output() {
    check_printed(std::fflush(stdout));
}
