// A product that ends badly when it is told to, for the test of what zorpmsim makes of it.
#include <windows.h>

static volatile bool g_on = true;

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR command_line, int) {
    volatile int* nowhere = nullptr;
    if (lstrcmpiW(command_line, L"-crash") == 0)
        *nowhere = 1;
    if (lstrcmpiW(command_line, L"-run-on") == 0) {
        while (g_on) {
        }
    }
    return 0;
}
