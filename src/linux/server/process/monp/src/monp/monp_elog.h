/*
 * The start of a collection on a thread of its own.
 */
#ifndef MONP_ELOG_H
#define MONP_ELOG_H

/*
 * Creates a detached thread that collects the error logs by the settings of this moment, whatever is loaded while it
 * works. Without memory or a thread for it there is a line and no collection. Called by the loop.
 */
void monp_elog_start(void);

#endif
