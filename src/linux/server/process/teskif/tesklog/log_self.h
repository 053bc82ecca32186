/*
 * Who writes: process and thread, without a system call for each record.
 */
#ifndef LOG_SELF_H
#define LOG_SELF_H

#include <sys/types.h>

typedef struct {
    pid_t npid;
    pid_t ntid;
    unsigned nepoch; /* tells a process from the one that forked it, even if both have the same number: never 0 */
} LOG_SELF;

/*
 * Prepares the operation below; before it has run, that one makes a system call each time. May be called again.
 */
void log_self_init();

/*
 * Finds the calling process and thread. For any thread, signal handler and forked child; not for a vfork()ed one, which
 * passes for its parent.
 */
void log_self_get(LOG_SELF* pself);

#endif
