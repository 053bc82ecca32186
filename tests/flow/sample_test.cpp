/*
 * The sample installation as it is laid out for a user: for every type of service the policy, programs and collector fit.
 */
#include "sandbox_monitor.h"

#include <cstdlib>

namespace fs = std::filesystem;

class Sample : public testing::TestWithParam<const char*> {};

TEST_P(Sample, RecoversAndCollects)
{
    sandbox::Installation in(GetParam());

    fs::remove_all(in.root);
    ASSERT_EQ(0, std::system((SANDBOX_LAYOUT " " SANDBOX_BUILD " " + in.root.string()).c_str()));
    sandbox::Monitor monp(in, { "-a", "5", "-o", "report exit 3" });
    ASSERT_EQ(0, monp.launched());
    EXPECT_EQ(0, monp.ended());
    EXPECT_EQ(1U, in.calls("sample_down").size());
    EXPECT_EQ(0, monp.count("error xmllib_get_value() failed.*"));
    sandbox::eventually("the archive", [&in] { return fs::exists(in.root / "archive/elog.tar.gz"); });
}

INSTANTIATE_TEST_SUITE_P(, Sample, testing::Values("dusko", "pelkant", "tamzile", "goru", "lenk"),
                         [](const auto& type) { return std::string(type.param); });
