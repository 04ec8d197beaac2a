// The service control manager as its clients see it.
#pragma once

namespace sim {

// The platform service MPLATSVC: installed and stopped on a new machine.
void set_platform_service(bool installed, bool running);

} // namespace sim
