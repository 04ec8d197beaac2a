// The one dialog.
#include <utility>

#include "sim/machine/machine.h"
#include "sim/windows/desktop.h"
#include "sim/windows/dialog_frame.h"
#include "sim/windows/messages.h"

namespace sim {

// The measures of dialog 101 in the font that it asks for.
constexpr int DIALOG_101_WIDTH = 173 * 6 / 4 + 2 * FRAME + 1;
constexpr int DIALOG_101_HEIGHT = 39 * 13 / 8 + CAPTION_HEIGHT + 2 * FRAME;

constexpr WORD DIALOG = 101;
constexpr int STATIC_CONTROL = 1000;
constexpr int EDIT_CONTROL = 1001;

} // namespace sim

using namespace sim;

extern "C" {

INT_PTR WINAPI DialogBoxParamW(HINSTANCE, LPCWSTR name, HWND owner, DLGPROC proc, LPARAM parameter) {
    SIM_CALL(-1, ERROR_RESOURCE_NAME_NOT_FOUND);
    if (name != MAKEINTRESOURCEW(DIALOG) || owner != nullptr) {
        violation("DialogBoxParamW: the executable holds dialog 101 only");
        set_last_error(ERROR_RESOURCE_NAME_NOT_FOUND);
        return -1;
    }
    if (!may_create_windows()) {
        set_last_error(ERROR_ACCESS_DENIED);
        return -1;
    }
    const RECT& work = screen().work;
    const int left = (work.left + work.right - DIALOG_101_WIDTH) / 2;
    const int top = (work.top + work.bottom - DIALOG_101_HEIGHT) / 2;
    Window window;
    window.class_name = "#101";
    window.dialog = true;
    window.dialog_proc = proc;
    window.rect = {left, top, left + DIALOG_101_WIDTH, top + DIALOG_101_HEIGHT};
    const HWND dialog = add_window(std::move(window));
    for (const int id : {STATIC_CONTROL, EDIT_CONTROL}) {
        Window control;
        control.class_name = id == STATIC_CONTROL ? "Static" : "Edit";
        control.parent = dialog;
        control.id = id;
        control.visible = true;
        add_window(std::move(control));
    }
    trace("dialog 101 opened");
    proc(dialog, WM_INITDIALOG, 0, parameter);
    if (screen().focus == nullptr)
        screen().focus = dialog; // a new dialog is activated
    MSG message;
    while (next_message(&message, dialog)) {
        if (message.message == WM_QUIT) { // the dialog ends, and the loop around it is told
            repost_quit(message.wParam);
            break;
        }
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    const INT_PTR result = window_of(dialog)->result;
    proc(dialog, WM_DESTROY, 0, 0);
    proc(dialog, WM_NCDESTROY, 0, 0);
    destroy_window(dialog);
    trace("dialog 101 ended %d", static_cast<int>(result));
    return result;
}

BOOL WINAPI EndDialog(HWND handle, INT_PTR result) {
    SIM_CALL(FALSE, ERROR_INVALID_WINDOW_HANDLE);
    Window* window = checked_window(handle);
    if (window == nullptr)
        return FALSE;
    window->ended = true;
    window->result = result;
    return TRUE;
}

HWND WINAPI GetDlgItem(HWND dialog, int id) {
    SIM_CALL(nullptr, ERROR_CONTROL_ID_NOT_FOUND);
    if (checked_window(dialog) == nullptr)
        return nullptr;
    for (const auto& [handle, window] : window_list()) {
        if (window.parent == dialog && window.id == id)
            return handle;
    }
    set_last_error(ERROR_CONTROL_ID_NOT_FOUND);
    return nullptr;
}

} // extern "C"
