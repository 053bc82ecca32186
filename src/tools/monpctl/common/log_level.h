/*
 * The levels of log records, as monp-log(5) has them.
 */
#ifndef MONPCTL_COMMON_LOG_LEVEL_H
#define MONPCTL_COMMON_LOG_LEVEL_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace monpctl {

/*
 * The words of the levels, from the most severe on; events come first, as they are kept at every level.
 */
std::vector<std::string> log_level_words();

/*
 * The rank of a level, from 0 for events on; nothing for any other word.
 */
std::optional<size_t> log_level_rank(std::string_view word);

} // namespace monpctl

#endif
