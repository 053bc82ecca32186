/*
 * Lines of files that are renamed under the reader, and events with odd members.
 */
#include "machine/event_log.h"
#include "machine/follow.h"
#include "temporary.h"

#include <cerrno>
#include <fstream>
#include <gmock/gmock.h>

using namespace monpctl;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

namespace {

struct Files {
    Temporary directory;

    [[nodiscard]] fs::path file(const std::string& suffix = "") const
    {
        return directory.path / ("monp.log" + suffix);
    }
    void add(const std::string& text, const std::string& suffix = "") const
    {
        std::ofstream(file(suffix), std::ios::app) << text;
    }
    void move(const std::string& from, const std::string& to) const
    {
        fs::rename(file(from), file(to));
    }
};

std::vector<std::string> rest(Follower& follower)
{
    std::vector<std::string> lines;

    for (int look = 0; look < 3; look++) {
        for (std::string line; follower.next(line);) {
            lines.push_back(line);
        }
    }
    return lines;
}

} // namespace

TEST(Follower, ReadsAllGenerationsInTheirOrder)
{
    const Files files;
    files.add("six\n");
    files.add("five\n", ".aside.1700000000000000002.71");
    files.add("four\n", ".aside.999.72");
    files.add("three\n", ".1");
    files.add("two\n", ".9");
    files.add("one\n", ".10");
    for (const char* other : { ".lock", ".aside.x.1", ".1.gz", "x", ".0" }) {
        files.add("no line of the log\n", other);
    }
    Follower follower(files.file());

    EXPECT_THAT(rest(follower), ElementsAre("one", "two", "three", "four", "five", "six"));
}

/*
 * Right after a rotation the newest file is empty, or not there yet.
 */
TEST(Follower, FindsTheLinesBeforeARotation)
{
    const Files files;
    files.add("one\n", ".1");
    Follower missing(files.file());
    EXPECT_THAT(rest(missing), ElementsAre("one"));
    files.add("");
    Follower empty(files.file());
    EXPECT_THAT(rest(empty), ElementsAre("one"));
    files.add("two\n");
    EXPECT_THAT(rest(empty), ElementsAre("two"));
    EXPECT_THAT(rest(missing), ElementsAre("two"));
}

/*
 * A full file is put aside while nobody may number it, once and again, before the numbers come.
 */
TEST(Follower, LosesNothingOfFilesThatArePutAside)
{
    const Files files;
    files.add("one\n");
    Follower follower(files.file());
    EXPECT_THAT(rest(follower), ElementsAre("one"));

    files.add("two\n");
    files.move("", ".aside.100.7");
    EXPECT_THAT(rest(follower), ElementsAre("two"));
    files.add("three\n");
    files.move("", ".aside.200.8");
    files.add("four\n");
    EXPECT_THAT(rest(follower), ElementsAre("three", "four"));
    files.move(".aside.100.7", ".2");
    files.move(".aside.200.8", ".1");
    files.add("five\n");
    EXPECT_THAT(rest(follower), ElementsAre("five"));
}

TEST(Follower, SaysWhyThereIsNoFile)
{
    const Files files;
    EXPECT_EQ(ENOENT, Follower(files.file()).error());
    EXPECT_EQ(ENOTDIR, Follower(fs::path("/dev/null/monp.log")).error());
    fs::create_directory(files.file());
    EXPECT_EQ(EINVAL, Follower(files.file()).error());

    Follower late(files.file());
    fs::remove(files.file());
    files.add("one\n");
    EXPECT_THAT(rest(late), ElementsAre("one"));
}

TEST(EventReader, TellsHowManyAreMissing)
{
    const auto text = [](const std::string& number) {
        const auto event = EventReader("").read(R"({"time":"t","pid":7,"lost":)" + number + "}");
        return event ? event->text : "";
    };

    EXPECT_EQ("3 events are missing here.", text("3"));
    EXPECT_EQ("18446744073709551615 events are missing here.", text("18446744073709551615"));
    EXPECT_THAT(text("\"many\""), IsEmpty());
    EXPECT_FALSE(EventReader("").read("[]"));
    EXPECT_FALSE(EventReader("").read("not JSON"));
}
