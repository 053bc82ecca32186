/*
 * Values that the monitor takes, but that an operator may not have meant.
 */
#ifndef MONPCTL_POLICY_JUDGEMENT_H
#define MONPCTL_POLICY_JUDGEMENT_H

#include "policy/settings.h"

namespace monpctl {

/*
 * Marks the problems from a number on: they are about something that a monitor reads only once.
 */
void mark_start_only(Settings& settings, size_t first);

/*
 * Judge the values, and the directories that nobody makes. The monitor's records must still hold the settings.
 */
void judge_values(Settings& settings);
void judge_directories(Settings& settings);

/*
 * Judges the command of a recovery action whose path was read: one that is there and empty names no program.
 */
void judge_empty_command(const Place& place, const std::string& consequence, Severity severity, Settings& settings);

} // namespace monpctl

#endif
