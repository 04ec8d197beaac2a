// Runs what a generator draws, seed by seed, on all processors; a seed that fails leaves its script.
#pragma once

#include <cstdint>
#include <string>

#include "sim/hunt/draw.h"

namespace hunt {

// One seed: a machine and the script that runs on it.
struct Case {
    std::uint64_t seed;
    Draw draw;
    std::string failure; // "": none so far
};

struct Limits {
    std::uint64_t seed = 0;  // first; 0: where the run before ended
    std::uint64_t count = 0; // 0 and 0: the generator's own
    unsigned seconds = 0;
    unsigned jobs = 0;
};

struct Generator {
    const char* name;
    const char* help;
    void (*begin)(const Limits& limits); // once, before all cases; may be null
    void (*run)(Case& seed);
    unsigned longest_s;  // of one seed; behind that it spins
    std::uint64_t count; // unless told otherwise, of seeds
    unsigned seconds;    // or of time; 0: none
};

extern const Generator g_hunt;
extern const Generator g_soak;
extern const Generator g_fuzz;

// Runs more of the case's script on the machine as it stands, and keeps it in case that it fails; false when
// it does, or is no script.
bool play(Case& seed, const std::string& text);
// The same with any bytes, which need not be a script and expect nothing that must hold; or reads them only.
void play_bytes(Case& seed, const std::string& bytes, bool runs);
// Counts what has been reached, by its hash; whether it is new.
bool note_kind(std::uint64_t hash);

// An exit status.
int run_generator(const Generator& generator, const Limits& limits);

} // namespace hunt
