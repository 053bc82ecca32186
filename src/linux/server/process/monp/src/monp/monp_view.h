/*
 * The calling thread: which one it is, and the records as it may read them. A reload rewrites the records in place
 * while the collection thread works, and a path that is read meanwhile could be half the old and half the new one.
 */
#ifndef MONP_VIEW_H
#define MONP_VIEW_H

#include "monp.h"

/*
 * Where a thread reads: on the main thread the records themselves, on a collection thread the copies that it was given.
 * Every operation that both threads enter reads through it.
 */
typedef struct {
    const MONP_ALLPOLICY_INFO* pallpol;
    const MONP_MYPOLICY_INFO* ppol;
    const MONP_CPROCPOLICY_INFO* pmonpol;
} MONP_VIEW;

extern constinit thread_local MONP_VIEW gview;

/*
 * Result: -1 on the main thread, else 0. Any thread.
 */
int monp_ismainthread(void);

#endif
