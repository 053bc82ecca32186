/*
 * Where the open file stands among its generations is looked up anew whenever its end is reached, so that any number of
 * rotations may have happened since the last look. Files are renamed while we look, so a step to the next file counts
 * only if the same files stood in the same order before it and after it.
 */
#include "machine/follow.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <iterator>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace monpctl {

/* Steps that renaming may spoil one after the other; the next look goes on. */
static constexpr int STEPS = 20;

/*
 * Reads what is behind a point, as a whole: a number as a generation has it.
 */
static std::optional<unsigned long> number_of(std::string_view text)
{
    unsigned long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);

    return error == std::errc() && end == text.data() + text.size() && number > 0 ? std::optional(number)
                                                                                  : std::nullopt;
}

/*
 * The place of a name, the newest first: the file itself, those that were put aside without a number so far, whose names
 * tell the time at which that was, and those with a number. Nothing for any other name.
 */
static std::optional<std::pair<int, unsigned long>> place_of(std::string_view name, std::string_view newest)
{
    constexpr std::string_view ASIDE = ".aside.";

    if (!name.starts_with(newest)) {
        return std::nullopt;
    }
    name.remove_prefix(newest.size());
    if (name.empty()) {
        return std::pair(0, 0UL);
    }
    if (name.starts_with(ASIDE)) {
        name.remove_prefix(ASIDE.size());
        const auto time = number_of(name.substr(0, name.find('.')));
        return time ? std::optional(std::pair(1, ~*time)) : std::nullopt;
    }
    const auto number = name.starts_with('.') ? number_of(name.substr(1)) : std::nullopt;
    return number ? std::optional(std::pair(2, *number)) : std::nullopt;
}

Follower::Follower(fs::path file) : file_(std::move(file))
{
    error_ = ENOENT;
    for (int step = 0; step < STEPS && !fd_; step++) {
        const auto generations = list();
        /* One may be removed in between; a file that cannot be read keeps its error. */
        static_cast<void>(
            std::find_if(generations.rbegin(), generations.rend(), [&](const Generation& one) { return open(one); }));
        if (generations.empty() || error_ != ENOENT) {
            break;
        }
    }
    if (!fd_ && error_ == ENOENT) {
        open({ .path = file_ }); /* for the error of the directory */
    }
}

std::vector<Follower::Generation> Follower::list() const
{
    std::vector<Generation> generations;
    std::error_code error;

    for (const auto& entry : fs::directory_iterator(file_.parent_path(), error)) {
        const auto place = place_of(entry.path().filename().native(), file_.filename().native());
        struct stat status = {};
        if (place && stat(entry.path().c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
            generations.push_back({ .path = entry.path(),
                                    .place = *place,
                                    .device = status.st_dev,
                                    .inode = status.st_ino,
                                    .changed = { status.st_mtim.tv_sec, status.st_mtim.tv_nsec } });
        }
    }
    std::ranges::sort(generations, {}, &Generation::place);
    return generations;
}

/*
 * Exchanges the open file for another; a line that the old one left unfinished ends there.
 */
bool Follower::open(const Generation& generation)
{
    struct stat status = {};
    UniqueFd fd(::open(generation.path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));

    if (!fd || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        error_ = fd ? EINVAL : errno;
        return false;
    }
    if (generation.inode != 0 && (status.st_ino != generation.inode || status.st_dev != generation.device)) {
        error_ = ENOENT;
        return false;
    }
    if (taken_ < buffer_.size()) {
        buffer_ += '\n';
    }
    fd_ = std::move(fd);
    error_ = 0;
    newest_ = generation.place.first == 0;
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
 * The place of the oldest file that came after the open one; below the first one, if the open one is the newest or there
 * is none. What was rotated out of existence was last written before those that are left, what somebody removed was not.
 */
std::ptrdiff_t Follower::next_newer(const std::vector<Generation>& generations) const
{
    struct stat own = {};

    if (!fd_ || fstat(fd_.get(), &own) != 0) {
        return static_cast<std::ptrdiff_t>(generations.size()) - 1;
    }
    const auto found = std::ranges::find_if(
        generations, [&](const Generation& one) { return one.inode == own.st_ino && one.device == own.st_dev; });
    if (found != generations.end()) {
        return found - generations.begin() - 1;
    }
    auto newer = static_cast<std::ptrdiff_t>(generations.size()) - 1;
    while (newer > 0 &&
           generations[static_cast<size_t>(newer)].changed < std::pair(own.st_mtim.tv_sec, own.st_mtim.tv_nsec)) {
        newer--;
    }
    return newer;
}

/*
 * Goes on to the next newer file, if there is one. A file that has just been rotated gets one more look later, as a
 * writer may not have noticed yet.
 */
bool Follower::move_on()
{
    for (int step = 0; step < STEPS; step++) {
        const auto before = list();
        const auto newer = next_newer(before);
        if (newer < 0) {
            newest_ = fd_ && !before.empty();
            return false;
        }
        if (newest_) {
            newest_ = false;
            return false;
        }
        /* Until the same files stand in the same order, one of them may have been passed over. */
        if (std::ranges::equal(before, list(), {}, &Generation::inode, &Generation::inode)) {
            if (open(before[static_cast<size_t>(newer)])) {
                return true;
            }
        }
    }
    return false;
}

} // namespace monpctl
