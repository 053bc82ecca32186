/*
 * How the main thread meets what the signal handlers left.
 */
#ifndef MONP_SIGNAL_H
#define MONP_SIGNAL_H

#include "monp.h"

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
