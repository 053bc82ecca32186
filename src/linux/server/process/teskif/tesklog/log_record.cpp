/*
 * The words that the line of a record begins with.
 */
#include "log_record.h"

#include "tesklog.h"

#include <cstring>
#include <ctime>

/*
 * Takes a number of days since 1970-01-01 apart. Counted from 1 March of the year 0, so that a leap day is the last day
 * of its year and every 400 years are alike. localtime() would lock.
 */
static void log_time_date(LOG_TIME* ptime, unsigned ndays)
{
    const unsigned nsince = ndays + 719468;
    const unsigned nera = nsince / 146097;
    const unsigned ndayofera = nsince % 146097;
    const unsigned nyearofera = (ndayofera - ndayofera / 1460 + ndayofera / 36524 - ndayofera / 146096) / 365;
    const unsigned ndayofyear = ndayofera - (365 * nyearofera + nyearofera / 4 - nyearofera / 100);
    const unsigned nmonth = (5 * ndayofyear + 2) / 153; /* from March */

    ptime->nday = ndayofyear - (153 * nmonth + 2) / 5 + 1;
    ptime->nmonth = nmonth < 10 ? nmonth + 3 : nmonth - 9;
    ptime->nyear = nera * 400 + nyearofera + (nmonth < 10 ? 0 : 1);
}

void log_record_stamp(LOG_RECORD* precord, int nzone)
{
    struct timespec now = {};
    uint64_t nlocal = 0;
    unsigned nofday = 0;

    clock_gettime(CLOCK_REALTIME, &now);
    precord->nnow = static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;

    nlocal = static_cast<uint64_t>(now.tv_sec + static_cast<int64_t>(nzone) * 60);
    log_time_date(&precord->time, static_cast<unsigned>(nlocal / 86400));
    nofday = static_cast<unsigned>(nlocal % 86400);
    precord->time.nhour = nofday / 3600;
    precord->time.nminute = nofday / 60 % 60;
    precord->time.nsecond = nofday % 60;
    precord->time.nmicro = static_cast<unsigned>(now.tv_nsec) / 1000;
    precord->time.nzone = nzone;

    log_self_get(&precord->self);
}

/*
 * Writes a number with a fixed count of digits.
 * Result: what follows them.
 */
static inline char* log_time_digits(char* ptarget, unsigned nvalue, int ndigits)
{
    int ninx = 0;

    for (ninx = ndigits - 1; ninx >= 0; ninx--) {
        ptarget[ninx] = static_cast<char>('0' + nvalue % 10);
        nvalue /= 10;
    }
    return ptarget + ndigits;
}

void log_record_time(LOG_TEXT* ptext, const LOG_RECORD* precord)
{
    const LOG_TIME* ptime = &precord->time;
    const unsigned nzone = static_cast<unsigned>(ptime->nzone < 0 ? -ptime->nzone : ptime->nzone);
    char sztime[] = "0000-00-00T00:00:00.000000+0000";
    char* ptarget = sztime;

    ptarget = log_time_digits(ptarget, ptime->nyear, 4) + 1;
    ptarget = log_time_digits(ptarget, ptime->nmonth, 2) + 1;
    ptarget = log_time_digits(ptarget, ptime->nday, 2) + 1;
    ptarget = log_time_digits(ptarget, ptime->nhour, 2) + 1;
    ptarget = log_time_digits(ptarget, ptime->nminute, 2) + 1;
    ptarget = log_time_digits(ptarget, ptime->nsecond, 2) + 1;
    ptarget = log_time_digits(ptarget, ptime->nmicro, 6);
    *ptarget = ptime->nzone < 0 ? '-' : '+';
    log_time_digits(ptarget + 1, nzone / 60 * 100 + nzone % 60, 4);
    log_text_raw(ptext, sztime, sizeof(sztime) - 1);
}

/*
 * Adds a word, which a blank in it must not make two of, and which must not be missing.
 */
static void log_record_word(LOG_TEXT* ptext, const char* pword)
{
    const char* pblank = nullptr;
    size_t nlength = 0;

    pword = pword != nullptr && pword[0] != '\0' ? pword : "-";
    nlength = strnlen(pword, LOG_LINE_LEN);
    while ((pblank = static_cast<const char*>(memchr(pword, ' ', nlength))) != nullptr) {
        log_text_put(ptext, pword, static_cast<size_t>(pblank - pword));
        log_text_raw(ptext, "\\x20", 4);
        nlength -= static_cast<size_t>(pblank + 1 - pword);
        pword = pblank + 1;
    }
    log_text_put(ptext, pword, nlength);
}

static void log_record_level(LOG_TEXT* ptext, int nlevel)
{
    static constexpr struct {
        int nlevel;
        const char* pword;
    } glevels[] = {
        { TESKLOG_ERROR, "error" }, { TESKLOG_WARNING, "warning" }, { TESKLOG_INFO, "info" },
        { TESKLOG_TRACE, "trace" }, { TESKLOG_DETAIL, "detail" },   { TESKLOG_EVENT, "event" },
    };
    const char* pword = nullptr;

    for (const auto& level : glevels) {
        if (level.nlevel == nlevel) {
            pword = level.pword;
        }
    }
    if (pword != nullptr) {
        log_text_raw(ptext, pword, strlen(pword));
    } else {
        log_text_format(ptext, "%d", nlevel);
    }
}

void log_record_head(LOG_TEXT* ptext, const LOG_RECORD* precord)
{
    log_record_time(ptext, precord);
    log_text_char(ptext, ' ');
    log_record_level(ptext, precord->nlevel);
    log_text_char(ptext, ' ');
    log_text_number(ptext, static_cast<unsigned long>(precord->self.npid), 1);
    log_text_char(ptext, '/');
    log_text_number(ptext, static_cast<unsigned long>(precord->self.ntid), 1);
    log_text_char(ptext, ' ');
    log_record_word(ptext, precord->pident);
    log_text_char(ptext, ' ');
    log_record_word(ptext, precord->pfunction);
    log_text_char(ptext, ' ');
    log_record_word(ptext, precord->pfile);
    log_text_char(ptext, ':');
    if (precord->nline < 0) {
        log_text_char(ptext, '-');
    }
    log_text_number(
        ptext, precord->nline < 0 ? 0U - static_cast<unsigned>(precord->nline) : static_cast<unsigned>(precord->nline),
        1);
    log_text_char(ptext, ' ');
}
