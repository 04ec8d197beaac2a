#include "recorder/runner/driver.h"

#include <array>
#include <cstdlib>
#include <map>

#include "recorder/clock/turns.h"
#include "recorder/real.h"
#include "recorder/runner/notebook.h"
#include "recorder/runner/output.h"

namespace runner {

static HANDLE open_control() {
    return REAL(CreateFileW)(NOTEBOOK_DEVICE, GENERIC_READ | GENERIC_WRITE,
                             FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
}

// The driver's file stands beside the executable.
static void load_driver() {
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring file = path;
    file = file.substr(0, file.rfind(L'\\') + 1) + L"notebook.sys";
    SC_HANDLE manager = REAL(OpenSCManagerW)(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    SC_HANDLE service = REAL(OpenServiceW)(manager, L"ZORPNotebook", SERVICE_ALL_ACCESS);
    if (service == nullptr)
        service = CreateServiceW(manager, L"ZORPNotebook", nullptr, SERVICE_ALL_ACCESS, SERVICE_KERNEL_DRIVER,
                                 SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, file.c_str(), nullptr, nullptr,
                                 nullptr, nullptr, nullptr);
    if (!StartServiceW(service, 0, nullptr) && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING)
        broken("the stand-in driver does not start, error " + std::to_string(GetLastError()));
    REAL(CloseServiceHandle)(service);
    REAL(CloseServiceHandle)(manager);
}

static HANDLE control_device() {
    HANDLE device = open_control();
    if (device == INVALID_HANDLE_VALUE) {
        load_driver();
        device = open_control();
    }
    if (device == INVALID_HANDLE_VALUE)
        broken("the stand-in driver has no device");
    return device;
}

DWORD ask_notebook(DWORD code, DWORD first, DWORD second, DWORD third, DWORD fourth) {
    static const HANDLE device = control_device();
    DWORD words[] = {first, second, third, fourth};
    DWORD answer = 0;
    DWORD bytes = 0;
    if (!REAL(DeviceIoControl)(device, code, words, sizeof(words), &answer, sizeof(answer), &bytes, nullptr))
        broken("the stand-in driver refuses request " + std::to_string(code) + ", error " +
               std::to_string(GetLastError()));
    return answer;
}

// What the tool replies to a question.
static std::string reply_to(const std::string& question) {
    say_line(question);
    std::string reply;
    if (!read_line(&reply))
        ExitProcess(4);
    return reply;
}

void prime_answer(DWORD code, const std::string& method, DWORD argument) {
    const std::string request = " " + method + " " + std::to_string(argument);
    std::string reply = reply_to("takes" + request);
    if (const DWORD takes = std::strtoul(reply.c_str(), nullptr, 10); takes != 0) {
        turns::sleep(takes);
        reply = reply_to("answer" + request);
    }
    char* at = reply.data(); // 0 FAILS BYTES VALUE
    std::strtoul(at, &at, 10);
    const DWORD fails = std::strtoul(at, &at, 10);
    const DWORD bytes = std::strtoul(at, &at, 10);
    const DWORD value = std::strtoul(at, &at, 10);
    // What the driver answers to this code already needs no telling.
    static std::map<DWORD, std::array<DWORD, 3>> primed;
    const std::array<DWORD, 3> answer = {fails, bytes, value};
    const auto known = primed.find(code);
    if (known != primed.end() && known->second == answer)
        return;
    primed[code] = answer;
    ask_notebook(NOTEBOOK_PRIME, fails, bytes, value, code);
}

} // namespace runner
