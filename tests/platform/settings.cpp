// Settings files.
#include <windows.h>
#include <cstdio>
#include <cstring>
#include <strsafe.h>

#include "tests/platform/probe.h"

static const struct {
    const char* key; // and the name of the fact
    const char* value;
} g_lines[] = {
    {"plain", "17"},
    {"zero", "0"},
    {"empty", ""},
    {"blank", "   "},
    {"quoted", "\"1\""},
    {"single-quotes", "'1'"},
    {"quoted-half", "\"1"},
    {"quoted-blank", "\" 5 \""},
    {"quoted-empty", "\"\""},
    {"quoted-twice", "\"\"6\"\""},
    {"blanks", "  5  "},
    {"tab", "\t5"},
    {"negative", "-5"},
    {"positive", "+5"},
    {"minus-blank", "- 5"},
    {"hex", "0x1F"},
    {"hex-upper", "0X1F"},
    {"hex-bad", "0xG"},
    {"hex-lower", "0xabc"},
    {"octal", "0o17"},
    {"binary", "0b101"},
    {"leading-zero", "017"},
    {"text", "abc"},
    {"number-text", "12abc"},
    {"text-number", "abc12"},
    {"point", "3.9"},
    {"comma", "1,5"},
    {"large", "4294967295"},
    {"too-large", "4294967296"},
    {"much-too-large", "99999999999999"},
    {"comment", "5;6"},
    {"comment-blank", "5 ; 6"},
    {"two-equals", "=4"},
};

void probe_settings() {
    group("settings");
    WCHAR path[MAX_PATH];
    StringCchPrintfW(path, ARRAYSIZE(path), L"%ls\\settings.ini", probe_folder());
    char text[2000] = "[other]\nplain=18\n[numbers]\nUPPER=8\nspaced key =9\n";
    size_t length = std::strlen(text);
    for (const auto& row : g_lines)
        length += static_cast<size_t>(
            std::snprintf(text + length, sizeof(text) - length, "%s=%s\n", row.key, row.value));
    write_settings(path, text);
    for (const auto& row : g_lines) {
        WCHAR key[40];
        StringCchPrintfW(key, ARRAYSIZE(key), L"%hs", row.key);
        fact(row.key, GetPrivateProfileIntW(L"numbers", key, 4711, path));
    }
    fact("other-case", GetPrivateProfileIntW(L"numbers", L"upper", 4711, path));
    fact("key-with-blanks", GetPrivateProfileIntW(L"numbers", L"spaced key", 4711, path));
    fact("missing", GetPrivateProfileIntW(L"numbers", L"missing", 4711, path));
    fact("key-empty", GetPrivateProfileIntW(L"numbers", L"", 4711, path));
    fact("other-section", GetPrivateProfileIntW(L"other", L"plain", 4711, path));
    fact("section-other-case", GetPrivateProfileIntW(L"NUMBERS", L"plain", 4711, path));
    fact("section-missing", GetPrivateProfileIntW(L"none", L"plain", 4711, path));
    fact("negative-default", GetPrivateProfileIntW(L"none", L"plain", -1, path));
    StringCchPrintfW(path, ARRAYSIZE(path), L"%ls\\SETTINGS.INI", probe_folder());
    fact("path-other-case", GetPrivateProfileIntW(L"numbers", L"plain", 4711, path));
    StringCchPrintfW(path, ARRAYSIZE(path), L"%ls\\none.ini", probe_folder());
    fact("file-missing", GetPrivateProfileIntW(L"numbers", L"plain", 4711, path));
}
