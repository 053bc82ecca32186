/*
 * Moments as an operator types them.
 */
#ifndef MONPCTL_COMMON_MOMENT_H
#define MONPCTL_COMMON_MOMENT_H

#include "common/time_text.h"

#include <string>

namespace monpctl {

/*
 * Reads a moment in local time: "2026-11-22", "2026-11-22 14:00", "2026-11-22 14:00:30", "14:00" and "14:00:30" for
 * today, "30s ago", "5min ago", "2h ago", "3d ago" with or without a blank before the unit, "now", or a time as the log
 * has it.
 *   option  the option that it was given with, for the Refusal that any other text gets
 *   now     the moment that the text is read at
 */
Time parse_moment(const std::string& option, const std::string& text, Time now);

} // namespace monpctl

#endif
