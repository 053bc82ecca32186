/*
 * The table of processes: what it finds, and how little it reads for that.
 */
#include "machine/process.h"
#include "temporary.h"

#include <fmt/format.h>
#include <fstream>
#include <gmock/gmock.h>
#include <ranges>

using namespace monpctl;
using testing::ElementsAre;
namespace fs = std::filesystem;

namespace {

/*
 * A directory that looks like /proc.
 */
struct FakeProc {
    Temporary directory;

    void add(pid_t pid, pid_t parent, const std::string& executable, const std::string& name) const
    {
        const fs::path place = directory.path / std::to_string(pid);

        fs::create_directory(place);
        std::ofstream(place / "stat") << pid << " (a b) c) S " << parent
                                      << " 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 1234 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 "
                                         "0 0 0 0 0 0 0 0 0 0 0 0 0 0 7\n";
        std::ofstream(place / "status") << "Name:\ta\nUid:\t0\t1000\t0\t0\nSigBlk:\t0000000000000200\nSigIgn:\t"
                                           "0000000000000001\nSigCgt:\tc000000000000800\n";
        std::ofstream(place / "cmdline") << executable << '\0' << "-x" << '\0';
        std::ofstream(place / "comm") << name << '\n';
        if (!executable.empty()) {
            fs::create_symlink(executable, place / "exe");
        }
    }
};

std::vector<pid_t> pids(const std::vector<Process>& processes)
{
    std::vector<pid_t> numbers;

    std::ranges::transform(processes, std::back_inserter(numbers), &Process::pid);
    return numbers;
}

} // namespace

TEST(Processes, AreReadWhole)
{
    const FakeProc fake;
    fake.add(7, 3, "/opt/x/svc (deleted)", "svc");
    const auto process = Proc(fake.directory.path).read(7);

    ASSERT_TRUE(process);
    EXPECT_EQ(3, process->parent);
    EXPECT_EQ('S', process->state);
    EXPECT_EQ(1234U, process->started);
    EXPECT_EQ(1000U, process->user);
    EXPECT_EQ(0x200U, process->blocked);
    EXPECT_EQ(1U, process->ignored);
    EXPECT_TRUE(process->catches(12));
    EXPECT_FALSE(process->catches(11));
    EXPECT_THAT(process->command, ElementsAre("/opt/x/svc (deleted)", "-x"));
    EXPECT_TRUE(process->runs("/opt/x/svc"));
    EXPECT_TRUE(process->replaced());
    EXPECT_FALSE(process->runs("/opt/x/sv"));
    EXPECT_FALSE(process->runs(""));
    EXPECT_FALSE(process->wait_status) << "it lives";
    EXPECT_FALSE(Proc(fake.directory.path).read(8));
    std::ofstream(fake.directory.path / "7/stat") << "7 (a";
    EXPECT_FALSE(Proc(fake.directory.path).read(7));
}

/*
 * By path also after a removal, by the file whatever its path, and by name where the path is hidden or another one.
 */
TEST(Processes, AreFoundByTheirProgram)
{
    const FakeProc fake;
    const std::string program = fake.directory.path / "monp";
    const std::string other = fake.directory.path / "other";
    std::ofstream(program) << "program";
    fs::create_hard_link(program, other);

    fake.add(2, 1, program, "monp");
    fake.add(10, 1, program + " (deleted)", "monp");
    fake.add(9, 1, other, "other");
    fake.add(30, 1, "", "monp");
    fake.add(31, 10, fake.directory.path / "monp.old", "monp");
    fake.add(32, 31, "/bin/sleep", "sleep");
    const Proc proc(fake.directory.path);
    const ProcessTable table(proc);

    EXPECT_THAT(pids(table.running(program)), ElementsAre(10, 2)) << "in the order of the search";
    EXPECT_THAT(pids(table.candidates(program)), ElementsAre(10, 2, 30, 31, 9));
    EXPECT_THAT(pids(table.running("")), ElementsAre());
    EXPECT_TRUE(table.descends_from(*table.find(32), 10));
    EXPECT_FALSE(table.descends_from(*table.find(32), 2));
    EXPECT_THAT(pids(table.children(31)), ElementsAre(32));
}

/*
 * Four thousand processes are of no interest, so next to nothing is read of them.
 */
TEST(Processes, CostLittleWhenTheyAreOfNoInterest)
{
    const FakeProc fake;
    const int number = 4000;
    const std::string program = fake.directory.path / "monp";

    for (pid_t pid = 10; pid < 10 + number; pid++) {
        fs::create_directory(fake.directory.path / std::to_string(pid));
        fs::create_symlink("/bin/sleep", fake.directory.path / std::to_string(pid) / "exe");
        std::ofstream(fake.directory.path / std::to_string(pid) / "comm") << "sleep\n";
    }
    fake.add(5, 1, program, "monp");
    const Proc proc(fake.directory.path);
    const ProcessTable table(proc);
    EXPECT_THAT(pids(table.candidates(program)), ElementsAre(5));
    for (int type = 0; type < 9; type++) {
        EXPECT_THAT(pids(table.running("/opt/x/service" + std::to_string(type))), ElementsAre());
    }
    EXPECT_LE(proc.opened(), number + 10U);
}
