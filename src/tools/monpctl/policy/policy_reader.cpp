/*
 * The monitor decides which keys there are, what follows from a missing one and which value takes its place: each row
 * is read by its own code, and only then compared with the text of the file.
 */
#include "policy/policy_reader.h"

#include "common/installation.h"
#include "common/suggestion.h"
#include "policy/monitor_log.h"
#include "policy/trust.h"

#include "teskxml_tools.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <iterator>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

constexpr std::string_view ROOT = "/root/";
constexpr std::string_view SERVICES = "/root/monp/service/";
constexpr const char* ANY = "*";

int note_value(const char* key, const char* value, const char* file, int line, void* context)
{
    auto& values = *static_cast<std::map<std::string, LoadedValue>*>(context);

    values.try_emplace(key, LoadedValue{ value, { file, line }, values.size() });
    return 0;
}

int number_in(const void* field)
{
    int number = 0;

    std::memcpy(&number, field, sizeof(number));
    return number;
}

std::string text_in(const MONP_POLKEY& row, const char* field)
{
    return row.nkind == TESKXML_INT ? std::to_string(number_in(field)) : std::string(field);
}

std::string name_of(const std::string& key)
{
    return key.substr(ROOT.size());
}

std::vector<std::string> names_of_keys(const std::vector<std::string>& keys)
{
    std::vector<std::string> names;

    std::ranges::transform(keys, std::back_inserter(names), name_of);
    return names;
}

/*
 * The section of a key; empty for one of the configuration.
 */
std::string section_of(const std::string& key)
{
    const std::string name = name_of(key);
    const auto slash = name.find('/');

    return slash == std::string::npos ? "" : name.substr(0, slash);
}

/*
 * The service that a key of the entries in the monitor's own section is about; empty for any other key.
 */
std::string entry_of(const std::string& key)
{
    return key.starts_with(SERVICES) ? key.substr(SERVICES.size(), key.find('/', SERVICES.size()) - SERVICES.size())
                                     : "";
}

/*
 * Every key that a monitor of a type looks at, as all of its monitors do; of the entries, those of one service.
 */
std::vector<std::string> known_keys(const std::string& type, const std::string& service)
{
    std::vector<std::string> keys;
    const auto add = [&](std::span<const MONP_POLKEY> rows, const std::string& section) {
        for (const auto& row : rows) {
            keys.push_back(key_of(row, section, service));
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
 * The consequence of a key that cannot be read.
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
    const std::string value = text_in(row, field);
    return value.empty() ? "there is none by default" : fmt::format("the default {} applies", value);
}

/*
 * The sentence of a failure, in which the file that the place names is "it", and a key goes without its root.
 */
std::string sentence_of(const TESKXML_FAILURE& failure)
{
    const std::string sentence = failure.sentence;
    const std::string file = failure.file;

    if (!file.empty() && sentence.starts_with(file + ' ')) {
        return "it" + sentence.substr(file.size());
    }
    return sentence.starts_with(ROOT) ? sentence.substr(ROOT.size()) : sentence;
}

} // namespace

std::string key_of(const MONP_POLKEY& row, const std::string& section, const std::string& type)
{
    std::array<char, 512> key = {};

    std::snprintf(key.data(), key.size(), row.pkey, section.c_str(), type.c_str());
    return key.data();
}

PolicyReader::PolicyReader(Findings& findings, std::string type) : findings_(findings), type_(std::move(type))
{
    open_ = xmllib_init("monpctl") == 0;
    if (!open_) {
        report_failure(home(), Severity::error, "the monitor ends");
    }
}

PolicyReader::~PolicyReader()
{
    if (open_) {
        xmllib_term();
    }
}

/*
 * Tells of the reader's last failure.
 *   file  that was to be loaded or read
 */
void PolicyReader::report_failure(const std::string& file, Severity severity, const std::string& consequence)
{
    const TESKXML_FAILURE failure = teskxml_lastfailure();
    const bool hidden =
        failure.code == TESKXML_RET_FAIL_READ && geteuid() != 0 && access(file.c_str(), R_OK) != 0 && errno == EACCES;

    if (hidden) {
        findings_.problems.push_back({ .place = { file, 0 },
                                       .severity = Severity::error,
                                       .sentence = fmt::format("not checked: the user {} may not read it; check as "
                                                               "root",
                                                               geteuid()) });
        return;
    }
    findings_.problems.push_back({ .place = { file, failure.line },
                                   .severity = severity,
                                   .sentence = sentence_of(failure) + "; " + consequence });
}

bool PolicyReader::load(const Section& section)
{
    const std::string file = policy_file(section.name);
    const auto load_it = [&] {
        return section.name.empty() ? xmllib_load_config() : xmllib_load_policy(section.name.c_str());
    };

    int code = open_ ? load_it() : TESKXML_RET_FAIL_NOTOPEN;
    if (code == TESKXML_RET_FAIL_UNTRUSTED) {
        report_untrusted(file, section.severity, section.consequence, findings_.problems);
        teskxml_accept_untrusted(1);
        code = load_it();
        teskxml_accept_untrusted(0);
    }
    if (code == TESKXML_RET_SUCCESS) {
        teskxml_walk(note_value, &values_);
        return true;
    }
    failed_.insert(file);
    if (open_) {
        report_failure(file, section.severity, section.consequence);
    }
    return false;
}

void PolicyReader::read(const Rows& rows)
{
    for (const auto& row : rows.rows) {
        if (open_) {
            read_row(row, rows);
        }
    }
}

void PolicyReader::read_row(const MONP_POLKEY& row, const Rows& rows)
{
    const std::string key = key_of(row, rows.section, type_);
    char* field = static_cast<char*>(rows.record) + row.noffset;
    Source source = Source::command_line;

    if (row.pwanted == nullptr || row.pwanted(rows.record, field) != 0) {
        /* The failure of the file was reported, together with its consequence. */
        if (failed_.contains(policy_file(section_of(key)))) {
            return;
        }
        source = read_key(row, key, rows);
    }
    if (rows.explained) {
        findings_.explained.push_back(
            { name_of(key), text_in(row, field), source, source == Source::file ? place_of(key) : Place() });
    }
}

/*
 * Reads a key twice: with the monitor's code, which puts it into the record or a default in its place, and raw, to
 * compare.
 * Result: the source of the value.
 */
Source PolicyReader::read_key(const MONP_POLKEY& row, const std::string& key, const Rows& rows)
{
    const char* field = static_cast<char*>(rows.record) + row.noffset;
    const bool needed = row.nfail == MONP_KEYFAIL_END;
    std::vector<char> raw(static_cast<size_t>(row.ncapacity));
    int capacity = row.ncapacity;
    const auto report = [&](Severity severity, const std::string& sentence) {
        findings_.problems.push_back({ .place = place_of(key), .severity = severity, .sentence = sentence });
    };

    const bool goes_on =
        monp_polkey_read(&row, 1, rows.section.c_str(), type_.c_str(), rows.record) == MONP_RET_SUCCESS;
    const auto lines = take_monitor_lines();
    const int code = xmllib_get_value(key.c_str(), row.nkind, raw.data(), &capacity);
    const std::string consequence = consequence_of(row, rows.consequence, field);

    if (code == TESKXML_RET_FAIL_NOKEY) {
        const Severity mild = row.nlevel == TESKLOG_ERROR ? Severity::warning : Severity::note;
        report(needed ? rows.severity : mild, fmt::format("{} is missing; {}", name_of(key), consequence));
    } else if (code != 0) {
        report(needed ? rows.severity : Severity::warning,
               fmt::format("{}; {}", sentence_of(teskxml_lastfailure()), consequence));
    } else if (!goes_on) {
        report(rows.severity, fmt::format("{}; {}", lines.empty() ? key : lines.back(), rows.consequence));
    } else if (row.nkind == TESKXML_INT && number_in(raw.data()) != number_in(field)) {
        report(Severity::warning, fmt::format("{} is {}; it is replaced by {}", name_of(key), text_in(row, raw.data()),
                                              text_in(row, field)));
    }
    if (code == 0) {
        return Source::file;
    }
    return needed ? Source::missing : Source::fallback;
}

/*
 * An entry of another service, whose section has to be there, too.
 */
void PolicyReader::report_entry(const std::string& service, const std::string& key)
{
    std::error_code error;

    if (!fs::exists(policy_file(service), error)) {
        findings_.problems.push_back({ .place = place_of(key),
                                       .severity = Severity::warning,
                                       .sentence = fmt::format("{} does not exist; a monitor of the type {} would end",
                                                               policy_file(service), service),
                                       .other_type = service == type_ ? "" : service });
    }
}

void PolicyReader::report_unknown()
{
    std::set<std::string> entries;

    for (const auto& [key, loaded] : values_) {
        const std::string service = entry_of(key);
        const auto known = known_keys(type_, service.empty() ? ANY : service);
        if (!service.empty() && entries.insert(service).second) {
            report_entry(service, key);
        }
        if (loaded.place.file != policy_file("") && std::ranges::find(known, key) == known.end()) {
            findings_.problems.push_back({ .place = loaded.place,
                                           .severity = Severity::note,
                                           .sentence = fmt::format("{} is not a key of the monitor{}", name_of(key),
                                                                   did_you_mean(name_of(key), names_of_keys(known))),
                                           .other_type = service == type_ ? "" : service });
        }
    }
}

const std::map<std::string, LoadedValue>& PolicyReader::values() const
{
    return values_;
}

Place PolicyReader::place_of(const std::string& key) const
{
    const auto found = values_.find(key);

    return found != values_.end() ? found->second.place : Place{ policy_file(section_of(key)), 0 };
}

} // namespace monpctl
