// A log record: the input is the row of a table of formats, how often more the first text is repeated, two numbers, and
// two texts, the second of which is file and function, too. Only what writes the files is replaced; each line is looked at there.
#include "fuzz.h"
#include "log_syslog.h"
#include "tesklog.h"

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <iterator>
#include <vector>

static std::vector<std::string> lines; // of the current input, without their ends
static bool cut;                       // whether the last of them was

int log_file_init(LOG_FILE*, const char*, const char*, const char*, off_t, int, PFLOGNOTICE)
{
    return 0;
}

int log_file_open(LOG_FILE*, const LOG_SELF*)
{
    return 0;
}

int log_file_refusal(LOG_FILE*)
{
    return 0;
}

void log_file_close(LOG_FILE*, const LOG_RECORD*) {}

void log_syslog_send(const LOG_EVENT*) {}

// One line, bounded, in UTF-8 and without control characters; its end tells whether it was cut.
void log_file_write(LOG_FILE*, const LOG_RECORD*, const LOG_TEXT* pline)
{
    std::string line(pline->ptext, pline->nlen);
    FUZZ_CHECK(line.size() < LOG_LINE_LEN && line.ends_with('\n') && pline->ptext[pline->nlen] == '\0');
    line.pop_back();
    lines.push_back(line);
    cut = pline->bcut;
    FUZZ_CHECK(!cut || (line.ends_with("...[cut]") && line.size() > LOG_LINE_LEN - 32));

    wchar_t wide[LOG_LINE_LEN];
    const size_t length = mbstowcs(wide, line.c_str(), LOG_LINE_LEN);
    FUZZ_CHECK(length < LOG_LINE_LEN && wcslen(wide) == length);
    FUZZ_CHECK(std::none_of(wide, wide + length, [](wchar_t c) { return c < 0x20 || (c >= 0x7f && c < 0xa0); }));
    FUZZ_CHECK(wcspbrk(wide, L"\u2028\u2029") == nullptr);
}

static void* handle;

static bool open_log()
{
    FUZZ_CHECK(setlocale(LC_CTYPE, "C.UTF-8") != nullptr); // for mbstowcs; the library takes no notice
    return log_init("fuzz", &handle, TESKLOG_INFO, 0, 0) == 0;
}

static std::string unescaped(std::string_view text)
{
    std::string bytes;
    while (!text.empty()) {
        size_t used = text[0] == '\\' ? 2 : 1;
        FUZZ_CHECK(text.size() >= used); // no escape is cut
        const size_t named = std::string_view("nrt\\").find(text[used - 1]);
        if (used == 1) {
            bytes += text[0];
        } else if (named != std::string_view::npos) {
            bytes += "\n\r\t\\"[named];
        } else {
            used = 4;
            FUZZ_CHECK(text.size() >= 4 && text[1] == 'x');
            bytes += static_cast<char>(std::stoi(std::string(text.substr(2, 2)), nullptr, 16));
        }
        text.remove_prefix(used);
    }
    return bytes;
}

// Writes a record, whose line must say what the C library makes of the same values, or the beginning of it.
template <class... Values>
static void check(const char* site, const char* format, const char* reference, Values... values)
{
    std::string want(1 << 15, '?'); // longer than all values together
    const char* const word = site[0] != '\0' ? site : "-";
    const auto head = static_cast<size_t>(snprintf(want.data(), want.size(), "%s %s:1 ", word, word));
    FUZZ_CHECK(head < want.size());
    const auto length = static_cast<size_t>(snprintf(want.data() + head, want.size() - head, reference, values...));
    FUZZ_CHECK(length < want.size() - head);
    want.resize(head + length);

    log_write(handle, TESKLOG_INFO, 0, site, 1, site, format, values...);
    FUZZ_CHECK(lines.size() == 1);
    const size_t begin = lines[0].find(" fuzz ") + 6;
    const size_t end = lines[0].size() - (cut ? strlen("...[cut]") : 0);
    const std::string got = unescaped(std::string_view(lines[0]).substr(begin, end - begin));
    FUZZ_CHECK(cut ? want.starts_with(got) : want == got);
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

struct Row {
    enum { TEXTS, INTS, LONGS, STARS } values;
    const char* format;
    const char* reference; // format for the C library, where it is another one
};

static constexpr Row ROWS[] = {
    { Row::TEXTS, "failed. (type=%s path=%s)", nullptr },
    { Row::TEXTS, "100%%\n%.5s\x1b[2J%-9s\xff", nullptr },
    { Row::TEXTS, "%9s|%.0s", nullptr },
    { Row::TEXTS, "%s %f %s", "%s %%f %%s" }, // an unknown conversion ends the formatting
    { Row::TEXTS, "%s 100%", "%s 100%%" },
    { Row::INTS, "%d %i|%+5d|% -7d|", nullptr },
    { Row::INTS, "%05d|%+.0d|%hhd|%hd", nullptr },
    { Row::INTS, "%u|%hhu|%#x|%08X", nullptr },
    { Row::INTS, "%#o|%#.0o|%c|%-3c|", nullptr },
    { Row::LONGS, "%ld|%20p|%zu|%jx", nullptr },
    { Row::LONGS, "%#30lX|%+.25td|%lli|%lo", nullptr },
    { Row::STARS, "%*.*s|", nullptr },
    { Row::STARS, "%0*d|%s", nullptr },
};

static void check_row(const Row& row, long one, long two, const char* text, const char* other)
{
    const char* const reference = row.reference != nullptr ? row.reference : row.format;
    const int narrow[] = { static_cast<int>(one), static_cast<int>(two) };
    switch (row.values) {
    case Row::TEXTS:
        check(other, row.format, reference, text, other);
        break;
    case Row::INTS:
        check(other, row.format, reference, narrow[0], narrow[1], narrow[0], narrow[1]);
        break;
    case Row::LONGS:
        check(other, row.format, reference, one, two, one, two);
        break;
    case Row::STARS: // a width is taken for a line at most, even if it is more
        check(other, row.format, reference, narrow[0] % LOG_LINE_LEN, narrow[1] % LOG_LINE_LEN, text);
        log_write(handle, TESKLOG_INFO, 0, text, narrow[1], text, row.format, narrow[0], narrow[1], text);
        break;
    }
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
    for (int count = 0; count < repeat && text.size() <= LOG_LINE_LEN; count++) {
        text += part;
    }

    lines.clear();
    check_row(ROWS[row % std::size(ROWS)], one, two, text.c_str(), other.c_str());
    lines.clear();
    check_event(row % 5, other.c_str(), text.c_str(), static_cast<int>(one)); // those that take a type, and an unknown
    return 0;
}
