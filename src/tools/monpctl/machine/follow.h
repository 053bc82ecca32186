/*
 * Lines of a file that is rotated: monp.log becomes monp.log.1, that becomes monp.log.2, and so on.
 */
#ifndef MONPCTL_FOLLOW_H
#define MONPCTL_FOLLOW_H

#include <filesystem>
#include <functional>
#include <string>

namespace monpctl {

class Follower {
public:
    /*
     *   file    the newest generation; it need not exist yet
     *   oldest  whether to begin with the oldest generation instead
     */
    Follower(std::filesystem::path file, bool oldest);
    ~Follower();
    Follower(const Follower&) = delete;
    Follower& operator=(const Follower&) = delete;

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
    int fd_ = -1;
    int error_ = 0;
    bool newest_ = false; /* the open file was the newest one when it was last looked at */
    std::string buffer_;
    size_t taken_ = 0; /* bytes of it that were given out */
};

/*
 * Calls `take` for each line that there is, and with `follow` for each that comes; then it does not return. The
 * standard output is flushed whenever there is nothing to read.
 *   needed  whether a missing file is refused, if it is not waited for
 */
void for_each_line(const std::filesystem::path& file, bool oldest, bool follow, bool needed,
                   const std::function<void(const std::string&)>& take);

} // namespace monpctl

#endif
