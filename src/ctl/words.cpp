#include "ctl/words.h"

#include <zorpm/zorpm.h>

namespace {

struct NumberWords {
    DWORD number;
    const wchar_t* words;
};

} // namespace

static const NumberWords g_postures[] = {
#define POSTURE(number, name, mode, words) {number, L"" words},
    ZORPM_POSTURES(POSTURE)
#undef POSTURE
};

static const NumberWords g_lid[] = {
    {ZORPM_LID_UNKNOWN, L"unknown"}, {ZORPM_LID_CLOSED, L"closed"}, {ZORPM_LID_OPEN, L"open"}};

#define NOTIFICATION(k, name, code, words) {k, L"" words},
static const NumberWords g_type2[] = {ZORPM_TYPE2_NOTIFICATIONS(NOTIFICATION)};
static const NumberWords g_type22[] = {ZORPM_TYPE22_NOTIFICATIONS(NOTIFICATION)};
#undef NOTIFICATION

template <size_t N> static const wchar_t* Find(const NumberWords (&rows)[N], DWORD number) {
    for (const NumberWords& row : rows) {
        if (row.number == number)
            return row.words;
    }
    return L"unknown";
}

const wchar_t* PostureWords(DWORD posture) {
    return Find(g_postures, posture);
}

const wchar_t* LidWords(DWORD lid) {
    return Find(g_lid, lid);
}

const wchar_t* Type2Words(DWORD k) {
    return Find(g_type2, k);
}

const wchar_t* Type22Words(DWORD k) {
    return Find(g_type22, k);
}
