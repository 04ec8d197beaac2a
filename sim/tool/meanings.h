// What a line of the trace means, in words: the last column of the timeline. Values and their words stand in
// the headers that the service is built with; here only is said which words belong to which line.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "sim/machine/trace.h"

namespace sim {

enum class LineKind { Request, Registry, Call, Status, Write, Other, Open, Wait, Says, Count };

// What the machine is in, one thing at a time: the lanes of the page.
enum class Lane {
    None,
    Service,
    Power,
    Display,
    Posture,
    Lid,
    Inhibit,
    Option,
    Dock,
    SystemMode,
    TwoInOne,
    Hinge,
    QuietHinge,
    Processor,
    DockMode,
    Count
};
const char* lane_name(Lane lane);

// What is left out where lines are folded: nothing; what follows from other lines of its thread; what is part
// of every event.
enum class Weight { Full, Follows, Ceremony };

struct Meaning {
    std::string words = ""; // "": not known
    Lane lane = Lane::None;
    std::string state = ""; // that the lane has from here on
    Weight weight = Weight::Full;
};

// What earlier lines said that a later one's meaning depends on.
struct MeaningMemory {
    std::map<std::string, std::uint32_t> values; // the registry's numbers, by "PATH VALUE"
    std::uint32_t option_version = 0;
    std::uint32_t option_type = 0;
    std::uint32_t thermal_revision = 0;
};

LineKind kind_of(const TraceLine& line);
// Of one line, in the trace's order.
Meaning meaning_of(const TraceLine& line, MeaningMemory* memory);
// Of a script's command, without its comment.
Meaning meaning_of_command(std::string_view command, MeaningMemory* memory);
// Whether lines of this kind speak of codes that need words.
bool needs_words(const TraceLine& line);

// ---- parts, for the files of the meanings ----

// "NAME(ARGUMENTS) = ANSWER", as far as there.
struct CallText {
    std::string_view name;
    std::string_view arguments;
    std::string_view answer;
    bool failed = false;
};
CallText read_call(std::string_view text);
std::uint32_t number_in(std::string_view text, size_t index = 0); // the index-th number of a list, or 0

Meaning request_meaning(std::string_view text, MeaningMemory* memory);
Meaning registry_meaning(std::string_view text, MeaningMemory* memory);
Meaning call_meaning(std::string_view text);
std::string event_words(std::uint32_t code);
// The codes that the service knows, for `event` and for `control`.
std::vector<std::string> known_events();
std::vector<std::string> known_controls();
std::string event_name(std::uint32_t code); // in the service's own trace; "" when it has no row
std::string control_words(std::uint32_t code);
std::string posture_words(std::uint32_t posture);
std::string keys_words(std::uint32_t mask, std::uint32_t first); // "hot keys 3, 12 to 14", or "none"

} // namespace sim
