/*
 * A policy library with the nine operations and nothing else, as the cluster's own one is. It reads the same files as
 * ours, but checks next to nothing, and has other result codes.
 */
#include "teskxml.h"

#include <cstdlib>
#include <cstring>
#include <expat.h>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

namespace {

enum Result { DONE, CLOSED = 0x51, UNREADABLE, MALFORMED, NOT_LOADED, NO_KEY, TOO_SMALL };

using Values = std::map<std::string, std::string>;

struct Content {
    std::string key; /* of the innermost open element */
    Values values;
};

bool gopen = false;
std::map<std::string, Values> gloaded; /* by file */

std::string etc_file(const std::string& name)
{
    const char* home = getenv("TESK_HOME");

    return std::string(home != nullptr ? home : TESK_HOME_DEFAULT) + "/etc/" + name + ".xml";
}

void begin_element(void* content, const XML_Char* name, const XML_Char** /*attributes*/)
{
    auto& [key, values] = *static_cast<Content*>(content);

    key.append("/").append(name);
    values[key];
}

void end_element(void* content, const XML_Char* /*name*/)
{
    auto& [key, values] = *static_cast<Content*>(content);
    std::string& value = values[key];
    const auto last = value.find_last_not_of(" \t\r\n");

    value.erase(last == std::string::npos ? 0 : last + 1);
    key.erase(key.rfind('/'));
}

void add_text(void* content, const XML_Char* text, int length)
{
    auto& [key, values] = *static_cast<Content*>(content);
    std::string& value = values[key];

    value.append(text, static_cast<size_t>(length));
    value.erase(0, value.find_first_not_of(" \t\r\n"));
}

int load(const std::string& file)
{
    std::ifstream stream(file);
    const std::string text{ std::istreambuf_iterator<char>(stream), {} };
    Content content;

    if (!gopen || !stream) {
        return gopen ? UNREADABLE : CLOSED;
    }
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &content);
    XML_SetElementHandler(parser, begin_element, end_element);
    XML_SetCharacterDataHandler(parser, add_text);
    const auto status = XML_Parse(parser, text.data(), static_cast<int>(text.size()), XML_TRUE);
    XML_ParserFree(parser);
    if (status != XML_STATUS_OK) {
        return MALFORMED;
    }
    gloaded.insert_or_assign(file, content.values);
    return DONE;
}

int unload(const std::string& file)
{
    return gloaded.erase(file) == 1 ? DONE : NOT_LOADED;
}

int copy_value(const std::string& value, int kind, void* destination, int capacity)
{
    const int number = std::atoi(value.c_str());
    const bool is_text = kind == TESKXML_TEXT;
    const size_t size = is_text ? value.size() + 1 : sizeof(number);

    if (static_cast<size_t>(capacity) < size) {
        return TOO_SMALL;
    }
    std::memcpy(destination, is_text ? static_cast<const void*>(value.c_str()) : &number, size);
    return DONE;
}

} // namespace

int xmllib_init(const char* /*ident*/)
{
    gopen = true;
    return DONE;
}

int xmllib_term()
{
    gopen = false;
    gloaded.clear();
    return DONE;
}

int xmllib_load_config()
{
    return load(etc_file("config"));
}

int xmllib_unload_config()
{
    return unload(etc_file("config"));
}

int xmllib_load_pathconfig(const char* path, void** handle)
{
    const int result = load(path);

    if (result == DONE) {
        *handle = const_cast<std::string*>(&gloaded.find(path)->first);
    }
    return result;
}

int xmllib_unload_pathconfig(void* handle)
{
    return unload(std::string(*static_cast<const std::string*>(handle)));
}

int xmllib_load_policy(const char* name)
{
    return load(etc_file(std::string("policy/") + name));
}

int xmllib_unload_policy(const char* name)
{
    return unload(etc_file(std::string("policy/") + name));
}

/* NOLINTNEXTLINE(readability-non-const-parameter): the interface has it so */
int xmllib_get_value(const char* key, int kind, void* destination, int* capacity)
{
    for (const auto& [file, values] : gloaded) {
        if (const auto found = values.find(key); found != values.end()) {
            return copy_value(found->second, kind, destination, *capacity);
        }
    }
    return NO_KEY;
}
