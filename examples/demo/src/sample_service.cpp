/*
 * A small service that keeps the monitor's rules and can be told to break every one of them: it reports with SIGUSR1
 * that it is ready, ends in order on the SIGUSR1 that asks it to, and ends on command in each way that the monitor
 * tells apart. This file holds its command line.
 */
#include "monp_service.h"
#include "service.h"

#include <algorithm>
#include <filesystem>
#include <iostream>

#include <sys/stat.h>

namespace {

constexpr int STATUS_FAILED = 1; /* a file of ours could not be opened */
constexpr int STATUS_USAGE = 2;

sample::Options parse_options(int argc, char** argv)
{
    sample::Options options;
    const struct {
        const char* name;
        std::string* value;
    } named[] = {
        { "--log", &options.log },
        { "--ctl", &options.ctl },
        { "--pidfile", &options.pidfile },
        { "--coredir", &options.coredir },
    };
    int i = 1;

    for (; i < argc && argv[i][0] == '-'; i++) {
        const std::string name = argv[i];
        const auto* row =
            std::find_if(std::begin(named), std::end(named), [&](const auto& r) { return name == r.name; });

        if (name == "--help") {
            options.help = true;
        } else if (row == std::end(named)) {
            throw sample::UsageError("unknown option '" + name + "'");
        } else if (i + 1 == argc || argv[i + 1][0] == '\0') {
            throw sample::UsageError("option '" + name + "' needs a path");
        } else {
            *row->value = argv[++i];
        }
    }
    options.words.assign(argv + i, argv + argc);
    return options;
}

void print_help(const std::string& program)
{
    std::cout << "usage: " << program << " [OPTION]... [COMMAND]...\n"
              << "A service for the process monitor that ends in every way the monitor tells apart.\n\n"
                 "  --log FILE      append a line about each start, command and end\n"
                 "  --ctl FIFO      read commands from this FIFO, which is made if it is missing\n"
                 "  --pidfile FILE  keep the process id there; removed at an orderly end\n"
                 "  --coredir DIR   work in this directory, where a core dump then goes\n"
                 "  --help          print this and end\n\n"
                 "Commands are done in their order; without any: report. A line written to the FIFO holds\n"
                 "commands too and takes the place of those not yet done. On an end request (SIGUSR1) the\n"
                 "service ends with status 0 unless \"end\" said otherwise.\n\n";
    for (const sample::Verb& verb : sample::verbs()) {
        std::string usage = std::string(verb.name) + (verb.value != nullptr ? std::string(" ") + verb.value : "");
        usage.resize(std::max<size_t>(usage.size(), 14), ' ');
        std::cout << "  " << usage << "  " << verb.help << '\n';
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::string program = argc > 0 ? std::filesystem::path(argv[0]).filename().string() : "sample_service";

    monp_service_init();
    /* The monitor hands down the mask 0: what we write is to be ours alone to change. */
    umask(022);
    try {
        const auto options = parse_options(argc, argv);
        if (options.help) {
            print_help(program);
            return 0;
        }
        const auto words = options.words.empty() ? std::vector<std::string>{ "report" } : options.words;
        const auto commands = sample::parse_commands(words, !options.coredir.empty());
        sample::Service service(options);
        service.start(commands);
        service.serve();
    } catch (const sample::UsageError& error) {
        std::cerr << program << ": " << error.what() << " (see --help)\n";
        return STATUS_USAGE;
    } catch (const std::exception& error) {
        std::cerr << program << ": " << error.what() << '\n';
        return STATUS_FAILED;
    }
}
