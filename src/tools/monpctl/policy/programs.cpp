/*
 * Looks at files without opening any but programs, of which the first bytes tell what they are.
 */
#include "policy/programs.h"

#include "common/installation.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

/*
 * Why others than root could write a file or directory, or exchange what is in it; nothing if they could not. In a
 * directory like /tmp, where each may only remove what is his own, what belongs to root stays.
 */
std::optional<std::string> unsafe(const struct stat& status)
{
    std::array<char, 16> mode = {};

    if (status.st_uid != 0) {
        return "belongs to the user " + std::to_string(status.st_uid) + " instead of root";
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && !(S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0)) {
        std::snprintf(mode.data(), mode.size(), "%04o", status.st_mode & 07777U);
        return std::string("is writable by group or others (mode ") + mode.data() + ')';
    }
    return {};
}

/*
 * What a file is by its first bytes, as the kernel looks at them.
 */
enum class Format { program, script, other };

Format format_of(const std::string& path)
{
    std::array<char, 4> magic = {};

    std::ifstream(path, std::ios::binary).read(magic.data(), magic.size());
    if (std::memcmp(magic.data(), "\177ELF", 4) == 0) {
        return Format::program;
    }
    return std::memcmp(magic.data(), "#!", 2) == 0 ? Format::script : Format::other;
}

void check_safety(const std::string& where, const fs::path& path, Settings& result)
{
    struct stat status = {};

    for (fs::path part = path; stat(part.c_str(), &status) == 0; part = part.parent_path()) {
        if (const auto why = unsafe(status)) {
            /* A directory is told once, whatever is run from there. */
            result.problems.push_back(
                part == path
                    ? Problem{ where, Severity::warning, path.string() + ' ' + *why + ", but root is to run it" }
                    : Problem{ part, Severity::warning, "it " + *why + ", but root is to run programs in it" });
        }
        if (part == part.root_path()) {
            break;
        }
    }
}

} // namespace

bool report_untrusted(const std::string& file, Severity severity, const std::string& consequence, Settings& result)
{
    const std::string top = home();
    bool told = false;
    struct stat status = {};

    for (fs::path part = file; lstat(part.c_str(), &status) == 0; part = part.parent_path()) {
        /* Unlike a program's directory, none of these may be open to others, whatever they may remove. */
        status.st_mode &= ~static_cast<mode_t>(S_ISVTX);
        const auto why = S_ISLNK(status.st_mode) ? "is a symbolic link" : unsafe(status);
        if (why) {
            result.problems.push_back(part == file
                                          ? Problem{ part, severity, "it " + *why + "; " + consequence }
                                          : Problem{ part, Severity::error, "it " + *why + "; the monitor ends" });
            told = true;
        }
        if (part == top || part == part.root_path()) {
            break;
        }
    }
    return told;
}

void check_program(const std::string& where, const std::string& path, const std::string& consequence, bool adopted,
                   Settings& result)
{
    const auto tell = [&](const std::string& sentence) {
        result.problems.push_back({ where, Severity::warning, path + sentence });
    };
    struct stat status = {};

    if (!path.starts_with('/')) {
        return;
    }
    if (stat(path.c_str(), &status) != 0) {
        tell((errno == ENOENT ? " does not exist; " : std::string(": ") + std::strerror(errno) + "; ") + consequence);
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        tell(" is no regular file; " + consequence);
        return;
    }
    if ((status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0) {
        tell(" is not executable; " + consequence);
    }
    if (access(path.c_str(), R_OK) == 0) {
        const Format format = format_of(path);
        if (format == Format::script && adopted) {
            tell(" is a script, so a running one is never adopted: its process shows the interpreter as executable");
        } else if (format == Format::other) {
            tell(" is neither a program nor a script; " + consequence);
        }
    }
    std::error_code error;
    check_safety(where, fs::canonical(path, error), result);
}

} // namespace monpctl
