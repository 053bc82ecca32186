/*
 * Who writes: process and thread, without a system call for each record.
 */
#ifndef LOG_SELF_H
#define LOG_SELF_H

#include <sys/types.h>

namespace tesklog {

struct Self {
    pid_t pid;
    pid_t tid;
    unsigned epoch; /* tells a process from the one that forked it, even if both have the same number: never 0 */

    /*
     * Prepares the operation below; before it has run, that one makes a system call each time. May be called again.
     */
    static void prepare();

    /*
     * Finds the calling process and thread. For any thread, signal handler and forked child; not for a vfork()ed one,
     * which passes for its parent.
     */
    static Self current();
};

} // namespace tesklog

#endif
