#include "commands/fields.h"

#include "common/refusal.h"
#include "common/suggestion.h"
#include "common/text.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <iterator>
#include <string_view>

namespace monpctl {

namespace {

constexpr const char* NONE = "-";
constexpr const char* UNTOLD = "?";
constexpr const char* TIME_FORMAT = "%FT%T%z";

std::string pid_text(const std::optional<Process>& process)
{
    return process ? std::to_string(process->pid) : NONE;
}

std::string moment_text(const std::optional<Time>& time)
{
    return time ? time_text(*time, TIME_FORMAT) : NONE;
}

std::string yes_no(bool is)
{
    return is ? "yes" : "no";
}

std::string text_or_none(const std::string& text)
{
    return text.empty() ? NONE : printable(text);
}

/*
 * The text of a value that the records tell, as far as they do.
 */
std::string missing_text(const TypeStatus& status)
{
    return status.history.missing.empty() ? NONE : UNTOLD;
}

template <typename Value> std::string number_text(const TypeStatus& status, const std::optional<Value>& value)
{
    return value ? std::to_string(*value) : missing_text(status);
}

std::string held_text(const TypeStatus& status)
{
    const bool monitor = status.monitor && status.monitor->process.held();
    const bool service = status.service && status.service->held();

    if (monitor && service) {
        return "both";
    }
    return monitor ? "monitor" : service ? "service" : "no";
}

struct Field {
    std::string_view name;
    std::string (*text)(const TypeStatus&);
};

constexpr Field FIELDS[] = {
    { "type", [](const TypeStatus& one) { return printable(one.type); } },
    { "state", [](const TypeStatus& one) { return state_word(one.state); } },
    { "since", [](const TypeStatus& one) { return moment_text(one.since); } },
    { "until", [](const TypeStatus& one) { return moment_text(one.until); } },
    { "monitor_pid", [](const TypeStatus& one) { return one.monitor ? pid_text(one.monitor->process) : NONE; } },
    { "service_pid", [](const TypeStatus& one) { return pid_text(one.service); } },
    { "restarts", [](const TypeStatus& one) { return number_text(one, one.history.restarts); } },
    { "restart_limit", [](const TypeStatus& one) { return number_text(one, one.history.restart_limit); } },
    { "last_status",
      [](const TypeStatus& one) {
          return one.history.last_end ? std::to_string(one.history.last_end->status) : missing_text(one);
      } },
    { "last_end",
      [](const TypeStatus& one) {
          return one.history.last_end ? moment_text(one.history.last_end->time) : missing_text(one);
      } },
    { "last_failure",
      [](const TypeStatus& one) {
          return one.history.last_failure ? text_or_none(one.history.last_failure->reason) : missing_text(one);
      } },
    { "action",
      [](const TypeStatus& one) {
          return one.action.in_doubt ? std::to_string(one.action.action) + UNTOLD : std::to_string(one.action.action);
      } },
    { "adopted", [](const TypeStatus& one) { return yes_no(one.adopted); } },
    { "copies", [](const TypeStatus& one) { return std::to_string(one.copies.size()); } },
    { "held", held_text },
    { "zombie", [](const TypeStatus& one) { return yes_no(one.service && one.service->zombie()); } },
    { "replaced",
      [](const TypeStatus& one) {
          return yes_no((one.monitor && one.monitor->replaced) || (one.service && one.service->replaced()));
      } },
    { "enabled", [](const TypeStatus& one) { return yes_no(!one.settings.held_back); } },
    { "warnings", [](const TypeStatus& one) { return std::to_string(one.warnings.size()); } },
    { "reason", [](const TypeStatus& one) { return text_or_none(one.reason); } },
};

const Field& field_of(const std::string& name)
{
    const auto* const found = std::ranges::find(FIELDS, name, &Field::name);

    if (found == std::end(FIELDS)) {
        const auto names = field_names();
        throw Refusal(fmt::format("'{}' is not a field{}: there are {}", name, did_you_mean(name, names),
                                  fmt::join(names, ", ")));
    }
    return *found;
}

} // namespace

std::vector<std::string> field_names()
{
    std::vector<std::string> names;

    std::ranges::transform(FIELDS, std::back_inserter(names),
                           [](const Field& field) { return std::string(field.name); });
    return names;
}

void require_field(const std::string& name)
{
    field_of(name);
}

std::string fields_line(const TypeStatus& status, const std::vector<std::string>& names)
{
    std::vector<std::string> values;

    std::ranges::transform(names, std::back_inserter(values),
                           [&](const std::string& name) { return field_of(name).text(status); });
    return fmt::format("{}", fmt::join(values, "\t"));
}

std::string state_word(State state)
{
    std::string text(word(state));

    std::ranges::replace(text, ' ', '-');
    return text;
}

} // namespace monpctl
