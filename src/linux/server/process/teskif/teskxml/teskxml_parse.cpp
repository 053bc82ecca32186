/*
 * The part that knows expat. It streams through the content once; what a policy must not hold ends the parse where it
 * begins, so that no such construct is ever acted upon.
 */
#include "teskxml_parse.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <expat.h>
#include <strings.h>
#include <sys/auxv.h>
#include <utility>

namespace teskxml {

namespace {

/* The memory of the parser at work. Expat's operations for memory have no argument of their own, and no two threads
   are in the library at once. */
constinit Scratch* gscratch = nullptr;

constexpr XML_Memory_Handling_Suite MEMORY = {
    [](size_t size) { return gscratch->take(size); },
    [](void* block, size_t size) { return gscratch->resize(block, size); },
    [](void* block) { gscratch->give(block); },
};

struct ParserFree {
    void operator()(XML_Parser parser) const
    {
        XML_ParserFree(parser);
    }
};

using Parser = std::unique_ptr<XML_ParserStruct, ParserFree>;

/*
 * One parse. Once the result is a failure, the callbacks that expat still makes do nothing.
 */
class Reader {
public:
    Reader(Document& document, const char* section, std::string_view content)
        : document_(document), section_(section), content_(content), break_(next_break(content.data()))
    {
    }

    int run();

private:
    [[nodiscard]] const char* end() const
    {
        return content_.data() + content_.size();
    }
    [[nodiscard]] const char* next_break(const char* from) const;
    Place here();
    void refuse(int code, const char* format, ...) __attribute__((format(printf, 3, 4)));

    [[nodiscard]] const char* required_name() const;
    [[nodiscard]] bool has_value() const;
    void check_element(const char* name, size_t size, const char* attribute);
    void enter(std::string_view name);
    void add_value(std::string_view text);
    int check_section();

    void on_start(const char* name, const char* attribute);
    void on_end();
    void on_text(std::string_view text);
    void on_comment();
    void on_other(std::string_view text);
    void on_instruction(const char* target);
    void on_declaration(const char* encoding);
    void set_handlers();
    static Reader* open_reader(void* user);

    Document& document_;
    const char* section_;
    std::string_view content_;
    const char* line_start_ = content_.data(); /* of the line that was last asked for */
    const char* break_;                        /* its end, or the content's */
    int line_ = 1;
    Number current_ = TOP; /* innermost open element */
    int depth_ = 0;        /* open elements */
    bool divided_ = false; /* a comment stands behind a part of the current value */
    int result_ = TESKXML_RET_SUCCESS;
    Parser parser_;
};

const char* Reader::next_break(const char* from) const
{
    const void* found = std::memchr(from, '\n', static_cast<size_t>(end() - from));

    return found != nullptr ? static_cast<const char*>(found) : end();
}

/*
 * Place of the current event. Counted in step with the parse, as expat's own count goes byte by byte, and in
 * characters. In a content without a single byte there is no event; its place is the start.
 */
Place Reader::here()
{
    const char* event = content_.data() + std::max<XML_Index>(XML_GetCurrentByteIndex(parser_.get()), 0);

    while (break_ < event) {
        line_++;
        line_start_ = break_ + 1;
        break_ = next_break(line_start_);
    }
    return { document_.path(), line_, static_cast<int>(event - line_start_) + 1 };
}

/*
 * Ends the parse with a failure at the current event.
 */
void Reader::refuse(int code, const char* format, ...)
{
    va_list arguments;

    va_start(arguments, format);
    result_ = vfail(code, here(), format, arguments);
    va_end(arguments);
    XML_StopParser(parser_.get(), XML_FALSE);
}

/*
 * The name that an element at the current depth must have; null: any.
 */
const char* Reader::required_name() const
{
    if (depth_ == 0) {
        return "root";
    }
    return depth_ == 1 ? section_ : nullptr;
}

/*
 * Looks at everything about a new element that can be told before it is added.
 */
void Reader::check_element(const char* name, size_t size, const char* attribute)
{
    const char* required = required_name();
    const size_t parent_size = depth_ > 0 ? document_.node(current_).key_size : 0;

    if (attribute != nullptr) {
        refuse(TESKXML_RET_FAIL_FORBIDDEN, "the element %s has the attribute %s", shown(name).text,
               shown(attribute).text);
    } else if (required != nullptr && std::strcmp(name, required) != 0) {
        refuse(TESKXML_RET_FAIL_SCOPE, "the element %s lies outside %s%s", shown(name).text,
               depth_ == 0 ? "/" : "/root/", required);
    } else if (depth_ >= TESKXML_MAX_DEPTH) {
        refuse(TESKXML_RET_FAIL_LIMIT, "more than %d elements within each other", TESKXML_MAX_DEPTH);
    } else if (parent_size + 1 + size > TESKXML_MAX_KEY) {
        refuse(TESKXML_RET_FAIL_LIMIT, "the key gets longer than %d", TESKXML_MAX_KEY);
    } else if (has_value()) {
        refuse(TESKXML_RET_FAIL_FORBIDDEN, "the element %s follows a text", shown(name).text);
    }
}

/*
 * Whether the current element has a part of a value.
 */
bool Reader::has_value() const
{
    return depth_ > 0 && document_.node(current_).value_size > 0;
}

/*
 * Adds an element that may be there, and goes into it.
 */
void Reader::enter(std::string_view name)
{
    const auto added = document_.add(current_, name);

    if (added.number == NONE) {
        refuse(TESKXML_RET_FAIL_LIMIT, "more than %d elements", TESKXML_MAX_KEYS);
        return;
    }
    Node& node = document_.node(added.number);
    if (!added.done) {
        refuse(TESKXML_RET_FAIL_DUPLICATE, "the key %s is given twice, first in line %d", document_.key(added.number),
               node.line);
        return;
    }
    const Place place = here();
    node.line = place.line;
    node.column = place.column;
    /* "root", and the section in a section's file, are for further elements only */
    node.branch = depth_ < (section_ != nullptr ? 2 : 1);
    if (depth_ > 0) {
        document_.node(current_).branch = true;
    }
    current_ = added.number;
    depth_++;
}

void Reader::on_start(const char* name, const char* attribute)
{
    const size_t size = std::strlen(name);

    check_element(name, size, attribute);
    if (result_ == TESKXML_RET_SUCCESS) {
        enter({ name, size });
    }
}

void Reader::on_end()
{
    const Node& node = document_.node(current_);

    if (!node.branch && !document_.end_text()) {
        refuse(TESKXML_RET_FAIL_LIMIT, "the values do not fit");
    }
    current_ = node.parent;
    depth_--;
    divided_ = false;
}

void Reader::add_value(std::string_view text)
{
    const Node& node = document_.node(current_);
    const auto name = [this] { return shown(document_.name(current_)); };

    if (node.branch) {
        refuse(TESKXML_RET_FAIL_FORBIDDEN, "text where only elements may be, in %s", name().text);
    } else if (divided_) {
        refuse(TESKXML_RET_FAIL_FORBIDDEN, "text behind a comment in the value of %s", name().text);
    } else if (node.value_size + text.size() > TESKXML_MAX_VALUE) {
        refuse(TESKXML_RET_FAIL_LIMIT, "the value of %s is longer than %d", name().text, TESKXML_MAX_VALUE);
    } else if (!document_.add_text(text)) {
        refuse(TESKXML_RET_FAIL_LIMIT, "the values do not fit");
    }
}

/*
 * A text may come in any number of pieces. Blanks are not part of the value as long as none of its text has come, or
 * none may come any more.
 */
void Reader::on_text(std::string_view text)
{
    if (divided_ || !has_value()) {
        while (!text.empty() && is_blank(text.front())) {
            text.remove_prefix(1);
        }
    }
    if (!text.empty()) {
        add_value(text);
    }
}

/*
 * What reads as two values must not be taken for one.
 */
void Reader::on_comment()
{
    divided_ = has_value();
}

/*
 * Sees what has no handler of its own, and so a DOCTYPE by its first word; a handler for it would come at its end or
 * its "[".
 */
void Reader::on_other(std::string_view text)
{
    if (text == "<!DOCTYPE") {
        refuse(TESKXML_RET_FAIL_FORBIDDEN, "a DOCTYPE");
    }
}

void Reader::on_instruction(const char* target)
{
    refuse(TESKXML_RET_FAIL_FORBIDDEN, "the processing instruction %s", shown(target).text);
}

/*
 * A content without NUL bytes is taken for UTF-8; this refuses one that says it is something else.
 */
void Reader::on_declaration(const char* encoding)
{
    if (encoding != nullptr && strcasecmp(encoding, "UTF-8") != 0) {
        refuse(TESKXML_RET_FAIL_SYNTAX, "the encoding %s, not UTF-8", shown(encoding).text);
    }
}

/*
 * Tells the place of "root", as what is missing has none.
 */
int Reader::check_section()
{
    if (section_ != nullptr && document_.nodes().size() < 2) {
        return fail(TESKXML_RET_FAIL_SCOPE, document_.place(0), "there is no element %s in /root", section_);
    }
    return TESKXML_RET_SUCCESS;
}

/*
 * The reader that a callback is for; null once the parse has failed.
 */
Reader* Reader::open_reader(void* user)
{
    auto* reader = static_cast<Reader*>(user);

    return reader->result_ == TESKXML_RET_SUCCESS ? reader : nullptr;
}

void Reader::set_handlers()
{
    XML_Parser parser = parser_.get();

    XML_SetUserData(parser, this);
    XML_SetElementHandler(
        parser,
        [](void* user, const XML_Char* name, const XML_Char** attributes) {
            if (Reader* reader = open_reader(user)) {
                reader->on_start(name, attributes[0]);
            }
        },
        [](void* user, const XML_Char*) {
            if (Reader* reader = open_reader(user)) {
                reader->on_end();
            }
        });
    XML_SetCharacterDataHandler(parser, [](void* user, const XML_Char* text, int size) {
        if (Reader* reader = open_reader(user)) {
            reader->on_text({ text, static_cast<size_t>(size) });
        }
    });
    XML_SetCommentHandler(parser, [](void* user, const XML_Char*) {
        if (Reader* reader = open_reader(user)) {
            reader->on_comment();
        }
    });
    XML_SetDefaultHandler(parser, [](void* user, const XML_Char* text, int size) {
        if (Reader* reader = open_reader(user)) {
            reader->on_other({ text, static_cast<size_t>(size) });
        }
    });
    XML_SetProcessingInstructionHandler(parser, [](void* user, const XML_Char* target, const XML_Char*) {
        if (Reader* reader = open_reader(user)) {
            reader->on_instruction(target);
        }
    });
    XML_SetXmlDeclHandler(parser, [](void* user, const XML_Char*, const XML_Char* encoding, int) {
        if (Reader* reader = open_reader(user)) {
            reader->on_declaration(encoding);
        }
    });
}

/*
 * A number that differs from process to process, for expat's hash tables; it would ask the kernel for one each time.
 */
unsigned long hash_salt()
{
    const auto* random = reinterpret_cast<const void*>(getauxval(AT_RANDOM));
    unsigned long salt = 0;

    if (random != nullptr) {
        std::memcpy(&salt, random, sizeof(salt));
    }
    return salt; /* 0: none was given, and expat asks the kernel */
}

int Reader::run()
{
    /* The parser would take UTF-16 for what it is, whatever it is told; no content of that kind is without these. */
    if (content_.find('\0') != std::string_view::npos) {
        return fail(TESKXML_RET_FAIL_SYNTAX, { document_.path() }, "a NUL byte, so it is not UTF-8 text");
    }
    parser_.reset(XML_ParserCreate_MM("UTF-8", &MEMORY, nullptr));
    if (parser_ == nullptr) {
        return fail(TESKXML_RET_FAIL_MEMORY, { document_.path() }, "out of memory");
    }
    XML_SetHashSalt(parser_.get(), hash_salt());
    set_handlers();
    const auto status = XML_Parse(parser_.get(), content_.data(), static_cast<int>(content_.size()), XML_TRUE);
    if (status != XML_STATUS_OK && result_ == TESKXML_RET_SUCCESS) {
        const auto error = XML_GetErrorCode(parser_.get());
        refuse(error == XML_ERROR_NO_MEMORY ? TESKXML_RET_FAIL_MEMORY : TESKXML_RET_FAIL_SYNTAX, "%s",
               XML_ErrorString(error));
    }
    return result_ == TESKXML_RET_SUCCESS ? check_section() : result_;
}

} // namespace

int parse(Document& document, const char* section, std::string_view content, Scratch& scratch)
{
    gscratch = &scratch;
    const int result = Reader(document, section, content).run();
    gscratch = nullptr;
    return result;
}

} // namespace teskxml
