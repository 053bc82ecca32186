/*
 * The effect of the exit signal on real processes, each in a state of its own.
 */
#include "machine/exit_signal.h"
#include "monp_service.h"

#include <csignal>
#include <functional>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <thread>

using namespace monpctl;

namespace {

/*
 * A child of the test that does something until it is killed, at the end of this at the latest.
 */
class Child {
public:
    explicit Child(const std::function<void()>& work) : pid_(fork())
    {
        if (pid_ == 0) {
            work();
            for (;;) {
                pause();
            }
        }
    }
    ~Child()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    [[nodiscard]] Process look() const
    {
        return Proc().read(pid_).value_or(Process());
    }

    /* The answer, once it is the wanted one; or the last one after five seconds. */
    [[nodiscard]] ExitSignal settles_at(ExitSignal wanted) const
    {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        ExitSignal answer = exit_signal(look(), SIGUSR1);

        while (answer != wanted && std::chrono::steady_clock::now() < limit) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            answer = exit_signal(look(), SIGUSR1);
        }
        return answer;
    }

private:
    pid_t pid_;
};

sigset_t only(int signal)
{
    sigset_t set;

    sigemptyset(&set);
    sigaddset(&set, signal);
    return set;
}

void wait_for(int signal)
{
    const sigset_t set = only(signal);

    sigwaitinfo(&set, nullptr);
}

void block(int signal)
{
    const sigset_t set = only(signal);

    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

} // namespace

TEST(ExitSignal, IsToldForEachWayToTreatIt)
{
    const struct {
        const char* name;
        std::function<void()> work;
        ExitSignal answer;
    } rows[] = {
        { "nothing", [] {}, ExitSignal::fatal },
        { "a handler", [] { std::signal(SIGUSR1, [](int) {}); }, ExitSignal::handled },
        { "ignored", [] { std::signal(SIGUSR1, SIG_IGN); }, ExitSignal::ignored },
        { "blocked", [] { block(SIGUSR1); }, ExitSignal::awaited },
        { "awaited and blocked in between",
          [] {
              block(SIGUSR1);
              wait_for(SIGUSR1);
          },
          ExitSignal::awaited },
        { "another signal is awaited", [] { wait_for(SIGUSR2); }, ExitSignal::fatal },
        { "awaited by a thread, blocked by the main one",
          [] {
              block(SIGUSR1);
              std::thread([] { wait_for(SIGUSR1); }).detach();
          },
          ExitSignal::awaited },
        { "awaited by a thread, let through by the main one", [] { std::thread([] { wait_for(SIGUSR1); }).detach(); },
          ExitSignal::fatal },
        { "let through by a thread only",
          [] {
              std::thread([] { pause(); }).detach();
              block(SIGUSR1);
          },
          ExitSignal::fatal },
        { "let through by one thread and awaited by another",
          [] {
              std::thread([] { pause(); }).detach();
              std::thread([] { wait_for(SIGUSR1); }).detach();
              block(SIGUSR1);
          },
          ExitSignal::unknown },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.answer, Child(row.work).settles_at(row.answer));
    }
}

/*
 * One that is busy has no state to tell, and one that does not tell is not accused.
 */
TEST(ExitSignal, IsNotToldOfWhatIsGoneOrBusy)
{
    const Child busy([] {
        for (;;) {
            static_cast<void>(getppid());
        }
    });
    Process other = busy.look();
    other.started++;

    EXPECT_EQ(ExitSignal::unknown, exit_signal(busy.look(), SIGUSR1));
    EXPECT_EQ(ExitSignal::unknown, exit_signal(other, SIGUSR1)) << "a later process of the same number";
}

/*
 * A service with our header is spared at every moment, in short waits and long ones, and whoever reads its mask sees so.
 */
TEST(ExitSignal, IsKeptByTheHeaderAtEveryMoment)
{
    for (const int pause : { 1, -1 }) {
        const Child service([pause] {
            monp_service_init();
            while (monp_service_wait(pause) == 0) {}
        });
        ASSERT_EQ(ExitSignal::awaited, service.settles_at(ExitSignal::awaited));
        for (int look = 0; look < 300; look++) {
            const Process process = service.look();
            ASSERT_EQ(ExitSignal::awaited, exit_signal(process, SIGUSR1)) << look;
            ASSERT_NE(0U, process.blocked >> (SIGUSR1 - 1) & 1) << look;
        }
    }
}

/*
 * The request is taken once, at once, also if it came before the wait or no descriptor is left for it.
 */
TEST(ExitSignal, EndsTheHeadersWait)
{
    for (const bool starved : { false, true }) {
        const pid_t child = fork();
        if (child == 0) {
            monp_service_init();
            while (starved && dup(STDERR_FILENO) >= 0) {}
            kill(getpid(), SIGUSR1);
            _exit(monp_service_wait(60000) * 2 + monp_service_wait(1));
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(2, WEXITSTATUS(status)) << starved;
    }
}
