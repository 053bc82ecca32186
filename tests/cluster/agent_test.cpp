/*
 * The resource agent: what it answers for each state that monpctl can tell, and what it does about it. Stand-ins take
 * the place of monpctl, of the function library of resource agents, and of sleep.
 */
#include "stand_ins.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

enum Code {
    SUCCESS = 0,
    GENERIC = 1,
    UNIMPLEMENTED = 3,
    INSTALLED = 5,
    CONFIGURED = 6,
    NOT_RUNNING = 7,
    DEGRADED = 190
};

constexpr const char* FUNCTIONS = R"sh(
OCF_SUCCESS=0 OCF_ERR_GENERIC=1 OCF_ERR_UNIMPLEMENTED=3 OCF_ERR_INSTALLED=5 OCF_ERR_CONFIGURED=6 OCF_NOT_RUNNING=7
: "${OCF_RESKEY_CRM_meta_interval=0}"
action=$1
ocf_log() { shift; echo "log: $*"; }
ocf_exit_reason() { echo "reason: $*"; }
ocf_is_true() { case $1 in yes | true | 1 | YES | TRUE | True | on | ON) return 0 ;; esac; return 1; }
ocf_is_probe() { [ "$action" = monitor ] && [ "$OCF_RESKEY_CRM_meta_interval" = 0 ]; }
)sh";

/* Answers a look with the next line of a file, the last one again and again; "start" and "stop" put other lines there. */
constexpr const char* MONPCTL = R"sh(
[ "$TESK_HOME/bin/monpctl" = "$0" ] || exit 99
case $1 in
status)
    [ "$*" = "status $2 --fields state,held,zombie,copies,adopted,replaced,reason" ] || exit 99
    read -r line <looks
    [ "$(grep -c . looks)" -le 1 ] || sed -i 1d looks
    echo "$line"
    exit 3
    ;;
check) [ "$3" != --explain ] || { echo "  monp/service/$2/action         = $(cat action)  [somewhere]"; exit 0; } ;;
esac
[ ! -e "after.$1" ] || cat "after.$1" >looks
[ ! -e "fail.$1" ] || { cat "fail.$1"; exit 1; }
)sh";

constexpr const char* RECURRING = "OCF_RESKEY_CRM_meta_interval=10000 ";
constexpr const char* STOP_CALL = "monpctl stop dusko --yes --kill-after 55\n";
constexpr const char* TAKE_OVER_CALL = "monpctl start dusko --wait 10 -- -a 1\n";

class Agent : public cluster::StandIns {
protected:
    Agent()
    {
        std::filesystem::create_directories(home / "etc");
        std::filesystem::create_directories(root / "lib/heartbeat");
        write("lib/heartbeat/ocf-shellfuncs", FUNCTIONS);
        write("action", "2\n");
        std::string text = sandbox::file_content(CLUSTER_SOURCE "/service.in");
        for (size_t at = 0; (at = text.find("@INSTPATH@")) != std::string::npos;) {
            text.replace(at, std::string("@INSTPATH@").size(), home.string());
        }
        write("service", text);
        stand_in(home / "bin/monpctl", MONPCTL);
        stand_in(commands / "sleep", "");
        /* Time stands still, or a slow machine would shorten what is left of an operation. */
        write("commands/date", "#!/bin/sh\necho 1000\n");
        std::filesystem::permissions(commands / "date", std::filesystem::perms(0755));
        looks("stopped no no 0 no no -");
    }

    void write(const std::string& name, const std::string& text) const
    {
        std::ofstream(root / name) << text;
    }
    void looks(const std::string& lines) const
    {
        write("looks", lines + "\n");
    }
    cluster::Ended act(const std::string& action, const std::string& variables = "OCF_RESKEY_type=dusko") const
    {
        return run("OCF_ROOT=" + root.string() + " " + variables + " sh service " + action);
    }
    cluster::Ended act_recurring(const std::string& action, const std::string& variables = "") const
    {
        return act(action, RECURRING + ("OCF_RESKEY_type=dusko " + variables));
    }

    const std::filesystem::path home = root / "home";
};

} // namespace

/* Monitor, probe and stop in each state. */
TEST_F(Agent, AnswersForEachState)
{
    const struct {
        const char* look;
        int monitor;
        int probe;
        bool taken_over; /* by a monitor, before the stop */
        const char* reason;
    } cases[] = {
        { "running no no 0 no no -", SUCCESS, SUCCESS, false, "" },
        { "running no no 0 yes no -", DEGRADED, DEGRADED, false,
          "reason: dusko: the service was taken over by its monitor" },
        { "running no no 2 no no -", DEGRADED, DEGRADED, false, "reason: dusko: a second copy of the service runs" },
        { "running no no 0 no yes -", DEGRADED, DEGRADED, false,
          "reason: dusko: a program was replaced since it was started" },
        { "running monitor no 0 no no -", GENERIC, GENERIC, false,
          "reason: dusko: held by a signal or a debugger: monitor" },
        { "running service no 0 yes no -", GENERIC, GENERIC, false,
          "reason: dusko: held by a signal or a debugger: service" },
        { "starting both no 0 no no -", GENERIC, GENERIC, false,
          "reason: dusko: held by a signal or a debugger: both" },
        { "running no yes 0 no no -", GENERIC, GENERIC, false, "reason: dusko: the service is a zombie" },
        { "starting no no 0 no no since 3 s", SUCCESS, SUCCESS, false, "log: dusko: starting: since 3 s" },
        { "recovering no no 0 no no -", SUCCESS, SUCCESS, false, "log: dusko: recovering" },
        { "recovering no yes 1 no no -", SUCCESS, SUCCESS, false, "log: dusko: recovering" },
        { "ending no no 0 no no -", SUCCESS, SUCCESS, false, "log: dusko: ending" },
        { "unknown no no 0 no no it may have reported or not", SUCCESS, SUCCESS, false,
          "log: dusko: unknown: it may have reported or not" },
        { "waiting no no 0 no no did not report within 10 s", GENERIC, GENERIC, false,
          "reason: dusko: a start of the service has failed: did not report within 10 s" },
        { "gave-up no no 0 no no 3 of 3 restarts used", GENERIC, NOT_RUNNING, false, "" },
        { "gave-up no no 1 no no -", GENERIC, GENERIC, true, "reason: dusko: the service runs without a monitor" },
        { "stopped no no 0 no no -", NOT_RUNNING, NOT_RUNNING, false, "" },
        { "dead no no 0 no no -", NOT_RUNNING, NOT_RUNNING, false, "" },
        { "stopped no no 1 no no -", GENERIC, GENERIC, true, "reason: dusko: the service runs without a monitor" },
        { "dead no no 1 no no -", GENERIC, GENERIC, true, "reason: dusko: the service runs without a monitor" },
        { "dreaming no no 0 no no -", GENERIC, GENERIC, false, "reason: dusko: its state cannot be told" },
        { "monpctl: the log cannot be read", GENERIC, NOT_RUNNING, false, "" },
        { "", GENERIC, NOT_RUNNING, false, "" },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.look);
        looks(c.look);
        EXPECT_EQ(c.monitor, act_recurring("monitor").status);
        const auto probe = act("monitor");
        EXPECT_EQ(c.probe, probe.status);
        EXPECT_THAT(probe.output, StartsWith(c.reason));
        EXPECT_EQ(*c.reason == '\0', probe.output.empty()) << probe.output;
        write("after.stop", "stopped no no 0 no no -\n");
        EXPECT_EQ(SUCCESS, act("stop").status);
        EXPECT_THAT(calls(), HasSubstr(c.taken_over ? TAKE_OVER_CALL + std::string(STOP_CALL) : STOP_CALL));
        EXPECT_EQ(c.taken_over, calls().find(TAKE_OVER_CALL) != std::string::npos) << calls();
    }
}

TEST_F(Agent, WaitsForWhatMayPass)
{
    const struct {
        const char* looks;
        int status;
        int pauses;
    } cases[] = {
        { "running no yes 0 no no -\nrecovering no no 0 no no -", SUCCESS, 1 },
        { "running monitor no 0 no no -\nrunning monitor no 0 no no -\nrunning no no 0 no no -", SUCCESS, 2 },
        { "stopped no no 1 no no -\nstopped no no 0 no no -", NOT_RUNNING, 1 },
        { "running no no 1 no no -\nrunning no no 0 no no -", SUCCESS, 1 },
        { "no answer\nrunning no no 0 no no -", SUCCESS, 1 },
        { "running no yes 0 no no -", GENERIC, 2 },
        { "waiting no no 0 no no -\nrunning no no 0 no no -", GENERIC, 0 },
        { "gave-up no no 0 no no -\nrunning no no 0 no no -", GENERIC, 0 },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.looks);
        looks(c.looks);
        EXPECT_EQ(c.status, act_recurring("monitor").status);
        std::string all = calls();
        EXPECT_EQ(c.pauses, std::count(all.begin(), all.end(), '\n') - 1 - c.pauses) << all;
    }
}

/* Only where that is wanted, and never to answer the question of what runs where. */
TEST_F(Agent, StartsADeadMonitorBesideItsService)
{
    looks("dead no no 1 no no -");
    write("after.start", "running no no 0 yes no -\n");
    EXPECT_EQ(GENERIC, act("monitor", "OCF_RESKEY_type=dusko OCF_RESKEY_adopt=yes").status);
    EXPECT_EQ(GENERIC, act_recurring("monitor", "OCF_RESKEY_adopt=no").status);
    EXPECT_EQ(SUCCESS, act_recurring("monitor", "OCF_RESKEY_adopt=yes OCF_RESKEY_options='-r 7'").status);
    EXPECT_THAT(calls(), HasSubstr("monpctl start dusko --wait 25 -- -r 7\n"));
    looks("dead no no 1 no no -");
    write("fail.start", "monpctl: dusko: not started\n");
    std::filesystem::remove(root / "after.start");
    EXPECT_EQ(GENERIC, act_recurring("monitor", "OCF_RESKEY_adopt=yes").status);
}

TEST_F(Agent, EndsItselfBeforePacemakerEndsIt)
{
    const std::pair<const char*, const char*> cases[] = {
        { "", "55" },
        { "OCF_RESKEY_CRM_meta_timeout=20000", "15" },
        { "OCF_RESKEY_CRM_meta_timeout=3000", "1" },
        { "OCF_RESKEY_CRM_meta_timeout=soon", "55" },
    };
    for (const auto& [variable, seconds] : cases) {
        EXPECT_EQ(SUCCESS, act_recurring("start", variable).status) << variable;
        EXPECT_THAT(calls(), HasSubstr("monpctl start dusko --wait " + std::string(seconds) + " --\n"));
        EXPECT_EQ(SUCCESS, act_recurring("stop", variable).status) << variable;
        EXPECT_THAT(calls(), HasSubstr("monpctl stop dusko --yes --kill-after " + std::string(seconds) + "\n"));
    }
}

/* A failed stop costs the node: it fails if something is left, and only then. */
TEST_F(Agent, StopsUntilNothingIsLeft)
{
    write("fail.stop", "monpctl: dusko: its service, process 7, survives\n");
    EXPECT_EQ(SUCCESS, act("stop").status);
    for (const char* left : { "running no no 0 no no -", "stopped no no 1 no no -", "ending no no 0 no no -" }) {
        looks(left);
        const auto stop = act("stop");
        EXPECT_EQ(GENERIC, stop.status) << left;
        EXPECT_THAT(stop.output, HasSubstr("reason: dusko: not stopped: dusko: its service, process 7, survives\n"));
    }
    EXPECT_EQ(SUCCESS, act("stop", "OCF_RESKEY_type=").status);
    EXPECT_EQ(SUCCESS, act("stop", "OCF_RESKEY_type=../dusko").status);
    looks("stopped no no 0 no no -");
    EXPECT_EQ(SUCCESS, act("stop", "OCF_RESKEY_type=dusko OCF_RESKEY_adopt=perhaps OCF_RESKEY_options=-x").status);
}

/* Neither a probe nor a stop fails without an installation, unless one of its monitors runs. */
TEST_F(Agent, CopesWithoutAnInstallation)
{
    std::filesystem::remove(home / "bin/monpctl");
    EXPECT_EQ(NOT_RUNNING, act("monitor").status);
    EXPECT_EQ(INSTALLED, act_recurring("monitor").status);
    EXPECT_EQ(INSTALLED, act("start").status);
    EXPECT_EQ(SUCCESS, act("stop").status);

    std::filesystem::copy_file("/bin/sh", home / "bin/monp");
    const std::string until_told = "mkfifo hold && { " + (home / "bin/monp").string() + " -c 'read x <hold' monp --";
    for (const auto& [type, status] : { std::pair("dusko", GENERIC), std::pair("goru", SUCCESS) }) {
        ASSERT_EQ(0, std::system(("cd " + root.string() + " && " + until_told + type + " & } ; sleep 0.2").c_str()));
        EXPECT_EQ(status, act("stop").status) << type;
        ASSERT_EQ(0, std::system(("cd " + root.string() + " && echo >hold && rm hold").c_str()));
    }
}

/* Wrong parameters are wrong on every node; wrong files are this node's. */
TEST_F(Agent, RefusesWhatMustNotStart)
{
    const std::string type = "OCF_RESKEY_type=dusko ";
    const struct {
        std::string variables;
        const char* action; /* of the monitor's recovery, as monpctl tells it */
        const char* check;  /* what monpctl finds; empty: nothing */
        int status;
    } cases[] = {
        { type, "2", "", SUCCESS },
        { type, "1", "", SUCCESS },
        { type + "OCF_RESKEY_options='-r 3'", "2", "", SUCCESS },
        { "", "2", "", CONFIGURED },
        { "OCF_RESKEY_type=../dusko", "2", "", CONFIGURED },
        { "OCF_RESKEY_type=-dusko", "2", "", CONFIGURED },
        { "OCF_RESKEY_type=" + std::string(29, 'a'), "2", "", SUCCESS },
        { "OCF_RESKEY_type=" + std::string(30, 'a'), "2", "", CONFIGURED },
        { type + "OCF_RESKEY_home=opt/monp", "2", "", CONFIGURED },
        { type + "OCF_RESKEY_home=/nowhere", "2", "", INSTALLED },
        { type + "OCF_RESKEY_adopt=perhaps", "2", "", CONFIGURED },
        { type + "OCF_RESKEY_allow_drastic=perhaps", "2", "", CONFIGURED },
        { type, "2", "/opt/etc/policy/dusko.xml:3: broken\n", INSTALLED },
        { type + "OCF_RESKEY_options=-x", "2", "command line: unknown option. (val=-x)\n", CONFIGURED },
        { type, "3", "", INSTALLED },
        { type, "4", "", INSTALLED },
        { type, "", "", INSTALLED },
        { type + "OCF_RESKEY_allow_drastic=no", "5", "", INSTALLED },
        { type + "OCF_RESKEY_allow_drastic=yes", "5", "", SUCCESS },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.variables + c.action + c.check);
        write("action", c.action + std::string("\n"));
        std::filesystem::remove(root / "fail.check");
        if (*c.check != '\0') {
            write("fail.check", c.check);
        }
        const auto validated = act("validate-all", c.variables);
        EXPECT_EQ(c.status, validated.status) << validated.output;
        EXPECT_EQ(c.status != SUCCESS, validated.output.find("reason: ") != std::string::npos) << validated.output;
        EXPECT_EQ(c.status, act("start", c.variables).status);
        EXPECT_EQ(c.status == SUCCESS, calls().find("monpctl start") != std::string::npos) << calls();
    }
}

TEST_F(Agent, TellsWhyAnOperationFailed)
{
    write("fail.start", "dusko: starting\nmonpctl: dusko: ended with status 2 before it reported\n\n");
    const auto start = act("start");
    EXPECT_EQ(GENERIC, start.status);
    EXPECT_EQ("reason: dusko: not started: dusko: ended with status 2 before it reported\n", start.output);

    EXPECT_EQ(SUCCESS, act("reload").status);
    EXPECT_EQ("monpctl reload dusko\n", calls());
    write("fail.reload", "monpctl: dusko: the policy is broken\n");
    EXPECT_EQ(NOT_RUNNING, act("reload").status);
    looks("running no no 0 no no -");
    const auto reload = act("reload");
    EXPECT_EQ(GENERIC, reload.status);
    EXPECT_EQ("reason: dusko: not reloaded: dusko: the policy is broken\n", reload.output);
}

TEST_F(Agent, DescribesItself)
{
    const auto described = act("meta-data", "");
    EXPECT_EQ(SUCCESS, described.status);
    write("meta-data.xml", described.output);
    EXPECT_EQ(0, std::system(("xmllint --nonet --noout " + (root / "meta-data.xml").string()).c_str()));
    for (const char* name : { "type", "home", "options", "adopt", "allow_drastic" }) {
        EXPECT_THAT(described.output, HasSubstr("<parameter name=\"" + std::string(name) + "\""));
    }
    EXPECT_THAT(described.output, HasSubstr("default=\"" + home.string() + "\""));
    EXPECT_EQ(UNIMPLEMENTED, act("promote").status);
    EXPECT_EQ(UNIMPLEMENTED, act("").status);
}
