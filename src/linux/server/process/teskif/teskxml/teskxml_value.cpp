/*
 * From the text of an element to the destination of the caller, which is written to only when all of it is right.
 */
#include "teskxml_value.h"

#include <charconv>
#include <cstring>

namespace teskxml {

namespace {

/*
 * Tells about a value that cannot be read as asked for.
 */
int bad_value(int code, const Found& value)
{
    return fail(code, value.document->place(value.number), "%s is \"%s\": %s", value.document->key(value.number),
                shown(value.document->value(value.number)).text, teskxml_codetext(code));
}

/*
 * Takes a sign and figures, and nothing else.
 */
int to_number(std::string_view text, int& number)
{
    const bool plus = text.starts_with('+');

    text.remove_prefix(plus ? 1 : 0);
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error == std::errc::invalid_argument || stop != end || (plus && text.starts_with('-'))) {
        return TESKXML_RET_FAIL_NOTNUMBER;
    }
    return error == std::errc() ? TESKXML_RET_SUCCESS : TESKXML_RET_FAIL_RANGE;
}

} // namespace

int copy_text(const Found& value, void* target, size_t capacity)
{
    const size_t size = value.document->node(value.number).value_size;

    if (size >= capacity) {
        return bad_value(TESKXML_RET_FAIL_CAPACITY, value);
    }
    std::memcpy(target, value.document->value(value.number), size + 1);
    return TESKXML_RET_SUCCESS;
}

int copy_number(const Found& value, void* target, size_t capacity)
{
    int number = 0;

    if (capacity < sizeof(number)) {
        return bad_value(TESKXML_RET_FAIL_CAPACITY, value);
    }
    const size_t size = value.document->node(value.number).value_size;
    const int result = to_number({ value.document->value(value.number), size }, number);
    if (result != TESKXML_RET_SUCCESS) {
        return bad_value(result, value);
    }
    std::memcpy(target, &number, sizeof(number));
    return TESKXML_RET_SUCCESS;
}

} // namespace teskxml
