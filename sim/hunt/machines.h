// Tables that the generators share: machines, what can happen to them, and how they come to rest.
#pragma once

namespace hunt {

extern const char g_machines[];

} // namespace hunt
