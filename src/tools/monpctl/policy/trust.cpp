/*
 * Looks at files without opening any but programs, whose first bytes tell their format.
 */
#include "policy/trust.h"

#include "common/installation.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

/*
 * Tells why others than root could write a file or directory, or exchange its entries; nothing if they could not. In a
 * directory like /tmp, where each user may only remove his own files, those of root stay.
 */
std::optional<std::string> unsafe(const struct stat& status)
{
    if (status.st_uid != 0) {
        return fmt::format("belongs to the user {} instead of root", status.st_uid);
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && !(S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0)) {
        return fmt::format("is writable by group or others (mode {:04o})", status.st_mode & 07777U);
    }
    return {};
}

/*
 * The kind of a file by its first bytes, as the kernel tells it.
 */
enum class Format { program, script, other };

Format format_of(const std::string& path)
{
    std::array<char, 4> start = {};

    std::ifstream(path, std::ios::binary).read(start.data(), start.size());
    const std::string_view text(start.data(), start.size());
    if (text == "\177ELF") {
        return Format::program;
    }
    return text.starts_with("#!") ? Format::script : Format::other;
}

/*
 * Calls an operation for a path and each directory above it.
 */
template <typename Visit> void for_each_part(const fs::path& path, Visit visit)
{
    for (fs::path part = path; visit(part) && part != part.root_path();) {
        part = part.parent_path();
    }
}

void check_safety(const NamedProgram& program, std::vector<Problem>& problems)
{
    std::error_code error;
    const fs::path path = fs::canonical(program.path, error);

    for_each_part(path, [&](const fs::path& part) {
        struct stat status = {};
        if (stat(part.c_str(), &status) != 0) {
            return false;
        }
        const auto why = unsafe(status);
        if (why && part == path) {
            problems.push_back({ .place = program.place,
                                 .severity = Severity::warning,
                                 .sentence = fmt::format("{} {}, but root is to run it", path.string(), *why) });
        } else if (why) {
            /* A directory is reported as a place of its own, once for all programs in it. */
            problems.push_back({ .place = { part.string(), 0 },
                                 .severity = Severity::warning,
                                 .sentence = fmt::format("it {}, but root is to run programs in it", *why) });
        }
        return true;
    });
}

} // namespace

void report_untrusted(const std::string& file, Severity severity, const std::string& consequence,
                      std::vector<Problem>& problems)
{
    const std::string top = home();

    for_each_part(file, [&](const fs::path& part) {
        struct stat status = {};
        if (lstat(part.c_str(), &status) != 0) {
            return false;
        }
        /* Unlike a program's directory, none of these may be open to others, whatever they may remove. */
        status.st_mode &= ~static_cast<mode_t>(S_ISVTX);
        const bool itself = part == file;
        if (const auto why = S_ISLNK(status.st_mode) ? "is a symbolic link" : unsafe(status)) {
            problems.push_back(
                { .place = { part.string(), 0 },
                  .severity = itself ? severity : Severity::error,
                  .sentence = fmt::format("it {}; {}", *why, itself ? consequence : "the monitor ends") });
        }
        return part != top;
    });
}

void check_program(const NamedProgram& program, std::vector<Problem>& problems)
{
    const std::string& path = program.path;
    const auto report = [&](const std::string& fault) {
        problems.push_back({ .place = program.place,
                             .severity = Severity::warning,
                             .sentence = fmt::format("{} {}; {}", path, fault, program.consequence) });
    };
    struct stat status = {};

    if (!path.starts_with('/')) {
        return;
    }
    if (stat(path.c_str(), &status) != 0) {
        report(errno == ENOENT ? "does not exist" : fmt::format("cannot be looked at: {}", std::strerror(errno)));
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        report("is not a regular file");
        return;
    }
    if ((status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0) {
        report("is not executable");
    }
    const Format format = access(path.c_str(), R_OK) == 0 ? format_of(path) : Format::program;
    if (format == Format::other) {
        report("is neither a program nor a script");
    } else if (format == Format::script && program.adopted) {
        problems.push_back({ .place = program.place,
                             .severity = Severity::warning,
                             .sentence = path + " is a script, so a running one is never adopted: its process shows "
                                                "the interpreter as executable" });
    }
    check_safety(program, problems);
}

} // namespace monpctl
