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

#include <cerrno>
#include <cstring>
#include <ctime>

enum __tesklog_limit__ {
    TESKLOG_SLOTS = 32,
    TESKLOG_IDENT_LEN = 65,
    TESKLOG_DEF_LEVEL = TESKLOG_INFO,
    TESKLOG_DEF_SIZE = 5000000,
    TESKLOG_MIN_SIZE = LOG_LINE_LEN,
    TESKLOG_DEF_GENERATIONS = 5
};

typedef struct {
    std::atomic<bool> btaken;     /* from log_init until the last one has left */
    std::atomic<uintptr_t> nopen; /* number of the opening; 0: closed */
    std::atomic<int64_t> nlevel;  /* wider than a record's, to have a value below all of them */
    std::atomic<int> nusers;      /* one for the open log, one for each writer in it; 0: nobody may enter */
    uintptr_t nopenings;          /* so far; changed by who has taken the slot */
    int nzone;                    /* minutes east of UTC */
    char szident[TESKLOG_IDENT_LEN];
    LOG_FILE log;
    LOG_FILE events;
} LOG_SLOT;

/* constant, as an initialiser that runs could undo a log_init made by another library's */
static constinit LOG_SLOT gslots[TESKLOG_SLOTS] = {};

/* ---------------------------------------------------------------- handles ---- */

static constexpr uintptr_t gslotbits = 8; /* the low bits of a handle are the slot, the others the opening */
static constexpr uintptr_t gslotmask = (1 << gslotbits) - 1;

static_assert(TESKLOG_SLOTS <= gslotmask, "a handle has room for each slot");

static inline LOG_SLOT* log_handle_slot(const void* phandle)
{
    const uintptr_t nslot = reinterpret_cast<uintptr_t>(phandle) & gslotmask;

    return nslot < TESKLOG_SLOTS ? &gslots[nslot] : nullptr;
}

static inline uintptr_t log_handle_opening(const void* phandle)
{
    return reinterpret_cast<uintptr_t>(phandle) >> gslotbits;
}

static void* log_handle_make(const LOG_SLOT* pslot, uintptr_t nopening)
{
    return reinterpret_cast<void*>(nopening << gslotbits | static_cast<uintptr_t>(pslot - gslots));
}

/*
 * Tells whether a handle is that of an open log. A null handle is number 0 of slot 0, which is never open.
 */
static inline bool log_handle_isopen(const void* phandle, const LOG_SLOT* pslot)
{
    const uintptr_t nopening = log_handle_opening(phandle);

    return nopening != 0 && pslot != nullptr && pslot->nopen.load(std::memory_order_relaxed) == nopening;
}

static LOG_SLOT* log_slot_take()
{
    LOG_SLOT* ptaken = nullptr;

    for (LOG_SLOT& slot : gslots) {
        if (ptaken == nullptr && !slot.btaken.exchange(true, std::memory_order_acquire)) {
            ptaken = &slot;
        }
    }
    return ptaken;
}

static void log_slot_close(LOG_SLOT* pslot)
{
    LOG_RECORD last = {};

    last.pident = pslot->szident;
    log_record_stamp(&last, pslot->nzone);
    log_file_close(&pslot->log, &last);
    log_file_close(&pslot->events, &last);
}

/*
 * Leaves a slot; the last one closes it and gives it back.
 */
static void log_slot_leave(LOG_SLOT* pslot)
{
    if (pslot->nusers.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        log_slot_close(pslot);
        pslot->btaken.store(false, std::memory_order_release);
    }
}

/*
 * Enters the slot of a handle, which log_term may be closing at this moment.
 */
static bool log_slot_enter(LOG_SLOT* pslot, const void* phandle)
{
    int nusers = pslot->nusers.load(std::memory_order_relaxed);
    bool bentered = false;

    while (nusers > 0 && !bentered) {
        bentered = pslot->nusers.compare_exchange_weak(nusers, nusers + 1, std::memory_order_acquire);
    }
    if (bentered && !log_handle_isopen(phandle, pslot)) {
        log_slot_leave(pslot);
        bentered = false;
    }
    return bentered;
}

/* ---------------------------------------------------------------- opening and closing ---- */

/*
 * An ident is a part of file names and a word of each line, so it must not lead to another directory or be split.
 */
static bool log_ident_isvalid(const char* pident)
{
    static constexpr char gallowed[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-.";
    const size_t nlength = pident != nullptr ? strnlen(pident, TESKLOG_IDENT_LEN) : 0;

    return nlength > 0 && nlength < TESKLOG_IDENT_LEN && pident[0] != '.' && strspn(pident, gallowed) == nlength;
}

/*
 * The highest level of a record to be kept, from the configured one.
 */
static int64_t log_level(int nlevel)
{
    int64_t nhighest = nlevel;

    if (nlevel == 0) {
        nhighest = TESKLOG_DEF_LEVEL;
    } else if (nlevel < 0) {
        nhighest = INT64_MIN;
    }
    return nhighest;
}

static int log_zone()
{
    const time_t nnow = time(nullptr);
    struct tm local = {};

    tzset();
    return localtime_r(&nnow, &local) != nullptr ? static_cast<int>(local.tm_gmtoff / 60) : 0;
}

/*
 * Begins a line of the library's own.
 *   precord  the record that is written just now
 *   nline    where the line is made
 */
static void log_warning_head(LOG_TEXT* ptext, const LOG_RECORD* precord, int nline)
{
    LOG_RECORD warning = *precord;

    warning.nlevel = TESKLOG_WARNING;
    warning.pfile = __FILE__;
    warning.nline = nline;
    warning.pfunction = "log_write";
    log_record_head(ptext, &warning);
}

/*
 * Makes the line that says that records are missing: a PFLOGNOTICE.
 */
static void log_notice(LOG_TEXT* ptext, const LOG_RECORD* precord, unsigned long nlost)
{
    log_warning_head(ptext, precord, __LINE__);
    log_text_format(ptext, "%lu records lost.", nlost);
}

/*
 * Prepares the two files of a slot and opens them. Without them the log is open all the same: what keeps them from
 * being opened now may be over soon, so the records try again. Only a path that is too long will never be opened.
 */
static int log_slot_open(LOG_SLOT* pslot, off_t nsize, int ngenerations)
{
    char szdirectory[LOG_PATH_LEN];
    LOG_TEXT directory = {};
    LOG_SELF self = {};
    int ncode = 0;

    log_text_open(&directory, szdirectory, sizeof(szdirectory), LOG_ESC_NONE);
    log_text_format(&directory, "%s/log", tesk_home());
    log_text_close(&directory, "");

    ncode = directory.bcut ? ENAMETOOLONG : 0;
    if (ncode == 0) {
        ncode = log_file_init(&pslot->log, szdirectory, pslot->szident, ".log", nsize, ngenerations, log_notice);
    }
    if (ncode == 0) {
        ncode = log_file_init(&pslot->events, szdirectory, pslot->szident, ".events.jsonl", nsize, ngenerations,
                              log_event_notice);
    }
    if (ncode == 0) {
        log_self_get(&self);
        ncode = log_file_open(&pslot->log, &self) == ENAMETOOLONG ? ENAMETOOLONG : 0;
    }
    if (ncode == 0) {
        log_file_open(&pslot->events, &self);
    }
    return ncode;
}

int log_init(const char* ident, void** handle, int level, int size, int generations)
{
    LOG_SLOT* pslot = nullptr;
    int ncode = 0;

    if (handle != nullptr) {
        *handle = nullptr;
    }
    if (handle == nullptr || !log_ident_isvalid(ident)) {
        ncode = EINVAL;
        goto monp_exit_func;
    }
    pslot = log_slot_take();
    if (pslot == nullptr) {
        ncode = EMFILE;
        goto monp_exit_func;
    }

    log_self_init();
    size = size <= 0 ? TESKLOG_DEF_SIZE : size;
    size = size < TESKLOG_MIN_SIZE ? TESKLOG_MIN_SIZE : size;
    memcpy(pslot->szident, ident, strlen(ident) + 1);
    pslot->nzone = log_zone();
    pslot->nlevel.store(log_level(level), std::memory_order_relaxed);
    ncode = log_slot_open(pslot, size, generations <= 0 ? TESKLOG_DEF_GENERATIONS : generations);
    if (ncode != 0) {
        goto monp_exit_release;
    }
    pslot->nopenings++;
    pslot->nopen.store(pslot->nopenings, std::memory_order_relaxed);
    pslot->nusers.store(1, std::memory_order_release);
    *handle = log_handle_make(pslot, pslot->nopenings);
    goto monp_exit_func;

monp_exit_release:
    pslot->btaken.store(false, std::memory_order_release);
monp_exit_func:
    return ncode;
}

void log_term(void* handle)
{
    LOG_SLOT* pslot = log_handle_slot(handle);
    uintptr_t nopening = log_handle_opening(handle);
    const int nerror = errno;

    /* of two that close the same handle, one closes it */
    if (nopening != 0 && pslot != nullptr && pslot->nopen.compare_exchange_strong(nopening, 0)) {
        log_slot_leave(pslot);
    }
    errno = nerror;
}

/* ---------------------------------------------------------------- writing ---- */

/* The three below each have a line on the stack; inlined, they would have them at the same time. */

static __attribute__((noinline)) void log_write_line(LOG_SLOT* pslot, const LOG_RECORD* precord, const char* pformat,
                                                     va_list pargs)
{
    char szline[LOG_LINE_LEN];
    LOG_TEXT line = {};

    log_text_open(&line, szline, sizeof(szline), LOG_ESC_LINE);
    log_record_head(&line, precord);
    if (pformat != nullptr) {
        log_text_vformat(&line, pformat, pargs);
    }
    log_text_close(&line, "\n");
    log_file_write(&pslot->log, precord, &line);
}

static __attribute__((noinline)) void log_write_event(LOG_SLOT* pslot, const LOG_RECORD* precord, const char* pformat,
                                                      va_list pargs)
{
    LOG_EVENT event;

    log_event_make(&event, precord, pformat, pargs);
    log_event_write(&event, &pslot->log, &pslot->events);
}

/*
 * Says that a file has begun to grow without a limit, behind the record that found it full.
 */
static __attribute__((noinline)) void log_write_refusal(LOG_SLOT* pslot, const LOG_RECORD* precord,
                                                        const LOG_FILE* pfile, int ncode)
{
    char szline[LOG_LINE_LEN];
    LOG_TEXT line = {};

    log_text_open(&line, szline, sizeof(szline), LOG_ESC_LINE);
    log_warning_head(&line, precord, __LINE__);
    log_text_format(&line, "log cannot be rotated. (path=%s errno=%d)", pfile->szpath, ncode);
    log_text_close(&line, "\n");
    log_file_write(&pslot->log, precord, &line);
}

/*
 * Writes a record that the level let through. Apart from log_write, so that a record that is dropped does not pay for
 * what is needed here.
 */
static __attribute__((noinline)) void log_write_kept(LOG_SLOT* pslot, const void* phandle, LOG_RECORD* precord,
                                                     const char* pformat, va_list pargs)
{
    const int nerror = errno;
    int ncode = 0;

    if (log_slot_enter(pslot, phandle)) {
        precord->pident = pslot->szident;
        log_record_stamp(precord, pslot->nzone);
        if (precord->nlevel == TESKLOG_EVENT) {
            log_write_event(pslot, precord, pformat, pargs);
        } else {
            log_write_line(pslot, precord, pformat, pargs);
        }
        for (LOG_FILE* pfile : { &pslot->log, &pslot->events }) {
            ncode = log_file_refusal(pfile);
            if (ncode != 0) {
                log_write_refusal(pslot, precord, pfile, ncode);
            }
        }
        log_slot_leave(pslot);
    }
    errno = nerror;
}

void log_write(void* handle, int level, int event, const char* file, int line, const char* function, const char* format,
               ...)
{
    LOG_SLOT* pslot = log_handle_slot(handle);
    va_list pargs;

    if (log_handle_isopen(handle, pslot) &&
        (level <= pslot->nlevel.load(std::memory_order_relaxed) || level == TESKLOG_EVENT)) {
        LOG_RECORD record = {};
        record.nlevel = level;
        record.nevent = event;
        record.pfile = file;
        record.nline = line;
        record.pfunction = function;
        va_start(pargs, format);
        log_write_kept(pslot, handle, &record, format, pargs);
        va_end(pargs);
    }
}
