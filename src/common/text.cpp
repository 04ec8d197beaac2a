#include "common/text.h"

DWORD LeadingNumber(const wchar_t* text, DWORD most) {
    ULONGLONG number = 0;
    for (; *text >= L'0' && *text <= L'9'; ++text) {
        number = number * 10 + static_cast<DWORD>(*text - L'0');
        if (number > most)
            return most;
    }
    return static_cast<DWORD>(number);
}
