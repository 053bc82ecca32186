/*
 * Whether there is a marker file at all.
 */
#ifndef MONP_MDFILE_H
#define MONP_MDFILE_H

#include "monp.h"

/*
 * Result: -1 when the service is of the type that has a marker file, else 0. Any thread.
 */
int monp_usesmarker(void);

/*
 * Makes the marker file when a collection thread has asked for it since the last call. Called with each drain.
 */
void monp_make_duemdfile(void);

#endif
