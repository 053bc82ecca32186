#include "common/installation.h"

#include "common/refusal.h"

#include "tesk_home.h"

#include <filesystem>
#include <fmt/format.h>

namespace fs = std::filesystem;

namespace monpctl {

std::string home()
{
    const std::string given = tesk_home();

    return given.substr(0, given.find_last_not_of('/') + 1);
}

bool same_home(const std::string& value)
{
    std::error_code error;

    return fs::weakly_canonical(tesk_home_of(value.c_str()), error) == fs::weakly_canonical(tesk_home(), error);
}

void require_installation()
{
    std::error_code error;

    if (!fs::is_directory(policy_directory(), error)) {
        const bool absent = !error || error == std::errc::no_such_file_or_directory;
        throw Fault(fmt::format("{} {}; TESK_HOME must name the home directory of an installation", policy_directory(),
                                absent ? "is missing" : "cannot be reached: " + error.message()));
    }
}

std::string policy_directory()
{
    return home() + "/etc/policy";
}

std::string policy_file(const std::string& section)
{
    return section.empty() ? home() + "/etc/config.xml" : policy_directory() + '/' + section + ".xml";
}

std::string log_directory()
{
    return home() + "/log";
}

std::string log_file()
{
    return log_directory() + "/monp.log";
}

std::string events_file()
{
    return log_directory() + "/monp.events.jsonl";
}

std::string monitor_program()
{
    return fs::read_symlink("/proc/self/exe").replace_filename("monp").string();
}

} // namespace monpctl
