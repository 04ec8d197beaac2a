// hunt: random machines, scripts and schedules, over all that must hold at rest.
#include "sim/hunt/machines.h"
#include "sim/hunt/runner.h"

namespace hunt {

// Two kinds of stories. In `one_disorder` a few operations come at once, and some order of them must explain
// what they leave. In `long_disorder` anything comes, until all answers are good again: then nothing may be
// held that was not held before, and what is published must be what the firmware says.
static const char g_stories[] = R"(
story:
    *3 $order_story
    $disorder_story

order_story:
    $order_form_factor
    $order_cooling
    $order_hot_keys
    $order_all
order_end:
    advance 2m; check orders; check status RUNNING; stop; advance 1m; check status STOPPED

order_form_factor:
    $surroundings; $at_rest; start; advance 1s; $slow*0-2; together; $form_factor_act*0-1; $form_factor_operation*1-2; end; $late_form_factor; $fast; $order_end
late_form_factor:
    *2 advance 0ms
    within {1|5|30}ms $form_factor_act
form_factor_operation:
    *2 $form_factor_act
    firmware GMMS = {1-5}; event 0x60C0
    firmware GOPT(0x200) = {0|2|4|8}; event {0x4012|0x4013}
    firmware GETLIDSTATUS = 2; event 0x5001
    firmware GETLIDSTATUS = 3; event 0x5002
form_factor_act:
    {handler power resume|power monitor 1|event 0x4012|event 0x60C0|event 0x5009|event 0x500A}

order_cooling:
    $surroundings; $thermal; $version_three; $at_rest; start; advance 30s; $slow*0-2; together; $cooling_act*0-1; $cooling_operation*1-2; end; $late_cooling; $fast; $order_end
    $surroundings; $thermal; $version_two; $at_rest; start; advance 30s; $slow*0-2; together; $cooling_two_act*1-3; end; advance 0ms; $fast; $order_end
late_cooling:
    *2 advance 0ms
    within {1|5|30}ms $cooling_act
cooling_operation:
    *4 $cooling_act
    firmware DGPUTEMP = {1-3}; event 0x6031
    firmware THERMALMODE = {0-3}; event 0x60F0
    firmware DOCKMODE = {0|1}; event 0x4010
    firmware GMMS = {1-5}; event 0x60C0
cooling_act:
    control {134|135|139|140|141|142}
    event {0x4012|0x4013|0x6031|0x60F0|0x60C0|0x4010}
cooling_two_act:
    control {134|135|136}
    event {0x4012|0x4013}

order_hot_keys:
    firmware MHKN(1) = 0x80000000; registry set SVC\Parameters\Notification @ dword 0; start; advance 2s; $slow*0-1; together; $hot_key_act*1-4; end; advance 0ms; $fast; $order_end
hot_key_act:
    registry set SVC\Parameters\{Current|Override}Setting @ dword {0x80000000|0x80000005|0x800003FF|0|0x801}
    registry set SVC\Parameters2\Type10\{Current|Override}Setting @ dword {0-7}
    event {0x1001|0x1002}

order_all:
    $surroundings; $busy; firmware MHKN(1) = 0x80000000; $at_rest; start; advance 5s; $slow*0-2; together; {$form_factor_act|$cooling_act|$hot_key_act}; {$form_factor_act|$cooling_act|$hot_key_act}; {$form_factor_act|$cooling_act|$hot_key_act}; end; advance 0ms; $fast; $order_end

disorder_story:
    $machine; $good; start; advance 2s; $round_of_all; $quiet; check resources; $disorder*3-12; $quiet; check resources; $truth; $end
    $machine; $good; $strange*1-3; start; advance {0ms|1s|30s}; $disorder*3-12; $quiet; $end
)";

static Tables& hunt_tables() {
    static Tables all = read_tables(std::string(g_machines) + g_stories);
    return all;
}

static void run_hunt(Case& seed) {
    play(seed, draw_row(hunt_tables(), "story", seed.draw));
}

const Generator g_hunt = {
    "hunt", "random machines, scripts and schedules: what must hold at rest", nullptr, run_hunt, 60, 0, 3600};

} // namespace hunt
