// Figures that a sweep measured. They are printed at once, and once more as one table at the end of `make
// test`.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

// One line of the table: printf format, without a line end. Say what was counted, then the number and its
// unit.
__attribute__((format(printf, 1, 2))) inline void Figure(const char* format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    printf("%s\n", line);
    const char* path = getenv("ZORPM_FIGURES"); // set by ctest
    if (path == nullptr)
        return;
    if (FILE* file = fopen(path, "a")) {
        fprintf(file, "%s\n", line);
        fclose(file);
    }
}
