#include "sequence.h"

#include "model.h"
#include "stage.h"

#include <array>
#include <csignal>
#include <gtest/gtest-spi.h>
#include <random>
#include <sstream>

namespace {

struct Dice {
    explicit Dice(uint64_t seed) : engine(seed) {}

    int below(int limit)
    {
        return static_cast<int>(engine() % static_cast<uint64_t>(limit));
    }
    template <typename T> const T& of(const std::vector<T>& list)
    {
        return list[static_cast<size_t>(below(static_cast<int>(list.size())))];
    }

    std::mt19937_64 engine;
};

const std::string SERVICE = "/opt/x/bin/svc";
const std::vector<std::string> PROGRAMS = { "/opt/x/sbin/elog", "/opt/x/sbin/cl", "/opt/x/sbin/down" };
const std::vector<int> SIGNALS = { SIGUSR1, SIGUSR1, SIGUSR2, SIGHUP, SIGHUP };
const std::vector<int> ENDS = { exited(0), exited(1),      exited(0),      exited(255), SIGUSR1, SIGKILL,
                                SIGTERM,   SIGSEGV | CORE, SIGUSR1 | CORE, 0x137f,      0xffff };

// ---- a run: what the stage has to know ----

struct Failure {
    std::string call;
    int number; // how many of the same come before
    int error;
};

struct Play {
    std::string options;
    Given given;
    std::vector<Failure> failures;
    std::multimap<int, int> signals; // by number of the daemon's entry
    std::map<std::string, int> calls;
    size_t daemon = 0; // its first entry
    int entries = 0;   // of the daemon so far

    int chance(size_t number);
    int fail(const std::string& entry);
};

int Play::fail(const std::string& entry)
{
    const std::string call = entry.substr(0, entry.find(' '));
    const int before = calls[call]++;

    for (const Failure& failure : failures) {
        if (failure.call == call && failure.number == before) {
            return failure.error;
        }
    }
    return 0;
}

// Signals arrive in every call and line of the daemon but the model's noise.
int Play::chance(size_t number)
{
    const std::string entry = journal.entries[number];

    if (number > 5000) {
        sys.stop("endless");
    }
    if (daemon == 0 || noise(entry)) {
        daemon = daemon == 0 && entry == "setsid" ? number : daemon;
        return 0;
    }
    const auto [first, last] = signals.equal_range(entries++);
    for (auto signal = first; signal != last; ++signal) {
        sys.signal(signal->second);
    }
    return entry.find(": ") == std::string::npos ? fail(entry) : 0;
}

// The policy of the type under test, changed as an operator would.
void change(const std::string& key, std::variant<int, std::string> value)
{
    xml.values["/root/" + key] = std::move(value);
}

// ---- what can happen ----

struct Kind {
    const char* name; // and what the numbers and the text mean
    int weight;
    void (*draw)(Happening&, Dice&, const std::string& type);
    void (*play)(const Happening&, Play&);
};

void draw_process(Happening& it, Dice& dice, const std::string&)
{
    it.when = dice.below(4) == 0 ? FOREVER : dice.below(9);
    it.what = dice.of(ENDS);
    it.how = dice.below(5) == 0 ? FOREVER : dice.below(3) == 0 ? dice.below(7) : 0;
    it.then = dice.of(std::vector<int>{ -1, exited(0), exited(3), SIGUSR1, SIGUSR1, SIGABRT });
}

const std::vector<Kind> KINDS = {
    { "service: ends after {when} s with status {what}, reports after {how} s, ends on request with {then}", 10,
      draw_process,
      [](const Happening& it, Play&) {
          sys.programs[SERVICE].push_back({ .runs = it.when, .status = it.what, .reports = it.how, .ack = it.then });
      } },
    { "service: execv fails with errno {what}", 1, [](Happening& it, Dice&, const std::string&) { it.what = ENOEXEC; },
      [](const Happening& it, Play&) { sys.programs[SERVICE].push_back({ .refused = it.what }); } },
    { "service: somebody else's appears after {when} s as {what}, ends after {how} s, on request with {then}", 1,
      [](Happening& it, Dice& dice, const std::string&) {
          it.when = dice.below(12);
          it.what = dice.of(std::vector<int>{ 99, 100, 3000 });
          it.how = 1 + dice.below(15);
          it.then = dice.of(std::vector<int>{ -1, exited(0), SIGUSR1 });
      },
      [](const Happening& it, Play&) {
          sys.at(it.when, [it] { sys.processes[it.what] = { .ack = it.then, .exe = SERVICE }; });
          sys.at(it.when + it.how, [it] { sys.end(it.what, 0); });
      } },
    { "program {text}: ends after {when} s with status {what}", 4,
      [](Happening& it, Dice& dice, const std::string&) {
          it.when = dice.below(12);
          it.what = dice.of(ENDS);
          it.text = dice.of(PROGRAMS);
      },
      [](const Happening& it, Play&) { sys.programs[it.text].push_back({ .runs = it.when, .status = it.what }); } },
    { "collections begin {when} ms late", 1,
      [](Happening& it, Dice& dice, const std::string&) { it.when = dice.below(2500); },
      [](const Happening& it, Play&) { sys.threads = it.when; } },
    { "signal {what} in entry {when}", 8,
      [](Happening& it, Dice& dice, const std::string&) {
          it.when = dice.below(dice.of(std::vector<int>{ 30, 60, 150, 400 }));
          it.what = dice.of(SIGNALS);
      },
      [](const Happening& it, Play& play) { play.signals.emplace(it.when, it.what); } },
    { "signal {what} after {when} ms", 6,
      [](Happening& it, Dice& dice, const std::string&) {
          it.when = dice.below(20 * 1000);
          it.what = dice.of(SIGNALS);
      },
      [](const Happening& it, Play&) { sys.signal_at(it.when / 1000.0, it.what); } },
    { "failure of {text} after {when} of its kind, errno {what}", 4,
      [](Happening& it, Dice& dice, const std::string&) {
          static const std::vector<std::string> calls = { "access",   "fork",           "scandir", "waitpid", "kill",
                                                          "realpath", "pthread_create", "calloc",  "system" };
          it.text = dice.of(calls);
          it.when = dice.below(it.text == "waitpid" || it.text == "kill" || it.text == "calloc" ? 12 : 3);
          it.what = dice.of(std::vector<int>{ EAGAIN, EACCES, EINVAL });
      },
      [](const Happening& it, Play& play) {
          play.failures.push_back({ it.text, it.when, it.what });
      } },
    { "failure of {text} after {when} of its kind, code {what}", 2,
      [](Happening& it, Dice& dice, const std::string&) {
          static const std::vector<std::string> calls = { "xmllib_init",
                                                          "xmllib_load_policy",
                                                          "xmllib_load_config",
                                                          "xmllib_unload_config",
                                                          "xmllib_unload_policy",
                                                          "xmllib_term",
                                                          "stat",
                                                          "mkdir",
                                                          "fopen",
                                                          "unlink" };
          it.text = dice.of(calls);
          it.when = dice.below(6);
          it.what = 0x21;
      },
      [](const Happening& it, Play& play) {
          play.failures.push_back({ it.text, it.when, it.what });
      } },
    { "policy: {text} is {what} after {when} s", 6,
      [](Happening& it, Dice& dice, const std::string& type) {
          const std::string own = "monp/service/" + type + "/";
          static const std::vector<std::string> keys = { "action",  "restarttime",   "waittime", "child_timeout",
                                                         "action",  "action",        "use",      "dummyconf",
                                                         "pattern", "parent_timeout" };
          it.text = dice.of(keys);
          it.when = dice.below(3) == 0 ? dice.below(15) : 0;
          it.what = it.text == "action" ? dice.of(std::vector<int>{ 1, 2, 2, 2, 3, 4, 5, 7 }) : dice.below(7) - 1;
          it.text = it.text == "dummyconf" ? it.text
                    : it.text == "use"     ? type + "/use"
                    : it.text == "pattern" ? "monp/elog/pattern"
                                           : own + it.text;
      },
      [](const Happening& it, Play&) { sys.at(it.when, [it] { change(it.text, it.what); }); } },
    { "policy: {text} is missing after {when} s", 1,
      [](Happening& it, Dice& dice, const std::string& type) {
          std::vector<std::string> keys;
          Policy whole;
          whole.fill(type);
          for (const auto& row : whole.values) {
              keys.push_back(row.first);
          }
          it.text = dice.of(keys);
          it.when = dice.below(4) == 0 ? 0 : dice.below(12);
      },
      [](const Happening& it, Play&) { sys.at(it.when, [it] { xml.values.erase(it.text); }); } },
    { "policy: the service's type is {text} after {when} s", 2,
      [](Happening& it, Dice& dice, const std::string& type) {
          it.when = dice.below(3) == 0 ? dice.below(15) : 0;
          it.text = dice.of(std::vector<std::string>{ "pelkant", "pelkant", "pelkant", "trn", type });
      },
      [](const Happening& it, Play& play) {
          sys.at(it.when, [it, own = play.given.type] { change(own + "/type", it.text); });
      } },
    { "the launcher ends after {when} ms", 1,
      [](Happening& it, Dice& dice, const std::string&) { it.when = 1 + dice.below(9000); },
      [](const Happening& it, Play&) {
          sys.at(it.when / 1000.0, [] {
              journal.add("world: the launcher ends");
              sys.ppid = 1;
          });
      } },
    { "the shutdown command gives {what}", 1,
      [](Happening& it, Dice& dice, const std::string&) {
          it.what = dice.of(std::vector<int>{ exited(5), SIGKILL, -1 });
      },
      [](const Happening& it, Play&) { sys.systemresult = it.what; } },
    { "option {text} {when}", 2,
      [](Happening& it, Dice& dice, const std::string&) {
          it.text = dice.of(std::vector<std::string>{ "-a", "-a", "-r", "-w", "-n" });
          it.when = 1 + dice.below(5);
      },
      [](const Happening& it, Play& play) {
          int& field = it.text == "-a" ? play.given.action : it.text == "-r" ? play.given.restime : play.given.wait;
          if (it.text == "-n") {
              play.given.nostart = true;
              play.options += "|-n";
          } else if (field == -1) {
              field = it.when;
              play.options += "|" + it.text + "|" + std::to_string(it.when);
          }
      } },
    { "a marker of an earlier run", 1, [](Happening&, Dice&, const std::string&) {},
      [](const Happening&, Play&) {
          sys.files->insert({ "/opt/x/md", "/opt/x/md/made" });
      } },
    { "children run for real", 0, nullptr, [](const Happening&, Play&) { sys.forks = true; } },
};

size_t kind_by_weight(Dice& dice)
{
    static const int all = [] {
        int sum = 0;
        for (const Kind& kind : KINDS) {
            sum += kind.weight;
        }
        return sum;
    }();
    int left = dice.below(all);
    size_t kind = 0;

    while (left >= KINDS[kind].weight) {
        left -= KINDS[kind++].weight;
    }
    return kind;
}

// Every sequence comes to its end: somebody asks for it again and again, and the processes do not live for ever.
void bring_to_an_end()
{
    sys.patience = 300 * 1000;
    for (int second = 30; second < 290; second += 10) {
        sys.signal_at(second, SIGUSR2);
    }
    for (int second = 100; second < 290; second += 50) {
        sys.at(second, [] {
            for (auto& process : std::map(sys.processes)) {
                sys.end(process.first, SIGKILL);
            }
        });
        sys.at(second + 10, [] { sys.processes.clear(); }); // those that nobody reaps, too
    }
    sys.next.assign(100, { .reports = 0, .ack = exited(0) });
}

void set_up(const Sequence& sequence, Play& play)
{
    xml.fill(sequence.type);
    for (const std::string section : { "cl", "down" }) {
        change(section + "/type", "stated");
        change(section + "/path", "sbin/" + section);
    }
    sys.forks = false;
    sys.threads = 0;
    sys.files.emplace();
    play.given.type = sequence.type;
    for (const Happening& it : sequence.happenings) {
        KINDS[it.kind].play(it, play);
    }
    for (const std::string& path : PROGRAMS) {
        sys.programs[path].resize(50, { .runs = 1 });
    }
    bring_to_an_end();
    sys.advance(0);
}

struct Fresh : Monitor {
    void TestBody() override {}
};

} // namespace

Sequence draw(uint64_t seed)
{
    static const std::vector<std::string> types = { "dusko",  "dusko",   "dusko", "pelkant",
                                                    "sorvin", "tamzile", "goru",  "lenk" };
    Dice dice(seed);
    Sequence sequence{ dice.of(types), {} };
    const int number = 1 + dice.below(14);

    for (int i = 0; i < number; i++) {
        Happening it{ .kind = kind_by_weight(dice) };
        KINDS[it.kind].draw(it, dice, sequence.type);
        sequence.happenings.push_back(it);
    }
    if (dice.below(40) == 0) {
        sequence.happenings.push_back({ .kind = KINDS.size() - 1 });
    }
    return sequence;
}

std::string describe(const Sequence& sequence)
{
    std::string text = "type " + sequence.type + "\n";
    for (const Happening& it : sequence.happenings) {
        std::string row = KINDS[it.kind].name;
        for (const auto& [name, value] : { std::pair<std::string, std::string>{ "{when}", std::to_string(it.when) },
                                           { "{what}", std::to_string(it.what) },
                                           { "{how}", std::to_string(it.how) },
                                           { "{then}", std::to_string(it.then) },
                                           { "{text}", it.text } }) {
            if (const size_t place = row.find(name); place != std::string::npos) {
                row.replace(place, name.size(), value);
            }
        }
        text += row + "\n";
    }
    return text;
}

std::string run(const Sequence& sequence)
{
    testing::TestPartResultArray complaints; // of the stage
    testing::ScopedFakeTestPartResultReporter reporter(testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS,
                                                       &complaints);
    Fresh fresh;
    Play play;

    set_up(sequence, play);
    journal.chance = [&play](size_t number) { return play.chance(number); };
    const std::string ending = run_monitor("--" + sequence.type + play.options);
    sys.finish();
    if (complaints.size() > 0) {
        return complaints.GetTestPartResult(0).message();
    }
    return differs(journal, ending, play.given);
}

Sequence shorten(Sequence sequence, const std::function<bool(const Sequence&)>& fails)
{
    for (size_t i = 0; i < sequence.happenings.size();) {
        Sequence shorter = sequence;
        shorter.happenings.erase(shorter.happenings.begin() + static_cast<std::ptrdiff_t>(i));
        if (fails(shorter)) {
            sequence = shorter;
            i = 0; // what was needed for what is gone may not be needed any more
        } else {
            i++;
        }
    }
    return sequence;
}
