/*
 * Reading of the events file.
 */
#include "machine/event_log.h"

#include "policy/service_types.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace monpctl {

namespace {

std::string text_member(const nlohmann::json& object, const char* key)
{
    const auto found = object.find(key);

    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

std::optional<int> number_member(const nlohmann::json& object, const char* key)
{
    const auto found = object.find(key);

    return found != object.end() && found->is_number_integer() ? std::optional(found->get<int>()) : std::nullopt;
}

} // namespace

EventReader::EventReader(const std::string& type)
{
    if (!type.empty()) {
        names_ = names_of(type);
    }
}

std::optional<EventSummary> EventReader::read(const std::string& line)
{
    const auto object = nlohmann::json::parse(line, nullptr, false);
    const auto id = number_member(object, "event");
    const auto lost = number_member(object, "lost");
    const auto monitor = number_member(object, "pid");
    EventSummary event;

    if (!object.is_object() || !monitor || (!id && !lost)) {
        return {};
    }
    event.line = line;
    event.time = text_member(object, "time");
    event.monitor = *monitor;
    if (id) {
        event.id = *id;
        event.name = text_member(object, "name");
        event.severity = text_member(object, "severity");
        event.text = text_member(object, "text");
        event.status = number_member(object, "status");
    } else {
        event.name = "LOST";
        event.severity = "warning";
        event.text = std::to_string(*lost) + " events are missing here.";
    }
    if (object.contains("type")) {
        last_[event.monitor] = text_member(object, "type");
    }
    event.type = last_[event.monitor];
    if (!names_.empty() && std::find(names_.begin(), names_.end(), event.type) == names_.end()) {
        return {};
    }
    return event;
}

} // namespace monpctl
