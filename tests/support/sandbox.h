/*
 * Namespaces of their own for tests that run the real monitor: what it starts, signals or shuts down stays inside.
 */
#ifndef SANDBOX_H
#define SANDBOX_H

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace sandbox {

/*
 * Runs the work as process 1 of a new process namespace, in a mount namespace where /sbin holds nothing but a stub
 * named shutdown. Every process that loses its parent comes to process 1, which can therefore wait for a daemon; all of
 * them end with it. The work is not run unless the stub has been shown to be what /sbin/shutdown starts.
 * Result: the status of the work, 1 if a sanitizer has reported a fault of a program that the work started, or 125 when
 * the sandbox could not be built.
 */
int run(const std::function<int()>& work);

/*
 * A directory of its own for the work, removed after it.
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
