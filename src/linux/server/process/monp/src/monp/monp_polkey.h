/*
 * Reading of one policy key into a record: what the tables of keys have in common.
 */
#ifndef MONP_POLKEY_H
#define MONP_POLKEY_H

#include "monp.h"
#include "tesklog.h"

#include <cstddef>

/*
 * What a failed read leads to.
 */
typedef enum {
    MONP_KEYFAIL_END,     /* the operation ends with a failure */
    MONP_KEYFAIL_KEEP,    /* the field keeps its contents */
    MONP_KEYFAIL_DEFAULT, /* the field takes the default */
    MONP_KEYFAIL_FIRST    /* only the first character of the field takes the default's */
} MONP_KEYFAIL;

/*
 * A key of the policy. Each is spelled out in its row, so that searching for it finds it.
 */
typedef struct __monp_polkey__ {
    const char* pkey;   /* the key; its first "%s" is the section, its second the command-line type */
    int nkind;          /* __teskxml_kind__ */
    size_t noffset;     /* field in the record */
    int ncapacity;      /* bytes of the field */
    MONP_KEYFAIL nfail; /* what a failed read leads to */
    int ndefault = 0;
    const char* pdefault = "";
    int nlevel = TESKLOG_ERROR;                                        /* log level of a failed read */
    int (*pwanted)(const void* precord, const void* pfield) = nullptr; /* -1: read the key; null: always */
    int (*pcheck)(void* pfield) =
        nullptr; /* runs on the field when the reading goes on, and may end it by its result */
} MONP_POLKEY, *PMONP_POLKEY;

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
extern const MONP_POLKEY gmonpallkeys[7];     /* into MONP_ALLPOLICY_INFO */
extern const MONP_POLKEY gmonpservicekeys[4]; /* into MONP_PARAM_INFO, what the command line has left unset */
extern const MONP_POLKEY gmonpmykeys[13];     /* into MONP_MYPOLICY_INFO */
extern const MONP_POLKEY gmonpcprockeys[2];   /* into MONP_CPROCPOLICY_INFO, of any companion process */
extern const MONP_USEKEY gmonpusekeys[3];     /* into MONP_CPROCPOLICY_INFO, of the service */

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
