/*
 * Where the open file stands among its generations is looked up anew whenever its end is reached, so that any number of
 * rotations may have happened since the last look.
 */
#include "machine/follow.h"

#include "common/refusal.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace monpctl {

/* Numbers above this are not looked for; the monitor keeps five. */
static constexpr int LAST_GENERATION = 99;

/* Between two looks for new lines. */
static constexpr auto PAUSE = std::chrono::milliseconds(200);

Follower::Follower(fs::path file, FollowFrom from) : file_(std::move(file))
{
    int number = from == FollowFrom::oldest ? LAST_GENERATION : 0;
    std::error_code error;

    while (number > 0 && !fs::exists(generation(number), error)) {
        number--;
    }
    open(number);
}

fs::path Follower::generation(int number) const
{
    return number == 0 ? file_ : fs::path(file_.string() + '.' + std::to_string(number));
}

/*
 * Exchanges the open file for another; a line that the old one left unfinished ends there.
 */
bool Follower::open(int number)
{
    struct stat status = {};
    UniqueFd fd(::open(generation(number).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));

    if (!fd || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        error_ = fd ? EINVAL : errno;
        return false;
    }
    if (taken_ < buffer_.size()) {
        buffer_ += '\n';
    }
    fd_ = std::move(fd);
    error_ = 0;
    newest_ = number == 0;
    return true;
}

int Follower::error() const
{
    return fd_ ? 0 : error_;
}

bool Follower::next(std::string& line)
{
    while (!take(line)) {
        if (!fill() && !move_on()) {
            return false;
        }
    }
    return true;
}

bool Follower::take(std::string& line)
{
    const auto end = buffer_.find('\n', taken_);

    if (end == std::string::npos) {
        buffer_.erase(0, taken_);
        taken_ = 0;
        return false;
    }
    line.assign(buffer_, taken_, end - taken_);
    taken_ = end + 1;
    return true;
}

bool Follower::fill()
{
    std::array<char, 65536> piece = {};
    struct stat status = {};

    if (!fd_) {
        return false;
    }
    /* One that was emptied instead of renamed begins again. */
    if (fstat(fd_.get(), &status) == 0 && status.st_size < lseek(fd_.get(), 0, SEEK_CUR)) {
        lseek(fd_.get(), 0, SEEK_SET);
    }
    const ssize_t length = read(fd_.get(), piece.data(), piece.size());
    if (length > 0) {
        buffer_.append(piece.data(), static_cast<size_t>(length));
    }
    return length > 0;
}

/*
 * The number that the open file bears now; -1 for one that was removed.
 */
int Follower::find() const
{
    struct stat own = {};
    struct stat other = {};

    if (!fd_ || fstat(fd_.get(), &own) != 0) {
        return -1;
    }
    for (int number = 0; number <= LAST_GENERATION; number++) {
        if (stat(generation(number).c_str(), &other) == 0 && other.st_ino == own.st_ino && other.st_dev == own.st_dev) {
            return number;
        }
    }
    return -1;
}

/*
 * Number of the oldest file that came after the open one, when that has none any more: what was rotated out of
 * existence was last written before those that are left, what somebody removed was not.
 */
int Follower::first_newer() const
{
    struct stat own = {};
    struct stat other = {};
    int number = fstat(fd_.get(), &own) == 0 ? LAST_GENERATION : 0;

    while (number > 0 &&
           (stat(generation(number).c_str(), &other) != 0 || std::pair(other.st_mtim.tv_sec, other.st_mtim.tv_nsec) <
                                                                 std::pair(own.st_mtim.tv_sec, own.st_mtim.tv_nsec))) {
        number--;
    }
    return number;
}

/*
 * Goes on to the next newer file, if there is one. A file that has just been rotated gets one more look later, as a
 * writer may not have noticed yet.
 */
bool Follower::move_on()
{
    const int number = find();

    if (number == 0) {
        newest_ = true;
        return false;
    }
    if (newest_) {
        newest_ = false;
        return false;
    }
    /* While files are being renamed, the numbers have a gap. */
    for (int newer = number < 0 ? first_newer() : number - 1; newer >= 0; newer--) {
        if (open(newer)) {
            return true;
        }
    }
    return false;
}

void for_each_line(const fs::path& file, const LineOptions& options,
                   const std::function<void(const std::string&)>& take)
{
    Follower follower(file, options.from);
    std::string line;

    if (const int error = follower.error(); error != 0 && (error != ENOENT || (options.needed && !options.follow))) {
        throw Refusal(file.string() + " cannot be read: " + std::strerror(error));
    }
    for (;;) {
        while (follower.next(line)) {
            take(line);
        }
        if (!std::cout.flush()) {
            throw std::runtime_error("the standard output cannot be written");
        }
        if (!options.follow) {
            return;
        }
        std::this_thread::sleep_for(PAUSE);
    }
}

} // namespace monpctl
