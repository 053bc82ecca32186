/*
 * A thread in sigtimedwait has taken the awaited signals out of its mask for as long as it sleeps; the kernel keeps the
 * mask proper to itself, and spares the process a signal that is in that. So a signal that a thread seems to let through
 * is looked for in the set that its system call was given.
 */
#include "machine/exit_signal.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <thread>

namespace monpctl {

namespace {

constexpr int ATTEMPTS = 20;
constexpr auto PAUSE = std::chrono::milliseconds(1);

/*
 * A thread's answer.
 */
enum class Thread { keeps, awaits, lets_through, gone, hidden, restless };

bool has(std::uint64_t set, int signal)
{
    return (set >> (signal - 1) & 1) != 0;
}

/*
 * The system call of a thread that sleeps in one: its number, then its arguments.
 */
struct Call {
    long number = -1;
    std::uint64_t set = 0; /* address of its first argument */
};

/*
 * Result: nothing for a thread that runs, or if the kernel does not tell.
 */
std::optional<Call> call_of(std::string_view text)
{
    Call call;
    const auto blank = text.find(' ');

    if (std::from_chars(text.data(), text.data() + text.size(), call.number).ec != std::errc() || blank == text.npos ||
        !text.substr(blank + 1).starts_with("0x")) {
        return std::nullopt;
    }
    std::from_chars(text.data() + blank + 3, text.data() + text.size(), call.set, 16);
    return call;
}

/*
 * Whether a signal is in a set in the memory of a process; nothing if that cannot be read.
 */
std::optional<bool> set_has(pid_t pid, std::uint64_t address, int signal)
{
    std::uint64_t set = 0;
    const iovec here = { &set, sizeof(set) };
    const iovec there = { reinterpret_cast<void*>(address), sizeof(set) }; /* NOLINT(performance-no-int-to-ptr) */

    if (process_vm_readv(pid, &here, 1, &there, 1, 0) != static_cast<ssize_t>(sizeof(set))) {
        return std::nullopt;
    }
    return has(set, signal);
}

/*
 * The lines of a thread's status that change when it has run: its state, its mask and its context switches.
 */
struct Look {
    bool there = false;
    bool zombie = false;
    std::uint64_t blocked = 0;
    std::string switches;
};

Look look_at(const Proc& proc, pid_t pid, const std::string& thread)
{
    const auto status = proc.content(pid, "task/" + thread + "/status");
    Look look;

    if (!status) {
        return look;
    }
    const auto value = [&](std::string_view name) {
        const auto found = status->find(name);
        const auto begin = found == status->npos ? status->size() : found + name.size();
        return std::string_view(*status).substr(begin, status->find('\n', begin) - begin);
    };
    const auto mask = value("\nSigBlk:\t");
    std::from_chars(mask.data(), mask.data() + mask.size(), look.blocked, 16);
    look.there = true;
    look.zombie = value("\nState:\t").starts_with('Z') || value("\nState:\t").starts_with('X');
    look.switches =
        std::string(value("voluntary_ctxt_switches:")) + ' ' + std::string(value("nonvoluntary_ctxt_switches:"));
    return look;
}

/*
 * Looks once. A mask counts together with the system call only if the thread has not run in between.
 */
Thread ask_once(const Proc& proc, pid_t pid, const std::string& thread, int signal)
{
    const Look before = look_at(proc, pid, thread);
    const auto shown = proc.content(pid, "task/" + thread + "/syscall");
    const auto call = call_of(shown.value_or(""));
    const Look after = look_at(proc, pid, thread);

    if (!before.there || before.zombie || !after.there) {
        return Thread::gone;
    }
    if (has(before.blocked, signal)) {
        return Thread::keeps;
    }
    if (!shown) {
        return Thread::hidden;
    }
    if (!call || before.switches != after.switches || before.blocked != after.blocked) {
        return Thread::restless;
    }
    if (call->number != SYS_rt_sigtimedwait) {
        return Thread::lets_through;
    }
    const auto awaited = set_has(pid, call->set, signal);
    if (!awaited) {
        return Thread::hidden;
    }
    return *awaited ? Thread::awaits : Thread::lets_through;
}

Thread ask(const Proc& proc, pid_t pid, const std::string& thread, int signal)
{
    Thread answer = ask_once(proc, pid, thread, signal);

    for (int attempt = 1; attempt < ATTEMPTS && answer == Thread::restless; attempt++) {
        std::this_thread::sleep_for(PAUSE);
        answer = ask_once(proc, pid, thread, signal);
    }
    return answer;
}

} // namespace

/*
 * The kernel hands a signal to the main thread, if that lets it through, or else to any thread that does; one that
 * awaits it is among these.
 */
ExitSignal exit_signal(const Process& process, int number, const Proc& proc)
{
    const auto now = proc.read(process.pid);
    bool open = false;
    bool awaited = false;
    bool kept = false;

    if (!now || !now->same(process) || now->zombie()) {
        return ExitSignal::unknown;
    }
    if (now->catches(number)) {
        return ExitSignal::handled;
    }
    if (has(now->ignored, number)) {
        return ExitSignal::ignored;
    }
    for (const auto& thread : proc.threads(process.pid)) {
        const Thread answer = ask(proc, process.pid, fmt::format("{}", thread), number);
        if (answer == Thread::hidden || answer == Thread::restless) {
            return ExitSignal::unknown;
        }
        if (answer == Thread::lets_through && thread == process.pid) {
            return ExitSignal::fatal;
        }
        open = open || answer == Thread::lets_through;
        awaited = awaited || answer == Thread::awaits;
        kept = kept || answer == Thread::keeps;
    }
    if (open) {
        return awaited ? ExitSignal::unknown : ExitSignal::fatal;
    }
    return awaited || kept ? ExitSignal::awaited : ExitSignal::unknown;
}

} // namespace monpctl
