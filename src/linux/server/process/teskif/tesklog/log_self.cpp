/*
 * Process and thread numbers, remembered. What is remembered must not outlive a fork, however that was made (fork(),
 * _Fork(), a clone() without our fork handlers): the process's part lies in a page which the kernel empties in a child,
 * and the thread's part counts only as long as the process's part is the same.
 */
#include "log_self.h"

#include <atomic>
#include <sys/mman.h>
#include <unistd.h>

typedef struct {
    std::atomic<unsigned> nepoch; /* 0: nothing is remembered */
    std::atomic<pid_t> npid;
} LOG_PROCESS;

typedef struct {
    std::atomic<unsigned> nepoch;
    std::atomic<pid_t> ntid;
} LOG_THREAD;

static LOG_PROCESS gunwiped; /* in use as long as there is no page that is emptied */
static std::atomic<LOG_PROCESS*> gpprocess = &gunwiped;
static std::atomic<unsigned> gnepochs;

/* initial-exec: the other model may allocate at a thread's first access */
static thread_local LOG_THREAD gthread __attribute__((tls_model("initial-exec")));

void log_self_init()
{
    LOG_PROCESS* pexpected = &gunwiped;
    void* ppage = MAP_FAILED;

    if (gpprocess.load(std::memory_order_acquire) != &gunwiped) {
        goto monp_exit_func;
    }
    ppage = mmap(nullptr, sizeof(LOG_PROCESS), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (ppage == MAP_FAILED) {
        goto monp_exit_func;
    }
    if (madvise(ppage, sizeof(LOG_PROCESS), MADV_WIPEONFORK) != 0 ||
        !gpprocess.compare_exchange_strong(pexpected, static_cast<LOG_PROCESS*>(ppage), std::memory_order_acq_rel)) {
        munmap(ppage, sizeof(LOG_PROCESS));
    }

monp_exit_func:
    return;
}

/*
 * Remembers the calling process. Several threads may come here at once; the first to set the epoch decides it.
 */
static unsigned log_self_renew(LOG_PROCESS* pprocess, unsigned nold)
{
    pprocess->npid.store(getpid(), std::memory_order_relaxed);
    pprocess->nepoch.compare_exchange_strong(nold, gnepochs.fetch_add(1, std::memory_order_relaxed) + 1,
                                             std::memory_order_acq_rel);
    return pprocess->nepoch.load(std::memory_order_acquire);
}

void log_self_get(LOG_SELF* pself)
{
    LOG_PROCESS* pprocess = gpprocess.load(std::memory_order_acquire);
    unsigned nepoch = pprocess->nepoch.load(std::memory_order_acquire);

    if (nepoch == 0 || (pprocess == &gunwiped && pprocess->npid.load(std::memory_order_relaxed) != getpid())) {
        nepoch = log_self_renew(pprocess, nepoch);
    }
    if (gthread.nepoch.load(std::memory_order_relaxed) != nepoch) {
        gthread.ntid.store(gettid(), std::memory_order_relaxed);
        gthread.nepoch.store(nepoch, std::memory_order_release); /* last: a signal handler may come in between */
    }
    pself->npid = pprocess->npid.load(std::memory_order_relaxed);
    pself->ntid = gthread.ntid.load(std::memory_order_relaxed);
    pself->nepoch = nepoch;
}
