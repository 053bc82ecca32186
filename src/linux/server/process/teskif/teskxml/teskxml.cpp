/*
 * The operations of the library: what the caller gave is looked at here, and names become paths.
 */
#include "teskxml.h"

#include "tesk_home.h"
#include "teskxml_open.h"
#include "teskxml_value.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

using namespace teskxml;

namespace {

struct Library {
    bool open = false;
    std::array<char, TESKXML_MAX_PATH + 1> home = {}; /* without a "/" at its end; empty: "/" itself */
    size_t home_size = 0;
};

constinit Library glibrary;

/*
 * A path with its NUL.
 */
using Path = std::array<char, TESKXML_MAX_PATH + 1>;

int missing(const char* argument)
{
    return fail(TESKXML_RET_FAIL_ARGUMENT, NOWHERE, "%s is missing or unusable", argument);
}

int check_name(const char* name)
{
    constexpr const char* ALLOWED = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";

    if (name == nullptr) {
        return missing("the section's name");
    }
    const size_t size = strnlen(name, TESKXML_MAX_NAME + 1);
    if (size == 0 || size > TESKXML_MAX_NAME || std::strspn(name, ALLOWED) != size) {
        return fail(TESKXML_RET_FAIL_NAME, NOWHERE,
                    "\"%s\" is no section's name: 1 to %d of A-Z, a-z, 0-9, \"_\" and \"-\"", shown(name).text,
                    TESKXML_MAX_NAME);
    }
    return TESKXML_RET_SUCCESS;
}

/*
 * Gives the path of a file in a directory below the home directory, while the library is open.
 */
int home_path(Path& path, const char* directory, const char* name)
{
    const int result = check_open();

    if (result != TESKXML_RET_SUCCESS) {
        return result;
    }
    const int size = std::snprintf(path.data(), path.size(), "%s%s%s.xml", glibrary.home.data(), directory, name);
    if (size < 0 || static_cast<size_t>(size) >= path.size()) {
        return fail(TESKXML_RET_FAIL_HOME, NOWHERE, "the home directory's path is too long");
    }
    return TESKXML_RET_SUCCESS;
}

int config_path(Path& path)
{
    return home_path(path, "/etc/", "config");
}

/*
 * Checks the name of a section, too.
 */
int section_path(Path& path, const char* name)
{
    int result = check_open();

    if (result == TESKXML_RET_SUCCESS) {
        result = check_name(name);
    }
    return result == TESKXML_RET_SUCCESS ? home_path(path, "/etc/policy/", name) : result;
}

/*
 * Bytes of a path that name the home directory if it lies in there; otherwise 0, for "/".
 */
size_t top_size(const char* path)
{
    const size_t size = glibrary.home_size;

    return std::strncmp(path, glibrary.home.data(), size) == 0 && path[size] == '/' ? size : 0;
}

/*
 * Takes the home directory over, without "/" at its end, "//" and ".": behind these a symbolic link would be followed
 * and pass for the directory that it leads to.
 */
int take_home(const char* home)
{
    char* const begin = glibrary.home.data();
    char* end = begin;
    bool good = home[0] == '/';

    for (const char* next = home; good && *next != '\0';) {
        next += std::strspn(next, "/");
        const std::string_view name(next, std::strcspn(next, "/"));
        next += name.size();
        if (name.empty() || name == ".") {
            continue;
        }
        good = name != ".." && static_cast<size_t>(end - begin) + 1 + name.size() <= TESKXML_MAX_PATH;
        if (good) {
            *end++ = '/';
            end = std::copy(name.begin(), name.end(), end);
        }
    }
    *end = '\0';
    glibrary.home_size = static_cast<size_t>(end - begin);
    if (!good) {
        return fail(TESKXML_RET_FAIL_HOME, NOWHERE,
                    "the home directory \"%s\" is no absolute path without \"..\" of at most %d bytes",
                    shown(home).text, TESKXML_MAX_PATH);
    }
    return TESKXML_RET_SUCCESS;
}

} // namespace

int teskxml::check_open()
{
    return glibrary.open ? TESKXML_RET_SUCCESS : fail(TESKXML_RET_FAIL_NOTOPEN, NOWHERE, "the library is not open");
}

int xmllib_init(const char* ident)
{
    if (ident == nullptr || ident[0] == '\0') {
        return missing("the caller's name");
    }
    if (glibrary.open) {
        return fail(TESKXML_RET_FAIL_ALREADYOPEN, NOWHERE, "the library is open already");
    }
    const int result = take_home(tesk_home());
    glibrary.open = result == TESKXML_RET_SUCCESS;
    return result;
}

int xmllib_term(void)
{
    const int result = check_open();

    if (result == TESKXML_RET_SUCCESS) {
        clear();
        glibrary.open = false;
    }
    return result;
}

int xmllib_load_config(void)
{
    Path path;
    uintptr_t handle = 0;
    const int result = config_path(path);

    return result == TESKXML_RET_SUCCESS ? load({ Kind::config, path.data(), glibrary.home_size }, handle) : result;
}

int xmllib_unload_config(void)
{
    Path path;
    const int result = config_path(path);

    return result == TESKXML_RET_SUCCESS ? release(Kind::config, path.data(), "the configuration") : result;
}

int xmllib_load_pathconfig(const char* path, void** handle)
{
    uintptr_t number = 0;
    int result = check_open();

    if (result != TESKXML_RET_SUCCESS) {
        return result;
    }
    if (path == nullptr || handle == nullptr) {
        return missing("the configuration's path or the handle for it");
    }
    if (path[0] != '/' || strnlen(path, TESKXML_MAX_PATH + 1) > TESKXML_MAX_PATH) {
        return fail(TESKXML_RET_FAIL_ARGUMENT, NOWHERE, "\"%s\" is no absolute path of at most %d bytes",
                    shown(path).text, TESKXML_MAX_PATH);
    }
    result = load({ Kind::path_config, path, top_size(path) }, number);
    if (result == TESKXML_RET_SUCCESS) {
        *handle = reinterpret_cast<void*>(number);
    }
    return result;
}

int xmllib_unload_pathconfig(void* handle)
{
    const int result = check_open();

    return result == TESKXML_RET_SUCCESS
               ? release(reinterpret_cast<uintptr_t>(handle), "a configuration of this handle")
               : result;
}

int xmllib_load_policy(const char* name)
{
    Path path;
    uintptr_t handle = 0;
    const int result = section_path(path, name);

    return result == TESKXML_RET_SUCCESS ? load({ Kind::section, path.data(), glibrary.home_size, name }, handle)
                                         : result;
}

int xmllib_unload_policy(const char* name)
{
    Path path;
    const int result = section_path(path, name);

    return result == TESKXML_RET_SUCCESS ? release(Kind::section, path.data(), name) : result;
}

// NOLINTNEXTLINE(readability-non-const-parameter): the signature is the closed library's
int xmllib_get_value(const char* key, int kind, void* destination, int* capacity)
{
    Found found = {};
    int result = check_open();

    if (result != TESKXML_RET_SUCCESS) {
        return result;
    }
    if (key == nullptr || destination == nullptr || capacity == nullptr || *capacity <= 0) {
        return missing("the key, the destination or its capacity");
    }
    if (kind != TESKXML_TEXT && kind != TESKXML_INT) {
        return fail(TESKXML_RET_FAIL_KIND, NOWHERE, "%d is no kind of a value", kind);
    }
    result = look_up(key, found);
    if (result != TESKXML_RET_SUCCESS) {
        return result;
    }
    return kind == TESKXML_TEXT ? copy_text(found, destination, static_cast<size_t>(*capacity))
                                : copy_number(found, destination, static_cast<size_t>(*capacity));
}
