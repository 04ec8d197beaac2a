#include "sim/windows/held_names.h"

#include <map>

#include "sim/machine/machine.h"
#include "sim/script/commands.h"
#include "sim/script/expectations.h"

namespace sim {

namespace {

struct HeldName {
    ObjectRef object;
    bool denied = false;
};

struct HeldNames {
    std::map<std::string, HeldName> names; // by bare name
};

} // namespace

static HeldNames& held() {
    return machine_state<HeldNames>();
}

static std::string bare_name(const std::string& name) {
    return name.substr(name.rfind('\\') + 1);
}

ObjectRef held_elsewhere(const std::string& name, bool* denied) {
    const auto found = held().names.find(bare_name(name));
    if (found == held().names.end())
        return nullptr;
    *denied = found->second.denied;
    return found->second.object;
}

static void hold(const std::string& name, Kind kind, bool manual_reset, bool denied) {
    ObjectRef object = find_named(name); // the service may have been first
    if (object == nullptr || object->kind != kind) {
        object = make_object(kind, name);
        object->manual_reset = manual_reset;
        object->foreign = true;
    }
    held().names[name] = {object, denied};
}

static void set_held(const std::string& name) {
    const auto found = held().names.find(name);
    // Nobody holds it elsewhere: another program opens the service's own.
    const ObjectRef object = found != held().names.end() ? found->second.object : find_named(name);
    if (object != nullptr && object->kind == Kind::Event)
        signal_object(*object);
}

// ---- commands ----

static Action compile_object(Tokens& tokens) {
    const std::string name = bare_name(tokens.text());
    switch (tokens.choice({"event", "mutex", "set", "free"})) {
    case 0: {
        const bool manual_reset = tokens.accept("manual");
        const bool denied = tokens.accept("denied");
        return [name, manual_reset, denied] { hold(name, Kind::Event, manual_reset, denied); };
    }
    case 1: {
        const bool denied = tokens.accept("denied");
        return [name, denied] { hold(name, Kind::Mutex, true, denied); };
    }
    case 2:
        return [name] { set_held(name); };
    default:
        return [name] { held().names.erase(name); };
    }
}

static const Commands g_commands({
    {"windows object", Use::Machine, compile_object,
     "\"NAME\" event|mutex [denied] | set | free - another program holds that name"},
});

} // namespace sim
