// Whose the helpers are.
#include "sim/windows/users.h"

#include "sim/script/commands.h"
#include "sim/windows/registry_tree.h"

namespace sim {

namespace {

struct Users {
    bool ordinary = false;
};

} // namespace

void give_helper_its_user(Process* process) {
    process->ordinary_user = machine_state<Users>().ordinary;
}

// Of the machine's keys, those of other users included, an ordinary user may read.
bool user_refused(const Key* key, REGSAM access) {
    if ((access & (KEY_ALL_ACCESS & ~KEY_READ)) == 0 || !current_process()->ordinary_user)
        return false;
    while (key->parent != nullptr)
        key = key->parent;
    return key != find_key("HKCU").get();
}

// ---- commands ----

static Action compile_user(Tokens& tokens) {
    const bool ordinary = tokens.choice({"administrator", "standard"}) == 1;
    return [ordinary] { machine_state<Users>().ordinary = ordinary; };
}

static const Commands g_commands({{"windows user", Use::Machine, compile_user,
                                   "standard|administrator - whose later helpers are"}});

} // namespace sim
