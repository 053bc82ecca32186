/*
 * A whole run against the recording libraries: every line and every library call of each thread, in order, but for the
 * lines of the configuration's operations, which the unit tests show. In the lists a line is level, function and text,
 * or several texts with a '|' between them; the function is given where the line is one's entry, exit or call.
 */
#include "sandbox_monitor.h"

#include <algorithm>
#include <csignal>
#include <fnmatch.h>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;
using sandbox::Texts;

static const char* const FIRST_PROCESS = R"(
lib log_init monp 0 5000000 0
info main ****** Start Process Monitor ******
info * curdir -> /*
info monp_getopt start - (argc=2 argv=0x*)|end - (ret=0)
info monp_getconfig start - (type=dusko)
lib xmllib_init monp
lib xmllib_load_policy all|pm|monp|dusko
lib xmllib_load_config -
lib xmllib_get_value */all/path 0 1024|*/all/core 1 4|*/all/stacksize 1 4|*/all/env/alloc 0 8|*/all/env/path 0 1024
lib xmllib_get_value */all/env/lang 0 32|*/dummyconf 1 4|*/monp/service/dusko/action 1 4
lib xmllib_get_value */monp/service/dusko/param 0 256|*/monp/service/dusko/restarttime 1 4
lib xmllib_get_value */monp/service/dusko/waittime 1 4|*/monp/type 0 32|*/monp/path 0 1024|*/monp/log/level 1 4
lib xmllib_get_value */monp/log/size 1 4|*/monp/elog/path 0 1024|*/monp/elog/arcpath 0 1024|*/monp/elog/rotate 1 4
lib xmllib_get_value */monp/elog/pattern 1 4|*/pm/lockf 0 1024|*/monp/md/dirpath 0 1024|*/monp/md/filename 0 32
lib xmllib_get_value */monp/service/dusko/parent_timeout 1 4|*/monp/service/dusko/child_timeout 1 4|*/dusko/type 0 32
lib xmllib_get_value */dusko/path 0 1024
info * type    -> dusko|action  -> 2|param   -> --ctl  ../work/ctl report|restart -> 3|wait    -> 5
lib xmllib_unload_config -
lib xmllib_unload_policy all|pm|monp|dusko
lib xmllib_term -
info monp_getconfig end - (type=dusko ret=0)
lib log_term open
lib log_init monp 16 10000000 0
trace monp_make_daemon start - (type=dusko_policy)
trace monp_sigusr1 start - (type=dusko_policy sig=10)|catch signal. (type=dusko_policy sig=10)
trace monp_sigusr1 end - (type=dusko_policy)
)";

static const char* const DAEMON = R"(
detail * start daemon. (type=dusko_policy)
trace monp_make_daemon end - (type=dusko_policy ret=0)
trace monp_make_thattr_detach start - (attr=0x*)|end - ()
info * set MALLOC_CHECK_ -> 2 (type=dusko)|set PATH -> /usr/bin:/bin (type=dusko)|set LANG -> C.UTF-8 (type=dusko)
trace monp_parse_param start - (type=dusko_policy param=--ctl  ../work/ctl report argv=0x* maxargc=30 parsenum=0x*).
info * arg0 -> --ctl (type=dusko_policy)|arg1 -> ../work/ctl (type=dusko_policy)|arg2 -> report (type=dusko_policy)
trace monp_parse_param end - (type=dusko_policy ret=0 parsenum=3)
info * path=*/dusko/bin/service bin=service
info monp_create_process_svc start - (type=dusko_policy path=*/dusko/bin/service argv=0x* wait=5 pid=0x* stat=0x* std=0
info * service process is not found.|monp_getservice(*/dusko/bin/service) not found. (ret:4)
trace monp_sighandler1 start - (type=dusko_policy sig=10)|catch signal. (type=dusko_policy sig=10)
trace monp_sighandler1 end - (type=dusko_policy)
error * process exited for term signal. (type=dusko_policy pid=* stat=9 sig=9)
info monp_create_process_svc end - (type=dusko_policy ret=0 pid=* stat=101)
error * process dusko_policy exited. recover is 2. (stat=101 path=*/dusko/bin/service)
event2 * *dusko_policy 101
trace monp_waitprocterm start - (type=dusko_policy pid=* timeout=0)
info * process ended. (type=dusko_policy pid=* errno=3)
trace monp_waitprocterm end - (type=dusko_policy ret=0 pid=* timer=0)
event3 * *dusko_policy 101
info monp_create_process_svc start - (type=dusko_policy path=*/dusko/bin/service argv=0x* wait=5 pid=0x* stat=0x* std=0
error * access() failed. (type=dusko_policy errno=13)
info monp_create_process_svc end - (type=dusko_policy ret=4 pid=0 stat=-1)
error * start of processing failed. (type=dusko_policy ret=4 path=*/dusko/bin/service)
event2 * *dusko_policy -1
error * initialize error. (type=dusko_policy stat=-1 path=*/dusko/bin/service)
event1 * *dusko_policy -1
trace monp_sighandler1 start - (type=dusko_policy sig=10)|catch signal. (type=dusko_policy sig=10)
trace monp_sighandler1 end - (type=dusko_policy)
info monp_create_process_svc start - (type=dusko_policy path=*/dusko/bin/service argv=0x* wait=5 pid=0x* stat=0x* std=0
info * service process is not found.|monp_getservice(*/dusko/bin/service) not found. (ret:4)
trace monp_sighandler1 start - (type=dusko_policy sig=10)|catch signal. (type=dusko_policy sig=10)
trace monp_sighandler1 end - (type=dusko_policy)|start - (type=dusko_policy sig=12)
trace monp_sighandler1 catch signal. (type=dusko_policy sig=12)|end - (type=dusko_policy)
info * throw exit signal. (type=dusko_policy pid=* sig=10)|process exited. (type=dusko_policy pid=* stat=0)
info monp_create_process_svc end - (type=dusko_policy ret=0 pid=* stat=0)
info * monitor term. (type=dusko_policy stat=0 path=*/dusko/bin/service act=2)
info main end - (type=dusko_policy ret=4)
lib log_term open
)";

static const char* const COLLECTION = R"(
info monp_elog_collect start - (type=dusko_policy)
info * path=*/dusko/bin/collect bin=collect
detail cs_itoasc start - (src=5 len=8 dest=0x* loghdl=0x*)|end - (dest=5)
info monp_create_process start - (type=dusko_policy path=*/dusko/bin/collect argv=0x* wait=0 pid=(nil) stat=0x* std=1
info * process exited. (type=dusko_policy pid=* stat=0)
info monp_create_process end - (type=dusko_policy ret=0 pid=* stat=0)
info monp_elog_collect end - (type=dusko_policy ret=0 stat=0)
)";

namespace {

Texts list(const std::string& text)
{
    std::istringstream stream(text);
    Texts lines;

    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line);
        std::string level;
        std::string function;
        words >> level >> function >> std::ws;
        for (std::string rest; std::getline(words, rest, '|');) {
            lines.push_back(level);
            lines.back().append(" ").append(function).append(" ").append(rest);
        }
    }
    return lines;
}

void expect_lines(const Texts& expected, const Texts& found)
{
    for (size_t i = 0; i < std::max(expected.size(), found.size()); i++) {
        const std::string want = i < expected.size() ? expected[i] : "(nothing)";
        const std::string have = i < found.size() ? found[i] : "(nothing)";
        ASSERT_EQ(0, fnmatch(want.c_str(), have.c_str(), 0))
            << "line " << i << "\nwant: " << want << "\nhave: " << have;
    }
}

} // namespace

/*
 * Start and report, kill -9, collection, restart that cannot start the service, start request, end request.
 */
TEST(Record, WholeRun)
{
    sandbox::Installation in("dusko");
    std::map<int, Texts> threads; // by their numbers, which grow
    in.recording = true;
    in.own("action") = "2";
    in.own("param") = "--ctl  ../work/ctl report";
    in.own("restarttime") = "3";
    in.write();
    std::ofstream(in.root / "work/lock_trn").flush();
    sandbox::Monitor monp(in);
    ASSERT_EQ(0, monp.launched());

    fs::permissions(in.root / "bin/service", fs::perms(0644));
    kill(in.service(), SIGKILL);
    monp.wait_for("event1 *");
    monp.wait_for("info end - (type=dusko_policy ret=0 stat=0)");
    fs::permissions(in.root / "bin/service", fs::perms(0755));
    monp.signal(SIGUSR1);
    monp.wait_for_report(3);
    monp.signal(SIGUSR2);
    EXPECT_EQ(4, monp.ended()); // from the start that failed
    EXPECT_FALSE(fs::exists(in.root / "work/lock_trn"));

    for (const auto& line : monp.lines()) {
        if (!line.function.starts_with("monp_xml_")) {
            threads[std::stoi(line.thread)].push_back(line.level + ' ' + line.function + ' ' + line.text);
        }
    }
    ASSERT_EQ(3U, threads.size());
    expect_lines(list(FIRST_PROCESS), threads.begin()->second);
    expect_lines(list(DAEMON), std::next(threads.begin())->second);
    expect_lines(list(COLLECTION), threads.rbegin()->second);
}
