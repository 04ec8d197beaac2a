// The word that somebody probably meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

// Changes of one letter (left out, added, another, two swapped) that lead from a to b, case aside; `limit`
// when there are as many or more.
size_t letters_apart(std::string_view a, std::string_view b, size_t limit);
// The one of `words` that is fewest letters away; "" when none resembles it.
std::string nearest(std::string_view word, const std::vector<std::string>& words);
// "; did you mean WORD?", or nothing.
std::string suggestion(std::string_view word, const std::vector<std::string>& words);

} // namespace sim
