/*
 * The three operations, and the handles they give out.
 *
 * A handle is not an address but a slot number and the number of the opening. So a handle that was closed is recognised
 * for ever, even when another log has taken the slot, and nothing is ever allocated or freed that a late writer could
 * still be using. A slot's descriptors are closed by the last one to leave it, log_term or a writer that it overtook.
 */
#include "tesklog.h"

#include "log_event.h"
#include "tesk_home.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace tesklog {

static constexpr int SLOTS = 32;
static constexpr int IDENT_LENGTH = 65;
static constexpr int DEFAULT_LEVEL = TESKLOG_INFO;
static constexpr int DEFAULT_SIZE = 5000000;
static constexpr int SMALLEST_SIZE = LINE_LENGTH;
static constexpr int DEFAULT_GENERATIONS = 5;

namespace {

struct Slot {
    std::atomic<bool> taken;        /* from log_init until the last one has left */
    std::atomic<uintptr_t> opening; /* number of the opening; 0: closed */
    std::atomic<int64_t> level;     /* wider than a record's, to have a value below all of them */
    std::atomic<int> users;         /* one for the open log, one for each writer in it; 0: nobody may enter */
    uintptr_t openings;             /* so far; changed by who has taken the slot */
    int zone;                       /* minutes east of UTC */
    char ident[IDENT_LENGTH];
    File log;
    File events;
};

/* constant, as an initialiser that runs could undo a log_init made by another library's */
constinit Slot slots[SLOTS] = {};

} // namespace

/* ---------------------------------------------------------------- handles ---- */

static constexpr uintptr_t SLOT_BITS = 8; /* the low bits of a handle are the slot, the others the opening */
static constexpr uintptr_t SLOT_MASK = (1 << SLOT_BITS) - 1;

static_assert(SLOTS <= SLOT_MASK, "a handle has room for each slot");

static inline Slot* slot_of(const void* handle)
{
    const uintptr_t number = reinterpret_cast<uintptr_t>(handle) & SLOT_MASK;

    return number < SLOTS ? &slots[number] : nullptr;
}

static inline uintptr_t opening_of(const void* handle)
{
    return reinterpret_cast<uintptr_t>(handle) >> SLOT_BITS;
}

static void* make_handle(const Slot& slot, uintptr_t opening)
{
    return reinterpret_cast<void*>(opening << SLOT_BITS | static_cast<uintptr_t>(&slot - slots));
}

/*
 * Tells whether a handle is that of an open log. A null handle is number 0 of slot 0, which is never open.
 */
static inline bool is_open(const void* handle, const Slot* slot)
{
    const uintptr_t opening = opening_of(handle);

    return opening != 0 && slot != nullptr && slot->opening.load(std::memory_order_relaxed) == opening;
}

static Slot* take_slot()
{
    Slot* const slot = std::find_if(std::begin(slots), std::end(slots), [](Slot& candidate) {
        return !candidate.taken.exchange(true, std::memory_order_acquire);
    });

    return slot != std::end(slots) ? slot : nullptr;
}

/*
 * Leaves a slot; the last one closes it and gives it back.
 */
static void leave(Slot& slot)
{
    if (slot.users.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        Record last = {};
        last.ident = slot.ident;
        last.stamp(slot.zone);
        slot.log.close(last);
        slot.events.close(last);
        slot.taken.store(false, std::memory_order_release);
    }
}

/*
 * Enters the slot of a handle, which log_term may be closing at this moment.
 */
static bool enter(Slot& slot, const void* handle)
{
    int users = slot.users.load(std::memory_order_relaxed);
    bool entered = false;

    while (users > 0 && !entered) {
        entered = slot.users.compare_exchange_weak(users, users + 1, std::memory_order_acquire);
    }
    if (entered && !is_open(handle, &slot)) {
        leave(slot);
        entered = false;
    }
    return entered;
}

/* ---------------------------------------------------------------- opening and closing ---- */

/*
 * An ident is a part of file names and a word of each line, so it must not lead to another directory or be split.
 */
static bool is_valid(const char* ident)
{
    static constexpr char ALLOWED[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-.";
    const size_t length = ident != nullptr ? strnlen(ident, IDENT_LENGTH) : 0;

    return length > 0 && length < IDENT_LENGTH && ident[0] != '.' && strspn(ident, ALLOWED) == length;
}

/*
 * The highest level of a record to be kept, from the configured one.
 */
static int64_t highest_level(int level)
{
    int64_t highest = level;

    if (level == 0) {
        highest = DEFAULT_LEVEL;
    } else if (level < 0) {
        highest = INT64_MIN;
    }
    return highest;
}

static int local_zone()
{
    const time_t now = time(nullptr);
    struct tm local = {};

    tzset();
    return localtime_r(&now, &local) != nullptr ? static_cast<int>(local.tm_gmtoff / 60) : 0;
}

/*
 * Begins a line of the library's own.
 *   record  the record that is written just now
 *   line    where the line is made
 */
static void put_warning_head(Text& text, const Record& record, int line)
{
    Record warning = record;

    warning.level = TESKLOG_WARNING;
    warning.file = __FILE__;
    warning.line = line;
    warning.function = "log_write";
    warning.put_head(text);
}

/*
 * Makes the line that says that records are missing: a Notice.
 */
static void notice(Text& text, const Record& record, unsigned long lost)
{
    put_warning_head(text, record, __LINE__);
    text.format("%lu records lost.", lost);
}

/*
 * Prepares the two files of a slot and opens them. Without them the log is open all the same: what keeps them from
 * being opened now may be over soon, so the records try again. Only a path that is too long will never be opened.
 */
static int open_slot(Slot& slot, off_t size, int generations)
{
    char directory[PATH_LENGTH];
    Text made(directory, Escape::none);

    made.format("%s/log", tesk_home());
    made.close("");
    int code = made.cut() ? ENAMETOOLONG : 0;
    if (code == 0) {
        code = slot.log.prepare(directory, slot.ident, ".log", size, generations, notice);
    }
    if (code == 0) {
        code = slot.events.prepare(directory, slot.ident, ".events.jsonl", size, generations, event_notice);
    }
    if (code == 0) {
        const Self self = Self::current();
        code = slot.log.open(self) == ENAMETOOLONG ? ENAMETOOLONG : 0;
        if (code == 0) {
            slot.events.open(self);
        }
    }
    return code;
}

static int open_log(const char* ident, void*& handle, int level, int size, int generations)
{
    Slot* const slot = take_slot();

    if (slot == nullptr) {
        return EMFILE;
    }
    Self::prepare();
    memcpy(slot->ident, ident, strlen(ident) + 1);
    slot->zone = local_zone();
    slot->level.store(highest_level(level), std::memory_order_relaxed);
    const int code = open_slot(*slot, std::max(size <= 0 ? DEFAULT_SIZE : size, SMALLEST_SIZE),
                               generations <= 0 ? DEFAULT_GENERATIONS : generations);
    if (code == 0) {
        slot->openings++;
        slot->opening.store(slot->openings, std::memory_order_relaxed);
        slot->users.store(1, std::memory_order_release);
        handle = make_handle(*slot, slot->openings);
    } else {
        slot->taken.store(false, std::memory_order_release);
    }
    return code;
}

/* ---------------------------------------------------------------- writing ---- */

/* The three below each have a line on the stack; inlined, they would have them at the same time. */

static __attribute__((noinline)) void write_line(Slot& slot, const Record& record, const char* form, va_list arguments)
{
    char buffer[LINE_LENGTH];
    Text line(buffer, Escape::line);

    record.put_head(line);
    if (form != nullptr) {
        line.vformat(form, arguments);
    }
    line.close("\n");
    slot.log.write(record, line);
}

static __attribute__((noinline)) void write_event(Slot& slot, const Record& record, const char* form, va_list arguments)
{
    const Event event(record, form, arguments);

    event.write(slot.log, slot.events);
}

/*
 * Says that a file has begun to grow without a limit, behind the record that found it full.
 */
static __attribute__((noinline)) void write_refusal(Slot& slot, const Record& record, const File& file, int code)
{
    char buffer[LINE_LENGTH];
    Text line(buffer, Escape::line);

    put_warning_head(line, record, __LINE__);
    line.format("log cannot be rotated. (path=%s errno=%d)", file.path(), code);
    line.close("\n");
    slot.log.write(record, line);
}

/*
 * Writes a record that the level let through. Apart from log_write, so that a record that is dropped does not pay for
 * what is needed here.
 */
static __attribute__((noinline)) void write_kept(Slot& slot, const void* handle, Record& record, const char* form,
                                                 va_list arguments)
{
    const int error = errno;

    if (enter(slot, handle)) {
        record.ident = slot.ident;
        record.stamp(slot.zone);
        if (record.level == TESKLOG_EVENT) {
            write_event(slot, record, form, arguments);
        } else {
            write_line(slot, record, form, arguments);
        }
        for (File* file : { &slot.log, &slot.events }) {
            const int code = file->take_refusal();
            if (code != 0) {
                write_refusal(slot, record, *file, code);
            }
        }
        leave(slot);
    }
    errno = error;
}

} // namespace tesklog

/* ---------------------------------------------------------------- the interface ---- */

int log_init(const char* ident, void** handle, int level, int size, int generations)
{
    int code = EINVAL;

    if (handle != nullptr) {
        *handle = nullptr;
        code = tesklog::is_valid(ident) ? tesklog::open_log(ident, *handle, level, size, generations) : EINVAL;
    }
    return code;
}

void log_term(void* handle)
{
    tesklog::Slot* const slot = tesklog::slot_of(handle);
    uintptr_t opening = tesklog::opening_of(handle);
    const int error = errno;

    /* of two that close the same handle, one closes it */
    if (opening != 0 && slot != nullptr && slot->opening.compare_exchange_strong(opening, 0)) {
        tesklog::leave(*slot);
    }
    errno = error;
}

void log_write(void* handle, int level, int event, const char* file, int line, const char* function, const char* format,
               ...)
{
    tesklog::Slot* const slot = tesklog::slot_of(handle);
    va_list arguments;

    if (tesklog::is_open(handle, slot) &&
        (level <= slot->level.load(std::memory_order_relaxed) || level == TESKLOG_EVENT)) {
        tesklog::Record record = {};
        record.level = level;
        record.event = event;
        record.file = file;
        record.line = line;
        record.function = function;
        va_start(arguments, format);
        tesklog::write_kept(*slot, handle, record, format, arguments);
        va_end(arguments);
    }
}
