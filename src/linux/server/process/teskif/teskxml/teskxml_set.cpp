/*
 * The set of loaded files. It is searched from its start to its end, as it is a handful.
 */
#include "teskxml_set.h"

#include "teskxml_file.h"
#include "teskxml_parse.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace teskxml {

namespace {

struct Set {
    std::array<DocumentPtr, TESKXML_MAX_LOADED> documents; /* in the order of loading, without gaps */
    size_t size = 0;
    uintptr_t handle = 0; /* last one given out; never reused, so that a stale one is noticed */

    [[nodiscard]] std::span<DocumentPtr> loaded()
    {
        return std::span(documents).first(size);
    }
};

constinit Set gset;

DocumentPtr* find(Kind kind, const char* path)
{
    const auto found = std::ranges::find_if(gset.loaded(), [&](const DocumentPtr& one) {
        return one->kind() == kind && std::strcmp(one->path(), path) == 0;
    });

    return found != gset.loaded().end() ? &*found : nullptr;
}

DocumentPtr* find(uintptr_t handle)
{
    const auto found = std::ranges::find_if(gset.loaded(), [&](const DocumentPtr& one) {
        return one->kind() == Kind::path_config && one->handle == handle;
    });

    return found != gset.loaded().end() ? &*found : nullptr;
}

int release(DocumentPtr* document, const char* what)
{
    if (document == nullptr) {
        return fail(TESKXML_RET_FAIL_NOTLOADED, NOWHERE, "%s is not loaded", what);
    }
    if (--(*document)->users == 0) {
        std::move(document + 1, gset.loaded().data() + gset.size, document);
        gset.documents[--gset.size] = nullptr;
    }
    return TESKXML_RET_SUCCESS;
}

int check_clash(const Document& document)
{
    for (const DocumentPtr& other : gset.loaded()) {
        if (const auto clash = document.clash(*other)) {
            return fail(TESKXML_RET_FAIL_DUPLICATE, document.place(clash->here),
                        "the key %s is given twice, first in line %d of %s", document.key(clash->here),
                        other->node(clash->there).line, other->path());
        }
    }
    return TESKXML_RET_SUCCESS;
}

/*
 * Reads a file and adds it to the set.
 */
int load_new(const Source& source)
{
    Scratch scratch;
    std::string_view content;

    if (gset.size == gset.documents.size()) {
        return fail(TESKXML_RET_FAIL_LIMIT, { source.path }, "%d files are loaded already", TESKXML_MAX_LOADED);
    }
    int result = read_file(source.path, source.top, scratch, content);
    if (result != TESKXML_RET_SUCCESS) {
        return result;
    }
    DocumentPtr document = Document::create(source.kind, source.path, content);
    if (document == nullptr) {
        return fail(TESKXML_RET_FAIL_MEMORY, { source.path }, "out of memory");
    }
    result = parse(*document, source.section, content, scratch);
    if (result == TESKXML_RET_SUCCESS) {
        result = check_clash(*document);
    }
    if (result == TESKXML_RET_SUCCESS) {
        document->handle = ++gset.handle;
        gset.documents[gset.size++] = std::move(document);
    }
    return result;
}

} // namespace

int load(const Source& source, uintptr_t& handle)
{
    DocumentPtr* const known = find(source.kind, source.path);

    if (known != nullptr) {
        (*known)->users++;
        handle = (*known)->handle;
        return TESKXML_RET_SUCCESS;
    }
    const int result = load_new(source);
    if (result == TESKXML_RET_SUCCESS) {
        handle = gset.handle;
    }
    return result;
}

int release(Kind kind, const char* path, const char* what)
{
    return release(find(kind, path), what);
}

int release(uintptr_t handle, const char* what)
{
    return release(find(handle), what);
}

/* An element for further elements does not end the search, as files share such elements. */
int look_up(std::string_view key, Found& found)
{
    int result = TESKXML_RET_FAIL_NOKEY;

    for (const DocumentPtr& document : gset.loaded()) {
        const Number number = document->find(key);
        if (number != NONE) {
            found = { document.get(), number };
            if (!document->node(number).branch) {
                return TESKXML_RET_SUCCESS;
            }
            result = TESKXML_RET_FAIL_NOVALUE;
        }
    }
    return fail(result, result == TESKXML_RET_FAIL_NOVALUE ? found.document->place(found.number) : NOWHERE, "%s: %s",
                key.data(), teskxml_codetext(result));
}

std::span<const DocumentPtr> loaded()
{
    return gset.loaded();
}

void clear()
{
    for (DocumentPtr& document : gset.loaded()) {
        document.reset();
    }
    gset.size = 0;
}

} // namespace teskxml
