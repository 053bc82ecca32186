/*
 * Namespaces of their own for tests that run the real monitor: what it starts, signals or shuts down stays inside. The
 * tests are process 1, to which every process comes that loses its parent, so that they can wait for a daemon.
 */
#ifndef SANDBOX_H
#define SANDBOX_H

#include <filesystem>
#include <string>
#include <vector>

namespace sandbox {

/*
 * A directory of its own for the tests, removed after them.
 */
const std::filesystem::path& directory();

/*
 * What the stub has been called with, one entry a call, and the status that it ends with from now on.
 */
std::vector<std::string> shutdown_calls();
void shutdown_status(int status);

/*
 * A file, whole and by lines; empty if there is none. A last line without its end is being written yet, and left out.
 */
std::string file_content(const std::filesystem::path& file);
std::vector<std::string> file_lines(const std::filesystem::path& file);

} // namespace sandbox

#endif
