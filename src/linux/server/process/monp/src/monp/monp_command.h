/*
 * The command lines of the programs that the monitor runs beside the service: the commands of the drastic recovery
 * actions, and the error-log collector.
 */
#ifndef MONP_COMMAND_H
#define MONP_COMMAND_H

#include "monp_path.h"

/*
 * One drastic action.
 */
typedef struct {
    int action;           /* __monp_actions_value__ */
    const char* psection; /* policy section of its command */
    const char* poption;  /* the command's own option; null: none */
    int nactevent;
    int nfailevent;
    const char* pfailed;   /* line for a command that failed: type, result of its start, path, status */
    const char* pfallback; /* command line that is tried then; null: none */
} MONP_DRASTIC_ITEMS;

extern const MONP_DRASTIC_ITEMS gmonpdrastic[3]; /* in the order of the actions */

/*
 * Forms the command of an action, "name [option] --type TYPE --nochk", with the type of gmonppol.
 *   ppath  path of its policy
 *   pprog  out: the program; the vector points into it
 *   pargv  out: MONP_OPT_NUM entries, ended by a null pointer
 */
void monp_drastic_command(const MONP_DRASTIC_ITEMS* prow, const char* ppath, PMONP_PROGRAM_INFO pprog, char** pargv);

/*
 * The collector's command line, and the texts that it points to.
 */
typedef struct {
    MONP_PROGRAM_INFO prog; /* its path is empty when the collection must not run */
    char sztype[CS_TYPE_LEN];
    char szarc[CS_PRG_CAPTION_LEN];
    char szrotate[8];
    char* pargv[MONP_OPT_NUM];
} MONP_COLLECTOR_INFO, *PMONP_COLLECTOR_INFO;

/*
 * Forms the collector's command line out of the calling thread's view of the records, see monp_view.h.
 *   pcollector  out; zero before
 */
void monp_elog_command(PMONP_COLLECTOR_INFO pcollector);

#endif
