/*
 * The command "restart".
 */
#include "commands/commands.h"
#include "commands/console.h"
#include "commands/start.h"
#include "commands/stop.h"
#include "commands/type_choice.h"
#include "common/refusal.h"
#include "policy/settings.h"

#include <algorithm>
#include <ranges>

namespace monpctl {

namespace {

/*
 * A type whose policy no monitor would start with goes on running: after a stop it would stay down.
 */
Exit require_usable(const std::string& type, const std::vector<std::string>& options)
{
    const auto errors = read_settings(type, options).errors();

    if (errors.empty()) {
        return EXIT_DONE;
    }
    show_problems(errors);
    complain(type, "not restarted, as a new monitor would end on its policy or options");
    return EXIT_FAILED;
}

} // namespace

Exit restart(const RestartOptions& given)
{
    require_root();
    auto types = chosen_types(given.stop.choice, Taken::known);
    std::vector<std::string> stopped;

    if (types.size() != 1 && !given.options.empty()) {
        throw Refusal("options of a monitor need one type");
    }
    Exit result = for_each_type(types, [&](const std::string& type) { return require_usable(type, given.options); });
    if (result != EXIT_DONE) {
        return result;
    }
    result = for_each_type(given.stop.choice.all ? std::vector(types.rbegin(), types.rend()) : types,
                           [&](const std::string& type) {
                               const Exit one = stop_one(type, given.stop);
                               if (one == EXIT_DONE) {
                                   stopped.push_back(type);
                               }
                               return one;
                           });
    std::erase_if(types, [&](const std::string& type) { return std::ranges::find(stopped, type) == stopped.end(); });
    prepare_starts();
    return worse(result, for_each_type(types, [&](const std::string& type) {
                     return start_one({ .type = type, .wait = given.stop.wait, .options = given.options });
                 }));
}

} // namespace monpctl
