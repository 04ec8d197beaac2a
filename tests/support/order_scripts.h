// Orders of two threads that once left a wrong state standing, each as a script: the unit tests run them on a
// few schedules, the sweeps on many.
#pragma once

#include "tests/support/sweep.h"

// Every command accepted; both versions' answers.
inline const std::string g_thermalAnswers = R"(
    firmware DYTC = 1 | firmware DYTC(1) = 0 | firmware DYTC(0x201) = 0
    firmware DYTC(0x100) = 0x20010000 | firmware DYTC(3) = 0x03ff0201 | firmware GOPT(0) = 0x100
    firmware GOPT(0x100) = 1 | firmware GOPT(0x200) = 2 | firmware DGPUTEMP = 2
)";
inline const std::string g_thermalVersion2 = g_thermalAnswers + "firmware DYTC(0) = 0x20000001\n";
inline const std::string g_thermalVersion3 = g_thermalAnswers + "firmware DYTC(0) = 0x30000001\n";

inline const std::string g_slowQueries = R"(
    start | advance 30s | firmware GOPT takes 50ms | firmware DGPUTEMP takes 50ms
)";

inline const ScriptCase g_orderScripts[] = {
    // The control waits until the event, which still asks, has sent its word.
    {"Two In One switched off during an event", g_thermalVersion3 + g_slowQueries + R"(
        event 0x4012 | advance 10ms | control 134 | advance 1s
        expect request DYTC(0x1f2001) = 0x1 | expect request DYTC(0xf2001) = 0x1
        expect registry SVC\TMC\TIO CurrentStatus = 0x1
        expect next registry SVC\TMC\TIO CurrentSetting = 0x0
        expect count 1 request DYTC(0x1f2001)*
        event 0x4012 | advance 1s | expect no request DYTC*)"},
    {"version 2 switched off during an event", g_thermalVersion2 + g_slowQueries + R"(
        event 0x4012 | advance 10ms | control 134 | advance 1s
        expect request DYTC(0x201) = 0x0
        expect registry SVC\TMCT\Parameters CurrentSetting = 0x0
        expect request DYTC(0x1) = 0x0 | expect count 1 request DYTC(0x201)*
        event 0x4012 | advance 1s | expect no request DYTC*)"},
    {"processor control switched off during an event", g_thermalVersion3 + g_slowQueries + R"(
        event 0x6031 | advance 10ms | control 139 | advance 1s
        expect request DYTC(0x1f6001) = 0x1 | expect request DYTC(0xf6001) = 0x1
        expect registry SVC\TMC\DCC CurrentSetting = 0x0
        expect count 1 request DYTC(0x1f6001)*
        event 0x6031 | advance 1s | expect no request DYTC*)"},
    // Whoever of the two reads last publishes last.
    {"posture changes between two readings", R"(
        start | advance 1s | firmware GMMS = 3 times 1 | together | event 0x60C0
        handler power resume | end | advance 1s
        check registry SVC\Transform\CurrentStatus MM = 1
        check registry HKLM\SOFTWARE\Mestra\MultiMode CurrentMode = 1 | check device slate = 1)"},
    {"option goes between two readings", g_thermalVersion3 + R"(
        start | advance 30s | firmware GOPT(0x200) = 2 times 1 | firmware GOPT(0x200) = 0
        together | event 0x4013 | control 135 | end | advance 1s
        check registry SVC\TMC\TIO CurrentOptionStatus = 1
        check registry SVC\TMC\TIO CurrentStatus = 0
        mark | control 142 | expect request DYTC(0xf2001) = 0x1)"},
    // The first initialisation finds no setting, and a client switches off before the default is written.
    {"switched off in the first initialisation", g_thermalVersion3 + R"(
        firmware DYTC takes 1ms | firmware GOPT takes 1ms | firmware DGPUTEMP takes 1ms | start
        advance 1s | check registry SVC\TMC\TIO absent
        together | control 134 | control 139 | end | advance 1m
        check registry SVC\TMC\TIO CurrentSetting = 0
        check registry SVC\TMC\DCC CurrentSetting = 0
        mark | event 0x4012 | event 0x6031 | advance 1s | expect no request DYTC*)"},
    // Longer than anyone waits for a turn: the client is answered in time, and its word is the last.
    {"a query that outlasts the wait", g_thermalVersion3 + R"(
        start | advance 30s | firmware DGPUTEMP takes 20s | event 0x6031 | advance 1s
        control 139 | advance 4999ms | expect no request DYTC*
        advance 1ms | expect request DYTC(0xf6001) = 0x1
        expect registry SVC\TMC\DCC CurrentSetting = 0x0
        mark | advance 1m | expect request DYTC(0x1f6001) = 0x1
        expect request DYTC(0xf6001) = 0x1 | check registry SVC\TMC\DCC CurrentSetting = 0
        check registry SVC\TMC\DCC CurrentStatus = 0
        mark | event 0x6031 | advance 1m | expect no request DYTC*)"},
    // An event that has waited in vain still asks when all others are through; what it does last is undone.
    {"an event that ends behind a later request", g_thermalVersion3 + R"(
        start | advance 30s | firmware GOPT takes 2s | control 135 | advance 10ms | event 0x4012
        advance 6s | control 134 | expect request DYTC(0xf2001) = 0x1
        expect registry SVC\TMC\TIO CurrentSetting = 0x0
        advance 1m | expect request DYTC(0x1f2001) = 0x1 | expect request DYTC(0x1f2001) = 0x1
        expect request DYTC(0xf2001) = 0x1 | expect count 2 request DYTC(0x1f2001)*
        check registry SVC\TMC\TIO CurrentSetting = 0)"},
    // The event's thread is suspended as it asks. The refresh does without it; the event, older, sees to it.
    {"suspended in the middle of an event", R"(
        start | advance 1s | firmware GMMS takes 1s | event 0x60C0 | advance 10ms | handler 2
        firmware GMMS takes 0ms | firmware GMMS = 4 | handler power resume | advance 4999ms
        check registry SVC\Transform\CurrentStatus MM = 1
        advance 1ms | check registry SVC\Transform\CurrentStatus MM = 4 | check device slate = 0
        advance 1m | firmware GMMS = 2 times 1 | handler 3 | advance 1s
        expect registry SVC\Transform\CurrentStatus MM = 0x2
        check registry SVC\Transform\CurrentStatus MM = 4
        check registry HKLM\SOFTWARE\Mestra\MultiMode CurrentMode = 4 | check device slate = 0
        check status RUNNING)"},
    // What was done while two overtake is undone by the one that ends last, and done again then.
    {"repeated while another still overtakes", g_thermalVersion3 + R"(
        start | advance 30s | firmware DOCKMODE takes 60s | control 138 | advance 2s
        mark | firmware GOPT(0x200) takes 90s | event 0x4012 | advance 1s | control 134 | advance 5m
        check registry SVC\TMC\TIO CurrentSetting = 0
        expect request DYTC(0x1f2001)* | expect request DYTC(0xf2001)*
        expect count 1 request DYTC(0x1f2001)*)"},
    // The inhibit that a client asks for at the limit of the one before lasts.
    {"the limit in the midst of a request", R"(
        firmware LCDCSGETSTATE = 3 | firmware GETLIDSTATUS = 2 | start | control 131 | advance 298s
        firmware LCDCSCONTROL(1) takes 12s | control 131 | advance 30s
        expect request LCDCSCONTROL(0x2)* | expect count 1 request LCDCSCONTROL(0x2)*)"},
    // An initialisation that has waited in vain does not wait again for what its functions do.
    {"an initialisation that is overtaken", g_thermalVersion3 + R"(
        start | advance 30s | control 138 | advance 500ms | firmware DOCKMODE takes 60s
        event 0x4010 | advance 5499ms | expect no request DYTC(0x3)*
        advance 1ms | expect request DYTC(0x3)* | expect request DYTC(0x1f2001) = 0x1
        expect request DYTC(0xf3001) = 0x1 | expect request DYTC(0xf5001) = 0x1
        expect request DYTC(0x1f6001) = 0x1 | expect registry SVC\TMC\DMC CurrentStatus = 0x0
        control 137 | expect no status*
        advance 10m | control 142 | expect registry SVC\TMC\TIO CurrentOnHandStatus = 0x1)"},
};

inline void run_order_script(Bench& bench, const ScriptCase& row) {
    SCOPED_TRACE(row.name);
    bench.run(row.script);
}
