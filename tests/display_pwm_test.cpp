// The panel's PWM frequency; scenarios/display_pwm.txt tells the usual course.
#include "display/cui_external.h"
#include "display/pwm_frequency.h"
#include "sim/notebook/panel.h"
#include "sim/windows/com.h"
#include "tests/support/bench.h"

// Runs two events and returns what the firmware was told: "PWMSET(argument)" or "PWMGET", in order.
static std::vector<std::string> requests_of_two_events(const char* setup) {
    std::vector<std::string> requests;
    Bench bench;
    bench.run(std::string("firmware PWMGET = 200\nwindows graphics present\n") + setup + R"(
        start | advance 2s | mark)");
    sim::set_request_hook([&requests](const std::string& method, const DWORD* in, DWORD) {
        if (method.starts_with("PWM"))
            requests.push_back(method == "PWMGET" ? method : sim::format("%s(%u)", method.c_str(), in[0]));
    });
    bench.run("event 0x5010\nevent 0x5010");
    return requests;
}

TEST(DisplayPwm, AnyServerOfTheClassWillDo) {
    Bench bench;
    bench.machine.keep_details = true;
    bench.run("firmware PWMGET = 200\nwindows graphics present\nstart\nadvance 2s\nevent 0x5010");
    size_t created = 0;
    for (const sim::TraceLine& line : bench.machine.trace)
        created += line.text == "CoCreateInstance(0x15)";
    EXPECT_EQ(1u, created);
}

TEST(DisplayPwm, OneReportPerEndedAttempt) {
    static const struct {
        const char* setup;
        std::vector<std::string> requests;
    } rows[] = {
        {"", {"PWMGET", "PWMSET(200)", "PWMGET", "PWMSET(200)"}},
        {"windows graphics missing", {"PWMSET(0)", "PWMSET(0)"}},
        {"windows inverter get-fails", {"PWMGET", "PWMSET(0)", "PWMGET", "PWMSET(0)"}},
        {"windows inverter set-fails", {"PWMGET", "PWMSET(0)", "PWMGET", "PWMSET(0)"}},
        // Only 0 is success: a positive result is none.
        {"windows inverter get-positive", {"PWMGET", "PWMSET(0)", "PWMGET", "PWMSET(0)"}},
        {"windows inverter set-positive", {"PWMGET", "PWMSET(0)", "PWMGET", "PWMSET(0)"}},
        {"firmware PWMGET = 0", {"PWMGET", "PWMGET"}},
        {"firmware PWMGET = 300 times 1", {"PWMGET", "PWMSET(300)", "PWMGET", "PWMSET(200)"}},
        {"firmware PWMGET = 0x12345678 bytes 2", {"PWMGET", "PWMSET(22136)", "PWMGET", "PWMSET(22136)"}},
        {"firmware PWMGET = 200 bytes 0", {"PWMGET", "PWMGET"}},
        // A failed report is of no interest.
        {"firmware PWMSET fails", {"PWMGET", "PWMGET"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.setup);
        EXPECT_EQ(row.requests, requests_of_two_events(row.setup));
    }
}

TEST(DisplayPwm, TypeIsHandedBack) {
    Bench bench;
    sim::set_graphics_present(true);
    sim::inverter() = {0xFFFFFFFE, 1000};
    bench.run(R"(
        firmware PWMGET = 0xFFFFFFFF | start | advance 2s | event 0x5010
        expect call SetInverterParams(4294967294, 4294967295) = 0x0)");
}

// On a thread that uses COM already the connection counts as failed, and COM stays in use exactly as before.
TEST(DisplayPwm, ComInUseOnTheThread) {
    for (const DWORD model : {COINIT_APARTMENTTHREADED, COINIT_MULTITHREADED}) {
        Bench bench;
        sim::set_graphics_present(true);
        sim::run_on_thread([model] {
            EXPECT_EQ(S_OK, CoInitializeEx(nullptr, model));
            EXPECT_EQ(0u, Open5nitInterface());
            EXPECT_EQ(1u, sim::com_initialisations(sim::current_process()));
            CoUninitialize();
        });
        bench.run("expect no call *");
    }
}
