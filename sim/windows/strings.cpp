// The lstr functions and the bounded formatter.
#include <algorithm>
#include <cstdio>
#include <strsafe.h>

#include "sim/machine/machine.h"

namespace sim {

namespace {

struct FormatItem {
    std::string flags_and_width; // e.g. "-08.3"
    std::string size;            // h, l, ll, I64
    char conversion = 0;
};

} // namespace

static FormatItem read_item(const WCHAR*& at) {
    FormatItem item;
    auto next = [&at] { return static_cast<char>(*at < 128 ? *at : '?'); };
    while (*at != 0 && std::string_view("-+ #0123456789.").find(next()) != std::string_view::npos)
        item.flags_and_width += static_cast<char>(*at++);
    if (at[0] == 'I' && at[1] == '6' && at[2] == '4') {
        item.size = "ll";
        at += 3;
    }
    while (*at == 'h' || *at == 'l' || *at == 'w')
        item.size += static_cast<char>(*at++);
    if (*at != 0)
        item.conversion = static_cast<char>(*at++);
    return item;
}

static std::string format_integer(const FormatItem& item, va_list* arguments) {
    const std::string pattern = "%" + item.flags_and_width;
    const bool is_signed = item.conversion == 'd' || item.conversion == 'i';
    char text[128];
    if (item.size == "ll") {
        const auto value = va_arg(*arguments, unsigned long long);
        std::snprintf(text, sizeof(text), (pattern + "ll" + item.conversion).c_str(), value);
    } else {
        // The platform's long has 4 bytes.
        unsigned value = va_arg(*arguments, unsigned);
        if (item.size == "h")
            value = is_signed ? static_cast<unsigned>(static_cast<short>(value)) : value & 0xFFFF;
        std::snprintf(text, sizeof(text), (pattern + item.conversion).c_str(), value);
    }
    return text;
}

static std::string format_text(const FormatItem& item, va_list* arguments) {
    std::string value;
    if (item.size == "h" || item.conversion == 'S') {
        const char* text = va_arg(*arguments, const char*);
        value = text != nullptr ? text : "(null)";
    } else {
        const WCHAR* text = va_arg(*arguments, const WCHAR*);
        value = text != nullptr ? narrow(text) : "(null)";
    }
    char text[4096];
    std::snprintf(text, sizeof(text), ("%" + item.flags_and_width + "s").c_str(), value.c_str());
    return text;
}

static std::string format_wide(const WCHAR* pattern, va_list* arguments) {
    std::string result;
    const WCHAR* at = pattern;
    while (*at != 0) {
        if (*at != '%') {
            const WCHAR* start = at;
            while (*at != 0 && *at != '%')
                ++at;
            result += narrow(start, static_cast<size_t>(at - start));
            continue;
        }
        ++at;
        const FormatItem item = read_item(at);
        switch (item.conversion) {
        case '%':
            result += '%';
            break;
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
            result += format_integer(item, arguments);
            break;
        case 'c': {
            const WCHAR character = static_cast<WCHAR>(va_arg(*arguments, int));
            result += narrow(&character, 1);
            break;
        }
        case 'p':
            result += format("%p", va_arg(*arguments, void*));
            break;
        case 's':
        case 'S':
            result += format_text(item, arguments);
            break;
        default:
            violation("a format the simulation does not know: %%%s%s%c", item.flags_and_width.c_str(),
                      item.size.c_str(), item.conversion);
            return result;
        }
    }
    return result;
}

// Copies what fits with its end; tells whether all did.
static HRESULT copy_bounded(WCHAR* to, size_t capacity, const std::u16string& text) {
    if (to == nullptr || capacity == 0 || capacity > 0x7FFFFFFF)
        return STRSAFE_E_INVALID_PARAMETER;
    const size_t length = std::min(text.size(), capacity - 1);
    for (size_t i = 0; i < length; ++i)
        to[i] = static_cast<WCHAR>(text[i]);
    to[length] = 0;
    return length == text.size() ? S_OK : STRSAFE_E_INSUFFICIENT_BUFFER;
}

static std::u16string as_utf16(const WCHAR* text) {
    std::u16string result;
    for (size_t i = 0, length = wide_length(text); i < length; ++i)
        result += static_cast<char16_t>(text[i]);
    return result;
}

} // namespace sim

using namespace sim;

extern "C" HRESULT StringCchVPrintfW(WCHAR* to, size_t capacity, const WCHAR* pattern, va_list arguments) {
    va_list copy;
    va_copy(copy, arguments);
    const std::string text = format_wide(pattern, &copy);
    va_end(copy);
    return copy_bounded(to, capacity, widen(text));
}

extern "C" HRESULT StringCchPrintfW(WCHAR* to, size_t capacity, const WCHAR* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    const HRESULT result = StringCchVPrintfW(to, capacity, pattern, arguments);
    va_end(arguments);
    return result;
}

extern "C" HRESULT StringCchCopyW(WCHAR* to, size_t capacity, const WCHAR* from) {
    return copy_bounded(to, capacity, as_utf16(from));
}

extern "C" HRESULT StringCchLengthW(const WCHAR* text, size_t capacity, size_t* length) {
    size_t count = 0;
    while (text != nullptr && count < capacity && text[count] != 0)
        ++count;
    if (text == nullptr || count == capacity)
        return STRSAFE_E_INVALID_PARAMETER;
    if (length != nullptr)
        *length = count;
    return S_OK;
}

extern "C" HRESULT StringCchCatW(WCHAR* to, size_t capacity, const WCHAR* from) {
    size_t length = 0;
    const HRESULT result = StringCchLengthW(to, capacity, &length);
    return FAILED(result) ? result : copy_bounded(to + length, capacity - length, as_utf16(from));
}

extern "C" int WINAPI lstrlenW(LPCWSTR text) {
    return text != nullptr ? static_cast<int>(wide_length(text)) : 0;
}

static bool is_capital(WCHAR c) {
    return (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7);
}

static int small_letter(WCHAR c) {
    return is_capital(c) ? c + 0x20 : c;
}

// A character's place in the order of words: symbols, digits, letters.
static int place_of(WCHAR c) {
    constexpr int CLASS = 0x10000;
    const int folded = small_letter(c);
    const bool letter = (folded >= 'a' && folded <= 'z') || folded >= 0xC0;
    return c == 0 ? 0 : folded + CLASS * (letter ? 2 : c >= '0' && c <= '9');
}

// The order of words: case counts last, and small letters come first then. Null is less than any text.
static int compare(LPCWSTR a, LPCWSTR b, bool fold) {
    if (a == nullptr || b == nullptr)
        return (a != nullptr) - (b != nullptr);
    int by_case = 0;
    for (; *a != 0 && place_of(*a) == place_of(*b); ++a, ++b) {
        if (!fold && by_case == 0)
            by_case = is_capital(*a) - is_capital(*b);
    }
    const int order = place_of(*a) - place_of(*b);
    return order != 0 ? order : by_case;
}

extern "C" int WINAPI lstrcmpW(LPCWSTR a, LPCWSTR b) {
    return compare(a, b, false);
}

extern "C" int WINAPI lstrcmpiW(LPCWSTR a, LPCWSTR b) {
    return compare(a, b, true);
}

extern "C" LPWSTR WINAPI lstrcpynW(LPWSTR to, LPCWSTR from, int capacity) {
    if (capacity > 0)
        copy_bounded(to, static_cast<size_t>(capacity), as_utf16(from));
    return to;
}
