#include "commands/status_json.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>

namespace monpctl {

namespace {

using Json = nlohmann::json;

Json time_json(const std::optional<Time>& time)
{
    return time ? Json(time_text(*time, "%FT%T%z")) : Json();
}

template <typename Value> Json optional_json(const std::optional<Value>& value)
{
    return value ? Json(*value) : Json();
}

Json text_json(const std::string& text)
{
    return text.empty() ? Json() : Json(text);
}

Json process_json(const std::optional<Process>& process)
{
    if (!process) {
        return nullptr;
    }
    return { { "pid", process->pid },
             { "since", time_json(process->since()) },
             { "executable", text_json(process->executable) },
             { "held", process->held() } };
}

Json monitor_json(const std::optional<RunningMonitor>& monitor)
{
    if (!monitor) {
        return nullptr;
    }
    Json object = process_json(monitor->process);
    object["options"] = monitor->options;
    object["replaced"] = monitor->replaced;
    return object;
}

Json service_json(const TypeStatus& status)
{
    Json object = process_json(status.service);

    if (status.service) {
        object["adopted"] = status.adopted;
        object["zombie"] = status.service->zombie();
        object["replaced"] = status.service->replaced();
    }
    return object;
}

Json end_json(const std::optional<ServiceEnd>& end)
{
    if (!end) {
        return nullptr;
    }
    return { { "time", time_json(end->time) }, { "status", end->status }, { "words", end->words } };
}

Json failure_json(const std::optional<Failure>& failure)
{
    if (!failure) {
        return nullptr;
    }
    return { { "time", time_json(failure->time) }, { "reason", failure->reason } };
}

Json status_json(const TypeStatus& status)
{
    const auto& history = status.history;
    Json copies = Json::array();

    std::ranges::transform(status.copies, std::back_inserter(copies), &Process::pid);
    return { { "type", status.type },
             { "state", word(status.state) },
             { "reason", text_json(status.reason) },
             { "since", time_json(status.since) },
             { "until", time_json(status.until) },
             { "enabled", !status.settings.held_back },
             { "monitor", monitor_json(status.monitor) },
             { "service", service_json(status) },
             { "copies", copies },
             { "restarts", optional_json(history.restarts) },
             { "restart_limit", optional_json(history.restart_limit) },
             { "last_status", history.last_end ? Json(history.last_end->status) : Json() },
             { "last_end", end_json(history.last_end) },
             { "last_failure", failure_json(history.last_failure) },
             { "missing", text_json(history.missing) },
             { "action",
               { { "number", status.action.action },
                 { "words", action_text(status.action.action) },
                 { "in_doubt", status.action.in_doubt } } },
             { "lock_file", text_json(status.settings.lock_file) },
             { "warnings", status.warnings } };
}

} // namespace

void print_status_json(const std::vector<TypeStatus>& statuses)
{
    Json list = Json::array();

    std::ranges::transform(statuses, std::back_inserter(list), status_json);
    /* A path of any bytes must not hide the rest. */
    std::cout << list.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

} // namespace monpctl
