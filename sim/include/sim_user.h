// Windows, messages, timers, the dialog, input, desktops.
#pragma once

#include "sim_base.h"

#define ERROR_BUSY                    170u
#define ERROR_INVALID_WINDOW_HANDLE   1400u
#define ERROR_CANNOT_FIND_WND_CLASS   1407u
#define ERROR_CLASS_ALREADY_EXISTS    1410u
#define ERROR_CONTROL_ID_NOT_FOUND    1421u
#define ERROR_RESOURCE_NAME_NOT_FOUND 1814u

struct POINT {
    LONG x;
    LONG y;
};

struct RECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};

struct MSG {
    HWND hwnd;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    DWORD time;
    POINT pt;
};
static_assert(sizeof(MSG) == 48);

using WNDPROC = LRESULT(CALLBACK*)(HWND, UINT, WPARAM, LPARAM);
using DLGPROC = INT_PTR(CALLBACK*)(HWND, UINT, WPARAM, LPARAM);
using TIMERPROC = void(CALLBACK*)(HWND, UINT, UINT_PTR, DWORD);

struct WNDCLASSEXW {
    UINT cbSize;
    UINT style;
    WNDPROC lpfnWndProc;
    int cbClsExtra;
    int cbWndExtra;
    HINSTANCE hInstance;
    HICON hIcon;
    HCURSOR hCursor;
    HBRUSH hbrBackground;
    LPCWSTR lpszMenuName;
    LPCWSTR lpszClassName;
    HICON hIconSm;
};
static_assert(sizeof(WNDCLASSEXW) == 80);

struct MOUSEINPUT {
    LONG dx;
    LONG dy;
    DWORD mouseData;
    DWORD dwFlags;
    DWORD time;
    ULONG_PTR dwExtraInfo;
};

struct INPUT {
    DWORD type;
    union {
        MOUSEINPUT mi;
    };
};
static_assert(sizeof(INPUT) == 40);

#define CS_VREDRAW       0x1u
#define CS_HREDRAW       0x2u
#define COLOR_WINDOW     5
#define IDC_ARROW        MAKEINTRESOURCEW(32512)
#define WS_POPUP         0x80000000u
#define WS_EX_TOOLWINDOW 0x80u

#define WM_NULL          0x0000u
#define WM_CREATE        0x0001u
#define WM_DESTROY       0x0002u
#define WM_CLOSE         0x0010u
#define WM_NCCREATE      0x0081u
#define WM_NCDESTROY     0x0082u
#define WM_QUIT          0x0012u
#define WM_NCLBUTTONDOWN 0x00A1u
#define HTCAPTION        2
#define WM_KEYDOWN       0x0100u
#define WM_KEYUP         0x0101u
#define WM_CHAR          0x0102u
#define WM_SYSKEYDOWN    0x0104u
#define WM_INITDIALOG    0x0110u
#define WM_COMMAND       0x0111u
#define WM_SYSCOMMAND    0x0112u
#define WM_TIMER         0x0113u
#define WM_MOUSEMOVE     0x0200u
#define WM_LBUTTONDOWN   0x0201u
#define WM_LBUTTONUP     0x0202u
#define WM_RBUTTONDOWN   0x0204u
#define WM_RBUTTONUP     0x0205u
#define WM_MBUTTONDOWN   0x0207u
#define WM_MBUTTONUP     0x0208u

#define SC_MOVE       0xF010u
#define SC_SCREENSAVE 0xF140u

#define SM_CYCAPTION    4
#define SM_SWAPBUTTON   23
#define SPI_GETWORKAREA 0x30u
#define SW_HIDE         0
#define HWND_TOP        (static_cast<HWND>(nullptr))
#define HWND_TOPMOST    (reinterpret_cast<HWND>(static_cast<LONG_PTR>(-1)))
#define SWP_NOSIZE      0x1u
#define SWP_NOMOVE      0x2u
#define SWP_SHOWWINDOW  0x40u

#define INPUT_MOUSE           0u
#define MOUSEEVENTF_LEFTDOWN  0x2u
#define MOUSEEVENTF_LEFTUP    0x4u
#define MOUSEEVENTF_RIGHTDOWN 0x8u
#define MOUSEEVENTF_RIGHTUP   0x10u

extern "C" {
ATOM WINAPI RegisterClassExW(const WNDCLASSEXW* window_class);
HWND WINAPI CreateWindowExW(DWORD ex_style, LPCWSTR class_name, LPCWSTR title, DWORD style, int x, int y,
                            int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                            LPVOID parameter);
BOOL WINAPI DestroyWindow(HWND window);
LRESULT WINAPI DefWindowProcW(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
HCURSOR WINAPI LoadCursorW(HINSTANCE instance, LPCWSTR name);
UINT WINAPI RegisterWindowMessageW(LPCWSTR name);
BOOL WINAPI GetMessageW(MSG* message, HWND window, UINT first, UINT last);
BOOL WINAPI TranslateMessage(const MSG* message);
LRESULT WINAPI DispatchMessageW(const MSG* message);

INT_PTR WINAPI DialogBoxParamW(HINSTANCE instance, LPCWSTR name, HWND owner, DLGPROC proc, LPARAM parameter);
BOOL WINAPI EndDialog(HWND dialog, INT_PTR result);
HWND WINAPI GetDlgItem(HWND dialog, int id);
UINT_PTR WINAPI SetTimer(HWND window, UINT_PTR id, UINT period_ms, TIMERPROC proc);
BOOL WINAPI KillTimer(HWND window, UINT_PTR id);

BOOL WINAPI GetWindowRect(HWND window, RECT* rect);
BOOL WINAPI SetWindowPos(HWND window, HWND after, int x, int y, int width, int height, UINT flags);
BOOL WINAPI ShowWindow(HWND window, int command);
HWND WINAPI SetFocus(HWND window);
BOOL WINAPI SetForegroundWindow(HWND window);
HWND WINAPI SetCapture(HWND window);
BOOL WINAPI SetCursorPos(int x, int y);
UINT WINAPI SendInput(UINT count, INPUT* inputs, int bytes);
int WINAPI GetSystemMetrics(int index);
BOOL WINAPI SystemParametersInfoW(UINT action, UINT number, PVOID data, UINT flags);

HDESK WINAPI GetThreadDesktop(DWORD thread);
HDESK WINAPI OpenInputDesktop(DWORD flags, BOOL inherit, ACCESS_MASK access);
BOOL WINAPI SetThreadDesktop(HDESK desktop);
BOOL WINAPI CloseDesktop(HDESK desktop);
}
