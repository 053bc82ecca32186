/*
 * The hooks for Pacemaker, with recording stand-ins for its commands.
 */
#include "stand_ins.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

namespace {

class Hook : public cluster::StandIns {
protected:
    Hook()
    {
        stand_in(commands / "timeout", "while case $1 in -*) ;; *) false ;; esac; do shift; done; shift; exec \"$@\"");
        stand_in(commands / "logger", "");
        stand_in(commands / "crm_node", "cat node");
        stand_in(commands / "crm_mon", "cat nodes; [ ! -e nodes.next ] || cat nodes.next >nodes");
        for (const char* name : { "crm_attribute", "stonith_admin", "systemctl", "pacemakerd", "corosync-cfgtool" }) {
            stand_in(commands / name, "[ ! -e \"fail.${0##*/}\" ]");
        }
        write("node", "node1\n");
    }

    void write(const std::string& name, const std::string& text) const
    {
        std::ofstream(root / name) << text;
    }
    /* The hook, with the mark of a running systemd in a place of the test's own. */
    cluster::Ended call(const std::string& hook, const std::string& arguments = "-t --type monp --nochk") const
    {
        std::string text = sandbox::file_content(CLUSTER_SOURCE "/hook/" + hook);
        const std::string mark = "/run/systemd/system";
        if (const size_t at = text.find(mark); at != std::string::npos) {
            text.replace(at, mark.size(), (root / "systemd").string());
        }
        write(hook, text);
        return run("sh " + hook + " " + arguments);
    }
    /* A node as crm_mon tells of it; each flag that is named is true, beside online. */
    static std::string node(const std::string& name, const std::string& flags = "")
    {
        std::string line = "    <node name=\"" + name + "\" id=\"1\"";
        for (const std::string flag :
             { "online", "standby", "standby_onfail", "maintenance", "pending", "unclean", "shutdown", "is_dc" }) {
            const bool set = flags.find("+" + flag + "+") != std::string::npos;
            line += " " + flag + "=\"" + (set != (flag == "online") ? "true" : "false") + "\"";
        }
        return line + " type=\"member\"/>\n";
    }
    int count(const std::string& call) const
    {
        const std::string all = "\n" + calls();
        int found = 0;
        for (size_t at = 0; (at = all.find("\n" + call, at)) != std::string::npos; at++) {
            found++;
        }
        return found;
    }
};

constexpr const char* ON = "crm_attribute -N node1 -n standby -l reboot -v on\n";
constexpr const char* BACK = "crm_attribute -N node1 -n standby -l reboot -D\n";

} // namespace

TEST_F(Hook, DrainsUnlessNoOtherNodeCouldTakeOver)
{
    const struct {
        std::string others;
        bool drained;
    } cases[] = {
        { node("node2"), true },
        { node("node2", "+online+") + node("node3", "+is_dc+"), true }, // "online" is turned over
        { "", false },
        { node("node2", "+online+"), false },
        { node("node2", "+standby+"), false },
        { node("node2", "+standby_onfail+"), false },
        { node("node2", "+maintenance+"), false },
        { node("node2", "+pending+"), false },
        { node("node2", "+unclean+"), false },
        { node("node2", "+shutdown+") + node("node3", "+standby+"), false },
        { node("node10"), true },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.others);
        write("nodes", "<nodes>\n" + node("node1") + c.others + "</nodes>\n");
        EXPECT_EQ(c.drained ? 0 : 1, call("cl").status);
        EXPECT_EQ(c.drained, calls().find(ON) != std::string::npos) << calls();
        EXPECT_EQ(0, count(BACK)) << calls();
    }
}

/* A command that hangs must not keep the monitor, and with it Pacemaker's stop, waiting. */
TEST_F(Hook, AsksTheClusterForALimitedTimeOnly)
{
    write("nodes", node("node1") + node("node2"));
    EXPECT_EQ(0, call("cl").status);
    EXPECT_EQ(4, count("timeout 10 crm_"));
    EXPECT_EQ(4, count("crm_"));
}

TEST_F(Hook, StaysWhenTwoNodesHaveCountedEachOther)
{
    write("nodes", node("node1") + node("node2"));
    write("nodes.next", node("node1", "+standby+") + node("node2", "+standby+"));
    const auto ended = call("cl");
    EXPECT_EQ(1, ended.status);
    EXPECT_THAT(ended.output, HasSubstr("the last other node went on standby at the same time"));
    EXPECT_THAT(calls(), HasSubstr(BACK));
}

TEST_F(Hook, FailsWhenTheClusterDoesNotAnswer)
{
    write("nodes", node("node1") + node("node2"));
    write("fail.crm_attribute", "");
    EXPECT_EQ(1, call("cl").status);
    EXPECT_EQ(1, count("logger "));
    write("nodes", "");
    EXPECT_EQ(1, call("cl").status);
    for (const char* name : { "", "no/de", "n\"de" }) {
        write("node", name);
        EXPECT_EQ(1, call("cl").status);
        EXPECT_EQ(0, count("crm_attribute")) << name;
    }
}

TEST_F(Hook, StopsTheDaemonsDetached)
{
    std::filesystem::create_directory(root / "systemd");
    EXPECT_EQ(0, call("cl.stop").status);
    EXPECT_EQ("timeout 10 systemctl --no-block stop pacemaker.service corosync.service\n"
              "systemctl --no-block stop pacemaker.service corosync.service\n",
              calls());
    write("fail.systemctl", "");
    EXPECT_EQ(1, call("cl.stop").status);

    // Without systemd: the hook is back while the first daemon still ends, and the second comes after it.
    std::filesystem::remove(root / "systemd");
    ASSERT_EQ(0, std::system(("mkfifo " + (root / "hold").string()).c_str()));
    stand_in(commands / "pacemakerd", "read x <hold");
    EXPECT_EQ(0, call("cl.stop").status);
    EXPECT_EQ(0, count("corosync-cfgtool"));
    write("hold", "go on\n");
    for (int tries = 0; count("corosync-cfgtool -H\n") == 0 && tries < 100; tries++) {
        ASSERT_EQ(0, std::system("sleep 0.1"));
    }
    EXPECT_EQ(1, count("pacemakerd --shutdown\n"));
    EXPECT_EQ(1, count("corosync-cfgtool -H\n"));
    std::filesystem::remove(commands / "pacemakerd");
    EXPECT_EQ(1, call("cl.stop").status);
}

/* Off for a halt, a reboot for a reboot, and any failure leaves the rest to the monitor. */
TEST_F(Hook, HasTheNodeFenced)
{
    EXPECT_EQ(0, call("down", "--type monp --nochk").status);
    EXPECT_EQ(1, count("timeout --kill-after=5 60 stonith_admin --fence node1 --timeout=50\n")) << calls();
    EXPECT_EQ(0, call("down", "-r --type monp --nochk").status);
    EXPECT_EQ(1, count("timeout --kill-after=5 60 stonith_admin --reboot node1 --timeout=50\n")) << calls();
    write("fail.stonith_admin", "");
    EXPECT_EQ(1, call("down", "-r --type monp --nochk").status);
    write("node", "");
    EXPECT_EQ(1, call("down", "-r --type monp --nochk").status);
    EXPECT_EQ(0, count("stonith_admin"));
}
