// Starts the helper for real, finds its window by its class as a client does, sends it every command and
// closes it; a second helper must leave at once. Then makes dialog 101 from the executable's resources. Exits
// 0 when all holds.
#include <windows.h>
#include <cstdio>

namespace {

constexpr DWORD LIMIT_MS = 20000;
constexpr DWORD PAUSE_MS = 20;

int g_failures = 0;

void Check(bool holds, const char* what) {
    printf("%s: %s\n", holds ? "ok" : "FAILED", what);
    g_failures += holds ? 0 : 1;
}

// The executable lies one folder above this program.
bool ExecutablePath(wchar_t* path) {
    DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    for (int folders = 0; length > 0 && folders < 2; --length)
        folders += path[length - 1] == L'\\' ? 1 : 0;
    return length > 0 && length + 14 < MAX_PATH && lstrcpyW(path + length, L"\\zorpmsvc.exe") != nullptr;
}

HANDLE StartHelper(const wchar_t* path) {
    wchar_t command_line[MAX_PATH + 16];
    lstrcpyW(command_line, L"\"");
    lstrcatW(command_line, path);
    lstrcatW(command_line, L"\" -helper");
    // The entry sees the command line without the program name and the blank behind it.
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(path, command_line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return nullptr;
    CloseHandle(process.hThread);
    return process.hProcess;
}

HWND FindHelper() {
    return FindWindowW(L"PmHelperWindowClass", nullptr);
}

// Waits until the helper's window is there, or gone.
HWND AwaitWindow(bool there) {
    HWND window = FindHelper();
    for (DWORD waited = 0; (window != nullptr) != there && waited < LIMIT_MS; waited += PAUSE_MS) {
        Sleep(PAUSE_MS);
        window = FindHelper();
    }
    return window;
}

bool LeavesAtOnce(const wchar_t* path) {
    const HANDLE process = StartHelper(path);
    DWORD exit_code = STILL_ACTIVE;
    const bool left = process != nullptr && WaitForSingleObject(process, LIMIT_MS) == WAIT_OBJECT_0 &&
                      GetExitCodeProcess(process, &exit_code) && exit_code == 0;
    if (process != nullptr) {
        TerminateProcess(process, 1);
        CloseHandle(process);
    }
    return left;
}

void CheckWindow(HWND window) {
    RECT rect = {};
    GetWindowRect(window, &rect);
    Check(rect.left == 100 && rect.top == 100 && rect.right == 200 && rect.bottom == 200, "place and size");
    Check((GetWindowLongW(window, GWL_EXSTYLE) & WS_EX_TOOLWINDOW) != 0, "tool window");
    Check((GetWindowLongW(window, GWL_STYLE) & static_cast<LONG>(WS_POPUP)) != 0, "pop-up window");
    Check(!IsWindowVisible(window), "hidden");
    Check(GetWindowTextLengthW(window) == 0, "no title");
    Check(GetClassLongW(window, GCL_STYLE) == (CS_HREDRAW | CS_VREDRAW), "class style");
}

// Wine 8 knows no power schemes, so that every command answers 0; it is the answer that counts here.
void CheckCommands(HWND window) {
    const UINT message = RegisterWindowMessageW(L"PmHelperMessage");
    for (WPARAM command = 0; command <= 7; ++command) {
        DWORD_PTR result = 77;
        const LRESULT sent = SendMessageTimeoutW(window, message, command, 3, SMTO_NORMAL, LIMIT_MS, &result);
        printf("command %u: %u\n", static_cast<unsigned>(command), static_cast<unsigned>(result));
        Check(sent != 0 && result == 0, "command answered");
    }
}

void CheckHelper(const wchar_t* path) {
    const HANDLE helper = StartHelper(path);
    Check(helper != nullptr, "helper started");
    if (helper == nullptr)
        return;
    const HWND window = AwaitWindow(true);
    Check(window != nullptr, "window found by its class");
    if (window != nullptr) {
        CheckWindow(window);
        CheckCommands(window);
        Check(LeavesAtOnce(path) && FindHelper() == window,
              "a second helper leaves, the first keeps its window");
        PostMessageW(window, WM_CLOSE, 0, 0);
        Check(AwaitWindow(false) == nullptr, "WM_CLOSE destroys the window");
        Check(WaitForSingleObject(helper, 1000) == WAIT_TIMEOUT, "the process lives on");
        Check(LeavesAtOnce(path), "and keeps its place");
    }
    TerminateProcess(helper, 0);
    WaitForSingleObject(helper, LIMIT_MS);
    CloseHandle(helper);
}

// Another program of the session keeps the helper's name for something else: that stops nobody.
void CheckTakenName(const wchar_t* path) {
    const HANDLE taken = CreateEventW(nullptr, FALSE, FALSE, L"HELPERMUTEX");
    Check(taken != nullptr && GetLastError() == ERROR_SUCCESS, "the name is free again");
    const HANDLE helper = StartHelper(path);
    Check(helper != nullptr && AwaitWindow(true) != nullptr, "a helper beside an event of its mutex's name");
    TerminateProcess(helper, 0);
    WaitForSingleObject(helper, LIMIT_MS);
    CloseHandle(helper);
    CloseHandle(taken);
}

INT_PTR CALLBACK NoDialogProc(HWND, UINT, WPARAM, LPARAM) {
    return FALSE;
}

bool ControlIs(HWND dialog, int id, const wchar_t* class_name, const wchar_t* text, DWORD style) {
    const HWND control = GetDlgItem(dialog, id);
    wchar_t is_class[32] = {};
    wchar_t is_text[64] = {};
    GetClassNameW(control, is_class, ARRAYSIZE(is_class));
    GetWindowTextW(control, is_text, ARRAYSIZE(is_text));
    return control != nullptr && lstrcmpiW(is_class, class_name) == 0 && lstrcmpW(is_text, text) == 0 &&
           (static_cast<DWORD>(GetWindowLongW(control, GWL_STYLE)) & style) == style;
}

struct DialogHead { // of DLGTEMPLATEEX
    WORD version, signature;
    DWORD help, ex_style, style;
    WORD items;
    short x, y, width, height;
};

void CheckDialog(const wchar_t* path) {
    const HMODULE module = LoadLibraryExW(path, nullptr, LOAD_LIBRARY_AS_DATAFILE);
    const HRSRC resource = FindResourceExW(module, RT_DIALOG, MAKEINTRESOURCEW(101), 1033);
    const auto* head = static_cast<const DialogHead*>(LockResource(LoadResource(module, resource)));
    Check(head != nullptr, "dialog 101");
    if (head == nullptr)
        return;
    Check(head->version == 1 && head->signature == 0xFFFF && head->style == 0x90C00AC2 &&
              head->ex_style == 0x80,
          "its styles");
    Check(head->items == 2 && head->x == 0 && head->y == 0 && head->width == 173 && head->height == 39,
          "its size");
    const HWND dialog = CreateDialogParamW(module, MAKEINTRESOURCEW(101), nullptr, NoDialogProc, 0);
    wchar_t caption[64] = {};
    GetWindowTextW(dialog, caption, ARRAYSIZE(caption));
    Check(dialog != nullptr && lstrcmpW(caption, L"Please Wait...") == 0, "its caption");
    Check(ControlIs(dialog, 1000, L"Static", L"Preparing to turn off monitor.", 0x50030100), "its text");
    Check(ControlIs(dialog, 1001, L"Edit", L"", 0x50010080), "its hidden field");
    DestroyWindow(dialog);
    FreeLibrary(module);
}

} // namespace

int wmain() {
    wchar_t path[MAX_PATH] = {};
    if (!ExecutablePath(path)) {
        printf("zorpmsvc.exe not found\n");
        return 1;
    }
    CheckHelper(path);
    CheckTakenName(path);
    CheckDialog(path);
    return g_failures == 0 ? 0 : 1;
}
