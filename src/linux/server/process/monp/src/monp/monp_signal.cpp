/*
 * The signal handlers, and the record through which the main thread does what they cause. A handler that logged or
 * opened files itself could deadlock with the very call that it interrupted.
 */
#include "monp_signal.h"

#include "monp_log.h"
#include "monp_mdfile.h"
#include "monp_view.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <iterator>
#include <sched.h>
#include <unistd.h>

typedef enum { MONP_HANDLER_1, MONP_HANDLER_USR1, MONP_HANDLER_HUP } MONP_HANDLER;

static constexpr const char* ghandlernames[] = { "monp_sighandler1", "monp_sigusr1", "monp_sighup" };
static_assert(std::size(ghandlernames) == MONP_HANDLER_HUP + 1);

/*
 * What a signal means to a handler. A signal without a row is unknown.
 */
typedef struct {
    MONP_HANDLER nhandler;
    int nsig;
    MONP_FLAG* pflag;
    int bmarker; /* the marker file is to exist once the flag is seen */
} MONP_SIGNAL_ITEMS;

static constexpr MONP_SIGNAL_ITEMS gsignals[] = {
    { MONP_HANDLER_1, SIGUSR1, &gbmonpinited, -1 },
    { MONP_HANDLER_1, SIGUSR2, &gbmonpend, 0 },
    { MONP_HANDLER_USR1, SIGUSR1, &gbmonpterm, 0 },
    { MONP_HANDLER_HUP, SIGHUP, &gbreload, 0 },
};

/*
 * The record: a ring of signals caught and not yet drained, 0 marking a free slot. The main thread drains at least once
 * a second but while it reaps a service that did not report, runs the shutdown command or loads the configuration. A
 * storm that fills the ring then, or is faster than its lines can be written, loses lines, which are counted, but never
 * a flag or the marker file.
 */
static constexpr unsigned MONP_SIGNAL_SLOTS = 1024;
static constinit std::atomic<int> gslots[MONP_SIGNAL_SLOTS];
static constinit std::atomic<unsigned> gnrecorded{ 0 };
static constinit std::atomic<unsigned> gndrained{ 0 };
static constinit std::atomic<int> gnunrecorded{ 0 };
static_assert((MONP_SIGNAL_SLOTS & (MONP_SIGNAL_SLOTS - 1)) == 0, "the counters wrap around");
static_assert(std::atomic<unsigned>::is_always_lock_free);

static constexpr int MONP_HANDLER_SHIFT = 8;

static const MONP_SIGNAL_ITEMS* monp_findsignal(MONP_HANDLER nhandler, int nsig)
{
    const MONP_SIGNAL_ITEMS* pfound = nullptr;

    for (const MONP_SIGNAL_ITEMS& row : gsignals) {
        if (row.nhandler == nhandler && row.nsig == nsig) {
            pfound = &row;
        }
    }
    return pfound;
}

/*
 * Takes a slot and fills it. A second handler may come in between on either thread and takes the next slot.
 */
static void monp_recordsignal(MONP_HANDLER nhandler, int nsig)
{
    unsigned nslot = gnrecorded.load();

    do {
        /* Signed, for the main thread may have drained past a slot number that was read before an interruption; the
           exchange then fails, and the number is read again. */
        if (static_cast<int>(nslot - gndrained.load()) >= static_cast<int>(MONP_SIGNAL_SLOTS)) {
            gnunrecorded.fetch_add(1);
            goto monp_exit_func;
        }
    } while (!gnrecorded.compare_exchange_weak(nslot, nslot + 1));
    /* One more than the handler's number, so that no record is 0. */
    gslots[nslot % MONP_SIGNAL_SLOTS].store(((nhandler + 1) << MONP_HANDLER_SHIFT) | nsig);

monp_exit_func:
    return;
}

static void monp_catchsignal(MONP_HANDLER nhandler, int nsig)
{
    const MONP_SIGNAL_ITEMS* prow = monp_findsignal(nhandler, nsig);

    monp_recordsignal(nhandler, nsig);
    if (prow != nullptr) {
        *prow->pflag = -1;
    }
}

void monp_sighandler1(int nsig)
{
    monp_catchsignal(MONP_HANDLER_1, nsig);
}

void monp_sigusr1(int nsig)
{
    monp_catchsignal(MONP_HANDLER_USR1, nsig);
}

void monp_sighup(int nsig)
{
    monp_catchsignal(MONP_HANDLER_HUP, nsig);
}

/*
 * What the handler of one signal would have done beside its flag, under its name.
 */
static void monp_finishsignal(MONP_HANDLER nhandler, int nsig)
{
    const char* pname = ghandlernames[nhandler];
    const MONP_SIGNAL_ITEMS* prow = monp_findsignal(nhandler, nsig);

    MONP_LINE_AS(TESKLOG_TRACE, pname, "start - (type=%s sig=%d)", gmonpmonpol.type, nsig);
    MONP_LINE_AS(TESKLOG_TRACE, pname, "catch signal. (type=%s sig=%d)", gmonpmonpol.type, nsig);
    if (prow == nullptr) {
        MONP_LINE_AS(TESKLOG_WARNING, pname, "unknown signal. (type=%s sig=%d)", gmonpmonpol.type, nsig);
    } else if (prow->bmarker != 0) {
        monp_make_mdfile();
    }
    MONP_LINE_AS(TESKLOG_TRACE, pname, "end - (type=%s)", gmonpmonpol.type);
}

void monp_drainsignals(void)
{
    int nrecord = 0;
    int nlost = 0;
    /* Not those that come meanwhile: a storm as fast as the log would keep the main thread here. */
    const unsigned nend = gnrecorded.load();
    std::atomic<int>* pslot = nullptr;

    if (monp_ismainthread() == 0) {
        goto monp_exit_func;
    }
    while (gndrained.load() != nend) {
        /* A handler on the other thread may have taken the slot and be about to fill it. */
        pslot = &gslots[gndrained.load() % MONP_SIGNAL_SLOTS];
        while ((nrecord = pslot->exchange(0)) == 0) {
            sched_yield();
        }
        gndrained.fetch_add(1);
        monp_finishsignal(static_cast<MONP_HANDLER>((nrecord >> MONP_HANDLER_SHIFT) - 1),
                          nrecord & ((1 << MONP_HANDLER_SHIFT) - 1));
    }
    nlost = gnunrecorded.exchange(0);
    if (nlost != 0) {
        MONP_WARNING("signals without a record. (type=%s num=%d)", gmonpmonpol.type, nlost);
        if (gbmonpinited != 0) {
            monp_make_mdfile();
        }
    }
    monp_make_duemdfile();

monp_exit_func:
    return;
}

int monp_testflag(const MONP_FLAG& bflag)
{
    int bval = bflag.load();

    monp_drainsignals();
    return bval;
}

void monp_pause(void)
{
    sleep(1);
    monp_drainsignals();
}

static constexpr long MONP_SECOND_USEC = 1000000; /* microseconds in a second */

static long monp_now(void)
{
    struct timespec now = {};

    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * MONP_SECOND_USEC + now.tv_nsec / 1000;
}

void monp_pausewhole(const MONP_FLAG* pflag)
{
    const long nend = monp_now() + MONP_SECOND_USEC;
    long nremain = MONP_SECOND_USEC;
    int nerrno = 0;

    do {
        errno = 0;
        if (nremain == MONP_SECOND_USEC) {
            sleep(1);
        } else {
            usleep(static_cast<useconds_t>(nremain));
        }
        /* What sleep returns is in whole seconds and says nothing of an interrupted second; its errno does. The lines
           of the signal may change it. */
        nerrno = errno;
        monp_drainsignals();
        nremain = nend - monp_now();
    } while (nerrno == EINTR && nremain > 0 && (pflag == nullptr || *pflag == 0));
}
