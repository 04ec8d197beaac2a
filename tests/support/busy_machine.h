// A machine on which every event of the table has work to do; what one test needs besides, it adds.
#pragma once

// Thermal control of version 3 with all functions and every command accepted; an option interface that
// answers.
inline constexpr char g_busyMachine[] = R"(
    firmware DYTC(0) = 0x30000001
    firmware DYTC = 1
    firmware DYTC(3) = 0x03ff0001
    firmware GOPT(0) = 0x102
    firmware GOPT(0x100) = 1
)";
