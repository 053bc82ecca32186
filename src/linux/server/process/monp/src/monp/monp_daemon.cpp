/*
 * The split into the launcher's process, which waits, and the daemon, with the dispositions, limits and directory that
 * every started program inherits.
 */
#include "monp.h"
#include "monp_log.h"
#include "monp_path.h"
#include "monp_signal.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

/* The signals whose dispositions the daemon sets: the standard ones but the last. */
static constexpr int MONP_SIG_MAX = 30;
static constexpr useconds_t MONP_HANDSHAKE_STEP = 100000; /* microseconds */
static constexpr long MONP_HANDSHAKE_STEPS = 10;          /* in a second */

/*
 * Dispositions of the daemon; every signal without a row is ignored. The defaults are set, not assumed, for a launcher
 * may hand down others: under an ignored SIGCHLD no child could be awaited.
 */
typedef struct {
    int nsig;
    void (*pdisposition)(int);
} MONP_DISPOSITION;

static const MONP_DISPOSITION gdispositions[] = {
    { SIGABRT, SIG_DFL }, { SIGKILL, SIG_DFL },          { SIGSEGV, SIG_DFL },          { SIGTERM, SIG_DFL },
    { SIGCHLD, SIG_DFL }, { SIGUSR1, monp_sighandler1 }, { SIGUSR2, monp_sighandler1 }, { SIGHUP, monp_sighup },
};

static int monp_hasdisposition(int nsig)
{
    int bfound = 0;

    for (const MONP_DISPOSITION& row : gdispositions) {
        if (row.nsig == nsig) {
            bfound = -1;
        }
    }
    return bfound;
}

/*
 * Lets every signal through. A launcher that blocks them hands that down, and neither a handshake nor a report nor an
 * end request would ever arrive.
 */
static void monp_unblocksignals(void)
{
    sigset_t set;

    sigemptyset(&set);
    pthread_sigmask(SIG_SETMASK, &set, nullptr);
}

/*
 * The launcher's process: waits for the daemon's SIGUSR1, and ends with status 0 whether it came or not.
 */
[[noreturn]] static void monp_waithandshake(void)
{
    long ninx = 0;

    monp_unblocksignals();
    while (ninx < gmonppol.parent_initto * MONP_HANDSHAKE_STEPS && monp_testflag(gbmonpterm) == 0) {
        usleep(MONP_HANDSHAKE_STEP);
        ninx++;
    }
    monp_drainsignals();
    _exit(0);
}

static void monp_setdispositions(void)
{
    int nsig = 0;

    for (nsig = 1; nsig <= MONP_SIG_MAX; nsig++) {
        if (monp_hasdisposition(nsig) == 0) {
            signal(nsig, SIG_IGN);
        }
    }
    for (const MONP_DISPOSITION& row : gdispositions) {
        signal(row.nsig, row.pdisposition);
    }
}

static void monp_setcorelimit(void)
{
    struct rlimit limit = { RLIM_INFINITY, RLIM_INFINITY };

    if (gmonpallpol.core != 1) {
        goto monp_exit_func;
    }
    if (setrlimit(RLIMIT_CORE, &limit) != 0) {
        MONP_ERROR("setrlimit(core) failed. (type=%s errno=%d)", gmonpmonpol.type, errno);
    }

monp_exit_func:
    return;
}

static void monp_setstacklimit(void)
{
    struct rlimit limit = {};

    if (gmonpallpol.stacksize <= 0) {
        goto monp_exit_func;
    }
    if (getrlimit(RLIMIT_STACK, &limit) != 0) {
        MONP_ERROR("getrlimit(stacksize) failed. (type=%s errno=%d)", gmonpmonpol.type, errno);
    } else {
        MONP_ERROR("getrlimit(stacksize:cur=%d,max=%d)", static_cast<int>(limit.rlim_cur),
                   static_cast<int>(limit.rlim_max));
    }
    limit.rlim_cur = static_cast<rlim_t>(gmonpallpol.stacksize);
    limit.rlim_max = RLIM_INFINITY;
    if (setrlimit(RLIMIT_STACK, &limit) != 0) {
        MONP_ERROR("setrlimit(stacksize=%d) failed. (type=%s errno=%d)", gmonpallpol.stacksize, gmonpmonpol.type,
                   errno);
    } else {
        MONP_ERROR("setrlimit(stacksize=%d) OK.", gmonpallpol.stacksize);
    }

monp_exit_func:
    return;
}

static void monp_setdirectory(void)
{
    char szbindir[CS_PRG_CAPTION_LEN] = {};

    if (monp_join(szbindir, sizeof(szbindir), "bin directory", "%s%s", gmonpallpol.instpath, "bin/") ==
        MONP_RET_SUCCESS) {
        /* Start-up has reported a directory that is not there. */
        (void)!chdir(szbindir);
    }
}

int monp_make_daemon(void)
{
    int nfuncret = MONP_RET_SUCCESS;
    pid_t npid = 0;

    MONP_TRACE("start - (type=%s)", gmonpmonpol.type);

    signal(SIGUSR1, gmonppol.parent_initto > 0 ? monp_sigusr1 : SIG_IGN);

    npid = fork();
    if (npid < 0) {
        MONP_ERROR("fork() failed. (type=%s errno=%d)", gmonpmonpol.type, errno);
        exit(MONP_RET_FAIL_INIT);
    }
    if (npid > 0) {
        monp_waithandshake();
    }

    MONP_DETAIL("start daemon. (type=%s)", gmonpmonpol.type);
    if (setsid() < 0) {
        MONP_ERROR("setsid() failed. (type=%s errno=%d)", gmonpmonpol.type, errno);
    }
    monp_setdispositions();
    monp_unblocksignals();
    monp_setcorelimit();
    monp_setstacklimit();
    monp_setdirectory();
    umask(0);

monp_exit_func:
    __attribute__((unused));
    MONP_TRACE("end - (type=%s ret=%d)", gmonpmonpol.type, nfuncret);
    return nfuncret;
}

int monp_make_thattr_detach(pthread_attr_t* pattr)
{
    struct sched_param param = {};

    MONP_TRACE("start - (attr=%p)", static_cast<void*>(pattr));

    pthread_attr_init(pattr);
    pthread_attr_setdetachstate(pattr, PTHREAD_CREATE_DETACHED);
    pthread_attr_setscope(pattr, PTHREAD_SCOPE_PROCESS);
    pthread_attr_setinheritsched(pattr, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setschedpolicy(pattr, SCHED_OTHER);
    param.sched_priority = sched_get_priority_max(SCHED_OTHER);
    pthread_attr_setschedparam(pattr, &param);

monp_exit_func:
    __attribute__((unused));
    MONP_TRACE("end - ()");
    return 0;
}
