/*
 * Process and thread numbers, remembered. What is remembered must not outlive a fork, however that was made (fork(),
 * _Fork(), a clone() without our fork handlers): the process's part lies in a page which the kernel empties in a child,
 * and the thread's part counts only as long as the process's part is the same.
 */
#include "log_self.h"

#include <atomic>
#include <sys/mman.h>
#include <unistd.h>

namespace tesklog {

namespace {

struct Process {
    std::atomic<unsigned> epoch; /* 0: nothing is remembered */
    std::atomic<pid_t> pid;
};

struct Thread {
    std::atomic<unsigned> epoch;
    std::atomic<pid_t> tid;
};

Process unwiped; /* in use as long as there is no page that is emptied */
std::atomic<Process*> process = &unwiped;
std::atomic<unsigned> epochs;

/* initial-exec: the other model may allocate at a thread's first access */
thread_local Thread thread __attribute__((tls_model("initial-exec")));

} // namespace

void Self::prepare()
{
    Process* expected = &unwiped;

    if (process.load(std::memory_order_acquire) != &unwiped) {
        return;
    }
    void* const page = mmap(nullptr, sizeof(Process), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page != MAP_FAILED &&
        (madvise(page, sizeof(Process), MADV_WIPEONFORK) != 0 ||
         !process.compare_exchange_strong(expected, static_cast<Process*>(page), std::memory_order_acq_rel))) {
        munmap(page, sizeof(Process));
    }
}

/*
 * Remembers the calling process. Several threads may come here at once; the first to set the epoch decides it.
 */
static unsigned renew(Process& known, unsigned old)
{
    known.pid.store(getpid(), std::memory_order_relaxed);
    known.epoch.compare_exchange_strong(old, epochs.fetch_add(1, std::memory_order_relaxed) + 1,
                                        std::memory_order_acq_rel);
    return known.epoch.load(std::memory_order_acquire);
}

Self Self::current()
{
    Process& known = *process.load(std::memory_order_acquire);
    unsigned epoch = known.epoch.load(std::memory_order_acquire);

    if (epoch == 0 || (&known == &unwiped && known.pid.load(std::memory_order_relaxed) != getpid())) {
        epoch = renew(known, epoch);
    }
    if (thread.epoch.load(std::memory_order_relaxed) != epoch) {
        thread.tid.store(gettid(), std::memory_order_relaxed);
        thread.epoch.store(epoch, std::memory_order_release); /* last: a signal handler may come in between */
    }
    return { known.pid.load(std::memory_order_relaxed), thread.tid.load(std::memory_order_relaxed), epoch };
}

} // namespace tesklog
