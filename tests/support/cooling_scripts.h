// Scripts of the cooling tests, written short.
#pragma once

#include "tests/support/bench.h"

// Commands may be parted by ';'. ATTACH and DETACH stand for a tablet option (a keyboard) that comes and
// goes, SPECIAL n for n seconds of special cooling.
inline std::string Lines(std::string script) {
    static const struct {
        std::string word;
        std::string meaning;
    } words[] = {
        {";", "\n"},
        {"ATTACH", "firmware GOPT(0x200) = 2\nevent 0x4012"},
        {"DETACH", "firmware GOPT(0x200) = 0\nevent 0x4013"},
        {"SPECIAL ", "registry set SVC\\TMCT\\Parameters SPCT dword "},
    };
    for (const auto& [word, meaning] : words) {
        for (size_t at = script.find(word); at != std::string::npos;
             at = script.find(word, at + meaning.size()))
            script.replace(at, word.size(), meaning);
    }
    return script;
}

// Runs a script on a new machine.
inline void CheckScript(const std::string& name, const std::string& script) {
    SCOPED_TRACE(name);
    Bench bench;
    bench.run(Lines(script));
}
