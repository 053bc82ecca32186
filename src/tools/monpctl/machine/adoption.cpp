#include "machine/adoption.h"

namespace monpctl {

bool adoptable(const Process& process)
{
    return !process.replaced() && !process.zombie();
}

std::string unadoptable_reason(const Process& process)
{
    return process.zombie() ? "it has ended and is only waited for by its parent" : "its program was replaced on disk";
}

std::vector<Process> descendants_of(pid_t ancestor)
{
    const Proc proc;
    const ProcessTable processes(proc);
    std::vector<Process> found = processes.children(ancestor);

    for (size_t i = 0; i < found.size(); i++) {
        const auto children = processes.children(found[i].pid);
        found.insert(found.end(), children.begin(), children.end());
    }
    return found;
}

} // namespace monpctl
