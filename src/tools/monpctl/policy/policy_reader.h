/*
 * The policy as the monitor reads it: sections loaded into our policy reader, and the monitor's own rows of keys read
 * from there.
 */
#ifndef MONPCTL_POLICY_POLICY_READER_H
#define MONPCTL_POLICY_POLICY_READER_H

#include "monp_polkey.h"
#include "policy/findings.h"

#include <map>
#include <set>
#include <span>
#include <string>

namespace monpctl {

/*
 * A value of a loaded file.
 */
struct LoadedValue {
    std::string value;
    Place place;
    size_t number = 0; /* counts the values in the order of loading, and of each file */
};

class PolicyReader {
public:
    /*
     * Opens the policy reader, which stays open as long as this lives; only one may live at a time.
     *   findings  receives settings and problems
     *   type      service type that the keys of the rows are formatted with
     */
    PolicyReader(Findings& findings, std::string type);
    ~PolicyReader();
    PolicyReader(const PolicyReader&) = delete;
    PolicyReader& operator=(const PolicyReader&) = delete;

    /*
     * A section, or the configuration if the name is empty, and what it means if it cannot be loaded.
     */
    struct Section {
        std::string name = {};
        Severity severity = Severity::note;
        std::string consequence = {};
    };

    /*
     * Loads a section. A failure becomes a problem. A file that others than root could have written becomes a problem,
     * too, and is read all the same, so that its other problems are found.
     * Result: true if there are keys to be read.
     */
    bool load(const Section& section);

    /*
     * Rows of keys, the section that they are read from, and the record that they are read into.
     */
    struct Rows {
        std::span<const MONP_POLKEY> rows = {};
        std::string section = {};
        void* record = nullptr;
        Severity severity = Severity::error; /* of a missing key without a default */
        std::string consequence = "the monitor ends";
        bool explained = true; /* the values become settings */
    };

    /*
     * Reads rows of keys into a record. Each problem of a key, and the source of its value, go into the findings. Rows
     * of a section that could not be loaded are left out.
     */
    void read(const Rows& rows);

    /*
     * Finds the keys of the loaded sections that no monitor looks at, and the services that have no section.
     */
    void report_unknown();

    /* Every value loaded, by key. */
    [[nodiscard]] const std::map<std::string, LoadedValue>& values() const;

    /* The place of a key, or the file that it is missing from. */
    [[nodiscard]] Place place_of(const std::string& key) const;

private:
    void read_row(const MONP_POLKEY& row, const Rows& rows);
    Source read_key(const MONP_POLKEY& row, const std::string& key, const Rows& rows);
    void report_failure(const std::string& file, Severity severity, const std::string& consequence);
    void report_entry(const std::string& service, const std::string& key);

    Findings& findings_;
    std::string type_;
    bool open_ = false;
    std::set<std::string> failed_; /* files that could not be loaded */
    std::map<std::string, LoadedValue> values_;
};

/*
 * The key of a row.
 */
std::string key_of(const MONP_POLKEY& row, const std::string& section, const std::string& type);

} // namespace monpctl

#endif
