/*
 * The monitor's lines of arguments, and its line with all of them.
 */
#include "redact_arguments.h"

#include "redact_names.h"

#include <algorithm>
#include <charconv>

namespace sample {

namespace {

constexpr auto NONE = std::string_view::npos;
constexpr std::string_view NUMBERED = " arg";
constexpr std::string_view ARROW = " -> ";
constexpr std::string_view TYPE = " (type=";

/* Lines with all arguments: the texts in front of them and behind them, which is empty at the end of a line. */
struct All {
    std::string_view before;
    std::string_view behind;
};
constexpr All ALL[] = {
    { " param=", " argv=" },
    { " param   -> ", "" },
};

constexpr size_t MAX_HEAD = 1024; /* bytes in front of an argument */

/*
 * The word PROCESS/THREAD of a record's head, or nothing.
 */
std::string_view writer_of(std::string_view head)
{
    for (size_t from = 0; from < head.size();) {
        const size_t end = std::min(head.find(' ', from), head.size());
        const std::string_view word = head.substr(from, end - from);
        const size_t slash = word.find('/');
        if (slash != NONE && slash > 0 && word.find_first_not_of("0123456789/") == NONE) {
            return word;
        }
        from = end + 1;
    }
    return {};
}

/*
 * The place of an argument's number, or NONE.
 */
size_t find_number(std::string_view line)
{
    const std::string_view head = line.substr(0, MAX_HEAD);

    for (size_t at = head.find(NUMBERED); at != NONE; at = head.find(NUMBERED, at + 1)) {
        const size_t number = at + NUMBERED.size();
        const size_t end = head.find_first_not_of("0123456789", number);
        if (end != NONE && end > number && line.substr(end).starts_with(ARROW)) {
            return number;
        }
    }
    return NONE;
}

bool ends_with_secret_name(std::string_view argument)
{
    while (!argument.empty() && std::string_view("=:\"'").find(argument.back()) != NONE) {
        argument.remove_suffix(1);
    }
    size_t begin = argument.size();
    while (begin > 0 && is_name_character(argument[begin - 1])) {
        begin--;
    }
    return meaning_of(argument.substr(begin)) == Meaning::secret ||
           meaning_of(argument.substr(begin)) == Meaning::header;
}

/*
 * All arguments in one line, separated by blanks.
 */
void clean_all(std::span<char> arguments)
{
    const std::string_view text(arguments.data(), arguments.size());
    bool secret = false;

    for (size_t from = text.find_first_not_of(' '); from != NONE;) {
        const size_t end = std::min(text.find(' ', from), text.size());
        const bool name = ends_with_secret_name(text.substr(from, end - from));
        if (secret) {
            std::fill(arguments.begin() + static_cast<ptrdiff_t>(from), arguments.begin() + static_cast<ptrdiff_t>(end),
                      '*');
        }
        secret = name;
        from = text.find_first_not_of(' ', end);
    }
}

/*
 * Looks for a line with all arguments.
 */
void clean_list(std::span<char> line)
{
    const std::string_view text(line.data(), line.size());

    for (const auto& [before, behind] : ALL) {
        const size_t found = text.substr(0, MAX_HEAD).find(before);
        if (found != NONE) {
            const size_t begin = found + before.size();
            const size_t end = behind.empty() ? text.size() : std::min(text.rfind(behind), text.size());
            clean_all(line.subspan(begin, std::max(begin, end) - begin));
        }
    }
}

} // namespace

std::span<char> Arguments::clean(std::span<char> line)
{
    const std::string_view text(line.data(), line.size());
    const size_t number = find_number(text);

    if (number == NONE) {
        clean_list(line);
        return line;
    }
    Last now;
    const char* end = std::from_chars(&text[number], text.data() + text.size(), now.index).ptr;
    const size_t begin = static_cast<size_t>(end - text.data()) + ARROW.size();
    const size_t type = text.rfind(TYPE);
    const size_t size = (type != NONE && type >= begin ? type : text.size()) - begin;
    const std::span<char> argument = line.subspan(begin, size);
    now.secret_name = ends_with_secret_name(text.substr(begin, size));

    const std::string_view writer = writer_of(text.substr(0, number));
    const auto last = writers_.find(writer);
    const bool known = last != writers_.end() && last->second.index + 1 == now.index;
    if (now.index > 0 && (!known || last->second.secret_name)) {
        std::fill(argument.begin(), argument.end(), '*');
    }
    writers_.insert_or_assign(std::string(writer), now);
    return argument;
}

} // namespace sample
