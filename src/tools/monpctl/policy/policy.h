/*
 * The policy as the monitor reads it: sections loaded into its policy library, and its own rows of keys read from
 * there.
 */
#ifndef MONPCTL_POLICY_H
#define MONPCTL_POLICY_H

#include "monp_polkey.h"
#include "policy/settings.h"

#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace monpctl {

/*
 * A value that is loaded, and where it stands.
 */
struct Found {
    std::string value;
    std::string file;
    int line = 0;
};

/*
 * The policy library, open as long as this lives; only one may live at a time.
 */
class Policy {
public:
    /* Sources of a setting that is in no file: with a default, and without one. */
    static constexpr const char* DEFAULT = "default";
    static constexpr const char* MISSING = "missing";

    /*
     *   result  what is found goes there
     *   type    of the service, which the rows of keys are formatted with
     */
    Policy(Settings& result, const std::string& type);
    ~Policy();
    Policy(const Policy&) = delete;
    Policy& operator=(const Policy&) = delete;

    /*
     * Loads a section, or the configuration if the name is empty. A failure is a problem of the given severity, told
     * with its consequence. What others than root could have written is told, and read from a copy.
     * Result: whether there are keys to be read.
     */
    bool load(const std::string& section, Severity severity, const std::string& consequence);

    /*
     * Reads rows of keys into a record, telling of each what is wrong with it and where its value comes from. Rows of a
     * section that could not be loaded are left out.
     *   worst    severity of a missing key without a default
     *   ends     what follows from it
     *   explain  whether the values are settings to be explained
     */
    void read(std::span<const MONP_POLKEY> rows, const std::string& section, void* record,
              Severity worst = Severity::error, const std::string& ends = "the monitor ends", bool explain = true);

    /*
     * Tells the keys of the loaded sections that no monitor looks at, and the services that have no section.
     */
    void report_unknown();

    /* Every value loaded, by key. */
    [[nodiscard]] const std::map<std::string, Found>& values() const;

    /* Where a key stands, or the file that it is missing from. */
    [[nodiscard]] std::string where(const std::string& key) const;

private:
    void read_row(const MONP_POLKEY& row, const std::string& section, void* record, Severity worst,
                  const std::string& ends, bool explain);
    std::string read_key(const MONP_POLKEY& row, const std::string& key, const std::string& section, void* record,
                         Severity worst, const std::string& ends);
    void report(const std::string& file, Severity severity, const std::string& consequence);
    [[nodiscard]] std::string original(std::string text) const;
    int load_copy(const std::string& file);
    void note_values();

    Settings& result_;
    std::string type_;
    bool open_ = false;
    std::set<std::string> failed_; /* files that could not be loaded */
    std::string copies_;           /* directory of copies; empty while there is none */
    std::map<std::string, Found> values_;
};

/*
 * The key of a row.
 */
std::string key_of(const MONP_POLKEY& row, const std::string& section, const std::string& type);

} // namespace monpctl

#endif
