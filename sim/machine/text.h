// Text: all sim code holds it as UTF-8; wide text exists only at the edge.
#pragma once

#include <windows.h>
#include <cstdarg>
#include <string>
#include <string_view>

namespace sim {

std::string narrow(const WCHAR* text); // "" for null; a text without end is a violation
std::string narrow(const WCHAR* text, size_t length);
std::u16string widen(std::string_view text);
// Characters before the end; a text without end is a violation.
size_t wide_length(const WCHAR* text);
// Writes text and its null into a buffer of `capacity` characters; returns the length, or 0 when it does not
// fit.
DWORD put_wide(WCHAR* buffer, DWORD capacity, std::string_view text);

constexpr char lower(char c) { // ASCII
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}
bool same_text(std::string_view a, std::string_view b); // ASCII case ignored
struct TextOrder {                                      // of maps whose keys ignore it, too
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const;
};
std::string lower(std::string_view text);
std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
std::string format_list(const char* pattern, va_list arguments);

} // namespace sim
