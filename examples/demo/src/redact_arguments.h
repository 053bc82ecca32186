/*
 * Secrets among the arguments that the monitor logs, each on a line of its own:
 *
 *   2026-11-22T20:51:08.123456+0000 info 1234/1234 monp monp_parse_param src/monp_getopt.cpp:253 arg3 -> --password (type=t)
 *   2026-11-22T20:51:08.123459+0000 info 1234/1234 monp monp_parse_param src/monp_getopt.cpp:253 arg4 -> S3cr3t (type=t)
 */
#ifndef SAMPLE_REDACT_ARGUMENTS_H
#define SAMPLE_REDACT_ARGUMENTS_H

#include <map>
#include <span>
#include <string>
#include <string_view>

namespace sample {

/*
 * Knows the last argument of each process and thread, as the lines of several are mixed. The argument behind a secret's
 * name is a secret: the name may be the whole argument or its end, with dashes or not, with "=" or ":" behind it or not.
 * An argument whose predecessor is not known, because that is in an older file or was lost, is taken for a secret too.
 */
class Arguments {
public:
    /*
     * Turns the argument of a line into stars if it is a secret. Lines come in their order.
     * Result: where else a secret may be: the argument by itself, or all of a line that is none of an argument.
     */
    std::span<char> clean(std::span<char> line);

private:
    struct Last {
        unsigned long index = 0;
        bool secret_name = false;
    };

    std::map<std::string, Last, std::less<>> writers_; /* by "PROCESS/THREAD" */
};

} // namespace sample

#endif
