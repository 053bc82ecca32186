// The policy library: answers from a map while it is open.
#include "stage.h"

#include "teskxml.h"

#include <cstring>

Policy xml;

void Policy::fill(const std::string& type)
{
    const std::string service = "/root/monp/service/" + type;

    values = {
        { "/root/all/path", "/opt/x" },
        { "/root/all/core", 0 },
        { "/root/all/stacksize", 0 },
        { "/root/all/env/alloc", "3" },
        { "/root/all/env/path", "/bin" },
        { "/root/all/env/lang", "C" },
        { "/root/dummyconf", 0 },
        { service + "/action", 1 },
        { service + "/param", "-f a" },
        { service + "/restarttime", 3 },
        { service + "/waittime", 5 },
        { "/root/monp/type", "own" },
        { "/root/monp/path", "bin/monp" },
        { "/root/monp/log/level", 4 },
        { "/root/monp/log/size", 70000 },
        { "/root/monp/elog/path", "sbin/elog" },
        { "/root/monp/elog/arcpath", "e.tgz" },
        { "/root/monp/elog/rotate", 7 },
        { "/root/monp/elog/pattern", 3 },
        { "/root/pm/lockf", "/lock" },
        { "/root/monp/md/dirpath", "md" },
        { "/root/monp/md/filename", "made" },
        { service + "/parent_timeout", 6 },
        { service + "/child_timeout", 4 },
        { "/root/" + type + "/type", "trn" },
        { "/root/" + type + "/path", "bin/svc" },
    };
}

static int call(const std::string& entry, bool usable = xml.open)
{
    EXPECT_TRUE(usable) << entry;
    return journal.call(entry);
}

static int load(const std::string& entry, const std::string& name)
{
    int code = call(entry + name);
    if (code == 0) {
        xml.loaded.insert(name);
    }
    return code;
}

static int unload(const std::string& entry, const std::string& name)
{
    int code = call(entry + name);
    if (auto hit = xml.loaded.find(name); code == 0 && hit != xml.loaded.end()) {
        xml.loaded.erase(hit);
    }
    return code;
}

int xmllib_init(const char* ident)
{
    int code = call(std::string("xmllib_init ") + ident, !xml.open);
    xml.open = code == 0;
    return code;
}

int xmllib_term()
{
    int code = call("xmllib_term");
    xml.open = code != 0;
    return code;
}

int xmllib_load_config()
{
    return load("xmllib_load_config", "");
}

int xmllib_unload_config()
{
    return unload("xmllib_unload_config", "");
}

int xmllib_load_pathconfig(const char* path, void** handle)
{
    *handle = &xml;
    return call(std::string("xmllib_load_pathconfig ") + path);
}

int xmllib_unload_pathconfig(void* handle)
{
    EXPECT_EQ(&xml, handle);
    return call("xmllib_unload_pathconfig");
}

int xmllib_load_policy(const char* name)
{
    return load("xmllib_load_policy ", name);
}

int xmllib_unload_policy(const char* name)
{
    return unload("xmllib_unload_policy ", name);
}

int xmllib_get_value(const char* key, int kind, void* destination, int* capacity)
{
    int code = call(fmt("xmllib_get_value %s %d %d", key, kind, *capacity));
    auto hit = xml.values.find(key);
    if (hit == xml.values.end()) {
        code = 0x105;
    } else if (kind == TESKXML_INT) {
        memcpy(destination, &std::get<int>(hit->second), sizeof(int));
    } else {
        const std::string& text = std::get<std::string>(hit->second);
        EXPECT_LT(text.size(), static_cast<size_t>(*capacity)) << key;
        memcpy(destination, text.c_str(), text.size() + 1);
    }
    *capacity = -1; // nobody may rely on it
    return code;
}
