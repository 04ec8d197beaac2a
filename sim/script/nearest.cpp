#include "sim/script/nearest.h"

#include <algorithm>
#include <cctype>

namespace sim {

static bool same_letter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

size_t letters_apart(std::string_view a, std::string_view b, size_t limit) {
    if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) >= limit)
        return limit;
    std::vector<size_t> before(b.size() + 1);
    std::vector<size_t> above(b.size() + 1);
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        above[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        size_t least = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min(
                {above[j] + 1, row[j - 1] + 1, above[j - 1] + (same_letter(a[i - 1], b[j - 1]) ? 0 : 1)});
            if (i > 1 && j > 1 && same_letter(a[i - 1], b[j - 2]) && same_letter(a[i - 2], b[j - 1]))
                row[j] = std::min(row[j], before[j - 2] + 1);
            least = std::min(least, row[j]);
        }
        if (least >= limit)
            return limit;
        before.swap(above);
        above.swap(row);
    }
    return std::min(above[b.size()], limit);
}

std::string nearest(std::string_view word, const std::vector<std::string>& words) {
    std::string best;
    size_t limit = word.size() / 2 + 1; // half of it must be right
    for (const std::string& candidate : words) {
        const size_t apart = letters_apart(word, candidate, limit);
        if (apart < limit) {
            limit = apart;
            best = candidate;
        }
    }
    return best;
}

std::string suggestion(std::string_view word, const std::vector<std::string>& words) {
    const std::string meant = nearest(word, words);
    return meant.empty() ? "" : "; did you mean " + meant + "?";
}

} // namespace sim
