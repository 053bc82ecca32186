/*
 * Loading and reading. Which keys there are, what a missing one leads to and which value takes its place is the
 * monitor's to decide: each row is read by its own code, and only then compared with what the file says.
 */
#include "policy/policy.h"

#include "common/installation.h"
#include "policy/monitor_log.h"
#include "policy/programs.h"
#include "teskxml_tools.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <utility>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

constexpr const char* ROOT = "/root/";

int note_value(const char* key, const char* value, const char* file, int line, void* context)
{
    static_cast<std::map<std::string, Found>*>(context)->insert_or_assign(key, Found{ value, file, line });
    return 0;
}

int number_in(const void* field)
{
    int number = 0;

    std::memcpy(&number, field, sizeof(number));
    return number;
}

std::string text_of(const MONP_POLKEY& row, const char* field)
{
    return row.nkind == TESKXML_INT ? std::to_string(number_in(field)) : std::string(field);
}

std::string name_of(const std::string& key)
{
    return key.substr(std::strlen(ROOT));
}

/*
 * The section of a key; empty for one that stands in the configuration.
 */
std::string section_of(const std::string& key)
{
    const std::string name = name_of(key);
    const auto slash = name.find('/');

    return slash == std::string::npos ? "" : name.substr(0, slash);
}

constexpr const char* SERVICES = "/root/monp/service/";
constexpr const char* ANY = "*";

/*
 * Every key that a monitor of a type may look at; of the services' entries in the monitor's own section, any service.
 */
std::set<std::string> known_keys(const std::string& type)
{
    std::set<std::string> keys;
    const auto add = [&](std::span<const MONP_POLKEY> rows, const std::string& section) {
        for (const auto& row : rows) {
            keys.insert(key_of(row, section, ANY));
        }
    };

    add(gmonpallkeys, "all");
    add(gmonpservicekeys, "monp");
    add(gmonpmykeys, "monp");
    add(gmonpcprockeys, type);
    for (const auto& row : gmonpusekeys) {
        if (type == row.ptype) {
            add({ &row.key, 1 }, type);
        }
    }
    return keys;
}

/*
 * What becomes of a setting whose key cannot be read.
 */
std::string consequence_of(const MONP_POLKEY& row, const std::string& ends, const char* field)
{
    switch (row.nfail) {
    case MONP_KEYFAIL_END:
        return ends;
    case MONP_KEYFAIL_KEEP:
        return "the inherited value stays";
    case MONP_KEYFAIL_DEFAULT:
    case MONP_KEYFAIL_FIRST:
        break;
    }
    const std::string value = text_of(row, field);
    return value.empty() ? "there is none by default" : "the default " + value + " applies";
}

} // namespace

std::string key_of(const MONP_POLKEY& row, const std::string& section, const std::string& type)
{
    std::array<char, 512> key = {};

    std::snprintf(key.data(), key.size(), row.pkey, section.c_str(), type.c_str());
    return key.data();
}

Policy::Policy(Settings& result, const std::string& type) : result_(result), type_(type)
{
    open_ = xmllib_init("monpctl") == 0;
    if (!open_) {
        result_.problems.push_back({ home(), Severity::error, teskxml_lastfailure().sentence });
    }
}

Policy::~Policy()
{
    if (open_) {
        xmllib_term();
    }
    if (!copies_.empty()) {
        std::error_code error;
        fs::remove_all(copies_, error);
    }
}

/*
 * The library's last failure, at the place that it names, or else at the file.
 */
void Policy::report(const std::string& file, Severity severity, const std::string& consequence)
{
    const TESKXML_FAILURE failure = teskxml_lastfailure();
    const std::string where = *failure.file != '\0' ? original(failure.file) : file;
    std::string text = original(failure.sentence);

    if (text.starts_with(where + ' ')) {
        text.replace(0, where.size(), "it");
    } else if (text.starts_with(ROOT)) {
        text = name_of(text);
    }
    result_.problems.push_back(
        { failure.line > 0 ? where + ':' + std::to_string(failure.line) : where, severity, text + "; " + consequence });
}

/*
 * A text in which a copy's path reads as the path of the file that it is a copy of.
 */
std::string Policy::original(std::string text) const
{
    const auto at = copies_.empty() ? std::string::npos : text.find(copies_ + '/');

    return at == std::string::npos ? text : text.replace(at, copies_.size(), home() + "/etc");
}

bool Policy::load(const std::string& section, Severity severity, const std::string& consequence)
{
    const std::string file = policy_file(section);
    bool told = false;
    int code = TESKXML_RET_FAIL_NOTOPEN;

    if (open_) {
        code = section.empty() ? xmllib_load_config() : xmllib_load_policy(section.c_str());
    }
    if (code == TESKXML_RET_FAIL_UNTRUSTED && report_untrusted(file, severity, consequence, result_)) {
        told = true;
        code = load_copy(file);
    }
    if (code == TESKXML_RET_SUCCESS) {
        note_values();
        return true;
    }
    failed_.insert(file);
    if (open_ && !(told && code == TESKXML_RET_FAIL_UNTRUSTED)) {
        report(file, severity, consequence);
    }
    return false;
}

/*
 * The copy is root's alone in every directory, so the library takes it; nobody else can have one.
 * Result: that of the load.
 */
int Policy::load_copy(const std::string& file)
{
    std::string directory = "/run/monpctl.XXXXXX";
    std::error_code error;
    void* handle = nullptr;

    if (copies_.empty() && mkdtemp(directory.data()) != nullptr) {
        copies_ = directory;
        fs::create_directory(copies_ + "/policy", error);
        fs::permissions(copies_ + "/policy", fs::perms::owner_all, error);
    }
    const std::string copy = copies_ + file.substr(home().size() + std::strlen("/etc"));
    if (copies_.empty() || fs::file_size(file, error) > TESKXML_MAX_FILE ||
        !fs::copy_file(file, copy, fs::copy_options::overwrite_existing, error) || chmod(copy.c_str(), 0600) != 0) {
        return TESKXML_RET_FAIL_UNTRUSTED;
    }
    return xmllib_load_pathconfig(copy.c_str(), &handle);
}

void Policy::note_values()
{
    teskxml_walk(note_value, &values_);
    for (auto& [key, found] : values_) {
        found.file = original(found.file);
    }
}

void Policy::read(std::span<const MONP_POLKEY> rows, const std::string& section, void* record, Severity worst,
                  const std::string& ends, bool explain)
{
    for (const auto& row : rows) {
        if (open_) {
            read_row(row, section, record, worst, ends, explain);
        }
    }
}

void Policy::read_row(const MONP_POLKEY& row, const std::string& section, void* record, Severity worst,
                      const std::string& ends, bool explain)
{
    const std::string key = key_of(row, section, type_);
    char* field = static_cast<char*>(record) + row.noffset;
    std::string source = "command line";

    if (row.pwanted == nullptr || row.pwanted(record, field) != 0) {
        /* A failure of the configuration was told together with what follows. */
        if (failed_.contains(policy_file(section_of(key)))) {
            return;
        }
        source = read_key(row, key, section, record, worst, ends);
    }
    if (explain) {
        result_.explained.push_back({ name_of(key), text_of(row, field), source });
    }
}

/*
 * Reads a key twice: as the library has it, and with the monitor's code, which puts it into the record or a default in
 * its place.
 * Result: the source of the value.
 */
std::string Policy::read_key(const MONP_POLKEY& row, const std::string& key, const std::string& section, void* record,
                             Severity worst, const std::string& ends)
{
    const char* field = static_cast<char*>(record) + row.noffset;
    const bool needed = row.nfail == MONP_KEYFAIL_END;
    std::vector<char> raw(static_cast<size_t>(row.ncapacity));
    int capacity = row.ncapacity;

    const bool goes_on = monp_polkey_read(&row, 1, section.c_str(), type_.c_str(), record) == MONP_RET_SUCCESS;
    const auto lines = take_monitor_lines();
    const int code = xmllib_get_value(key.c_str(), row.nkind, raw.data(), &capacity);

    if (code == TESKXML_RET_FAIL_NOKEY) {
        const Severity mild = row.nlevel == TESKLOG_ERROR ? Severity::warning : Severity::note;
        result_.problems.push_back(
            { where(key), needed ? worst : mild, name_of(key) + " is missing; " + consequence_of(row, ends, field) });
    } else if (code != 0) {
        const auto found = values_.find(key);
        report(found != values_.end() ? found->second.file : where(key), needed ? worst : Severity::warning,
               consequence_of(row, ends, field));
    } else if (!goes_on) {
        result_.problems.push_back({ where(key), worst, (lines.empty() ? key : lines.back()) + "; " + ends });
    } else if (row.nkind == TESKXML_INT && number_in(raw.data()) != number_in(field)) {
        result_.problems.push_back(
            { where(key), Severity::warning,
              name_of(key) + " is " + text_of(row, raw.data()) + "; it is replaced by " + text_of(row, field) });
    }
    if (code == 0) {
        return where(key);
    }
    return needed ? MISSING : DEFAULT;
}

void Policy::report_unknown()
{
    const std::set<std::string> known = known_keys(type_);
    std::set<std::string> services;

    for (const auto& [key, found] : values_) {
        std::string general = key;
        if (key.starts_with(SERVICES)) {
            const auto begin = std::strlen(SERVICES);
            const std::string service = key.substr(begin, key.find('/', begin) - begin);
            general.replace(begin, service.size(), ANY);
            std::error_code error;
            if (services.insert(service).second && !fs::exists(policy_file(service), error)) {
                result_.problems.push_back(
                    { where(key), Severity::warning,
                      policy_file(service) + " does not exist; a monitor of the type " + service + " would end" });
            }
        }
        if (found.file != policy_file("") && !known.contains(general)) {
            result_.problems.push_back({ where(key), Severity::note, name_of(key) + " is no key of the monitor" });
        }
    }
}

const std::map<std::string, Found>& Policy::values() const
{
    return values_;
}

std::string Policy::where(const std::string& key) const
{
    const auto found = values_.find(key);

    return found != values_.end() ? found->second.file + ':' + std::to_string(found->second.line)
                                  : policy_file(section_of(key));
}

} // namespace monpctl
