/*
 * Takes out of the content of files what must not leave the node.
 */
#ifndef SAMPLE_REDACT_H
#define SAMPLE_REDACT_H

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace re2 {
class RE2;
}

namespace sample {

/*
 * Finds secrets by the names in front of them, by their own form, among the arguments in the monitor's log, and by the
 * operator's patterns. The work is in proportion to the size of the content, whatever that is.
 */
class Redactor {
public:
    Redactor();
    ~Redactor();
    Redactor(const Redactor&) = delete;
    Redactor& operator=(const Redactor&) = delete;

    /*
     * Adds the patterns of a file, one a line; empty lines and those that begin with "#" do not count. A missing file
     * has none. They are extended regular expressions for a part of a line, without regard to case; of each match the
     * last group in parentheses is a secret, or all of it if there is none. In a line of more than 16 KiB a match of
     * more than 4 KiB may be missed; one that goes on to the end of what is searched at once is not.
     * Throws std::runtime_error with the place of a line that is not a pattern.
     */
    void read(const std::string& path);

    /*
     * Turns each byte of a secret into a star, as a dump has to keep its offsets. A line ends with a newline or a zero
     * byte.
     *   content  a whole file
     *   check    called for every 64 KiB; what it throws ends the work, with a part of the content still to be cleaned
     */
    void clean(
        std::span<char> content, const std::function<void()>& check = [] {}) const;

private:
    void add(const std::string& pattern, const std::string& where);

    std::vector<std::unique_ptr<re2::RE2>> patterns_;
};

} // namespace sample

#endif
