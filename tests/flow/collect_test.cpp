/*
 * The collector's copy of a log that the real monitor has written.
 */
#include "sandbox_monitor.h"

#include <gmock/gmock.h>

namespace fs = std::filesystem;
using sandbox::Installation;
using sandbox::Monitor;
using testing::HasSubstr;
using testing::Not;

TEST(Collection, HidesThePasswordsAmongTheServicesArguments)
{
    Installation in("dusko");
    in.hurried = true;
    in.own("param") = "--ctl ../work/ctl --password S3cr3t1 --key=db.password S3cr3t2 --token=S3cr3t3 report";
    in.own("child_timeout") = "1";
    in.write();
    Monitor monp(in);
    monp.wait_for("error initialize error. *");
    const std::string log = sandbox::file_content(in.root / "log/monp.log");
    for (const char* line :
         { "arg3 -> S3cr3t1 (type=", "arg5 -> S3cr3t2 (type=", "param=--ctl ../work/ctl --password " }) {
        EXPECT_THAT(log, HasSubstr(line));
    }

    const fs::path redact = fs::path(SANDBOX_MONITOR).parent_path() / "sample_redact";
    const std::string command = redact.string() + ' ' + in.root.string() + ' ' + (in.root / "stage").string();
    ASSERT_EQ(0, std::system(("echo log monp.log | " + command).c_str()));
    const std::string copy = sandbox::file_content(in.root / "stage/log/monp.log");
    EXPECT_THAT(copy, Not(HasSubstr("S3cr3t")));
    for (const char* line : { "arg1 -> ../work/ctl (type=dusko_policy)", "arg2 -> --password (type=dusko_policy)",
                              "arg3 -> ******* (type=dusko_policy)", "arg4 -> --key=db.password (type=dusko_policy)",
                              "arg6 -> --token=******* (type=dusko_policy)", "arg7 -> report (type=dusko_policy)" }) {
        EXPECT_THAT(copy, HasSubstr(line));
    }
}
