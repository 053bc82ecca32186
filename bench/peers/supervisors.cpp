#include "supervisors.h"

#include <fstream>

namespace peers {

namespace {

const std::string TYPE = "dusko"; // of the sample installation's services the plain one

struct Layout {
    Places places;
    fs::path directory;

    fs::path home(int number) const
    {
        return directory / std::to_string(number);
    }
    std::string stamps(int number) const
    {
        return home(number) / "stamps";
    }
    std::string service() const
    {
        return places.build / "bin/peers_service";
    }
    std::string package(const std::string& path) const
    {
        return places.packages / path;
    }
    std::string libraries() const
    {
        return "LD_LIBRARY_PATH=" + package("usr/lib/x86_64-linux-gnu") + ":" + package("lib/x86_64-linux-gnu");
    }
};

void write_file(const fs::path& path, const std::string& text)
{
    std::ofstream file(path);
    file << text;
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file.close();
}

void replace_all(const fs::path& path, const std::string& from, const std::string& to)
{
    std::ifstream file(path);
    std::string text{ std::istreambuf_iterator<char>(file), {} };

    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    fs::remove(path); // it is a link to the installation's own
    write_file(path, text);
}

// An installation of links, so that all monitors share the pages of one program, with policy files of its own. The
// service is a copy, as a monitor adopts whoever runs its file. Nothing is collected at an end, as no peer does it.
void prepare_monitor(const Layout& layout, int number)
{
    const fs::path home = layout.home(number);

    fs::copy(layout.places.installation, home, fs::copy_options::recursive | fs::copy_options::create_hard_links);
    for (const auto& file : fs::recursive_directory_iterator(home / "etc")) {
        if (file.is_regular_file()) {
            replace_all(file.path(), layout.places.installation, home);
        }
    }
    fs::remove(home / "bin/sample_dusko");
    fs::copy_file(layout.service(), home / "bin/sample_dusko");
    fs::remove(home / "bin/sample_collect");
    fs::copy_file("/bin/true", home / "bin/sample_collect");
}

void prepare_directory(const Layout& layout, int number)
{
    fs::create_directory(layout.home(number));
}

void prepare_run(const Layout& layout, int number)
{
    prepare_directory(layout, number);
    fs::copy_file(layout.service(), layout.home(number) / "run");
}

void prepare_openrc(const Layout& layout, int number)
{
    for (const std::string part : { "daemons", "options", "exclusive", "started" }) {
        fs::create_directories("/run/openrc/" + part);
    }
    prepare_directory(layout, number);
}

Command start_openrc(const Layout& layout, int number)
{
    const std::string name = "service" + std::to_string(number);

    return { { layout.package("sbin/supervise-daemon"), name, "--start", "--pidfile", layout.home(number) / "pid",
               "--respawn-max", "0", layout.service(), "--", layout.stamps(number) },
             { layout.libraries(), "RC_SVCNAME=" + name } };
}

void prepare_supervisord(const Layout& layout, int first, int count)
{
    std::string text = "[supervisord]\nnodaemon=true\nuser=root\nlogfile=/dev/null\nlogfile_maxbytes=0\npidfile=" +
                       (layout.directory / "supervisord.pid").string() + "\n";

    for (int number = first; number < first + count; number++) {
        prepare_directory(layout, number);
        text += "[program:service" + std::to_string(number) + "]\ncommand=" + layout.service() + " " +
                layout.stamps(number) +
                "\nautorestart=true\nstartsecs=0\nstdout_logfile=/dev/null\nstderr_logfile=/dev/null\n";
    }
    write_file(layout.directory / "supervisord.conf", text);
}

void prepare_monit(const Layout& layout, int first, int count)
{
    const fs::path file = layout.directory / "monitrc";
    std::string text = "set daemon 1\nset log /dev/null\n";

    for (const std::string kind : { "idfile", "statefile", "pidfile" }) {
        text += "set " + kind + " " + (layout.directory / kind).string() + "\n";
    }
    for (int number = first; number < first + count; number++) {
        const std::string pidfile = layout.home(number) / "pid";
        prepare_directory(layout, number);
        text += "check process service" + std::to_string(number) + " with pidfile " + pidfile +
                "\n  start program = \"" + layout.service() + " " + layout.stamps(number) + " daemon " + pidfile +
                "\"\n";
    }
    write_file(file, text);
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
}

} // namespace

std::vector<Supervisor> supervisors(const Places& places, const fs::path& directory)
{
    const Layout l{ places, directory };
    const auto each = [l](void (*prepare)(const Layout&, int)) {
        return [l, prepare](int first, int count) {
            for (int number = first; number < first + count; number++) {
                prepare(l, number);
            }
        };
    };
    const auto all = [l](void (*prepare)(const Layout&, int, int)) {
        return [l, prepare](int first, int count) { prepare(l, first, count); };
    };

    return {
        { "monp", "monp", false, each(prepare_monitor),
          [l](int n) {
              return Command{ { l.home(n) / "bin/monp", "--" + TYPE, "-a", "2", "-r", "1000000", "-o",
                                l.stamps(n) + " report" },
                              { "TESK_HOME=" + l.home(n).string() } };
          } },
        { "bare polling loop", "peers_floor", false, each(prepare_directory),
          [l](int n) {
              return Command{ { l.places.build / "bin/peers_floor", l.service(), l.stamps(n) }, {} };
          } },
        { "bare loop, linked", "peers_linked", false, each(prepare_directory),
          [l](int n) {
              return Command{ { l.places.build / "bin/peers_linked", l.service(), l.stamps(n) }, {} };
          } },
        { "s6-supervise", "s6-supervise", false, each(prepare_run),
          [l](int n) {
              return Command{ { l.package("usr/bin/s6-supervise"), l.home(n) }, { l.libraries() } };
          } },
        { "runsv", "runsv", false, each(prepare_run),
          [l](int n) {
              return Command{ { l.package("usr/bin/runsv"), l.home(n) }, {} };
          } },
        { "supervise-daemon", "supervise-daemon", false, each(prepare_openrc),
          [l](int n) { return start_openrc(l, n); } },
        { "monit", "monit", true, all(prepare_monit),
          [l](int) {
              return Command{ { l.package("usr/bin/monit"), "-I", "-c", l.directory / "monitrc" }, {} };
          } },
        { "supervisord", "python3", true, all(prepare_supervisord),
          [l](int) {
              return Command{ { "/usr/bin/python3", l.package("usr/bin/supervisord"), "-c",
                                l.directory / "supervisord.conf" },
                              { "PYTHONPATH=" + l.package("usr/lib/python3/dist-packages") } };
          } },
    };
}

} // namespace peers
