/*
 * Copies plain files for the collector, without the secrets in them:
 *
 *   sample_redact HOME STAGE <LIST
 *
 * Each line of the list is "SOURCE NAME": a directory below HOME and the path of a file below that. The copy goes to
 * STAGE/SOURCE/NAME. What is not copied is told on standard output, one line each: SOURCE/NAME (reason), and above 1,000
 * of them by their number. A file that fails in any way is left out, and the others go on.
 * HOME/etc/redact, if there is one, holds patterns beside the built-in ones.
 * Exit status: 0 done, 1 failed, 2 wrong arguments.
 */
#include "redact.h"
#include "redact_formats.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr size_t MIB = 1 << 20;
constexpr size_t MAX_FILE = 64 * MIB;  /* a bigger file is left out */
constexpr size_t READ_BYTES = 1 * MIB; /* between two looks at the clock */
constexpr int MAX_TOLD = 1000;         /* lines; what else is left out is only counted */

/*
 * How much may have been used when a file of this source is copied. The sources come in this order, so what logs do not
 * use is there for dumps, but dumps cannot take the share of the logs.
 */
struct Share {
    std::string_view source;
    size_t bytes;
    int files;
    std::chrono::seconds time;
};

constexpr Share SHARES[] = {
    { "log", 128 * MIB, 5000, std::chrono::seconds(30) },
    { "work/dump", 256 * MIB, 10000, std::chrono::seconds(60) },
};
constexpr std::string_view DUMPS = "work/dump";

const Share& share_of(std::string_view source)
{
    for (const Share& share : SHARES) {
        if (share.source == source) {
            return share;
        }
    }
    throw std::runtime_error("'" + std::string(source) + "' is not a source");
}

/* Why a file is left out; the others go on. */
struct LeftOut : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    /* Steps on to another one. */
    void reset(int fd)
    {
        close(std::exchange(fd_, fd));
    }
    [[nodiscard]] int get() const
    {
        return fd_;
    }

private:
    int fd_;
};

struct statx look_at(const Descriptor& file)
{
    struct statx status = {};

    if (file.get() < 0 || statx(file.get(), "", AT_EMPTY_PATH, STATX_BASIC_STATS, &status) != 0) {
        throw LeftOut(std::strerror(errno));
    }
    if (S_ISLNK(status.stx_mode)) {
        throw LeftOut("a link");
    }
    return status;
}

/*
 * Goes down step by step, as a service may own a directory and put a link, a FIFO or a device into the place of what
 * was listed. No step may be a link or be mounted on. Opening a device can do something to it already, so the steps are
 * opened as places only, and the last one for reading when it is known to be a plain file; `file` is open there.
 */
struct statx open_below(Descriptor& file, const fs::path& path)
{
    struct statx status = look_at(file);

    for (const auto& step : path) {
        file.reset(openat(file.get(), step.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        status = look_at(file);
        if ((status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
            throw LeftOut("a mount");
        }
    }
    if (!S_ISREG(status.stx_mode)) {
        throw LeftOut("no plain file");
    }
    const std::string place = "/proc/self/fd/" + std::to_string(file.get());
    file.reset(open(place.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return look_at(file);
}

/* A log that is cut while it is read gives what is left of it. */
std::string read_all(const Descriptor& file, size_t size, const std::function<void()>& check)
{
    std::string content(size, '\0');
    size_t used = 0;
    ssize_t got = 1;

    while (used < size && got > 0) {
        check();
        got = read(file.get(), content.data() + used, std::min(size - used, READ_BYTES));
        if (got < 0) {
            throw LeftOut(std::strerror(errno));
        }
        used += static_cast<size_t>(got);
    }
    content.resize(used);
    return content;
}

void write_bytes(const fs::path& path, const std::string& content, const statx_timestamp& changed)
{
    const timespec times[] = { { changed.tv_sec, changed.tv_nsec }, { changed.tv_sec, changed.tv_nsec } };
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    size_t used = 0;
    ssize_t put = file.get() < 0 ? -1 : 0;

    while (put >= 0 && used < content.size()) {
        put = write(file.get(), content.data() + used, content.size() - used);
        used += put > 0 ? static_cast<size_t>(put) : 0;
    }
    if (put < 0 || futimens(file.get(), times) != 0) {
        throw LeftOut(std::string("cannot be copied: ") + std::strerror(errno));
    }
}

/* All of a file or nothing. */
void write_all(const fs::path& path, const std::string& content, const statx_timestamp& changed)
{
    std::error_code failed;

    if (path.native().size() >= PATH_MAX) { /* nor could it be packed */
        throw LeftOut("its path is too long");
    }
    fs::create_directories(path.parent_path(), failed);
    if (failed) {
        throw LeftOut("cannot be copied: " + failed.message());
    }
    try {
        write_bytes(path, content, changed);
    } catch (const LeftOut&) {
        fs::remove(path, failed);
        throw;
    }
}

class Stage {
public:
    Stage(std::string home, std::string target) : home_(std::move(home)), target_(std::move(target))
    {
        redactor_.read(home_ + "/etc/redact");
    }

    /* Throws LeftOut or any other exception if the file cannot be copied. */
    void copy(const std::string& source, const std::string& name)
    {
        const Share& share = share_of(source);
        const auto check = [&] { check_time(share); };
        check();
        if (files_ >= share.files) {
            throw LeftOut("too many files");
        }
        Descriptor file(open((home_ + '/' + source).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        const struct statx status = open_below(file, name);
        if (status.stx_size > MAX_FILE || status.stx_size > share.bytes - std::min(total_, share.bytes)) {
            throw LeftOut(std::to_string(status.stx_size) + " bytes");
        }
        std::string content = read_all(file, status.stx_size, check);
        if (const auto reason = sample::why_not_searchable(name, content, source == DUMPS); !reason.empty()) {
            throw LeftOut(std::string(reason));
        }
        redactor_.clean(content, check);
        write_all(target_ / source / name, content, status.stx_mtime);
        files_++;
        total_ += content.size();
    }

private:
    void check_time(const Share& share) const
    {
        if (Clock::now() - start_ >= share.time) {
            throw LeftOut("no time left");
        }
    }

    std::string home_;
    fs::path target_;
    sample::Redactor redactor_;
    int files_ = 0;
    size_t total_ = 0;
    Clock::time_point start_ = Clock::now();
};

/*
 * Copies a file of the list. Result: why it is left out, or nothing.
 */
std::string copy_one(Stage& stage, const std::string& source, const std::string& name)
{
    try {
        stage.copy(source, name);
        return {};
    } catch (const std::exception& reason) { /* no memory, too: it is the file that needs so much */
        return reason.what();
    }
}

void copy_list(Stage& stage)
{
    int told = 0;

    for (std::string line; std::getline(std::cin, line);) {
        const size_t blank = std::min(line.find(' '), line.size());
        const std::string source = line.substr(0, blank);
        const std::string name = line.substr(std::min(blank + 1, line.size()));
        const std::string reason = copy_one(stage, source, name);
        if (!reason.empty() && ++told <= MAX_TOLD) {
            std::cout << source << '/' << name << " (" << reason << ")\n";
        }
    }
    if (told > MAX_TOLD) {
        std::cout << "more files (" << told - MAX_TOLD << ")\n";
    }
    if (std::cin.bad() || !std::cout.flush()) {
        throw std::runtime_error("the list could not be read, or what is left out not be told");
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: sample_redact HOME STAGE <LIST\n";
        return 2;
    }
    try {
        Stage stage(argv[1], argv[2]);
        copy_list(stage);
    } catch (const std::exception& error) {
        std::cerr << "sample_redact: " << error.what() << '\n';
        return 1;
    }
}
