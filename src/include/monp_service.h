/*
 * What a service owes to its monitor: to report that it is ready, and to end when it is asked to. For C99 and C++, with
 * nothing to link. The whole contract is told in writing-a-service.md, in the installation's share/doc/monp.
 *
 *   monp_service_init();                         first of all, before any thread is started
 *   ... open files, read the configuration ...
 *   monp_service_report();
 *   while (monp_service_wait(1000) == 0) { ... a second's work ... }
 *   return 0;
 *
 * An event loop polls monp_service_fd() for input instead, and calls monp_service_wait(0) when there is some.
 *
 * SIGUSR1 stays blocked from the first call on. So an end request is kept until the service asks for it: it cannot come
 * in between a test and a pause, it interrupts no call, and it cannot end a service that has not come round to looking.
 */
#ifndef MONP_SERVICE_H
#define MONP_SERVICE_H

#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/signalfd.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#if !defined(_POSIX_C_SOURCE) || _POSIX_C_SOURCE < 199506L
#error "monp_service.h needs POSIX signals: define _POSIX_C_SOURCE as 200809L before the first include"
#endif

#define MONP_SERVICE_LASTSIG 31 /* real-time signals lie above: the monitor leaves them alone */

/*
 * Undoes what the monitor hands down: it ignores nearly all signals, and what is ignored stays so in a started program.
 * Signals 1 to 31 that are ignored get their default back; handlers that are installed already stay. The mask of the
 * calling thread becomes SIGUSR1 alone, and threads started later inherit it. So do programs that the service starts:
 * one that wants SIGUSR1 for itself has to unblock it.
 * Cannot fail. Called first of all in main.
 */
static inline void monp_service_init(void)
{
    int nsig = 0;
    sigset_t mask;
    struct sigaction action;

    for (nsig = 1; nsig <= MONP_SERVICE_LASTSIG; nsig++) {
        if (sigaction(nsig, NULL, &action) == 0 && action.sa_handler == SIG_IGN) {
            signal(nsig, SIG_DFL);
        }
    }
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    sigprocmask(SIG_SETMASK, &mask, NULL);
}

/*
 * Tells whether a line of a process's status lists SIGUSR1 as ignored or caught. Blocked is no protection: a shell
 * blocks all signals only while it starts a program.
 */
static inline int monp_service_survives(const char* pline)
{
    const int blisted = strncmp(pline, "SigIgn:", 7) == 0 || strncmp(pline, "SigCgt:", 7) == 0;

    return blisted && (strtoull(pline + 7, NULL, 16) >> (SIGUSR1 - 1) & 1) != 0;
}

/*
 * Tells the monitor that the service is ready: SIGUSR1 to the parent, unless the parent would die of it, as the shell
 * does from which a service is tried by hand. To be called once and by the process that the monitor started: a copy
 * that went on as a daemon, or a program behind a shell that did not exec it, has another parent.
 * Result: 0 reported; 1 not reported, as the parent is no monitor; -1 with errno when the signal could not be sent.
 */
static inline int monp_service_report(void)
{
    const pid_t nparent = getppid();
    const long nnumber = nparent; /* a pid_t has no format of its own, and a cast none that C and C++ both like */
    int bsurvives = 0;
    char szline[256];
    FILE* pstatus = NULL;

    snprintf(szline, sizeof(szline), "/proc/%ld/status", nnumber);
    /* A parent outside of our PID namespace shows as 0, an orphan's as 1: neither is a monitor. */
    pstatus = nparent > 1 ? fopen(szline, "re") : NULL;
    while (pstatus != NULL && !bsurvives && fgets(szline, sizeof(szline), pstatus) != NULL) {
        bsurvives = monp_service_survives(szline);
    }
    if (pstatus != NULL) {
        fclose(pstatus);
    }
    /* Once the monitor is gone, its number may become anybody's. */
    return bsurvives && getppid() == nparent ? kill(nparent, SIGUSR1) : 1;
}

/*
 * Opens a descriptor for poll, select or epoll, readable while an end request waits for monp_service_wait(0). It is not
 * to be read from: that would take the request. Closed on exec; the caller closes it.
 * Result: the descriptor, or -1 with errno. After monp_service_init(). An epoll set does not follow a fork.
 */
static inline int monp_service_fd(void)
{
    sigset_t mask;

    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    return signalfd(-1, &mask, SFD_NONBLOCK | SFD_CLOEXEC);
}

/*
 * Waits for the end request and takes it: it is told once.
 *   nmsec  milliseconds; 0: only looks; below 0: no limit
 * Result: 1 end, please: within the configured wait time, after which SIGKILL follows; 0 not asked so far: the time is
 * over, a signal handler of the service's own ran, or another thread took the request.
 * After monp_service_init(). Any thread; one of several waiting ones is told.
 */
static inline int monp_service_wait(int nmsec)
{
    int nsig = 0;
    sigset_t mask;
    struct timespec limit = { 0, 0 };
    struct pollfd input = { -1, POLLIN, 0 };

    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    /* Asleep in sigtimedwait, a thread does not show the signal as blocked, and the service looks as if it would die of
       its end request. In poll it does, so sigtimedwait sleeps only where no descriptor is left. */
    input.fd = nmsec != 0 ? monp_service_fd() : -1;
    if (input.fd >= 0) {
        poll(&input, 1, nmsec);
        close(input.fd);
    } else if (nmsec > 0) {
        limit.tv_sec = nmsec / 1000;
        limit.tv_nsec = nmsec % 1000 * 1000000L;
    }
    nsig = nmsec < 0 && input.fd < 0 ? sigwaitinfo(&mask, NULL) : sigtimedwait(&mask, NULL, &limit);
    return nsig == SIGUSR1;
}

#endif
