// The product in a process of the runner: the same objects on real Win32, with the clock of recorder/clock
// and a service control manager of its own. It reads requests from standard input, a line each, fields parted
// by tabs, and answers as output.h says.
#include <windows.h>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "recorder/clock/turns.h"
#include "recorder/runner/output.h"
#include "recorder/runner/requests.h"
#include "recorder/runner/wrapped.h"

namespace runner {

static Fields fields_of(const std::string& line) {
    Fields fields;
    for (size_t at = 0; at <= line.size();) {
        const size_t end = std::min(line.find('\t', at), line.size());
        fields.push_back(line.substr(at, end - at));
        at = end + 1;
    }
    return fields;
}

static void answer(const std::string& line) {
    Fields fields = fields_of(line);
    const Request* request = find_request(fields[0]);
    if (request == nullptr || fields.size() != request->fields + 1)
        broken("no such request: " + line);
    fields.erase(fields.begin());
    request->act(fields);
    say_line("done");
}

static void stuck(const char* thread) {
    broken(std::string("the thread ") + thread + " does not come back from a call");
}

} // namespace runner

int wmain() {
    using namespace runner;
    LoadLibraryW(L"shell32.dll"); // imported by nobody else here, and its functions are looked for
    turns::begin();
    turns::on_stuck(stuck);
    set_local_time({2021, 6, 2, 1, 9, 0, 0, 0});
    std::string line;
    while (read_line(&line))
        answer(line);
    ExitProcess(0);
}
