/*
 * monpctl status with nine services, each in another situation.
 */
#include "monpctl_run.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

namespace fs = std::filesystem;
using nlohmann::json;
using sandbox::eventually;
using sandbox::Installation;
using sandbox::monpctl;
using testing::HasSubstr;

namespace {

/*
 * Adds a type with a program of its own.
 */
void add_type(Installation& in, const std::string& type, const std::string& param, const std::string& action = "1")
{
    const std::pair<const char*, std::string> entries[] = {
        { "action", action }, { "param", param },         { "restarttime", "1" },
        { "waittime", "2" },  { "parent_timeout", "13" }, { "child_timeout", type == "silent" ? "1" : "10" },
    };

    for (const auto& [key, value] : entries) {
        in.values["monp/service/" + type + "/" + key] = value;
    }
    in.values[type + "/type"] = type;
    in.values[type + "/path"] = "bin/" + type;
    fs::copy_file(in.root / "bin/service", in.root / "bin" / type);
}

std::string field(const Installation& in, const std::string& type, const std::string& name)
{
    const auto run = monpctl(in, "status " + type + " --fields " + name);

    return run.lines.empty() ? "" : run.lines.front();
}

void kill_monitor(const Installation& in, const std::string& type)
{
    const pid_t monitor = std::atoi(field(in, type, "monitor_pid").c_str());

    ASSERT_GT(monitor, 1);
    kill(monitor, SIGKILL);
    eventually("its end", [&] { return waitpid(monitor, nullptr, WNOHANG) > 0; });
}

} // namespace

TEST(NineServices, AreToldApart)
{
    Installation in("lenk");
    in.values["lenk/use"] = "0";
    add_type(in, "running", "report");
    add_type(in, "restarting", "sleep 4 report", "2");
    add_type(in, "given_up", "report exit 3", "2");
    add_type(in, "silent", "silent");
    add_type(in, "by_hand", "report");
    add_type(in, "adopted", "report");
    add_type(in, "orphaned", "report");
    add_type(in, "broken", "report");
    in.write();
    for (const char* type : { "running", "restarting", "by_hand", "adopted", "orphaned" }) {
        ASSERT_EQ(0, monpctl(in, std::string("start ") + type));
    }
    monpctl(in, "start given_up");
    EXPECT_EQ(3, monpctl(in, "start silent"));
    EXPECT_EQ(0, monpctl(in, "stop by_hand"));
    kill_monitor(in, "adopted");
    ASSERT_EQ(0, monpctl(in, "start adopted"));
    kill_monitor(in, "orphaned");
    std::ofstream(in.root / "etc/policy/broken.xml") << "<root><broken>";
    eventually("the end of the restarts", [&] { return field(in, "given_up", "state") == "gave-up"; });
    const pid_t restarting = std::atoi(field(in, "restarting", "service_pid").c_str());
    ASSERT_GT(restarting, 1);
    kill(restarting, SIGKILL);
    eventually("the restart", [&] { return field(in, "restarting", "restarts,state") == "1\tstarting"; });

    const struct {
        const char* type;
        const char* state;
        bool enabled;
        bool monitor;
        bool adopted;
        size_t copies;
        const char* text; /* in the status of this type */
    } rows[] = {
        { "running", "running", true, true, false, 0, "running for" },
        { "restarting", "starting", true, true, false, 0, "killed by signal 9" },
        { "given_up", "gave up", true, false, false, 0, "after 1 of 1 restarts" },
        { "silent", "waiting", true, true, false, 0, "did not report within 1 s" },
        { "by_hand", "stopped", true, false, false, 0, "stopped for" },
        { "adopted", "running", true, true, true, 0, "adopted" },
        { "orphaned", "stopped", true, false, false, 1, "runs without a monitor" },
        { "lenk", "stopped", false, false, false, 0, "stopped" },
        { "broken", "stopped", true, false, false, 0, "stopped" },
    };
    monpctl(in, "status --json");
    const auto all = json::parse(sandbox::file_content(in.root / "work/monpctl.out"));
    const auto table = monpctl(in, "status");
    EXPECT_EQ(9U, all.size());
    EXPECT_EQ(1, table.status) << "the worst is a service that was given up";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.type);
        const auto found = std::ranges::find(all, row.type, [](const json& one) { return one["type"]; });
        ASSERT_NE(all.end(), found);
        EXPECT_EQ(row.state, (*found)["state"]) << *found;
        EXPECT_EQ(row.enabled, (*found)["enabled"].get<bool>());
        EXPECT_EQ(row.monitor, !(*found)["monitor"].is_null());
        EXPECT_EQ(row.adopted, !(*found)["service"].is_null() && (*found)["service"]["adopted"].get<bool>());
        EXPECT_EQ(row.copies, (*found)["copies"].size());
        std::string detail;
        for (const auto& line : monpctl(in, std::string("status ") + row.type).lines) {
            detail += line + '\n';
        }
        EXPECT_THAT(detail, HasSubstr(row.text));
    }
    EXPECT_EQ(1, monpctl(in, "check broken"));
    kill(std::atoi(json(*std::ranges::find(all, "orphaned", [](const json& one) { return one["type"]; }))["copies"][0]
                       .dump()
                       .c_str()),
         SIGKILL);
    EXPECT_EQ(0, monpctl(in, "stop --all --yes"));
}
