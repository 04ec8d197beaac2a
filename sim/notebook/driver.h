// The power-management driver and the firmware behind it.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "sim/machine/machine.h"

namespace sim {

constexpr DWORD ALL_BYTES = ~DWORD{0};

struct Answer {
    bool fails = false;
    std::uint64_t value = 0;
    DWORD bytes = ALL_BYTES; // all that the code has unless told otherwise
};
// Sets the lasting answer of a method (catalogue name without IOCTL_PMDRV_), or `times` answers before it.
// `argument` null: for every argument without an answer of its own.
void set_answer(const std::string& method, const DWORD* argument, const Answer& answer, unsigned times = 0);
// Each such request takes a time between the two, which the seed chooses (seed 0: the longest).
void set_answer_duration(const std::string& method, const DWORD* argument, Ms shortest, Ms longest = 0);
// The same for the requests in turn; the last one for all further ones. Late: the answer is that of the
// request's beginning, and not of its end.
void set_answer_durations(const std::string& method, const DWORD* argument, const std::vector<Span>& spans,
                          bool late = false);
// Scripts in code may decide answers by function instead (null: back to the table). It runs on the calling
// thread.
void set_answer_hook(std::function<bool(const std::string& method, DWORD argument, Answer* answer)> hook);
// Called for each request carried out, with its input words.
void set_request_hook(std::function<void(const std::string& method, const DWORD* in, DWORD in_bytes)> hook);

// What the script lets a request be answered next, and how long that takes: for whoever carries it out
// elsewhere.
Answer scripted_answer(const std::string& method, DWORD argument);
Ms scripted_duration(const std::string& method, DWORD argument);

// The last command of each kind as the trace shows it, by what it commands: the trace itself may be
// forgotten.
const std::map<std::string, std::string>& last_commands();

void post_event(DWORD code, DWORD second = 0);
size_t pending_events();
void set_driver_present(bool primary, bool secondary);

} // namespace sim
