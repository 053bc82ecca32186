/*
 * Lines of a file that is rotated: monp.log becomes monp.log.1, that becomes monp.log.2, and so on.
 */
#ifndef MONPCTL_FOLLOW_H
#define MONPCTL_FOLLOW_H

#include "common/unique_fd.h"

#include <filesystem>
#include <functional>
#include <string>

namespace monpctl {

enum class FollowFrom {
    newest, /* generation of the file */
    oldest
};

class Follower {
public:
    /*
     *   file  the newest generation; it need not exist yet
     */
    Follower(std::filesystem::path file, FollowFrom from);

    /*
     * Takes the next line. A file that has been rotated away is read to its end, then those that came after it.
     * Result: whether there was one; without one, there may be one later.
     */
    bool next(std::string& line);

    /* Why no file is open, as errno; 0 when one is. */
    [[nodiscard]] int error() const;

private:
    bool take(std::string& line);
    bool fill();
    bool move_on();
    [[nodiscard]] std::filesystem::path generation(int number) const;
    [[nodiscard]] int find() const;
    [[nodiscard]] int first_newer() const;
    bool open(int number);

    std::filesystem::path file_;
    UniqueFd fd_;
    int error_ = 0;
    bool newest_ = false; /* the open file was the newest one when it was last looked at */
    std::string buffer_ = {};
    size_t taken_ = 0; /* bytes of it that were given out */
};

struct LineOptions {
    FollowFrom from = FollowFrom::oldest;
    bool follow = false; /* go on with the lines that come, and do not return */
    bool needed = false; /* refuse a missing file, unless it is waited for */
};

/*
 * Calls `take` for each line. The standard output is flushed whenever there is nothing to read.
 */
void for_each_line(const std::filesystem::path& file, const LineOptions& options,
                   const std::function<void(const std::string&)>& take);

} // namespace monpctl

#endif
