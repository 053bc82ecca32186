// The settings as the monitor has to read them, key by key, with the calls and lines of each reading.
#pragma once

#include "tape.h"

// The settings of the command line; -1 and an empty text are for the policy to fill.
struct Given {
    std::string type;
    int action = -1;
    int restime = -1;
    int wait = -1;
    bool nostart = false;
};

class Policies {
public:
    Policies(Tape& read, const Given& options) : tape(read), given(options) {}

    bool load(); // the whole configuration; tells whether it succeeded
    // The path of a command's executable, read from its own section; none: that failed.
    std::optional<std::string> command(const std::string& section);

    std::string text(const std::string& key) const; // behind "/root/"; the service's own keys begin with "service/"
    int number(const std::string& key) const
    {
        return std::stoi(text(key));
    }
    std::string type() const
    {
        return text(given.type + "/type");
    } // as the policy states it
    std::string path(const std::string& key) const
    {
        return text("all/path") + "/" + text(key);
    }
    bool held_back_by_dummy() const;
    bool disabled() const;

private:
    struct Key;

    bool library(const std::string& call, const std::string& line, const std::string& more = "");
    bool load_section(const std::string& name);
    bool unload_section(const std::string& name);
    void unload_all();
    bool room();
    bool read(const std::vector<Key>& keys, const std::string& logtype);
    bool read_key(const Key& key, const std::string& logtype);
    bool read_records();
    bool sections_and_records();

    Tape& tape;
    Given given;
    std::vector<std::string> loaded;
    std::map<std::string, std::string> values;
    bool first = true;
};
