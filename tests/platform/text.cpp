// Bounded strings, the formatter, comparisons, environment strings.
#include <windows.h>
#include <strsafe.h>
#include <utility>

#include "tests/platform/probe.h"

// ---- bounded copies ----

static void probe_copies() {
    group("text");
    WCHAR buffer[8] = L"before";
    fact("copy", StringCchCopyW(buffer, 8, L"abc"));
    fact_text("copied", buffer);
    fact("copy-exact", StringCchCopyW(buffer, 8, L"1234567"));
    fact("copy-long", StringCchCopyW(buffer, 8, L"12345678"));
    fact_text("copied-long", buffer);
    fact("copy-room-1", StringCchCopyW(buffer, 1, L"a"));
    fact_text("copied-room-1", buffer);
    fact("copy-room-0", StringCchCopyW(buffer, 0, L""));
    fact("copy-room-huge", StringCchCopyW(buffer, 0x80000000u, L"a"));
    StringCchCopyW(buffer, 8, L"ab");
    fact("append", StringCchCatW(buffer, 8, L"cd"));
    fact_text("appended", buffer);
    fact("append-long", StringCchCatW(buffer, 8, L"efghij"));
    fact_text("appended-long", buffer);
    fact("append-full", StringCchCatW(buffer, 8, L"x"));
    fact("append-full-nothing", StringCchCatW(buffer, 8, L""));
    fact("append-no-end", StringCchCatW(buffer, 7, L"x"));
    size_t length = 99;
    fact("length", StringCchLengthW(L"abc", 8, &length));
    fact("length-told", length);
    fact("length-exact", StringCchLengthW(L"abc", 4, &length));
    fact("length-no-end", StringCchLengthW(L"abc", 3, &length));
    fact("length-null", StringCchLengthW(nullptr, 8, &length));
    fact("length-room-0", StringCchLengthW(L"abc", 0, &length));
    fact("length-not-asked", StringCchLengthW(L"abc", 8, nullptr));
    fact("lstrlen", lstrlenW(L"abcd"));
    fact("lstrlen-null", lstrlenW(nullptr));
    fact_text("lstrcpyn", lstrcpynW(buffer, L"abcdef", 4));
    fact_text("lstrcpyn-short", lstrcpynW(buffer, L"ab", 8));
    fact_text("lstrcpyn-1", lstrcpynW(buffer, L"ab", 1));
}

// ---- comparisons: less, equal, greater ----

static const struct {
    const char* name;
    const WCHAR* a;
    const WCHAR* b;
} g_comparisons[] = {
    {"same", L"abc", L"abc"},
    {"case", L"abc", L"ABC"},
    {"case-upper-first", L"ABC", L"abc"},
    {"order", L"abc", L"abd"},
    {"order-across-case", L"a", L"B"},
    {"order-across-case-back", L"Z", L"a"},
    {"shorter", L"ab", L"abc"},
    {"longer", L"abc", L"ab"},
    {"empty", L"", L"a"},
    {"both-empty", L"", L""},
    {"digit-letter", L"1", L"a"},
    {"letter-digit", L"A", L"1"},
    {"underscore-letter", L"_", L"a"},
    {"underscore-digit", L"_", L"1"},
    {"blank", L"a ", L"a"},
    {"umlaut-case", L"\u00e4", L"\u00c4"},
    {"null-left", nullptr, L""},
    {"null-right", L"a", nullptr},
    {"null-both", nullptr, nullptr},
};

static DWORD sign(int result) {
    return result < 0 ? 0 : result == 0 ? 1 : 2;
}

static void probe_comparisons() {
    for (const auto& row : g_comparisons) {
        group("lstrcmp");
        fact(row.name, sign(lstrcmpW(row.a, row.b)));
        group("lstrcmpi");
        fact(row.name, sign(lstrcmpiW(row.a, row.b)));
    }
}

// ---- the formatter ----

static void formatted(const char* name, const WCHAR* pattern, ...) {
    WCHAR buffer[40];
    va_list arguments;
    va_start(arguments, pattern);
    const HRESULT result = StringCchVPrintfW(buffer, ARRAYSIZE(buffer), pattern, arguments);
    va_end(arguments);
    if (FAILED(result))
        fact(name, result);
    else
        fact_text(name, buffer);
}

static void probe_formats() {
    group("format");
    formatted("plain", L"abc");
    formatted("percent", L"100%%");
    formatted("decimal", L"%d %i", -5, 7);
    formatted("unsigned", L"%u", 0xFFFFFFFFu);
    formatted("long", L"%ld %lu", static_cast<LONG>(-5), static_cast<DWORD>(5));
    formatted("hex", L"%x %X", 0xABCu, 0xABCu);
    formatted("hex-wide", L"%08x|%8x|%-8x|", 0xABCu, 0xABCu, 0xABCu);
    formatted("hex-alternate", L"%#x %#X", 0xABCu, 0xABCu);
    formatted("hex-alternate-zero", L"%#x %#010x", 0u, 0xABu);
    formatted("precision", L"%.4d|%6.3d|", 7, 7);
    formatted("sign", L"%+d|% d|", 7, 7);
    formatted("short", L"%hd %hu", 0x12345, 0x12345);
    formatted("64-bit", L"%I64u %llu", 1234567890123ull, 1234567890123ull);
    formatted("64-bit-hex", L"%I64x %016llx", 0x123456789Aull, 0x123456789Aull);
    formatted("wide-text", L"%ls", L"wide");
    formatted("text", L"%s", L"wide");
    formatted("narrow-text", L"%hs", "narrow");
    formatted("other-text", L"%S", "narrow");
    formatted("text-width", L"%6ls|%-6ls|", L"ab", L"ab");
    formatted("text-precision", L"%.2ls|%.0ls|", L"abc", L"abc");
    formatted("text-empty", L"[%ls]", L"");
    formatted("text-null", L"%ls", static_cast<const WCHAR*>(nullptr));
    formatted("character", L"%c%c", L'a', L'b');
    formatted("zero-pad-negative", L"%06d", -42);
    formatted("long-result", L"%ls", L"1234567890123456789012345678901234567890");
    formatted("text-umlaut", L"%ls", L"\u00e4");
    group("format-call");
    WCHAR buffer[6] = L"xxxxx";
    fact("exact", StringCchPrintfW(buffer, 6, L"%d", 12345));
    fact("long", StringCchPrintfW(buffer, 6, L"%d", 123456));
    fact_text("long-text", buffer);
    fact("room-0", StringCchPrintfW(buffer, 0, L"a"));
    fact("room-1", StringCchPrintfW(buffer, 1, L"a"));
    fact_text("room-1-text", buffer);
    fact("empty", StringCchPrintfW(buffer, 1, L""));
}

// ---- environment strings ----

static DWORD expanded(const WCHAR* from, DWORD capacity = 60) {
    WCHAR buffer[60] = L"before";
    SetLastError(0);
    return ExpandEnvironmentStringsW(from, buffer, capacity);
}

static void probe_environment() {
    group("environment");
    WCHAR buffer[60];
    for (const auto& [name, text] :
         {std::pair("plain", L"abc"), std::pair("unknown", L"%zorpm_none%\\x"),
          std::pair("drive", L"%SystemDrive%"), std::pair("root", L"%SystemRoot%"),
          std::pair("other-case", L"%systemdrive%\\x"), std::pair("one-percent", L"50% of"),
          std::pair("empty-name", L"a%%b"), std::pair("between", L"50%%SystemDrive%"),
          std::pair("two", L"%SystemDrive%%SystemDrive%")}) {
        ExpandEnvironmentStringsW(text, buffer, ARRAYSIZE(buffer));
        WCHAR lower[60];
        StringCchCopyW(lower, ARRAYSIZE(lower), buffer);
        for (WCHAR& character : lower) // the folder's name is written in either case
            character =
                character >= L'A' && character <= L'Z' ? static_cast<WCHAR>(character + 32) : character;
        fact_text(name, lower);
    }
    fact("length", expanded(L"abc"));
    fact("length-of-value", expanded(L"%SystemDrive%"));
    fact("length-empty", expanded(L""));
    fact("short", expanded(L"abcdef", 3));
    fact("exact", expanded(L"abcdef", 7));
    fact("no-room", expanded(L"abcdef", 0));
}

// ---- as UTF-8 ----

static int narrowed(const WCHAR* text, int length, int capacity, DWORD flags = 0, UINT page = CP_UTF8) {
    char buffer[20] = {};
    SetLastError(0);
    return WideCharToMultiByte(page, flags, text, length, buffer, capacity, nullptr, nullptr);
}

static void probe_utf8() {
    group("utf-8");
    char buffer[20] = {};
    fact("plain", narrowed(L"abc", 3, 20));
    fact("umlaut", narrowed(L"\u00e4", 1, 20));
    WideCharToMultiByte(CP_UTF8, 0, L"\u00e4", 1, buffer, 20, nullptr, nullptr);
    fact("umlaut-first", static_cast<BYTE>(buffer[0]));
    fact("three-bytes", narrowed(L"\u20ac", 1, 20));
    fact("pair", narrowed(L"\xD83D\xDE00", 2, 20));
    fact("half-a-pair", narrowed(L"\xD83D", 1, 20));
    fact("exact", narrowed(L"abc", 3, 3));
    fact("short", narrowed(L"abc", 3, 2));
    fact("short-error", GetLastError());
    fact("part", narrowed(L"abc", 2, 20));
}

void probe_text() {
    probe_utf8();
    probe_copies();
    probe_comparisons();
    probe_formats();
    probe_environment();
}
