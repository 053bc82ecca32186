/*
 * How the main thread meets what the signal handlers left.
 */
#ifndef MONP_SIGNAL_H
#define MONP_SIGNAL_H

#include "monp.h"

/*
 * Result: -1 on the main thread, else 0. Any thread.
 */
int monp_ismainthread(void);

/*
 * Writes the lines of the signals caught between the last call and this one, in the order of their arrival, and makes
 * the marker file where one of them, or a collection that has ended, asks for it. On any other thread than the main one
 * it does nothing.
 */
void monp_drainsignals(void);

/*
 * Reads a flag and then drains. In this order, for a handler records its signal before it sets the flag: so the lines
 * and the marker file of a flag that was seen are always there before the main thread acts on it.
 * Result: the flag. Any thread; see monp_drainsignals.
 */
int monp_testflag(const MONP_FLAG& bflag);

/*
 * Tests gbmonpend like monp_testflag, for the last time before a start. Main thread.
 */
int monp_testendbeforestart(void);

/*
 * Clears gbmonpinited and gbmonpend at the begin of a start; the latter not where monp_testendbeforestart has just
 * found it clear, so that a request from in between is kept. Main thread.
 */
void monp_clearrequests(void);

/*
 * Sleeps one second, less when a signal arrives, and drains. Any thread.
 */
void monp_pause(void);

/*
 * Sleeps one whole second, whatever signals arrive, and drains: for pauses that are counted or keep two restarts apart,
 * which signals must not shorten. A service would else lose the time that it was given to start or to stop.
 *   pflag  may be null: a flag that ends the pause early once it is set
 * Any thread.
 */
void monp_pausewhole(const MONP_FLAG* pflag);

#endif
