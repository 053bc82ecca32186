#include "machine/log_line.h"

#include <charconv>
#include <string>

namespace monpctl {

namespace {

/*
 * Takes a word and the blank behind it off a text.
 */
std::string_view take_word(std::string_view& text)
{
    const auto end = text.find(' ');
    const std::string_view word = text.substr(0, end);

    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    return word;
}

template <typename Number> bool read_number(std::string_view text, Number& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);

    return error == std::errc() && end == text.data() + text.size();
}

} // namespace

std::optional<LogLine> parse_log_line(std::string_view line)
{
    LogLine parsed;

    parsed.time = take_word(line);
    parsed.level = take_word(line);
    const std::string_view process = take_word(line);
    parsed.ident = take_word(line);
    parsed.function = take_word(line);
    parsed.source = take_word(line);
    parsed.text = line;
    const auto slash = process.find('/');
    if (slash == process.npos || !read_number(process.substr(0, slash), parsed.pid) ||
        !read_number(process.substr(slash + 1), parsed.thread) || parsed.source.empty()) {
        return std::nullopt;
    }
    return parsed;
}

std::optional<std::string_view> text_value(std::string_view text, std::string_view name)
{
    /* Behind a bracket or a blank: "pid" is not the end of "ppid". */
    for (auto found = text.find(name); found != text.npos; found = text.find(name, found + 1)) {
        const size_t mark = found + name.size();
        const bool begins = found > 0 && (text[found - 1] == '(' || text[found - 1] == ' ');
        if (begins && mark < text.size() && text[mark] == '=') {
            const std::string_view value = text.substr(mark + 1);
            return value.substr(0, value.find_first_of(" )"));
        }
    }
    return std::nullopt;
}

std::optional<int> number_value(std::string_view text, std::string_view name)
{
    const auto value = text_value(text, name);
    int number = 0;

    return value && read_number(*value, number) ? std::optional(number) : std::nullopt;
}

} // namespace monpctl
