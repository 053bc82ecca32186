#include "commands/log_filter.h"

#include "policy/service_types.h"

#include <algorithm>
#include <utility>

namespace monpctl {

namespace {

/* Of a process that does not name a service. */
constexpr size_t KEPT_LINES = 200;

constexpr std::string_view FIRST_LINE = "****** Start Process Monitor ******";

} // namespace

LogFilter::LogFilter(const std::vector<std::string>& types, Print print) : wanted_(types), print_(std::move(print))
{
    for (const auto& type : known_types()) {
        for (const auto& name : names_of(type)) {
            types_.emplace(name, type);
        }
    }
    for (const auto& type : types) {
        types_.emplace(type, type); /* also one that has lost its section */
    }
}

/*
 * The process of a line, which may tell whose it is.
 */
LogFilter::Writer& LogFilter::writer_of(const LogLine& line)
{
    if (line.text == FIRST_LINE) {
        writers_.erase(line.pid); /* the number is used again */
    }
    Writer& writer = writers_[line.pid];
    if (const auto name = text_value(line.text, "type")) {
        const auto found = types_.find(*name);
        writer.type = found != types_.end() ? found->second : writer.type;
    }
    return writer;
}

void LogFilter::take(const std::string& line)
{
    const auto parsed = parse_log_line(line);

    if (wanted_.empty()) {
        print_(line, parsed, parsed ? writer_of(*parsed).type : "");
        return;
    }
    if (!parsed) {
        return;
    }
    Writer& writer = writer_of(*parsed);
    if (writer.kept.size() < KEPT_LINES) {
        writer.kept.push_back(line);
    }
    if (std::ranges::find(wanted_, writer.type) != wanted_.end()) {
        for (const auto& kept : writer.kept) {
            print_(kept, parse_log_line(kept), writer.type);
        }
    }
    if (!writer.type.empty()) {
        writer.kept.clear();
    }
}

} // namespace monpctl
