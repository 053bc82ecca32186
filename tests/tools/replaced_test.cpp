/*
 * The monitor and monpctl with libraries that have the cluster's operations and no others, as an operator puts them in
 * the place of ours.
 */
#include "monpctl_run.h"

namespace fs = std::filesystem;
using sandbox::file_content;
using sandbox::Installation;

namespace {

constexpr const char* LOG = "libtesklog.so.1.0";
constexpr const char* XML = "libteskxml.so.1.0";

/*
 * An installation with programs and libraries of its own.
 */
struct Replaced : Installation {
    Replaced() : Installation("dusko")
    {
        fs::create_directories(root / "lib/builtin");
        fs::copy_file(SANDBOX_MONITOR, root / "bin/monp");
        fs::copy_file(SANDBOX_MONPCTL, root / "bin/monpctl");
        for (const char* library : { LOG, XML }) {
            fs::copy_file(fs::path(SANDBOX_BUILTIN) / library, root / "lib/builtin" / library);
        }
        write();
    }
    void replace(const std::string& library) const
    {
        fs::copy_file(fs::path(SANDBOX_STUBS) / library, root / "lib" / library);
    }
    sandbox::Run run(const std::string& arguments) const
    {
        return sandbox::monpctl(*this, arguments, (root / "bin/monpctl").string());
    }
    [[nodiscard]] std::string stub_log() const
    {
        return file_content(root / "log/monp.txt");
    }
};

sandbox::Texts exported(const fs::path& library)
{
    const std::string names = (sandbox::directory() / "names").string();

    EXPECT_EQ(0, std::system(
                     ("nm -D --defined-only --format=just-symbols " + library.string() + " | sort >" + names).c_str()));
    return sandbox::file_lines(names);
}

} // namespace

TEST(ReplacedLibraries, AndOursHaveTheOperationsOfTheClusterAndNoOthers)
{
    const sandbox::Texts log = { "log_init", "log_term", "log_write" };
    const sandbox::Texts xml = { "xmllib_get_value",     "xmllib_init",
                                 "xmllib_load_config",   "xmllib_load_pathconfig",
                                 "xmllib_load_policy",   "xmllib_term",
                                 "xmllib_unload_config", "xmllib_unload_pathconfig",
                                 "xmllib_unload_policy" };

    for (const fs::path directory : { SANDBOX_BUILTIN, SANDBOX_STUBS }) {
        EXPECT_EQ(log, exported(directory / LOG)) << directory;
        EXPECT_EQ(xml, exported(directory / XML)) << directory;
    }
}

/*
 * With both in front, a whole life: the log is the other library's, and the tool still tells what is wrong in a policy.
 */
TEST(ReplacedLibraries, RunAMonitorAndItsTool)
{
    Replaced in;
    in.replace(LOG);
    in.replace(XML);

    for (const char* command : { "--help", "start --help", "check" }) {
        EXPECT_EQ(0, in.run(command)) << command;
    }
    in.own("waittime") = "soon";
    in.write();
    const auto check = in.run("check");
    EXPECT_EQ(1, check);
    EXPECT_NE(std::string::npos, file_content(in.root / "work/monpctl.out").find("monp.xml:")) << check.errors;
    in.own("waittime") = "5";
    in.write();

    const fs::path pm = in.root / "etc/policy/pm.xml";
    fs::rename(pm, in.root / "pm.xml");
    EXPECT_NE(0,
              std::system(("TESK_HOME=" + in.root.string() + ' ' + (in.root / "bin/monp --dusko").string()).c_str()));
    EXPECT_NE(std::string::npos, in.stub_log().find("xmllib_load_policy() failed. (type=dusko ret=0x52)"));
    fs::rename(in.root / "pm.xml", pm);

    EXPECT_EQ(0, in.run("start dusko"));
    in.service();
    EXPECT_NE(std::string::npos, in.stub_log().find("service process is not found.")) << in.stub_log();
    EXPECT_FALSE(fs::exists(in.root / "log/monp.log")) << "our log library was used";
    const auto status = in.run("status dusko");
    EXPECT_NE(std::string::npos, file_content(in.root / "work/monpctl.out").find("dusko")) << status.errors;
    EXPECT_EQ(0, in.run("stop --yes dusko"));
    EXPECT_EQ(std::vector<pid_t>{}, in.services());
}
