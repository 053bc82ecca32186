#include "commands/history_window.h"

#include "common/moment.h"
#include "common/refusal.h"
#include "machine/follow.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fmt/format.h>
#include <iostream>
#include <thread>
#include <utility>

namespace monpctl {

namespace {

/* Between two looks for new lines. */
constexpr auto PAUSE = std::chrono::milliseconds(200);

std::optional<Time> moment_of(const char* option, const std::string& text)
{
    return text.empty() ? std::nullopt : std::optional(parse_moment(option, text, std::chrono::system_clock::now()));
}

} // namespace

HistoryWindow::HistoryWindow(const HistoryOptions& given)
    : since_(moment_of("--since", given.since)), until_(moment_of("--until", given.until)), last_(given.lines)
{
}

bool HistoryWindow::contains(const std::optional<Time>& time) const
{
    if (!time) {
        return !since_ && !until_;
    }
    return (!since_ || *time >= *since_) && (!until_ || *time <= *until_);
}

void HistoryWindow::print(std::string line)
{
    if (!last_) {
        std::cout << line << '\n';
        return;
    }
    kept_.push_back(std::move(line));
    if (kept_.size() > *last_) {
        kept_.pop_front();
    }
}

void HistoryWindow::finish()
{
    last_.reset();
    for (const auto& line : kept_) {
        std::cout << line << '\n';
    }
    kept_.clear();
}

void print_history(const HistoryFile& file, HistoryWindow& window, const std::function<void(const std::string&)>& take)
{
    Follower follower(file.path);
    std::string line;
    std::error_code hidden;

    const bool may_be_missing =
        file.follow || (file.may_be_missing && std::filesystem::is_directory(file.path.parent_path(), hidden));
    if (const int error = follower.error(); error != 0 && (error != ENOENT || !may_be_missing)) {
        throw Fault(fmt::format("{} cannot be read: {}", file.path.string(), std::strerror(error)));
    }
    for (;;) {
        while (follower.next(line)) {
            take(line);
        }
        window.finish();
        if (!std::cout.flush()) {
            throw Fault("the standard output cannot be written");
        }
        if (!file.follow) {
            return;
        }
        std::this_thread::sleep_for(PAUSE);
    }
}

} // namespace monpctl
