// Opening, reading and writing whatever has a path.
#include "sim/machine/files.h"

#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/script/expectations.h"

namespace sim {

// The file object of a handle, held while a call on it may wait.
ObjectRef file_of(HANDLE handle, DWORD access, const char* call) {
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

static bool synchronous(const DWORD* count, const OVERLAPPED* overlapped, const char* call) {
    if (count != nullptr && overlapped == nullptr)
        return true;
    violation("%s: a synchronous call needs a place for the byte count, and no OVERLAPPED", call);
    set_last_error(ERROR_INVALID_PARAMETER);
    return false;
}

static BOOL unsupported() {
    set_last_error(ERROR_INVALID_FUNCTION);
    return FALSE;
}

} // namespace sim

using namespace sim;

extern "C" {

HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                          DWORD disposition, DWORD flags, HANDLE template_file) {
    SIM_CALL(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    if (template_file != nullptr)
        violation("CreateFileW: template files are not known here");
    const OpenRequest request = {narrow(path), access, share, disposition, flags, security};
    trace_detail("CreateFileW(%s, 0x%x, %u)", request.path.c_str(), access, share);
    if (request.path.empty()) {
        set_last_error(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    ObjectRef file;
    if (open_file(request, &file)) // a plain file overwritten leaves error 183
        return file != nullptr ? open_handle(file, access) : INVALID_HANDLE_VALUE;
    set_last_error(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
}

BOOL WINAPI ReadFile(HANDLE handle, LPVOID buffer, DWORD bytes, LPDWORD read, LPOVERLAPPED overlapped) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    if (!synchronous(read, overlapped, "ReadFile"))
        return FALSE;
    *read = 0;
    const ObjectRef file = file_of(handle, GENERIC_READ, "ReadFile");
    if (file == nullptr)
        return FALSE;
    const FileOps* ops = file->as<File>().ops;
    return ops->read != nullptr ? ops->read(*file, buffer, bytes, read) : unsupported();
}

BOOL WINAPI WriteFile(HANDLE handle, LPCVOID buffer, DWORD bytes, LPDWORD written, LPOVERLAPPED overlapped) {
    SIM_CALL(FALSE, ERROR_GEN_FAILURE);
    if (!synchronous(written, overlapped, "WriteFile"))
        return FALSE;
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
    if (!synchronous(returned, overlapped, "DeviceIoControl"))
        return FALSE;
    *returned = 0;
    const ObjectRef file = file_of(handle, 0, "DeviceIoControl");
    if (file == nullptr)
        return FALSE;
    const FileOps* ops = file->as<File>().ops;
    return ops->control != nullptr ? ops->control(*file, code, in, in_bytes, out, out_bytes, returned)
                                   : unsupported();
}

} // extern "C"

// ---- commands ----

namespace sim {

static Action compile_check_handles(Tokens& tokens) {
    const std::uint64_t wanted = tokens.number();
    return [wanted] {
        const size_t open = device_handle_count();
        expectation(open == wanted,
                    format("handles %llu, there are %zu", static_cast<unsigned long long>(wanted), open));
    };
}

static const Commands
    g_commands({{"check handles", Use::Check, compile_check_handles,
                 "N - so many handles are open on the driver's devices and the device interfaces"}});

} // namespace sim
