/*
 * The installation that this tool operates: its directories, its files, and the monitor's program.
 */
#ifndef MONPCTL_COMMON_INSTALLATION_H
#define MONPCTL_COMMON_INSTALLATION_H

#include <string>

namespace monpctl {

/*
 * The home directory, from TESK_HOME or as compiled in, without a "/" at its end. The policy library uses the same.
 */
std::string home();

/*
 * Tells if a process that was started with this value of TESK_HOME, empty without one, has the same home directory.
 */
bool same_home(const std::string& value);

/*
 * Throws a Fault, which names the home directory, if there is no installation or we may not look into it: TESK_HOME may
 * be wrong.
 */
void require_installation();

/*
 * Files of the installation. An empty section means the configuration.
 */
std::string policy_directory();
std::string policy_file(const std::string& section);
std::string log_directory();
std::string log_file();
std::string events_file();

/*
 * The monitor's program, which is installed beside this one.
 */
std::string monitor_program();

} // namespace monpctl

#endif
