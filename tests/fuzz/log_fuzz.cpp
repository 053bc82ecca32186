// A log record: the input is the row of a table of formats, how often more the first text is repeated, two numbers, and
// two texts, the second of which is file and function, too. Only what writes the files is replaced; each line is looked
// at there.
#include "fuzz.h"
#include "log_syslog.h"
#include "tesklog.h"

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <utility>
#include <vector>

static std::vector<std::string> lines; // of the current input, without their ends

using namespace tesklog;

int File::prepare(const char*, const char*, const char*, off_t, int, Notice)
{
    return 0;
}

int File::open(const Self&)
{
    return 0;
}

int File::take_refusal()
{
    return 0;
}

void File::close(const Record&) {}

void tesklog::syslog_send(const Event&) {}

// One line, bounded, in UTF-8 and without control characters; its end tells whether it was cut.
void File::write(const Record&, const Text& text)
{
    std::string line(text.view());
    FUZZ_CHECK(line.size() < LINE_LENGTH && line.ends_with('\n') && text.view().data()[line.size()] == '\0');
    line.pop_back();
    lines.push_back(line);
    FUZZ_CHECK(!text.cut() || (line.ends_with("...[cut]") && line.size() > LINE_LENGTH - 32));

    wchar_t wide[LINE_LENGTH];
    const size_t length = mbstowcs(wide, line.c_str(), LINE_LENGTH);
    FUZZ_CHECK(length < LINE_LENGTH && wcslen(wide) == length);
    FUZZ_CHECK(std::none_of(wide, wide + length, [](wchar_t c) { return c < 0x20 || (c >= 0x7f && c < 0xa0); }));
    FUZZ_CHECK(wcspbrk(wide, L"\u2028\u2029") == nullptr);
}

static void* handle;

static bool open_log()
{
    FUZZ_CHECK(setlocale(LC_CTYPE, "C.UTF-8") != nullptr); // for mbstowcs; the library takes no notice
    return log_init("fuzz", &handle, TESKLOG_INFO, 0, 0) == 0;
}

// The structure of a JSON object: what is left without the characters of its strings and the digits of its numbers.
static std::string skeleton(std::string_view json)
{
    std::string rest;
    bool inside = false;
    for (size_t at = 0; at < json.size(); at++) {
        if (inside && json[at] == '\\') {
            at++;
            FUZZ_CHECK(at < json.size() && strchr("nrt\\\"u", json[at]) != nullptr);
        } else if (json[at] == '"' || (!inside && strchr("-0123456789", json[at]) == nullptr)) {
            rest += json[at];
            inside = inside != (json[at] == '"');
        }
    }
    return rest;
}

// The object of an event has the same structure whatever its values are.
static void check_event(int event, const char* site, const char* type, int status)
{
    log_write(handle, TESKLOG_EVENT, event, "file", 1, "function", nullptr, "dusko", 1);
    log_write(handle, TESKLOG_EVENT, event, site, status, site, nullptr, type, status);
    FUZZ_CHECK(lines.size() == 4 && skeleton(lines[1]) == skeleton(lines[3]));
}

enum Values { TEXTS, INTS, LONGS, STARS };

static constexpr std::pair<Values, const char*> ROWS[] = {
    { TEXTS, "failed. (type=%s path=%s)" },
    { TEXTS, "100%%\n%.5s\x1b[2J%-9s\xff" },
    { TEXTS, "%9s|%.0s" },
    { TEXTS, "%s %f %s" }, // an unknown conversion ends the formatting
    { TEXTS, "%s 100%" },
    { INTS, "%d %i|%+5d|% -7d|" },
    { INTS, "%05d|%+.0d|%hhd|%hd" },
    { INTS, "%u|%hhu|%#x|%08X" },
    { INTS, "%#o|%#.0o|%c|%-3c|" },
    { LONGS, "%ld|%20p|%zu|%jx" },
    { LONGS, "%#30lX|%+.25td|%lli|%lo" },
    { STARS, "%*.*s|" },
    { STARS, "%0*d|%s" },
};

static void write_row(Values values, const char* format, long one, long two, const char* text, const char* other)
{
    const int narrow[] = { static_cast<int>(one), static_cast<int>(two) };
    const auto write = [&](auto... given) { log_write(handle, TESKLOG_INFO, 0, other, 1, other, format, given...); };
    switch (values) {
    case TEXTS:
        write(text, other);
        break;
    case INTS:
        write(narrow[0], narrow[1], narrow[0], narrow[1]);
        break;
    case LONGS:
        write(one, two, one, two);
        break;
    case STARS:
        write(narrow[0], narrow[1], text);
        break;
    }
    FUZZ_CHECK(lines.size() == 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = open_log();
    Input input{ { reinterpret_cast<const char*>(data), size } };
    const auto row = input.number<uint8_t>();
    const auto repeat = input.number<uint8_t>();
    const auto one = input.number<long>();
    const auto two = input.number<long>();
    const std::string part = input.text();
    const std::string other = input.text();
    std::string text = part;
    FUZZ_CHECK(ready);
    for (int count = 0; count < repeat && text.size() <= LINE_LENGTH; count++) {
        text += part;
    }

    const auto& [values, format] = ROWS[row % std::size(ROWS)];
    lines.clear();
    write_row(values, format, one, two, text.c_str(), other.c_str());
    lines.clear();
    check_event(row % 5, other.c_str(), text.c_str(), static_cast<int>(one)); // those that take a type, and an unknown
    return 0;
}
