/*
 * What is installed: the Debian package and what it does to running monitors, the rules without a package, the unit,
 * the init script and the completion.
 */
#include "sandbox_monitor.h"

#include <csignal>
#include <fstream>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

static const fs::path gprefix = PACKAGE_PREFIX;

/* Something mounted as long as this lives. */
class Mount {
public:
    Mount(const fs::path& source, fs::path place, const char* type, unsigned long flags) : place_(std::move(place))
    {
        const char* options = flags == 0 ? "mode=0755" : nullptr;
        EXPECT_EQ(0, mount(source.c_str(), place_.c_str(), type, flags, options)) << place_;
    }
    ~Mount()
    {
        EXPECT_EQ(0, umount2(place_.c_str(), MNT_DETACH)) << place_;
    }
    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;

private:
    fs::path place_;
};

/* A scratch root, the working directory of all commands, with the package unpacked and in $deb. */
class Package : public testing::Test {
protected:
    Package()
    {
        fs::create_directories(root);
        sh("cp " PACKAGE_FILE " $deb; dpkg-deb -x $deb .; mkdir -p bin var/lib/dpkg/info; : >var/lib/dpkg/status");
    }
    ~Package() override
    {
        fs::remove_all(root);
    }

    /* Runs a command that has to end with this status; gives all that it printed. */
    std::string sh(const std::string& command, int status = 0) const
    {
        const std::string prologue = "exec </dev/null >output 2>&1; unset TESK_HOME; deb=../monp.deb; ";
        const int end = std::system(("cd " + root.string() + "; " + prologue + command).c_str());
        std::string output = sandbox::file_content(root / "output");

        EXPECT_EQ(status, WEXITSTATUS(end)) << command << '\n' << output;
        return output;
    }
    /* Installs without the package, below a name that wants quotes and under a mask that closes everything. */
    void install() const
    {
        sh("umask 077; " PACKAGE_INSTALL "\"$PWD/a b\"");
    }
    /* Pids of the processes that run a program of an installation. */
    std::string pids(const fs::path& home, const std::string& program = "") const
    {
        return sh("ls -l /proc/[0-9]*/exe 2>/dev/null | sed -n 's|^.*/proc/\\([0-9]*\\)/exe -> " +
                  (home / "bin" / program).string() + ".*|\\1|p'");
    }

    const fs::path root = sandbox::directory() / "root";
    const fs::path installed = root / "a b";
};

TEST_F(Package, HoldsRootsFilesAndNoScripts)
{
    const std::pair<const char*, const char*> entries[] = {
        { "lrwxrwxrwx", "HOME/lib/builtin/libtesklog.so" },
        { "-rw-r--r--", "HOME/etc/schema/service.rng" },
        { "drwxr-xr-x", "HOME/etc/hook/" },
        { "drwx------", "HOME/work/dump/" },
        { "-rwxr-xr-x", "/etc/init.d/monp" },
        { "-rw-r--r--", "/usr/share/zsh/vendor-completions/_monpctl" },
        { "-rw-r--r--", "/usr/share/fish/vendor_completions.d/monp.fish" },
        { "-rw-r--r--", "/usr/share/man/man8/monp.8" },
    };
    const std::string list = sh("dpkg-deb -c $deb | sed 's, [^ ].* \\., ,; s, " PACKAGE_PREFIX "/, HOME/,'");
    for (const auto& [mode, path] : entries) {
        EXPECT_NE(std::string::npos, list.find(mode + std::string(" ") + path)) << path << "\n" << list;
    }
    EXPECT_EQ("", sh("dpkg-deb -c $deb | awk '$2 != \"root/root\" || $1 ~ /^[^l]....w|^[^l].......w/'"));
    EXPECT_EQ("conffiles\ncontrol\nmd5sums\n", sh("dpkg-deb -e $deb control; ls control"));
    EXPECT_EQ("drwx------ HOME/archive/\ndrwxr-x--- HOME/log/\ndrwx------ HOME/work/dump/\n",
              sh("dpkg-deb -c $deb | sed -n '/^drwxr-xr-x/d; s, .* \\." PACKAGE_PREFIX "/, HOME/,; /^d/p'"));
    // each file of an etc but the schemas
    sh("sort control/conffiles >a; find etc ." PACKAGE_PREFIX "/etc -type f -not -name '*.rng' | sed 's,^\\.*/*,/,' |"
       " sort | diff a -");
    sh("cp /bin/sh bin; cp /bin/true ." PACKAGE_PREFIX "/bin/monpctl");
    EXPECT_EQ("", sh("systemd-analyze verify --root=$PWD --recursive-errors=no --man=no monp@dusko.service"));
}

/* The directory itself, or the nearest above it that is there. */
static fs::path existing(fs::path directory)
{
    while (!fs::exists(directory)) {
        directory = directory.parent_path();
    }
    return directory;
}

/* The monitor and its service go on through an upgrade and a removal, and the operator's policy stays. */
TEST_F(Package, LeavesRunningMonitorsAlone)
{
    // /sbin, where dpkg looks for helpers that nothing here needs, is the sandbox's
    const std::string dpkg = "dpkg --root=$PWD --log=$PWD/dpkg.log --force-bad-path,unsafe-io,depends ";
    const Mount log("tmpfs", "/var/log", "tmpfs", 0);
    sh("rm -r ." PACKAGE_PREFIX "; " + dpkg + "-i $deb");
    ASSERT_NE("/", existing(gprefix));
    const Mount top("tmpfs", existing(gprefix), "tmpfs", 0); // nor is the machine's own installation shown
    fs::create_directories(gprefix);
    const Mount home(root / gprefix.relative_path(), gprefix, nullptr, MS_BIND);
    sh("cd " PACKAGE_PREFIX "; sed -i 's/<waittime>5/<waittime>7/' etc/policy/monp.xml; touch var/lock/monp_trn;"
       " bin/monp --dusko");
    const std::string monitor = pids(gprefix, "monp");
    const std::string service = pids(gprefix, "sample_dusko");
    ASSERT_TRUE(std::atoi(monitor.c_str()) > 1 && std::atoi(service.c_str()) > 1);

    sh("dpkg-deb -R $deb new; sed -i 's/^Version: .*/Version: 99/' new/DEBIAN/control; dpkg-deb -Znone -b new new.deb");
    for (const std::string action : { "-i new.deb", "-r monp" }) {
        sh(dpkg + action);
        EXPECT_EQ(monitor, pids(gprefix, "monp")) << action;
        EXPECT_EQ(service, pids(gprefix, "sample_dusko")) << action;
        sh("grep -q '<waittime>7' " PACKAGE_PREFIX "/etc/policy/monp.xml");
    }
    EXPECT_FALSE(fs::exists(gprefix / "bin/monp"));

    int status = -1;
    kill(std::stoi(monitor), SIGUSR2);
    EXPECT_EQ(std::stoi(monitor), waitpid(std::stoi(monitor), &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ("", pids(gprefix));
    EXPECT_TRUE(fs::is_empty("/var/log")) << "the machine's own log is written";
}

/* A library in lib goes before ours in lib/builtin; no package has a file there. */
TEST_F(Package, NeverPutsOurLibraryBack)
{
    const std::string dpkg = "dpkg --root=$PWD --log=$PWD/dpkg.log --force-bad-path,unsafe-io,depends ";
    const std::string libraries =
        "LD_TRACE_LOADED_OBJECTS=1 " PACKAGE_PREFIX "/bin/monp | sed -n 's,.* => \\(.*/libtesk"
        "[a-z]*\\).*,\\1,p'; cmp " SANDBOX_STUBS "/libtesklog.so.1.0 " PACKAGE_PREFIX "/lib/libtesklog.so.1.0";
    const std::string loaded =
        PACKAGE_PREFIX "/bin/../lib/libtesklog\n" PACKAGE_PREFIX "/bin/../lib/builtin/libteskxml\n";
    sh("rm -r ." PACKAGE_PREFIX "; " + dpkg + "-i $deb");
    ASSERT_NE("/", existing(gprefix));
    const Mount top("tmpfs", existing(gprefix), "tmpfs", 0);
    fs::create_directories(gprefix);
    const Mount home(root / gprefix.relative_path(), gprefix, nullptr, MS_BIND);
    sh("cp " SANDBOX_STUBS "/libtesklog.so.1.0 " PACKAGE_PREFIX "/lib");
    sh("dpkg-deb -R $deb new; sed -i 's/^Version: .*/Version: 99/' new/DEBIAN/control; dpkg-deb -Znone -b new new.deb");
    for (const std::string action : { "-i $deb", "-i new.deb" }) {
        sh(dpkg + action);
        EXPECT_EQ(loaded, sh(libraries)) << action;
    }
    sh(PACKAGE_INSTALL PACKAGE_PREFIX " | grep 'In front of ours: " PACKAGE_PREFIX "/lib/libtesklog.so.1.0'");
    EXPECT_EQ(loaded, sh(libraries));
    sh(dpkg + "-r monp; test -e " PACKAGE_PREFIX "/lib/libtesklog.so.1.0");
}

/* What systemd does when the unit is started, its monitor dies, and the unit is restarted and stopped. */
TEST_F(Package, HasAUnitWhoseServiceOutlivesTheMonitor)
{
    const auto unit = [this](const std::string& key) { // its line, joined; behind "-" a failure is none
        sh(R"(sed -n ':a;/\\$/{N;s/\\\n//;ba};s/%i/dusko/g;s/^Environment=/export /p;s/^)" + key +
           R"(=-\(.*\)/\1 || :/p;s/^)" + key + "=//p' 'a b'/lib/systemd/system/monp@.service | sh -e");
    };
    const auto started = [&] {
        unit("ExecStart");
        unit("ExecStartPost");
        return std::stoi(sandbox::file_content("/run/monp-dusko.pid"));
    };
    install();
    const pid_t first = started();
    ASSERT_GT(first, 1);
    const pid_t service = std::stoi(sandbox::file_content(installed / "run/dusko.pid"));
    kill(first, SIGTERM);
    EXPECT_EQ(first, waitpid(first, nullptr, 0));
    unit("ExecStopPost");
    EXPECT_EQ(0, kill(service, 0));
    EXPECT_NE(first, started());
    unit("ExecStopPost"); // as after a start that failed beside it
    EXPECT_EQ(0, kill(service, 0));
    std::thread stop([&] { unit("ExecStop"); });
    EXPECT_EQ(service, waitpid(service, nullptr, 0)); // as process 1 does
    stop.join();
    sh("chmod -x a*/bin/sample_dusko; TESK_HOME=\"$PWD/a b\" a*/bin/monpctl start dusko", 3); // it waits
    EXPECT_NE("", pids(installed));
    unit("ExecStopPost");
    EXPECT_EQ("", pids(installed));
}

TEST_F(Package, IsNotNeededForAnInstallation)
{
    install();
    sh("sed -i 's/<core>1/<core>0/' a*/etc/policy/all.xml");
    install();
    sh("grep -q '<core>0' a*/etc/policy/all.xml && grep -q \"<path>$PWD/a b<\" a*/etc/policy/all.xml");
    sh("test -x a*/etc/init.d/monp -a -e a*/share/man/man8/monp.8");
    EXPECT_EQ("700 archive\n700 work/dump\n750 log\n", sh("find a* -type d -not -perm 755 -printf '%m %P\\n' | sort"));
    // the unit's programs below the scratch root
    sh("cp a*/lib/systemd/system/* lib/systemd/system; mkdir -p \".$PWD/a b/bin\"; cp /bin/sh bin;"
       " cp /bin/true \".$PWD/a b/bin/monpctl\"");
    EXPECT_EQ("", sh("systemd-analyze verify --root=$PWD --recursive-errors=no --man=no monp@dusko.service"));
    EXPECT_NE(std::string::npos, sh(PACKAGE_INSTALL "\"$PWD/a'b\"", 1).find("a'b\" has a quote"));
}

TEST_F(Package, HasAnInitScriptForAllTypesOrOne)
{
    const struct {
        const char* arguments;
        int status;
        const char* calls;
    } cases[] = {
        { "start", 3, "start b\nstart a\n" },
        { "stop", 0, "stop a --yes\nstop b --yes\n" },
        { "restart b", 3, "stop b --yes\nstart b\n" },
        { "try-restart b", 0, "status b\n" },
        { "reload '*'", 0, "reload *\n" },
        { "start a b", 2, "" },
    };
    install();
    sh("echo \"echo \\\"\\$*\\\" >>$PWD/calls; case \\$* in 'start b' | 'status b') exit 3 ;; esac\" >try;"
       " install -m 755 try a*/bin/monpctl; echo 'MONP_TYPES=\"b a\"' >etc/default/monp;"
       " sed \"s,/etc/default,$PWD&,g\" a*/etc/init.d/monp >script");
    for (const auto& c : cases) {
        sh(std::string(": >calls; sh script ") + c.arguments, c.status);
        EXPECT_EQ(c.calls, sandbox::file_content(root / "calls")) << c.arguments;
    }
    sh("sed -i 's,b a,,' etc/default/monp; sh script start 2>&1 | grep 'no types are configured'");
    sh("sh script status", 3);
    sh(": >calls; mkdir -p /run/systemd/system; sh script start; s=$?; rm -r /run/systemd; exit $s", 1);
    EXPECT_EQ("", sandbox::file_content(root / "calls"));
}

TEST_F(Package, CompletesTypesOfThePolicyDirectory)
{
    const std::pair<const char*, const char*> cases[] = {
        { "monp --d", "--dusko" },
        { "monp --dusko -A ''", "1 2 3 4 5" },
        { "monp -o --", "" },
        { "monpctl stop ''", "dusko new pelkant" },
        { "." PACKAGE_PREFIX "/bin/monpctl check ''", "dusko new pelkant" },
        { "." PACKAGE_PREFIX "/bin/monp --n", "--new" },
        { "/nowhere/monpctl stop ''", "" },
        { "monpctl log --level w", "warning" },
        { "monpctl re", "reload restart" },
        { "monpctl status --fields mon", "monitor_pid" },
        { "monpctl start new -- -", "-a -n -o -r -w" },
    };
    sh("cd ." PACKAGE_PREFIX "/etc/policy; rm goru.xml lenk.xml tamzile.xml; cp dusko.xml new.xml;"
       " cp dusko.xml '$(touch bad).xml'");
    for (const auto& [line, words] : cases) {
        std::ofstream(root / "try") << ". usr/share/bash-completion/completions/monpctl\nCOMP_WORDS=(" << line << ")\n"
                                    << "COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_${COMP_WORDS[0]##*/}\n"
                                    << "printf '%s\\n' \"${COMPREPLY[@]}\" | sort | paste -s -d ' '\n";
        EXPECT_EQ(words + std::string("\n"),
                  sh("PATH=$PWD" PACKAGE_PREFIX "/bin:$PATH TESK_HOME=$PWD" PACKAGE_PREFIX " bash try"))
            << line;
    }
    EXPECT_FALSE(fs::exists(root / "bad"));
}
