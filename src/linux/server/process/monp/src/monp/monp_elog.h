/*
 * The start of a collection on a thread of its own.
 */
#ifndef MONP_ELOG_H
#define MONP_ELOG_H

/*
 * Creates a detached thread that collects the error logs by the settings of this moment, whatever is loaded while it
 * works. Called by the loop.
 * Result: 0, or the number of the error for which there is no thread.
 */
int monp_elog_start(void);

#endif
