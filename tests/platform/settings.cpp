// Settings files.
#include <windows.h>
#include <strsafe.h>

#include "tests/platform/probe.h"

static const char g_text[] = "[numbers]\n"
                             "plain=17\n"
                             "zero=0\n"
                             "empty=\n"
                             "blank=   \n"
                             "quoted=\"1\"\n"
                             "single='1'\n"
                             "quoted-half=\"1\n"
                             "quoted-blank=\" 5 \"\n"
                             "quoted-empty=\"\"\n"
                             "quoted-twice=\"\"6\"\"\n"
                             "blanks=  5  \n"
                             "tab=\t5\n"
                             "negative=-5\n"
                             "positive=+5\n"
                             "minus-blank=- 5\n"
                             "hex=0x1F\n"
                             "hex-upper=0X1F\n"
                             "hex-bad=0xG\n"
                             "hex-lower=0xabc\n"
                             "octal=0o17\n"
                             "binary=0b101\n"
                             "leading-zero=017\n"
                             "text=abc\n"
                             "number-text=12abc\n"
                             "text-number=abc12\n"
                             "point=3.9\n"
                             "comma=1,5\n"
                             "large=4294967295\n"
                             "too-large=4294967296\n"
                             "much-too-large=99999999999999\n"
                             "comment=5;6\n"
                             "comment-blank=5 ; 6\n"
                             "UPPER=8\n"
                             "spaced key =9\n"
                             "equals==4\n"
                             "[other]\n"
                             "plain=18\n";

static const struct {
    const char* name;
    const WCHAR* key;
} g_keys[] = {
    {"plain", L"plain"},
    {"zero", L"zero"},
    {"empty", L"empty"},
    {"blank", L"blank"},
    {"quoted", L"quoted"},
    {"single-quotes", L"single"},
    {"quoted-half", L"quoted-half"},
    {"quoted-blank", L"quoted-blank"},
    {"quoted-empty", L"quoted-empty"},
    {"quoted-twice", L"quoted-twice"},
    {"blanks", L"blanks"},
    {"tab", L"tab"},
    {"negative", L"negative"},
    {"positive", L"positive"},
    {"minus-blank", L"minus-blank"},
    {"hex", L"hex"},
    {"hex-upper", L"hex-upper"},
    {"hex-bad", L"hex-bad"},
    {"hex-lower", L"hex-lower"},
    {"octal", L"octal"},
    {"binary", L"binary"},
    {"leading-zero", L"leading-zero"},
    {"text", L"text"},
    {"number-text", L"number-text"},
    {"text-number", L"text-number"},
    {"point", L"point"},
    {"comma", L"comma"},
    {"large", L"large"},
    {"too-large", L"too-large"},
    {"much-too-large", L"much-too-large"},
    {"comment", L"comment"},
    {"comment-blank", L"comment-blank"},
    {"other-case", L"upper"},
    {"key-with-blanks", L"spaced key"},
    {"two-equals", L"equals"},
    {"missing", L"missing"},
    {"key-empty", L""},
};

void probe_settings() {
    group("settings");
    WCHAR path[MAX_PATH];
    StringCchPrintfW(path, ARRAYSIZE(path), L"%ls\\settings.ini", probe_folder());
    write_settings(path, g_text);
    for (const auto& row : g_keys)
        fact(row.name, GetPrivateProfileIntW(L"numbers", row.key, 4711, path));
    fact("other-section", GetPrivateProfileIntW(L"other", L"plain", 4711, path));
    fact("section-other-case", GetPrivateProfileIntW(L"NUMBERS", L"plain", 4711, path));
    fact("section-missing", GetPrivateProfileIntW(L"none", L"plain", 4711, path));
    fact("negative-default", GetPrivateProfileIntW(L"none", L"plain", -1, path));
    StringCchPrintfW(path, ARRAYSIZE(path), L"%ls\\SETTINGS.INI", probe_folder());
    fact("path-other-case", GetPrivateProfileIntW(L"numbers", L"plain", 4711, path));
    StringCchPrintfW(path, ARRAYSIZE(path), L"%ls\\none.ini", probe_folder());
    fact("file-missing", GetPrivateProfileIntW(L"numbers", L"plain", 4711, path));
}
