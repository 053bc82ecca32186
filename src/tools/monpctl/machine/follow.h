/*
 * Lines of a file that is rotated: monp.log becomes monp.log.1, that becomes monp.log.2, and so on. A file may be put
 * aside in between, as monp.log.aside.TIME.THREAD, and get its number later.
 */
#ifndef MONPCTL_FOLLOW_H
#define MONPCTL_FOLLOW_H

#include "common/unique_fd.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace monpctl {

class Follower {
public:
    /*
     * Begins with the oldest generation.
     *   file  the newest generation; it need not exist yet
     */
    explicit Follower(std::filesystem::path file);

    /*
     * Takes the next line. A file that has been rotated away is read to its end, then those that came after it.
     * Result: whether there was one; without one, there may be one later.
     */
    bool next(std::string& line);

    /* Why no file is open, as errno; 0 when one is. */
    [[nodiscard]] int error() const;

private:
    /* A file that is there now; of several, the newest has the lowest place. */
    struct Generation {
        std::filesystem::path path = {};
        std::pair<int, unsigned long> place = {};
        dev_t device = 0;
        ino_t inode = 0;
        std::pair<time_t, long> changed = {};
    };

    bool take(std::string& line);
    bool fill();
    bool move_on();
    /* Those that there are, the newest first. */
    [[nodiscard]] std::vector<Generation> list() const;
    [[nodiscard]] std::ptrdiff_t next_newer(const std::vector<Generation>& generations) const;
    bool open(const Generation& generation);

    std::filesystem::path file_;
    UniqueFd fd_;
    int error_ = 0;
    bool newest_ = false; /* the open file was the newest one when it was last looked at */
    std::string buffer_ = {};
    size_t taken_ = 0; /* bytes of it that were given out */
};

} // namespace monpctl

#endif
