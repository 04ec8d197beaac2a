// State of an area: a struct of its own, default-constructed on first use in a machine (process, thread) and
// gone with it. `namespace { struct Power {...}; } static Power& power() { return machine_state<Power>(); }`
#pragma once

#include <memory>
#include <typeindex>
#include <unordered_map>

namespace sim {

struct StateSlots {
    std::unordered_map<std::type_index, std::shared_ptr<void>> slots;
    template <class T> T& get() {
        auto& slot = slots[std::type_index(typeid(T))];
        if (!slot)
            slot = std::make_shared<T>();
        return *static_cast<T*>(slot.get());
    }
};

} // namespace sim
