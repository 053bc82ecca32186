/*
 * The command lines of the programs that the monitor runs beside the service: the commands of the drastic recovery
 * actions, and the error-log collector.
 */
#ifndef MONP_COMMAND_H
#define MONP_COMMAND_H

#include "monp_path.h"

#include <span>

/*
 * One drastic action: one that runs a command of the cluster and ends the monitor.
 */
typedef struct {
    int action;           /* __monp_actions_value__ */
    int bnodedown;        /* -1: the command takes the node down; 0: the node stays up */
    const char* psection; /* policy section of its command */
    const char* poption;  /* the command's own option; null: none */
    int nactevent;
    int nfailevent;
    const char* pfailed;   /* line for a command that failed: type, result of its start, path, status */
    const char* pfallback; /* command line that is tried then; null: none */
} MONP_DRASTIC_ITEMS;

extern const std::span<const MONP_DRASTIC_ITEMS> gmonpdrastic; /* in the order of the actions */

/*
 * Looks up a drastic action.
 * Result: its row; null for an action that is not drastic, and for a number that is not an action. Any thread.
 */
const MONP_DRASTIC_ITEMS* monp_finddrastic(int naction);

/*
 * Whether an action takes the node down. A forced end of the service then counts as one that asks for recovery.
 * Result: -1 or 0. Any thread.
 */
int monp_isnodedown(int naction);

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
