// Windows' laptop/slate and dock indicators and its button injection, as device interfaces of their classes.
#pragma once

#include <windows.h>
#include <string>
#include <vector>

namespace sim {

enum class Interface { Slate, Dock, Button };

// The state byte of an indicator, for tests.
BYTE indicator_state(Interface which);
void set_indicator_state(Interface which, BYTE state);

// The paths of the interfaces of a class: the present ones, or also the first when it is only known from
// before. None for a class that is not known.
std::vector<std::string> interfaces_of_class(const GUID& interface_class, bool present_only);

// Who is told of each byte written to the button; one at most.
struct ButtonListener {
    ButtonListener(void (*written)(BYTE byte));
};

} // namespace sim
