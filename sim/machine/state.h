// State of an area: a struct of its own, default-constructed on first use in a machine (process, thread) and
// gone with it. `namespace { struct Power {...}; } static Power& power() { return machine_state<Power>(); }`
#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace sim {

size_t next_state_number();
// Where the slots have the state of this type.
template <class T> size_t state_number() {
    static const size_t number = next_state_number();
    return number;
}

struct StateSlots {
    std::vector<void*> by_number;
    std::vector<std::shared_ptr<void>> made; // in this order; gone in the opposite one
    template <class T> T& get() {
        const size_t number = state_number<T>();
        if (number >= by_number.size())
            by_number.resize(number + 1);
        if (by_number[number] == nullptr) {
            auto state = std::make_shared<T>(); // may ask for others
            by_number[number] = state.get();
            made.push_back(std::move(state));
        }
        return *static_cast<T*>(by_number[number]);
    }
    void clear();
};

} // namespace sim
