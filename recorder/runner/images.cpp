#include "recorder/runner/images.h"

#include <map>
#include <memory>
#include <vector>

#include "recorder/clock/turns.h"
#include "recorder/real.h"
#include "recorder/runner/output.h"

namespace runner {

namespace {

struct Loaded {
    DWORD id;
    ImageProcess process;
    std::wstring path;
    bool copied; // the file was made for it
    HMODULE module;
    std::vector<std::wstring> classes; // of windows
};

struct OpenHandle {
    DWORD image;
    void (*close)(void*);
};

using Bind = const char* (*)(void* (*)(const char*));
using RunImage = int (*)(HINSTANCE, wchar_t*);

} // namespace

constexpr DWORD FIRST_ID = 1000;

static std::map<DWORD, std::unique_ptr<Loaded>> g_images;
static std::map<void*, OpenHandle> g_open;
static DWORD g_nextId = FIRST_ID;

DWORD current_image() {
    return turns::home();
}

static Loaded* current() {
    const auto found = g_images.find(current_image());
    return found != g_images.end() ? found->second.get() : nullptr;
}

void keep_open(void* handle, void (*close)(void*)) {
    if (current_image() != 0)
        g_open[handle] = {current_image(), close};
}

void forget_open(void* handle) {
    g_open.erase(handle);
}

static void close_all_of(DWORD image) {
    std::vector<std::pair<void*, OpenHandle>> own;
    for (const auto& row : g_open) {
        if (row.second.image == image)
            own.push_back(row);
    }
    for (const auto& [handle, open] : own) {
        g_open.erase(handle);
        open.close(handle);
    }
}

// ---- loading ----

static std::wstring own_folder() {
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring file = path;
    return file.substr(0, file.rfind(L'\\') + 1);
}

// One process takes the image itself; those beside it need a file each.
static void load(Loaded* loaded) {
    const std::wstring name = widen(loaded->process.image);
    loaded->path = own_folder() + name + L".dll";
    loaded->copied = GetModuleHandleW(loaded->path.c_str()) != nullptr;
    if (loaded->copied) {
        wchar_t folder[MAX_PATH];
        GetTempPathW(MAX_PATH, folder);
        const std::wstring copy = folder + name + std::to_wstring(GetCurrentProcessId()) + L"-" +
                                  std::to_wstring(loaded->id) + L".dll";
        CopyFileW(loaded->path.c_str(), copy.c_str(), FALSE);
        loaded->path = copy;
    }
    loaded->module = REAL(LoadLibraryExW)(loaded->path.c_str(), nullptr, 0);
    if (loaded->module == nullptr)
        broken("the image " + narrow(loaded->path.c_str()) + " cannot be loaded, error " +
               std::to_string(GetLastError()));
    const auto bind =
        reinterpret_cast<Bind>(reinterpret_cast<void*>(GetProcAddress(loaded->module, "bind_image")));
    if (const char* missing = bind(wrapper_of))
        broken(std::string("no wrapper of ") + missing);
}

static void unload(Loaded* loaded) {
    for (const std::wstring& name : loaded->classes)
        UnregisterClassW(name.c_str(), loaded->module);
    FreeLibrary(loaded->module);
    if (loaded->copied)
        DeleteFileW(loaded->path.c_str());
}

// ---- running ----

static DWORD WINAPI run(LPVOID parameter) {
    const auto* loaded = static_cast<Loaded*>(parameter);
    const auto entry =
        reinterpret_cast<RunImage>(reinterpret_cast<void*>(GetProcAddress(loaded->module, "run_image")));
    std::wstring line = widen(loaded->process.command_line);
    end_image(loaded->id, static_cast<DWORD>(entry(loaded->module, line.data())));
    return 0;
}

// What remains is the runner's code on the calling thread.
void end_image(DWORD image, DWORD code) {
    const auto found = g_images.find(image);
    if (found == g_images.end())
        return;
    const std::unique_ptr<Loaded> loaded = std::move(found->second);
    g_images.erase(found);
    effect("process \"%s\" ended %lu", loaded->process.shown.c_str(), code);
    turns::end_others(image);
    close_all_of(image);
    unload(loaded.get());
    turns::set_home(0);
    if (loaded->process.ended != nullptr)
        loaded->process.ended();
    turns::signalled();
}

DWORD first_image(const std::string& image) {
    for (const auto& [id, loaded] : g_images) {
        if (loaded->process.image == image)
            return id;
    }
    return 0;
}

DWORD start_image(const ImageProcess& process) {
    const DWORD id = g_nextId += 4;
    auto loaded = std::make_unique<Loaded>();
    loaded->id = id;
    loaded->process = process;
    load(loaded.get());
    CloseHandle(turns::start_thread(process.thread.c_str(), run, loaded.get(), 0, nullptr, id));
    g_images[id] = std::move(loaded);
    return id;
}

// ---- the wrapped calls ----

HMODULE WINAPI module_handle(LPCWSTR name) {
    const Loaded* loaded = current();
    return name == nullptr && loaded != nullptr ? loaded->module : REAL(GetModuleHandleW)(name);
}

ATOM WINAPI register_class(const WNDCLASSEXW* window_class) {
    const ATOM atom = REAL(RegisterClassExW)(window_class);
    if (atom == 0)
        return atom;
    if (Loaded* loaded = current())
        loaded->classes.emplace_back(window_class->lpszClassName);
    effect("window class %s style 0x%x background %u cursor %u", narrow(window_class->lpszClassName).c_str(),
           window_class->style,
           static_cast<unsigned>(reinterpret_cast<ULONG_PTR>(window_class->hbrBackground)),
           static_cast<unsigned>(reinterpret_cast<ULONG_PTR>(window_class->hCursor)));
    return atom;
}

HWND WINAPI create_window(DWORD extended, LPCWSTR class_name, LPCWSTR title, DWORD style, int x, int y,
                          int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                          LPVOID parameter) {
    HWND window = REAL(CreateWindowExW)(extended, class_name, title, style, x, y, width, height, parent, menu,
                                        instance, parameter);
    if (window != nullptr)
        effect("window %s created style 0x%lx extended 0x%lx at %d %d size %d %d", narrow(class_name).c_str(),
               style, extended, x, y, width, height);
    return window;
}

} // namespace runner
