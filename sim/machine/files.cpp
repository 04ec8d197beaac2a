#include "sim/machine/files.h"

#include <vector>

#include "sim/machine/machine.h"

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

bool open_file(const OpenRequest& request, ObjectRef* file) {
    for (const Open open : kinds()) {
        set_last_error(ERROR_SUCCESS);
        if (open(request, file))
            return true;
    }
    return false;
}

void check_device_opening(const OpenRequest& request) {
    if (request.disposition != OPEN_EXISTING || request.flags != 0 || request.security != nullptr)
        violation("CreateFileW: %s opened with disposition %u, flags 0x%x%s; a device is opened as it stands",
                  request.path.c_str(), request.disposition, request.flags,
                  request.security != nullptr ? ", security attributes" : "");
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

size_t device_handle_count() {
    size_t count = 0;
    for (const auto& [value, entry] : machine().handles)
        count += entry.object->kind == Kind::File && entry.object->as<File>().device;
    return count;
}

} // namespace sim
