#include "sim/machine/text.h"

#include <algorithm>
#include <cstdio>

#include "sim/machine/trace.h"

namespace sim {

// No correct program passes a longer text to the calls simulated here.
constexpr size_t LONGEST_TEXT = 32768;

std::string narrow(const WCHAR* text, size_t length) {
    std::string result(length, '\0');
    size_t plain = 0; // nearly all of it, nearly always
    for (; plain < length && static_cast<unsigned>(text[plain]) < 0x80; ++plain)
        result[plain] = static_cast<char>(text[plain]);
    result.resize(plain);
    for (size_t i = plain; i < length; ++i) {
        unsigned code = static_cast<unsigned>(text[i]);
        if (code >= 0xD800 && code < 0xDC00 && i + 1 < length &&
            static_cast<unsigned>(text[i + 1]) >= 0xDC00 && static_cast<unsigned>(text[i + 1]) < 0xE000)
            code = 0x10000 + ((code - 0xD800) << 10) + (static_cast<unsigned>(text[++i]) - 0xDC00);
        if (code < 0x80) {
            result += static_cast<char>(code);
        } else if (code < 0x800) {
            result += static_cast<char>(0xC0 | (code >> 6));
            result += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            result += static_cast<char>(0xE0 | (code >> 12));
            result += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            result += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            result += static_cast<char>(0xF0 | (code >> 18));
            result += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            result += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            result += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
    return result;
}

size_t wide_length(const WCHAR* text) {
    size_t length = 0;
    while (length < LONGEST_TEXT && text[length] != 0)
        ++length;
    if (length == LONGEST_TEXT)
        violation("a wide text without end");
    return length;
}

std::string narrow(const WCHAR* text) {
    return text != nullptr ? narrow(text, wide_length(text)) : std::string();
}

std::u16string widen(std::string_view text) {
    std::u16string result(text.size(), u'\0');
    size_t plain = 0;
    for (; plain < text.size() && static_cast<unsigned char>(text[plain]) < 0x80; ++plain)
        result[plain] = static_cast<char16_t>(text[plain]);
    result.resize(plain);
    for (size_t i = plain; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const size_t extra = lead < 0xC0 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
        unsigned code = extra == 0 ? lead : lead & (0x3Fu >> extra);
        ++i;
        for (size_t k = 0; k < extra && i < text.size(); ++k, ++i)
            code = (code << 6) | (static_cast<unsigned char>(text[i]) & 0x3F);
        if (code >= 0x10000) {
            code -= 0x10000;
            result += static_cast<char16_t>(0xD800 + (code >> 10));
            result += static_cast<char16_t>(0xDC00 + (code & 0x3FF));
        } else {
            result += static_cast<char16_t>(code);
        }
    }
    return result;
}

std::string lower(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        c = lower(c);
    return result;
}

bool same_text(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower(x) == lower(y); });
}

bool TextOrder::operator()(std::string_view a, std::string_view b) const {
    const size_t common = std::min(a.size(), b.size());
    for (size_t i = 0; i < common; ++i) {
        const auto x = static_cast<unsigned char>(lower(a[i]));
        const auto y = static_cast<unsigned char>(lower(b[i]));
        if (x != y)
            return x < y;
    }
    return a.size() < b.size();
}

DWORD put_wide(WCHAR* buffer, DWORD capacity, std::string_view text) {
    const std::u16string wide = widen(text);
    if (wide.size() + 1 > capacity)
        return 0;
    for (size_t i = 0; i <= wide.size(); ++i)
        buffer[i] = static_cast<WCHAR>(wide.c_str()[i]);
    return static_cast<DWORD>(wide.size());
}

std::string format_list(const char* pattern, va_list arguments) {
    char buffer[2048];
    const int length = std::vsnprintf(buffer, sizeof(buffer), pattern, arguments);
    return {buffer, static_cast<size_t>(std::clamp(length, 0, static_cast<int>(sizeof(buffer)) - 1))};
}

std::string format(const char* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    std::string text = format_list(pattern, arguments);
    va_end(arguments);
    return text;
}

} // namespace sim
