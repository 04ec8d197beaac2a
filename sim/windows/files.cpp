// Opening, reading and writing whatever has a path; the kinds of files register themselves.
#include "sim/notebook/driver.h"
#include "sim/script/scenario.h"

namespace sim {

using Open = bool (*)(const OpenRequest&, ObjectRef*);

// Static registration runs before main and in any order; the list lives in a function for that reason alone.
static std::vector<Open>& kinds() {
    static std::vector<Open> list;
    return list;
}

FileKinds::FileKinds(bool (*open)(const OpenRequest&, ObjectRef*)) {
    kinds().push_back(open);
}

static void file_closed(Object& object) {
    auto& file = object.as<File>();
    if (file.ops->closed != nullptr)
        file.ops->closed(object);
}

ObjectRef make_file(const OpenRequest& request, const FileOps* ops, bool device) {
    ObjectRef object = make_object(Kind::File, request.path);
    auto file = std::make_shared<File>();
    file->ops = ops;
    file->path = request.path;
    file->access = request.access;
    file->share = request.share;
    file->device = device;
    object->body = file;
    object->on_last_close = file_closed;
    return object;
}

static Action compile_check_handles(Tokens& tokens) {
    const std::uint64_t wanted = tokens.number();
    return [wanted] {
        std::uint64_t open = 0;
        for (const auto& [value, entry] : machine().handles)
            open += entry.object->kind == Kind::File && entry.object->as<File>().device;
        expectation(open == wanted,
                    format("handles %llu, there are %llu", static_cast<unsigned long long>(wanted),
                           static_cast<unsigned long long>(open)));
    };
}

static const Commands g_commands({{"check handles", Use::Check, compile_check_handles}});

// The file object of a handle, held while a call on it may wait.
static ObjectRef file_of(HANDLE handle, DWORD access, const char* call) {
    HandleEntry* entry = handle_entry(handle, Kind::File, call);
    if (entry == nullptr)
        return nullptr;
    if (access != 0 && (entry->object->as<File>().access & (access | GENERIC_ALL)) == 0) {
        violation("%s: %s opened without this access", call, entry->object->name.c_str());
        set_last_error(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    return entry->object;
}

static BOOL unsupported() {
    set_last_error(ERROR_INVALID_FUNCTION);
    return FALSE;
}

} // namespace sim

using namespace sim;

extern "C" {

HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                          DWORD disposition, DWORD flags, HANDLE) {
    SIM_CALL(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    const OpenRequest request = {narrow(path), access, share, disposition, flags, security};
    trace_detail("CreateFileW(%s, 0x%x, %u)", request.path.c_str(), access, share);
    ObjectRef file;
    for (const Open open : kinds()) {
        set_last_error(ERROR_SUCCESS);
        if (open(request, &file))
            return file != nullptr ? open_handle(file, access) : INVALID_HANDLE_VALUE;
    }
    set_last_error(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
}

BOOL WINAPI ReadFile(HANDLE handle, LPVOID buffer, DWORD bytes, LPDWORD read, LPOVERLAPPED) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    *read = 0;
    const ObjectRef file = file_of(handle, GENERIC_READ, "ReadFile");
    if (file == nullptr)
        return FALSE;
    const FileOps* ops = file->as<File>().ops;
    return ops->read != nullptr ? ops->read(*file, buffer, bytes, read) : unsupported();
}

BOOL WINAPI WriteFile(HANDLE handle, LPCVOID buffer, DWORD bytes, LPDWORD written, LPOVERLAPPED) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    *written = 0;
    const ObjectRef file = file_of(handle, GENERIC_WRITE, "WriteFile");
    if (file == nullptr)
        return FALSE;
    const FileOps* ops = file->as<File>().ops;
    return ops->write != nullptr ? ops->write(*file, buffer, bytes, written) : unsupported();
}

BOOL WINAPI DeviceIoControl(HANDLE handle, DWORD code, LPVOID in, DWORD in_bytes, LPVOID out, DWORD out_bytes,
                            LPDWORD returned, LPOVERLAPPED overlapped) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    if (returned == nullptr && overlapped == nullptr) {
        violation("DeviceIoControl: a synchronous call needs a place for the byte count");
        set_last_error(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *returned = 0;
    const ObjectRef file = file_of(handle, 0, "DeviceIoControl");
    if (file == nullptr)
        return FALSE;
    const FileOps* ops = file->as<File>().ops;
    return ops->control != nullptr ? ops->control(*file, code, in, in_bytes, out, out_bytes, returned)
                                   : unsupported();
}

} // extern "C"
