// Registry data in the scenario language.
#pragma once

#include "sim/script/tokens.h"
#include "sim/windows/registry.h"

namespace sim {

RegistryValue read_registry_data(Tokens& tokens); // dword|sz|expand|multi|binary DATA, raw TYPE HEX

} // namespace sim
