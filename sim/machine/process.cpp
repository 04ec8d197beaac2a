#include "sim/machine/process.h"

#include <algorithm>
#include <cstdlib>

#include "sim/machine/fiber.h"
#include "sim/machine/image.h"
#include "sim/machine/machine.h"

namespace sim {

DWORD last_error() {
    Machine& m = machine();
    return m.running != nullptr ? m.running->last_error : m.host_last_error;
}

void set_last_error(DWORD code) {
    Machine& m = machine();
    (m.running != nullptr ? m.running->last_error : m.host_last_error) = code;
}

BOOL fail_with(DWORD code) {
    set_last_error(code);
    return FALSE;
}

static void thread_entry(void* argument) {
    auto* thread = static_cast<Thread*>(argument);
    const DWORD exit_code = thread->body();
    end_thread(thread, exit_code);
    std::abort();
}

Thread* start_thread(Process* process, std::string name, std::function<DWORD()> body, bool suspended) {
    Machine& m = machine();
    auto thread = std::make_unique<Thread>();
    thread->id = m.next_id += 4;
    thread->name = std::move(name);
    thread->process = process;
    thread->body = std::move(body);
    thread->suspended = suspended ? 1 : 0;
    thread->object = make_object(Kind::Thread, thread->name);
    thread->object->home = process;
    thread->object->body = std::shared_ptr<void>(thread.get(), [](void*) {});
    thread->fiber = fiber_create(thread_entry, thread.get());
    m.threads.push_back(std::move(thread));
    schedule(m.threads.back().get());
    return m.threads.back().get();
}

void end_thread(Thread* thread, DWORD exit_code) {
    Machine& m = machine();
    if (thread->run == Run::Ended)
        return;
    unschedule(thread);
    thread->exit_code = exit_code;
    for (Object* mutex : thread->owned) {
        mutex->owner = nullptr;
        mutex->owned_depth = 0;
        mutex->abandoned = true;
    }
    const bool abandons = !thread->owned.empty();
    thread->owned.clear();
    thread->state.clear();
    if (abandons) {
        thread->object->signaled = true;
        wake_waiting();
    } else {
        signal_object(*thread->object);
    }
    if (thread == m.running) {
        leave_for_good(thread);
    }
    fiber_release(thread->fiber);
    thread->fiber = nullptr;
}

// The control program's processes are known by their whole command line; they are given what follows the
// name.
static const char g_controlProgram[] = "zorpmctl";

static std::string main_thread_name(const Process& process) {
    if (process.program == g_controlProgram)
        return g_controlProgram;
    if (process.is_service)
        return "dispatcher";
    return process.command_line.empty() ? "main"
                                        : process.command_line.substr(process.command_line[0] == '-');
}

static DWORD run_image(Process* process) {
    const size_t name = process->program == g_controlProgram ? process->program.size() + 1 : 0;
    // The loader leaves the command line writable; src must not run past its end.
    std::u16string line = widen(process->command_line.substr(std::min(name, process->command_line.size())));
    const int code = image_entry(process->image)(image_instance(process->image), nullptr,
                                                 reinterpret_cast<WCHAR*>(line.data()), 0);
    return static_cast<DWORD>(code);
}

static Process* start_program(const std::string& program, const std::string& command_line, DWORD session,
                              bool service) {
    Machine& m = machine();
    auto process = std::make_unique<Process>();
    process->id = m.next_id += 4;
    process->command_line = command_line;
    process->session = session;
    process->is_service = service;
    process->object = make_object(Kind::Process, command_line);
    process->object->body = std::shared_ptr<void>(process.get(), [](void*) {});
    process->program = program;
    process->image = image_acquire(program);
    m.processes.push_back(std::move(process));
    Process* started = m.processes.back().get();
    start_thread(started, main_thread_name(*started), [started] {
        end_process(started, run_image(started));
        return DWORD{0};
    });
    return started;
}

Process* start_process(const std::string& command_line, DWORD session, bool service) {
    return start_program(machine().hands_over_at_atomics ? "zorpm_atomics" : "zorpm", command_line, session,
                         service);
}

Process* start_control_program(const std::string& arguments, DWORD session) {
    return start_program(g_controlProgram, std::string(g_controlProgram) + " " + arguments, session, false);
}

Process* find_process(const std::string& command_line, DWORD session) {
    for (auto& process : machine().processes) {
        if (!process->ended && same_text(process->command_line, command_line) &&
            process->session == session && process.get() != machine().host)
            return process.get();
    }
    return nullptr;
}

static std::vector<std::string (*)(Process* process)>& left_tellers() {
    static std::vector<std::string (*)(Process * process)> list;
    return list;
}

LeftTeller::LeftTeller(std::string (*tell)(Process* process)) {
    left_tellers().push_back(tell);
}

void end_process(Process* process, DWORD exit_code) {
    Machine& m = machine();
    if (process->ended)
        return;
    process->ended = true;
    process->exit_code = exit_code;
    if (process->image != nullptr) {
        show_noted_call(); // the last one does not tell of the end
        trace("process \"%s\" ended %u", process->command_line.c_str(), exit_code);
    }
    for (auto& thread : m.threads) {
        if (thread->process == process && thread.get() != m.running)
            end_thread(thread.get(), exit_code);
    }
    process->handles_left = handle_count(process);
    close_handles_of(process);
    for (const auto tell : left_tellers())
        process->left += tell(process);
    process->state.clear();
    process->blocks_left = process->local_blocks;
    process->local_blocks = 0;
    if (process->image != nullptr)
        image_release(process->image);
    process->image = nullptr;
    signal_object(*process->object);
    if (m.running != nullptr && m.running->process == process)
        end_thread(m.running, exit_code);
}

void run_on_thread(const std::function<void()>& work) {
    Machine& m = machine();
    auto process = std::make_unique<Process>();
    process->id = m.next_id += 4;
    process->command_line = "test";
    process->object = make_object(Kind::Process, "test");
    process->object->body = std::shared_ptr<void>(process.get(), [](void*) {});
    m.processes.push_back(std::move(process));
    Process* home = m.processes.back().get();
    Thread* thread = start_thread(home, "test", [work] {
        work();
        return DWORD{0};
    });
    m.settle();
    while (thread->run != Run::Ended && m.next_deadline() != NEVER)
        m.advance(m.next_deadline() - m.now);
    if (thread->run != Run::Ended)
        violation("the test's thread waits for ever");
    end_process(home, 0);
}

} // namespace sim
