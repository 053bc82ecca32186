#include "policies.h"

#include <algorithm>

// A key without a fallback ends the reading when it is missing; "keep" leaves the setting as it was.
struct Policies::Key {
    std::string key;
    std::optional<std::string> fallback{};
    const char* level = "error";
};

static const char* const KEEP = "keep";

static bool one_of(const std::string& type, std::initializer_list<const char*> types)
{
    return std::find(types.begin(), types.end(), type) != types.end();
}

bool Policies::held_back_by_dummy() const
{
    return number("dummyconf") != 0 && one_of(given.type, { "tamzile", "goru", "pelkant" });
}

bool Policies::disabled() const
{
    return one_of(given.type, { "tamzile", "sorvin", "lenk" }) && number(given.type + "/use") == 0;
}

std::string Policies::text(const std::string& key) const
{
    auto found = values.find(key);
    return found == values.end() ? "" : found->second;
}

// ---- the library ----

bool Policies::library(const std::string& call, const std::string& line, const std::string& more)
{
    const int code = tape.take(call).error;
    if (code != 0) {
        tape.take(fmt("error: %s() failed. (type=%s ret=%#x%s)", line.c_str(), given.type.c_str(),
                      static_cast<unsigned>(code), more.c_str()));
    }
    return code == 0;
}

// For a new list of the sections that are loaded.
bool Policies::room()
{
    const int code = tape.take("calloc").error;
    if (code != 0) {
        tape.take(fmt("error: calloc() failed. (type=%s errno=%d)", given.type.c_str(), code));
    }
    return code == 0;
}

bool Policies::load_section(const std::string& name)
{
    const bool done = library("xmllib_load_policy " + name, "xmllib_load_policy") && room();
    if (done) {
        loaded.push_back(name);
    }
    return done;
}

bool Policies::unload_section(const std::string& name)
{
    return library("xmllib_unload_policy " + name, "xmllib_unload_policy", " untype=" + name);
}

// Those that could not be released are tried again the next time.
void Policies::unload_all()
{
    std::vector<std::string> left;
    for (const std::string& name : loaded) {
        if (!unload_section(name)) {
            left.push_back(name);
        }
    }
    loaded = left;
    if (!left.empty()) {
        tape.take(fmt("warning: monp_xml_unloadpolicy() failed. (type=%s ret=4)", given.type.c_str()));
    }
}

// ---- the keys ----

bool Policies::read_key(const Key& key, const std::string& logtype)
{
    const Note& note = tape.take("xmllib_get_value /root/" + key.key + " *");
    if (note.error == 0) {
        values[key.key] = note.text;
        return true;
    }
    tape.take(fmt("%s: xmllib_get_value() failed. (type=%s ret=%#x key=/root/%s)", key.level, logtype.c_str(),
                  static_cast<unsigned>(note.error), key.key.c_str()));
    if (key.fallback && *key.fallback != KEEP) {
        values[key.key] = *key.fallback;
    }
    return key.fallback.has_value();
}

bool Policies::read(const std::vector<Key>& keys, const std::string& logtype)
{
    for (const Key& key : keys) {
        if (!read_key(key, logtype)) {
            return false;
        }
        if (key.key.find("_timeout") != std::string::npos && number(key.key) < 1) {
            tape.take(fmt("error: invalid initto(%d,use:13)", number(key.key)));
            values[key.key] = "13";
        }
    }
    return true;
}

bool Policies::read_records()
{
    const std::string own = "monp/service/" + given.type + "/";
    const auto failed = [this](const char* what, const std::string& section) {
        tape.take(fmt("error: monp_xml_%s() failed. (ret=4 type=%s)", what, section.c_str()));
        return false;
    };
    std::vector<Key> service;
    std::vector<Key> mine = {
        { "monp/type" },      { "monp/path" },         { "monp/log/level" },        { "monp/log/size" },
        { "monp/elog/path" }, { "monp/elog/arcpath" }, { "monp/elog/rotate", "5" }, { "monp/elog/pattern", "1" }
    };
    std::vector<Key> monitored = { { given.type + "/type" }, { given.type + "/path" } };

    if (first) {
        values[own + "action"] = std::to_string(given.action);
        values[own + "restarttime"] = std::to_string(given.restime);
        values[own + "waittime"] = std::to_string(given.wait);
    }
    for (const char* key : { "action", "param", "restarttime", "waittime" }) {
        if (text(own + key) == "-1" || text(own + key).empty()) {
            service.push_back({ own + key });
        }
    }
    if (first) {
        mine.push_back({ "pm/lockf", "" });
    }
    mine.insert(mine.end(), { { "monp/md/dirpath", "work/service" },
                              { "monp/md/filename", "init_md" },
                              { own + "parent_timeout", "13" },
                              { own + "child_timeout", "10" } });
    if (one_of(given.type, { "tamzile", "sorvin", "lenk" })) {
        monitored.push_back({ given.type + "/use", given.type == "lenk" ? "0" : "1" });
    }

    if (!read({ { "all/path" },
                { "all/core" },
                { "all/stacksize", "0" },
                { "all/env/alloc", KEEP, "warning" },
                { "all/env/path", KEEP, "warning" },
                { "all/env/lang", KEEP, "warning" },
                { "dummyconf", "0" } },
              given.type)) {
        return failed("getallpolicy", "all");
    }
    if (!read(service, given.type) || !read(mine, given.type)) {
        return failed("getmypolicy", "monp");
    }
    if (!read(monitored, given.type)) {
        return failed("getmonpolicy", given.type);
    }
    // The text is cut at its first blank once start-up has split it.
    const std::string param = text(own + "param");
    tape.take("info: type    -> " + given.type);
    tape.take("info: action  -> " + text(own + "action"));
    tape.take("info: param   -> " + (first ? param : param.substr(0, param.find(' '))));
    tape.take("info: restart -> " + text(own + "restarttime"));
    tape.take("info: wait    -> " + text(own + "waittime"));
    for (const char* key : { "action", "restarttime", "waittime", "child_timeout" }) {
        values[std::string("service/") + key] = text(own + key);
    }
    return true;
}

// ---- the whole configuration, and a command's section ----

bool Policies::sections_and_records()
{
    for (const std::string& name : { std::string("all"), std::string("pm"), std::string("monp"), given.type }) {
        if (!load_section(name)) {
            tape.take(fmt("error: monp_xml_loadpolicy() failed. (ret=4 type=%s)", name.c_str()));
            if (name != "all") {
                unload_all();
            }
            return false;
        }
    }
    if (!library("xmllib_load_config", "xmllib_load_config")) {
        tape.take("error: monp_xml_loadconfig() failed. (ret=4)");
    }
    const bool done = read_records();
    if (!library("xmllib_unload_config", "xmllib_unload_config")) {
        tape.take("warning: monp_xml_unloadconfig() failed. (ret=4)");
    }
    unload_all();
    return done;
}

bool Policies::load()
{
    bool done = false;

    tape.take(fmt("info: start - (type=%s)", given.type.c_str()));
    if (!library("xmllib_init monp", "xmllib_init")) {
        tape.take(fmt("error: monp_xml_initialize() failed. (type=%s ret=4)", given.type.c_str()));
    } else {
        done = sections_and_records();
        if (!library("xmllib_term", "xmllib_term")) {
            tape.take(fmt("warning: monp_xml_terminate() failed. (type=%s ret=4)", given.type.c_str()));
        }
    }
    tape.take(fmt("info: end - (type=%s ret=%d)", given.type.c_str(), done ? 0 : 4));
    first = first && !done;
    return done;
}

std::optional<std::string> Policies::command(const std::string& section)
{
    const auto complain = [&](const char* level, const char* what, const std::string& more) {
        tape.take(fmt("%s: %s() failed. (type=%s ret=4%s)", level, what, type().c_str(), more.c_str()));
    };
    bool done = false;

    if (!library("xmllib_init monp", "xmllib_init")) {
        complain("error", "monp_xml_initialize", "");
        return {};
    }
    if (!load_section(section)) {
        complain("error", "monp_xml_loadpolicy", " ldtype=" + section);
    } else {
        done = read({ { section + "/type" }, { section + "/path" } }, type());
        bool unloaded = unload_section(section);
        if (unloaded && loaded.size() > 1) {
            unloaded = room();
        }
        if (unloaded) {
            loaded.erase(std::find(loaded.begin(), loaded.end(), section));
        } else {
            complain("warning", "monp_xml_unloadpolicy", " ultype=" + section);
        }
    }
    if (!library("xmllib_term", "xmllib_term")) {
        complain("warning", "monp_xml_terminate", " ultype=" + section);
    }
    return done ? std::optional(path(section + "/path")) : std::nullopt;
}
