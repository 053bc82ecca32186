/*
 * Measures the monitor beside what a user would take instead, and prints a table and draws a chart.
 * Usage: peers BUILD PACKAGES INSTALLATION CHART CAPTION, as process 1 of namespaces of its own with a stub in the
 * place of /sbin/shutdown. Exit status: 0 done, 1 it could not be measured. A goal that is missed is shown, not judged:
 * these machines drift.
 */
#include "chart.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

// The monitors here restart only, but they can halt a machine: nothing but a stub may be there for it.
void require_stub()
{
    struct statfs where = {};

    if (getpid() != 1 || statfs("/sbin/shutdown", &where) != 0 || where.f_type != TMPFS_MAGIC) {
        throw std::runtime_error("no namespaces of our own, or no stub in the place of /sbin/shutdown");
    }
}

void print(const std::vector<peers::Measure>& measures)
{
    for (const peers::Measure& measure : measures) {
        std::printf("\n%s (goal: %s)\n", measure.title.c_str(), peers::rounded(measure.goal).c_str());
        for (const peers::Value& value : measure.values) {
            const bool ours = &value == &measure.values.front();
            std::printf("  %-20s %10s%s\n", value.who.c_str(), peers::rounded(value.number).c_str(),
                        !ours                          ? ""
                        : value.number <= measure.goal ? "  met"
                                                       : "  MISSED");
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        if (argc != 6) {
            throw std::runtime_error("usage: peers BUILD PACKAGES INSTALLATION CHART CAPTION");
        }
        require_stub();
        const std::vector<peers::Measure> measures = peers::measure_all({ argv[1], argv[2], argv[3] });
        print(measures);
        std::ofstream chart(argv[4]);
        peers::draw(chart, measures, argv[5]);
        if (!chart.flush()) {
            throw std::runtime_error(std::string("cannot write '") + argv[4] + "'");
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "peers: " << error.what() << '\n';
        return 1;
    }
}
