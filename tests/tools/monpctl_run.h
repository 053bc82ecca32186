/*
 * Runs of monpctl in an installation of the sandbox.
 */
#ifndef MONPCTL_RUN_H
#define MONPCTL_RUN_H

#include "sandbox_monitor.h"

#include <cstdlib>
#include <ostream>

namespace sandbox {

struct Run {
    int status;
    Texts lines;
    std::string errors;

    /* Compared with a status, a failure shows the errors, too. */
    friend bool operator==(int expected, const Run& run)
    {
        return expected == run.status;
    }
    friend void PrintTo(const Run& run, std::ostream* out)
    {
        *out << run.status << ", having said:\n" << run.errors;
    }
};

/*
 * Runs it to its end; the arguments are for a shell, which may be told to put it in the background.
 */
inline Run monpctl(const Installation& in, const std::string& arguments, const std::string& program = SANDBOX_MONPCTL)
{
    const std::string files = (in.root / "work/monpctl").string();
    const std::string command =
        "TESK_HOME=" + in.root.string() + ' ' + program + " 2>" + files + ".err >" + files + ".out " + arguments;
    const int status = std::system(command.c_str());

    return { WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), file_lines(files + ".out"),
             file_content(files + ".err") };
}

} // namespace sandbox

#endif
