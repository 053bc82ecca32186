/*
 * Whole runs against the recording libraries: every line and every library call of each thread, in order. In the lists
 * a line is level, function and text; the function is given where the line is one's entry, exit or call.
 */
#include "sandbox_monitor.h"

#include <algorithm>
#include <csignal>
#include <fnmatch.h>
#include <fstream>
#include <sstream>

using sandbox::Installation;
using sandbox::Line;
using sandbox::Monitor;

namespace {

using Lines = std::vector<std::string>;

Lines list(const std::string& text)
{
    std::istringstream stream(text);
    Lines lines;

    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line);
        std::string level;
        std::string function;
        std::string rest;
        if (words >> level >> function) {
            std::getline(words >> std::ws, rest);
            lines.push_back(level.append(" ").append(function).append(" ").append(rest));
        }
    }
    return lines;
}

/*
 * The lines of each thread, the threads in the order in which they first wrote.
 */
std::vector<Lines> by_thread(const std::vector<Line>& lines)
{
    std::vector<std::string> threads;
    std::vector<Lines> result;

    for (const auto& line : lines) {
        const auto found = std::find(threads.begin(), threads.end(), line.thread);
        const auto index = static_cast<size_t>(found - threads.begin());
        if (found == threads.end()) {
            threads.push_back(line.thread);
            result.emplace_back();
        }
        result[index].push_back(line.level + ' ' + line.function + ' ' + line.text);
    }
    return result;
}

void expect_lines(const std::string& who, const Lines& expected, const Lines& found)
{
    for (size_t i = 0; i < std::max(expected.size(), found.size()); i++) {
        const std::string want = i < expected.size() ? expected[i] : "(nothing)";
        const std::string have = i < found.size() ? found[i] : "(nothing)";
        ASSERT_EQ(0, fnmatch(want.c_str(), have.c_str(), 0))
            << who << ", line " << i << "\nwant: " << want << "\nhave: " << have;
    }
}

/*
 * The entry and exit lines of one of the configuration's operations around what it does.
 */
std::string inside(const std::string& level, const std::string& function, const std::string& entry,
                   const std::string& work)
{
    return level + ' ' + function + " start - (type=dusko" + entry + ")\n" + work + level + ' ' + function +
           " end - (type=dusko ret=0)\n";
}

std::string load(const std::string& section)
{
    return inside("trace", "monp_xml_loadpolicy", " ldtype=" + section, "lib xmllib_load_policy " + section + '\n');
}

std::string reads(const Lines& keys)
{
    std::string text;

    for (const auto& key : keys) {
        text.append("lib xmllib_get_value /root/").append(key).append("\n");
    }
    return text;
}

/*
 * A configuration load: the first one, and those after it, which read less and show a cut param.
 */
std::string configuration(bool first)
{
    const std::string unset = reads({ "monp/service/dusko/action 1 4", "monp/service/dusko/param 0 256",
                                      "monp/service/dusko/restarttime 1 4", "monp/service/dusko/waittime 1 4" });
    const std::string all = reads({ "all/path 0 1024", "all/core 1 4", "all/stacksize 1 4", "all/env/alloc 0 8",
                                    "all/env/path 0 1024", "all/env/lang 0 32", "dummyconf 1 4" });
    const std::string own =
        reads({ "monp/type 0 32", "monp/path 0 1024", "monp/log/level 1 4", "monp/log/size 1 4",
                "monp/elog/path 0 1024", "monp/elog/arcpath 0 1024", "monp/elog/rotate 1 4", "monp/elog/pattern 1 4" });
    const std::string rest = reads({ "monp/md/dirpath 0 1024", "monp/md/filename 0 32",
                                     "monp/service/dusko/parent_timeout 1 4", "monp/service/dusko/child_timeout 1 4" });
    const std::string settings = "info * type    -> dusko\ninfo * action  -> 2\ninfo * param   -> --ctl" +
                                 std::string(first ? "  ../work/ctl report" : "") +
                                 "\ninfo * restart -> 3\ninfo * wait    -> 5\n";

    return inside("info", "monp_getconfig", "",
                  inside("detail", "monp_xml_initialize", "", "lib xmllib_init monp\n") + load("all") + load("pm") +
                      load("monp") + load("dusko") +
                      inside("trace", "monp_xml_loadconfig", " path=NULL hdl=(nil)", "lib xmllib_load_config\n") +
                      inside("trace", "monp_xml_getallpolicy", "", all) +
                      inside("trace", "monp_xml_getmypolicy", " gtype=monp pol=0x*",
                             (first ? unset + own + reads({ "pm/lockf 0 1024" }) : own) + rest) +
                      inside("trace", "monp_xml_getmonpolicy", " gtype=dusko pol=0x*",
                             reads({ "dusko/type 0 32", "dusko/path 0 1024" })) +
                      settings + inside("trace", "monp_xml_unloadconfig", " hdl=(nil)", "lib xmllib_unload_config\n") +
                      inside("trace", "monp_xml_unloadpolicy", " udtype=(nil)",
                             "lib xmllib_unload_policy all\nlib xmllib_unload_policy pm\n"
                             "lib xmllib_unload_policy monp\nlib xmllib_unload_policy dusko\n") +
                      inside("detail", "monp_xml_terminate", "", "lib xmllib_term\n"));
}

std::string handler(const std::string& function, int signal)
{
    const std::string values = "(type=dusko_policy sig=" + std::to_string(signal) + ")\n";

    return "trace " + function + " start - " + values + "trace " + function + " catch signal. " + values + "trace " +
           function + " end - (type=dusko_policy)\n";
}

const std::string OPENING = R"(
        lib    log_init               monp 0 5000000 0
        info   main                   ****** Start Process Monitor ******
)";

const std::string SERVICE_START = R"(
        info   monp_create_process_svc start - (type=dusko_policy path=*/bin/service argv=0x* wait=5 pid=0x* stat=0x* std=0
)";

const std::string SERVICE_RUNS = SERVICE_START + R"(
        info   *                      service process is not found.
        info   *                      monp_getservice(*/bin/service) not found. (ret:4)
)" + handler("monp_sighandler1", SIGUSR1);

} // namespace

/*
 * Start and report, kill -9, collection, restart that cannot start the service, reload as a start request, end request.
 */
TEST(Record, WholeRun)
{
    Installation in("dusko");
    in.recording = true;
    in.own("action") = "2";
    in.own("param") = "--ctl  ../work/ctl report";
    in.own("restarttime") = "3";
    in.write();
    std::ofstream(in.root / "work/lock_trn") << "held";
    Monitor monp(in);
    ASSERT_EQ(0, monp.launched());
    const pid_t service = in.service();

    std::filesystem::permissions(in.root / "bin/service", std::filesystem::perms(0644));
    kill(service, SIGKILL);
    monp.wait_for("event1 *");
    monp.wait_for("info end - (type=dusko_policy ret=0 stat=0)");
    std::filesystem::permissions(in.root / "bin/service", std::filesystem::perms(0755));
    monp.signal(SIGHUP);
    monp.wait_for_report(2);
    monp.signal(SIGUSR2);
    EXPECT_EQ(4, monp.ended()); // from the start that failed
    EXPECT_FALSE(std::filesystem::exists(in.root / "work/lock_trn"));

    const auto threads = by_thread(monp.lines());
    ASSERT_EQ(3U, threads.size());
    expect_lines("first process", list(OPENING + R"(
        info   *                      curdir -> /*
        info   monp_getopt            start - (argc=2 argv=0x*)
        info   monp_getopt            end - (ret=0)
)" + configuration(true) + R"(
        lib    log_term               open
        lib    log_init               monp 16 10000000 0
        trace  monp_make_daemon       start - (type=dusko_policy)
)" + handler("monp_sigusr1", SIGUSR1)),
                 threads[0]);

    expect_lines("daemon",
                 list(R"(
        detail *                      start daemon. (type=dusko_policy)
        trace  monp_make_daemon       end - (type=dusko_policy ret=0)
        trace  monp_make_thattr_detach start - (attr=0x*)
        trace  monp_make_thattr_detach end - ()
        info   *                      set MALLOC_CHECK_ -> 2 (type=dusko)
        info   *                      set PATH -> /usr/bin:/bin (type=dusko)
        info   *                      set LANG -> C.UTF-8 (type=dusko)
        trace  monp_parse_param       start - (type=dusko_policy param=--ctl  ../work/ctl report argv=0x* maxargc=30 parsenum=0x*).
        info   *                      arg0 -> --ctl (type=dusko_policy)
        info   *                      arg1 -> ../work/ctl (type=dusko_policy)
        info   *                      arg2 -> report (type=dusko_policy)
        trace  monp_parse_param       end - (type=dusko_policy ret=0 parsenum=3)
        info   *                      path=*/dusko/bin/service bin=service
)" + SERVICE_RUNS + R"(
        error  *                      process exited for term signal. (type=dusko_policy pid=* stat=9 sig=9)
        info   monp_create_process_svc end - (type=dusko_policy ret=0 pid=* stat=101)
        error  *                      process dusko_policy exited. recover is 2. (stat=101 path=*/bin/service)
        event2 *                      *dusko_policy 101
        trace  monp_waitprocterm      start - (type=dusko_policy pid=* timeout=0)
        info   *                      process ended. (type=dusko_policy pid=* errno=3)
        trace  monp_waitprocterm      end - (type=dusko_policy ret=0 pid=* timer=0)
        event3 *                      *dusko_policy 101
)" + SERVICE_START + R"(
        error  *                      access() failed. (type=dusko_policy errno=13)
        info   monp_create_process_svc end - (type=dusko_policy ret=4 pid=0 stat=-1)
        error  *                      start of processing failed. (type=dusko_policy ret=4 path=*/bin/service)
        event2 *                      *dusko_policy -1
        error  *                      initialize error. (type=dusko_policy stat=-1 path=*/bin/service)
        event1 *                      *dusko_policy -1
)" + handler("monp_sighup", SIGHUP) +
                      R"(
        info   *                      reload configuration. (type=dusko)
)" + configuration(false) +
                      SERVICE_RUNS + handler("monp_sighandler1", SIGUSR2) + R"(
        info   *                      throw exit signal. (type=dusko_policy pid=* sig=10)
        info   *                      process exited. (type=dusko_policy pid=* stat=0)
        info   monp_create_process_svc end - (type=dusko_policy ret=0 pid=* stat=0)
        info   *                      monitor term. (type=dusko_policy stat=0 path=*/bin/service act=2)
        info   *                      end - (type=dusko_policy ret=4)
        lib    log_term               open
)"),
                 threads[1]);

    expect_lines("collection", list(R"(
        info   monp_elog_collect      start - (type=dusko_policy)
        info   *                      path=*/dusko/bin/collect bin=collect
        detail cs_itoasc              start - (src=5 len=8 dest=0x* loghdl=0x*)
        detail cs_itoasc              end - (dest=5)
        info   monp_create_process    start - (type=dusko_policy path=*/bin/collect argv=0x* wait=0 pid=(nil) stat=0x* std=1
        info   *                      process exited. (type=dusko_policy pid=* stat=0)
        info   monp_create_process    end - (type=dusko_policy ret=0 pid=* stat=0)
        info   monp_elog_collect      end - (type=dusko_policy ret=0 stat=0)
)"),
                 threads[2]);
}

/*
 * A run that ends before it becomes a daemon: status, the message on standard error and the whole record.
 */
struct Refusal {
    const char* name;
    std::vector<std::string> arguments;
    uid_t user;
    std::pair<std::string, std::string> result; // of a library call
    int status;
    const char* message;
    std::string lines;
};

void PrintTo(const Refusal& refusal, std::ostream* out)
{
    *out << refusal.name;
}

class RecordRefused : public testing::TestWithParam<Refusal> {};

TEST_P(RecordRefused, EndsInTheForeground)
{
    Installation in("dusko");
    in.recording = true;
    in.results.insert(GetParam().result);
    in.write();
    std::ofstream(in.root / "work/record").flush();
    std::filesystem::permissions(in.root / "work/record", std::filesystem::perms(0666));
    Monitor monp(in, GetParam().arguments, GetParam().user);

    EXPECT_EQ(GetParam().status, monp.launched());
    const std::string error = sandbox::file_content(in.root / "work/stderr");
    EXPECT_EQ(0, fnmatch(GetParam().message, error.c_str(), 0)) << error;
    const auto threads = by_thread(monp.lines());
    ASSERT_EQ(1U, threads.size());
    expect_lines("record", list(GetParam().lines), threads[0]);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(, RecordRefused, testing::Values(
    Refusal{ "NotRoot", {}, 65534, {}, 1, "monp : permission denied. (ret=65534 line=[0-9]*)\n", OPENING + R"(
        error  *                      permission denied. (ret=65534)
        info   *                      end - (type= ret=1)
        lib    log_term               open
)" },
    Refusal{ "UnknownOption", { "-x" }, 0, {}, 2, "monp : invalid parameter. (ret=2 line=[0-9]*)\n", OPENING + R"(
        info   *                      curdir -> /*
        info   monp_getopt            start - (argc=3 argv=0x*)
        error  *                      unknown option. (val=-x)
        info   monp_getopt            end - (ret=2)
        error  *                      monp_getopt() failed. (ret=2)
        info   *                      end - (type= ret=2)
        lib    log_term               open
)" },
    Refusal{ "NoLog", { "-x" }, 0, { "log_init", "7" }, 2, "monp : invalid parameter. (ret=2 line=[0-9]*)\n", R"(
        lib    log_init               monp 0 5000000 0
)" },
    Refusal{ "NoSection", {}, 0, { "xmllib_load_policy pm", "0x12" }, 1,
             "monp : monp_getconfig() failed. (ret=4 line=[0-9]*)\n", OPENING + R"(
        info   *                      curdir -> /*
        info   monp_getopt            start - (argc=2 argv=0x*)
        info   monp_getopt            end - (ret=0)
        info   monp_getconfig         start - (type=dusko)
)" + inside("detail", "monp_xml_initialize", "", "lib xmllib_init monp\n") + load("all") + R"(
        trace  monp_xml_loadpolicy    start - (type=dusko ldtype=pm)
        lib    xmllib_load_policy     pm
        error  *                      xmllib_load_policy() failed. (type=dusko ret=0x12)
        trace  monp_xml_loadpolicy    end - (type=dusko ret=4)
        error  *                      monp_xml_loadpolicy() failed. (ret=4 type=pm)
)" + inside("trace", "monp_xml_unloadpolicy", " udtype=(nil)", "lib xmllib_unload_policy all\n") +
        inside("detail", "monp_xml_terminate", "", "lib xmllib_term\n") + R"(
        info   monp_getconfig         end - (type=dusko ret=4)
        error  *                      monp_getconfig() failed. (type=dusko ret=4)
        info   *                      end - (type= ret=1)
        lib    log_term               open
)" }), [](const auto& param) { return param.param.name; });
// clang-format on
