/*
 * From the launcher's command to the running service: refusals, the handshake, what is handed down, adoption.
 */
#include "sandbox_monitor.h"

#include <csignal>
#include <cstdlib>
#include <fnmatch.h>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using sandbox::eventually;
using sandbox::Installation;
using sandbox::Monitor;
using sandbox::Texts;

/*
 * A run that ends before it becomes a daemon tells its launcher why, and removes no lock file: whose it is it knows
 * only with the whole configuration.
 */
TEST(Launch, IsRefusedInTheForeground)
{
    const struct {
        sandbox::Texts arguments;
        uid_t user;
        const char* missing; // key
        int status;
        const char* message;
    } cases[] = {
        { {}, 65534, "", 1, "monp : permission denied. (ret=65534 line=[0-9]*)\n" },
        { { "-x" }, 0, "", 2, "monp : invalid parameter. (ret=2 line=[0-9]*)\n" },
        { {}, 0, "dusko/path", 1, "monp : monp_getconfig() failed. (ret=4 line=[0-9]*)\n" },
    };

    for (const auto& refusal : cases) {
        Installation in("dusko");
        in.values.erase(refusal.missing);
        in.write();
        for (const char* file : { "stderr", "lock", "lock_trn" }) {
            std::ofstream(in.root / "work" / file).flush();
        }
        EXPECT_EQ(refusal.status, Monitor(in, refusal.arguments, refusal.user).launched()) << refusal.message;
        const std::string error = sandbox::file_content(in.root / "work/stderr");
        EXPECT_EQ(0, fnmatch(refusal.message, error.c_str(), 0)) << refusal.message << error;
        EXPECT_EQ(std::vector<pid_t>{}, in.services());
        EXPECT_TRUE(fs::exists(in.root / "work/lock") && fs::exists(in.root / "work/lock_trn"));
    }
}

/*
 * Each launcher is let go at its own moment and no later: the report, the time-out of the report, the first wait, and
 * the limit of its own patience.
 */
TEST(Launch, ReleasesTheLauncherInTime)
{
    const struct {
        const char* type;
        Texts arguments;
        const char* param;
        const char* key; // of a time-out that is one second
        double least;
        double most;
        const char* then; // what the daemon goes on to
    } cases[] = {
        // not after the second that the silent service has to end
        { "nm", {}, "end ignored silent", "child_timeout", 1.0, 1.8, "info throw exit signal. (* sig=9)" },
        { "goru", {}, "sleep 3 report", "parent_timeout", 1.0, 2.8, "trace catch signal. (type=goru_policy sig=10)" },
        { "dusko", {}, "sleep 2 report", "waittime", 2.0, 2.8, "trace catch*" }, // nor with the next poll
        { "nm", { "-n" }, "", "waittime", 0.0, 5.0, "info waiting for a service start request. *" },
    };

    for (const auto& c : cases) {
        Installation in(c.type);
        in.own("param") = c.param;
        in.own(c.key) = "1";
        in.write();
        Monitor monp(in, c.arguments);
        EXPECT_EQ(0, monp.launched());
        EXPECT_GE(monp.seconds(), c.least) << c.type;
        EXPECT_LT(monp.seconds(), c.most) << c.type;
        monp.wait_for(c.then);
    }
}

/*
 * What a started program finds, whatever the launcher had in disorder. The program is one that leaves everything as it
 * was handed down, and does not report.
 */
TEST(Launch, HandsDownToTheService)
{
    Installation in("dusko");
    in.launcher = [&in] {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        signal(SIGCHLD, SIG_IGN);
        fs::create_directory(in.root / "gone");
        fs::current_path(in.root / "gone");
        fs::remove(in.root / "gone");
        close(0);
        close(1);
    };
    in.values["all/core"] = "1";
    in.values["all/stacksize"] = "16777216";
    in.own("parent_timeout") = "30";
    in.own("param") = "  1000 ";
    std::string words("service\0001000\0", 13);
    for (int word = 2; word <= 30; word++) {
        in.own("param") += " 0";
        words.append("0", 2); // with its end
    }
    in.own("param") += " x"; // one too many
    fs::copy_file("/bin/sleep", in.root / "bin/service", fs::copy_options::overwrite_existing);
    in.write();
    Monitor monp(in);
    const pid_t service = in.service();
    const fs::path proc = "/proc/" + std::to_string(service);
    const auto has = [proc](const char* file, const std::string& text) {
        return ('\0' + sandbox::file_content(proc / file)).find(text) != std::string::npos;
    };

    // 1 to 30 but HUP, ABRT, KILL, USR1, SEGV, USR2, TERM, CHLD and STOP
    EXPECT_TRUE(has("status", "\nSigIgn:\t000000003ffab0de\n"));
    EXPECT_TRUE(has("status", "\nSigBlk:\t0000000000000000\n"));
    EXPECT_TRUE(has("status", "\nUmask:\t0000\n"));
    EXPECT_EQ(in.root / "bin", fs::read_symlink(proc / "cwd"));
    EXPECT_EQ("/dev/null", fs::read_symlink(proc / "fd/0"));
    EXPECT_EQ("/dev/null", fs::read_symlink(proc / "fd/1"));
    EXPECT_EQ(in.root / "work/stderr", fs::read_symlink(proc / "fd/2"));
    EXPECT_EQ(monp.daemon(), getsid(service));
    EXPECT_EQ(words, sandbox::file_content(proc / "cmdline"));
    for (const std::string variable : { "MALLOC_CHECK_=2", "PATH=/usr/bin:/bin", "LANG=C.UTF-8" }) {
        EXPECT_TRUE(has("environ", '\0' + variable + '\0')) << variable;
    }
    EXPECT_TRUE(has("limits", "Max core file size        unlimited            unlimited "));
    EXPECT_TRUE(has("limits", "Max stack size            16777216             unlimited "));

    EXPECT_EQ(0, monp.launched());
    EXPECT_LT(monp.seconds(), 20.0) << "the handshake was blocked";
    monp.signal(SIGUSR2);
    EXPECT_EQ(0, monp.ended());
    EXPECT_TRUE(monp.logged({ "error getcwd() failed. (errno=2)", "info monp_getservice(*", "event1 *(status -1)." }));
    EXPECT_EQ(0, monp.count("* waitpid() failed. *"));
}

/*
 * SIGTERM ends the monitor without its exit path. The service, which has become a daemon, lives on. The next monitor
 * takes it over, notices its death, and kills the next service when asked to end.
 */
TEST(Launch, AdoptsTheServiceOfItsPredecessor)
{
    const char* const adopted = "info service process is already started. *";
    Installation in("dusko");
    in.hurried = true;
    in.own("action") = "2";
    in.own("child_timeout") = "4000";
    in.own("waittime") = "20";
    in.own("param") = "report daemon";
    in.write();
    std::ofstream(in.root / "work/lock_trn").flush();
    Monitor first(in);
    ASSERT_EQ(0, first.launched());
    first.wait_for(adopted);
    const pid_t service = in.service();
    first.signal(SIGTERM);
    EXPECT_EQ(128 + SIGTERM, first.ended());
    EXPECT_TRUE(fs::exists(in.root / "work/lock_trn"));

    Monitor second(in);
    EXPECT_EQ(0, second.launched());
    EXPECT_LT(second.seconds(), 5.0);
    second.wait_for(adopted, 2);
    kill(service, SIGKILL);
    EXPECT_EQ(service, waitpid(service, nullptr, 0));
    second.wait_for(adopted, 3);
    const std::string next = std::to_string(in.service());
    kill(std::stoi(next), SIGSTOP);
    second.signal(SIGUSR2);
    EXPECT_EQ(0, second.ended());
    EXPECT_TRUE(second.logged({ "event2 *(status 0)*", adopted, "info service process is found. (pid=*", adopted,
                                "event2 *(status -1)*", "event3 *", "event2 *(status 0)*", adopted,
                                "info throw exit signal. (* pid=" + next + " sig=10)",
                                "info throw exit signal. (* pid=" + next + " sig=9)",
                                "info monitor term. (type=dusko_policy stat=0 path=* act=2)" }));
    EXPECT_FALSE(fs::exists(in.root / "work/lock_trn"));
}

/*
 * The sample installation as it is laid out for a user: policies, programs and collector fit.
 */
TEST(Launch, RunsTheSampleInstallation)
{
    Installation in("dusko");
    const std::string root = in.root;
    fs::remove_all(root);
    ASSERT_EQ(0, std::system((SANDBOX_LAYOUT + root).c_str()));
    ASSERT_EQ(0, std::system(("sed -i 's/<level>4/<level>16/' " + root + "/etc/policy/monp.xml").c_str()));
    std::ofstream(in.root / "etc/hook/down") << "#!/bin/sh\necho \"$*\" >>work/asked\n";
    fs::permissions(in.root / "etc/hook/down", fs::perms(0755));
    Monitor monp(in, { "-a", "5", "-o", "report exit 3" });
    ASSERT_EQ(0, monp.launched());
    EXPECT_EQ(0, monp.ended());
    EXPECT_EQ(Texts{ "-r --type monp --nochk" }, sandbox::file_lines(in.root / "work/asked"));
    EXPECT_EQ(Texts{}, sandbox::shutdown_calls());
    EXPECT_EQ(0, monp.count("error xmllib_get_value() failed.*"));
    eventually("the archive", [&in] { return fs::exists(in.root / "archive/elog.tar.gz"); });
}
