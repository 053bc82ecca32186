/*
 * Reading of one policy key into a record: what the tables of keys have in common.
 */
#ifndef MONP_POLKEY_H
#define MONP_POLKEY_H

#include "monp.h"
#include "tesklog.h"
#include "teskxml.h"

#include <cstddef>
#include <span>
#include <string_view>

/*
 * What a failed read leads to. None is 0, so that a row which leaves it out is noticed.
 */
typedef enum {
    MONP_KEYFAIL_END = 1, /* the operation ends with a failure */
    MONP_KEYFAIL_KEEP,    /* the field keeps its contents */
    MONP_KEYFAIL_DEFAULT, /* the field takes the default */
    MONP_KEYFAIL_FIRST    /* only the first character of the field takes the default's */
} MONP_KEYFAIL;

/*
 * A key of the policy. Each is spelled out in its row, so that searching for it finds it. MONP_FIELD fills the members
 * that describe the field.
 */
typedef struct __monp_polkey__ {
    const char* pkey;   /* the key; its first "%s" is the section, its second the command-line type */
    int nkind;          /* __teskxml_kind__ of the value */
    size_t noffset;     /* field in the record */
    int ncapacity;      /* bytes of the field */
    int nfieldkind;     /* the kind that the field can hold; only for the compiler's check */
    MONP_KEYFAIL nfail; /* what a failed read leads to */
    int ndefault = 0;
    const char* pdefault = "";
    int nlevel = TESKLOG_ERROR;                                        /* log level of a failed read */
    int (*pwanted)(const void* precord, const void* pfield) = nullptr; /* -1: read the key; null: always */
    int (*pcheck)(void* pfield) =
        nullptr; /* runs on the field when the reading goes on, and may end it by its result */
} MONP_POLKEY, *PMONP_POLKEY;

/*
 * The kind of value that a field can hold; -1: none.
 */
template <typename FIELD> inline constexpr int MONP_FIELD_KIND = -1;
template <> inline constexpr int MONP_FIELD_KIND<int> = TESKXML_INT;
template <size_t SIZE> inline constexpr int MONP_FIELD_KIND<char[SIZE]> = TESKXML_TEXT;

/*
 * The members of a row that say where its value goes.
 */
#define MONP_FIELD(record, field)                                           \
    .noffset = offsetof(record, field), .ncapacity = sizeof(record::field), \
    .nfieldkind = MONP_FIELD_KIND<decltype(record::field)>

/*
 * Whether a row is complete and agrees with its field: it has a key, a kind that the field can hold, a consequence, and
 * a default that fits. For the static assertions behind the tables.
 * Result: -1 or 0.
 */
constexpr int monp_polkey_fits(const MONP_POLKEY* prow)
{
    int bfits = -1;

    if (prow->pkey == nullptr || prow->pkey[0] != '/' || prow->nkind != prow->nfieldkind || prow->nfail == 0 ||
        prow->pdefault == nullptr || std::string_view(prow->pdefault).size() >= static_cast<size_t>(prow->ncapacity)) {
        bfits = 0;
    }
    return bfits;
}

/*
 * Whether every row of a table fits, and the rows fill a part of the record without a gap, in the order of its fields.
 * A gap of less than an int is padding.
 *   nbegin, nend  the part of the record, offsets in bytes
 * Result: -1 or 0.
 */
constexpr int monp_polkey_fill(std::span<const MONP_POLKEY> keys, size_t nbegin, size_t nend)
{
    int bfill = -1;
    size_t npos = nbegin;

    for (const MONP_POLKEY& row : keys) {
        if (monp_polkey_fits(&row) == 0 || row.noffset < npos || row.noffset - npos >= sizeof(int)) {
            bfill = 0;
        }
        npos = row.noffset + static_cast<size_t>(row.ncapacity);
    }
    return npos <= nend && nend - npos < sizeof(int) ? bfill : 0;
}

/*
 * A service type with a use flag.
 */
typedef struct {
    const char* ptype;
    MONP_POLKEY key;
} MONP_USEKEY, *PMONP_USEKEY;

/*
 * Every key that the monitor reads, in the order of reading.
 */
extern const std::span<const MONP_POLKEY> gmonpallkeys;     /* into MONP_ALLPOLICY_INFO */
extern const std::span<const MONP_POLKEY> gmonpservicekeys; /* into MONP_PARAM_INFO, what the command line left unset */
extern const std::span<const MONP_POLKEY> gmonpmykeys;      /* into MONP_MYPOLICY_INFO */
extern const std::span<const MONP_POLKEY> gmonpcprockeys;   /* into MONP_CPROCPOLICY_INFO, of any companion process */
extern const std::span<const MONP_USEKEY> gmonpusekeys;     /* into MONP_CPROCPOLICY_INFO, of the service */

/*
 * Reads keys in the order of their rows.
 *   pkeys    the rows
 *   nkeys    their number
 *   ptype    section that the keys are formatted with
 *   plogtype type that the log lines print
 *   precord  record that the fields lie in
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN when a row, or its check, ended the reading.
 */
int monp_polkey_read(const MONP_POLKEY* pkeys, size_t nkeys, const char* ptype, const char* plogtype, void* precord);

#endif
