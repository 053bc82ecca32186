/*
 * The words that the line of a record begins with.
 */
#include "log_record.h"

#include "tesklog.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace tesklog {

/*
 * localtime() would lock, so the calendar is reckoned.
 */
void Record::stamp(int zone)
{
    using namespace std::chrono;
    struct timespec clock = {};

    clock_gettime(CLOCK_REALTIME, &clock);
    now = static_cast<int64_t>(clock.tv_sec) * 1000000000 + clock.tv_nsec;

    const sys_seconds local{ seconds(clock.tv_sec) + minutes(zone) };
    const sys_days day = floor<days>(local);
    const auto of_day = static_cast<unsigned>((local - day).count());
    time.date = year_month_day(day);
    time.hour = of_day / 3600;
    time.minute = of_day / 60 % 60;
    time.second = of_day % 60;
    time.micro = static_cast<unsigned>(clock.tv_nsec) / 1000;
    time.zone = zone;

    self = Self::current();
}

/*
 * Writes a number with a fixed count of digits.
 * Result: what follows them.
 */
static inline char* put_digits(char* target, unsigned value, int digits)
{
    for (int at = digits - 1; at >= 0; at--) {
        target[at] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    return target + digits;
}

void Record::put_time(Text& text) const
{
    const auto offset = static_cast<unsigned>(time.zone < 0 ? -time.zone : time.zone);
    char buffer[] = "0000-00-00T00:00:00.000000+0000";
    char* target = buffer;

    target = put_digits(target, static_cast<unsigned>(static_cast<int>(time.date.year())), 4) + 1;
    target = put_digits(target, static_cast<unsigned>(time.date.month()), 2) + 1;
    target = put_digits(target, static_cast<unsigned>(time.date.day()), 2) + 1;
    target = put_digits(target, time.hour, 2) + 1;
    target = put_digits(target, time.minute, 2) + 1;
    target = put_digits(target, time.second, 2) + 1;
    target = put_digits(target, time.micro, 6);
    *target = time.zone < 0 ? '-' : '+';
    put_digits(target + 1, offset / 60 * 100 + offset % 60, 4);
    text.raw({ buffer, sizeof(buffer) - 1 });
}

/*
 * Adds a word, which a blank in it must not make two of, and which must not be missing.
 */
static void put_word(Text& text, const char* value)
{
    value = value != nullptr && value[0] != '\0' ? value : "-";
    std::string_view word(value, strnlen(value, LINE_LENGTH));

    for (size_t blank = word.find(' '); blank != std::string_view::npos; blank = word.find(' ')) {
        text.put(word.substr(0, blank));
        text.raw("\\x20");
        word.remove_prefix(blank + 1);
    }
    text.put(word);
}

static void put_level(Text& text, int value)
{
    static constexpr struct {
        int value;
        std::string_view word;
    } LEVELS[] = {
        { TESKLOG_ERROR, "error" }, { TESKLOG_WARNING, "warning" }, { TESKLOG_INFO, "info" },
        { TESKLOG_TRACE, "trace" }, { TESKLOG_DETAIL, "detail" },   { TESKLOG_EVENT, "event" },
    };
    const auto* level =
        std::find_if(std::begin(LEVELS), std::end(LEVELS), [value](const auto& row) { return row.value == value; });

    if (level != std::end(LEVELS)) {
        text.raw(level->word);
    } else {
        text.format("%d", value);
    }
}

void Record::put_head(Text& text) const
{
    put_time(text);
    text.add(' ');
    put_level(text, level);
    text.add(' ');
    text.number(static_cast<unsigned long>(self.pid));
    text.add('/');
    text.number(static_cast<unsigned long>(self.tid));
    text.add(' ');
    put_word(text, ident);
    text.add(' ');
    put_word(text, function);
    text.add(' ');
    put_word(text, file);
    text.add(':');
    if (line < 0) {
        text.add('-');
    }
    text.number(line < 0 ? 0U - static_cast<unsigned>(line) : static_cast<unsigned>(line));
    text.add(' ');
}

} // namespace tesklog
