#include "sim/tool/output.h"

#include <cstdio>

void print_line(const sim::TraceLine& line) {
    if (line.thread.empty()) { // a heading of the script
        std::printf("\n== %s\n", line.text.c_str());
        return;
    }
    std::printf("%.3f %s %s\n", static_cast<double>(line.time) / 1000, line.thread.c_str(),
                line.text.c_str());
}
