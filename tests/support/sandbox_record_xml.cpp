/*
 * libteskxml.so.1.0 that records each call and answers from a file. An answer for the name of an operation, or for
 * "xmllib_load_policy cl", makes it fail with that code. A value is readable only while its section is loaded, and
 * outside of sections only while the configuration is.
 */
#include "sandbox_record.h"
#include "teskxml.h"

#include <cstring>
#include <set>

namespace {

std::map<std::string, std::string> values;
std::set<std::string> loaded;

constexpr const char* CONFIG = ""; // no section bears this name

int call(const std::string& name, const std::string& argument = "")
{
    record::add("lib", name, argument);
    return record::result(argument.empty() ? name : name + ' ' + argument);
}

int load(int result, const char* name)
{
    if (result == 0) {
        loaded.insert(name);
    }
    return result;
}

int unload(int result, const char* name)
{
    return result != 0 ? result : loaded.erase(name) == 1 ? 0 : 0x22;
}

} // namespace

int xmllib_init(const char* ident)
{
    values = record::answers();
    return call("xmllib_init", ident);
}

int xmllib_term(void)
{
    loaded.clear();
    return call("xmllib_term");
}

int xmllib_load_config(void)
{
    return load(call("xmllib_load_config"), CONFIG);
}

int xmllib_unload_config(void)
{
    return unload(call("xmllib_unload_config"), CONFIG);
}

int xmllib_load_pathconfig(const char* path, void**)
{
    return call("xmllib_load_pathconfig", path);
}

int xmllib_unload_pathconfig(void*)
{
    return call("xmllib_unload_pathconfig");
}

int xmllib_load_policy(const char* name)
{
    return load(call("xmllib_load_policy", name), name);
}

int xmllib_unload_policy(const char* name)
{
    return unload(call("xmllib_unload_policy", name), name);
}

int xmllib_get_value(const char* key, int kind, void* destination, int* capacity)
{
    const std::string rest = std::string(key).substr(std::strlen("/root/"));
    const auto slash = rest.find('/');
    const auto value = values.find(key);

    record::add("lib", "xmllib_get_value", key + (' ' + std::to_string(kind)) + ' ' + std::to_string(*capacity));
    *capacity = 0; // a library may use it to tell what it stored, so a caller must set it for each read
    if (value == values.end() || !loaded.contains(slash == std::string::npos ? CONFIG : rest.substr(0, slash))) {
        return 0x21;
    }
    if (kind == TESKXML_INT) {
        const int number = std::stoi(value->second);
        std::memcpy(destination, &number, sizeof(number));
    } else {
        std::memcpy(destination, value->second.c_str(), value->second.size() + 1);
    }
    return 0;
}
