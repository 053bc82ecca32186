/*
 * The process monitor: its records, enumerations, process-wide state and operations.
 *
 * One monitor supervises one service. Its first process reads the command line and the policy and forks; the child is
 * the daemon, whose main thread runs everything below except the collection of error logs, which has a thread of its
 * own. Unless a declaration says otherwise, an operation is for the main thread, never for a signal handler, and
 * returns a code of __monp_result_value__. Every operation logs its entry and its exit, but the signal handlers, the
 * search for a running service, and the marker-file operations where there is nothing to make or delete.
 */
#ifndef MONP_H
#define MONP_H

#include "csub.h"

#include <atomic>
#include <dirent.h>
#include <pthread.h>
#include <sys/types.h>

/* ---------------------------------------------------------------- codes and limits ---- */

/*
 * Results of the monitor's operations, and its exit statuses.
 */
enum __monp_result_value__ {
    MONP_RET_SUCCESS = 0,
    MONP_RET_FAIL_INIT = 1,    /* not root, no configuration, no daemon */
    MONP_RET_FAIL_PARAM = 2,   /* command line refused */
    MONP_RET_FAIL_TIMEOUT = 3, /* never an exit status */
    MONP_RET_FAIL_UNKNOWN = 4  /* every other failure */
};

/*
 * What the monitor does when the service has ended by itself, or on an end request with a status that is not an orderly
 * one. Each has a row in gmonprecover.
 */
enum __monp_actions_value__ {
    MONP_ACT_NONE = 1,
    MONP_ACT_RESTART = 2,
    MONP_ACT_STOP_CLSDAEMON = 3,
    MONP_ACT_OS_HALT = 4,
    MONP_ACT_OS_REBOOT = 5
};

/*
 * Ranges of the command-line options, and the entries of a started program's argument vector.
 */
enum __monp_range_value__ {
    MONP_OPT_ACTITEM_MIN = 1,
    MONP_OPT_ACTITEM_MAX = 2147483647,
    MONP_OPT_RETRY_MIN = 0,
    MONP_OPT_RETRY_MAX = 2147483647,
    MONP_OPT_WAIT_MIN = 0,
    MONP_OPT_WAIT_MAX = 2147483647,
    MONP_OPT_NUM = 32
};

/*
 * Sizes of character arrays in bytes, the terminating NUL included.
 */
enum __monp_length_value__ {
    MONP_OPT_PARAM_LEN = 256,
    MONP_ENV_MALCHK_LEN = 8,
    MONP_ENV_LANG_LEN = 32,
    MONP_BIN_LEN = 255 /* file name of a program */
};

enum __monp_def_value__ {
    MONP_DEF_LOGSZ = 5000000, /* bytes; log size before any configuration is read */
    MONP_DEF_ELOG_ROTATE = 5,
    MONP_DEF_ELOG_PATTERN = 1,
    MONP_DEF_INITTO = 13,      /* seconds, for an invalid time-out and for a missing parent time-out */
    MONP_DEF_CHILD_INITTO = 10 /* seconds, for a missing child time-out */
};

/*
 * What the error-log collector is to pack; bits.
 */
enum __monp_elog_pattern__ { MONP_ELOG_PATTERN_LOG = 1, MONP_ELOG_PATTERN_MDMP = 2 };

/*
 * End status of a started program, beside its exit status 0 to 255.
 */
enum __monp_proc_kill__ {
    MONP_EXEC_PROCKILL = -1,  /* no status is known, or ended by SIGUSR1; see monp_create_process */
    MONP_EXEC_SIGNALED = 101, /* ended by another signal */
    MONP_EXEC_CORE = 102,     /* ended by a signal and dumped core */
    MONP_EXEC_STOPPED = 103,  /* reported as stopped */
    MONP_EXEC_UNKNOWN = 199   /* none of these */
};

/*
 * Numbered events. Their texts are the log library's; the comment gives the arguments that each one takes.
 */
enum __monp_eventid__ {
    MONP_EVTID_FAIL_INIT = 1,         /* type, status: the service did not report its initialisation */
    MONP_EVTID_FAIL_MON = 2,          /* type, status: the service could not be started, or ended by itself */
    MONP_EVTID_ACT_RESTART = 3,       /* type, status: the service is about to be restarted */
    MONP_EVTID_ACT_STOP_DAEMON = 4,   /* type */
    MONP_EVTID_FAIL_STOP_DAEMON = 5,  /* status */
    MONP_EVTID_ACT_HALT_SYSTEM = 6,   /* type */
    MONP_EVTID_FAIL_HALT_SYSTEM = 7,  /* status */
    MONP_EVTID_ACT_REBOOT_SYSTEM = 8, /* type */
    MONP_EVTID_FAIL_REBOOT_SYSTEM = 9 /* status */
};

/* ---------------------------------------------------------------- records ---- */

/*
 * Settings of the command line, completed from the policy where it left them unset.
 */
typedef struct {
    char type[CS_TYPE_LEN]; /* service type, 1 to 29 characters: the command-line type of the log lines */
    int action;             /* __monp_actions_value__; -1: unset */
    char param
        [MONP_OPT_PARAM_LEN]; /* the service's own arguments, separated by blanks, until they are split; empty: unset */
    int restime;              /* restarts allowed; 0 or less: no limit; -1 on the command line: unset */
    int wait;                 /* seconds from the exit signal to SIGKILL; 0 or less: no limit; -1: unset */
} MONP_PARAM_INFO, *PMONP_PARAM_INFO;

/*
 * Settings shared by all services, section "all".
 */
typedef struct {
    char instpath[CS_PRG_CAPTION_LEN];    /* installation directory, always ending in "/" */
    int core;                             /* 1: lift the core-file size limit */
    int stacksize;                        /* bytes; above 0: stack size limit of the daemon */
    char env_malchk[MONP_ENV_MALCHK_LEN]; /* MALLOC_CHECK_ of every started program */
    char env_path[CS_PRG_CAPTION_LEN];    /* PATH; empty: the inherited one */
    char env_lang[MONP_ENV_LANG_LEN];     /* LANG; empty: the inherited one */
    int dummyconf;                        /* not 0: a dummy configuration, which holds back some service types */
} MONP_ALLPOLICY_INFO, *PMONP_ALLPOLICY_INFO;

/*
 * Error-log collection. Paths are relative to the installation directory.
 */
typedef struct {
    char scr[CS_PRG_CAPTION_LEN]; /* the collector */
    char arc[CS_PRG_CAPTION_LEN]; /* the archive it is to write */
    int rotate;                   /* older archives to keep */
    int pattern;                  /* bits of __monp_elog_pattern__ */
} MONP_ELOG_INFO, *PMONP_ELOG_INFO;

/*
 * The monitor's own settings, section "monp", with the lock file of section "pm".
 */
typedef struct {
    char type[CS_TYPE_LEN];        /* name of the own section, given to the collector and the recovery commands */
    char path[CS_PRG_CAPTION_LEN]; /* must be configured, but is not used */
    int loglevel;
    int logsize; /* bytes */
    MONP_ELOG_INFO elog;
    char lkfpath[CS_PRG_CAPTION_LEN];   /* the lock file that the exit path removes; empty: none */
    char mddirpath[CS_PRG_CAPTION_LEN]; /* directory of the marker file, relative to the installation directory */
    char mdfilename[CS_TYPE_LEN];
    int parent_initto; /* seconds that the launcher's process waits; at least 1 after a load */
    int child_initto;  /* seconds for the service's initialisation report; at least 1 after a load */
    int dummy;         /* always 0 */
} MONP_MYPOLICY_INFO, *PMONP_MYPOLICY_INFO;

/*
 * Policy of a companion process: the service, or a command that a recovery action runs.
 */
typedef struct {
    char type[CS_TYPE_LEN];        /* the type name as its section states it: the policy type of the log lines */
    char path[CS_PRG_CAPTION_LEN]; /* executable, relative to the installation directory */
    int useflag;                   /* 0: disabled; read for three service types only */
    int reserve;                   /* always 0 */
} MONP_CPROCPOLICY_INFO, *PMONP_CPROCPOLICY_INFO;

/*
 * A flag, 0 for false and -1 for true. Signal handlers store it and either thread loads it, so it must not tear, hide
 * in a register or take a lock.
 */
typedef std::atomic<int> MONP_FLAG;
static_assert(MONP_FLAG::is_always_lock_free);

/*
 * Handlers of the recovery table. A start takes the arguments of monp_create_process.
 */
typedef int (*MONP_START_FUNC)(char* ppath, char** parg, int nwait, int nsig, pid_t* ppid, int* pstat, int bstd);
typedef int (*MONP_RECOVER_FUNC)(void);

/*
 * A row of the recovery table. The action says which member of pfunc is in use: pstart for MONP_ACT_RESTART, else
 * precover, which is null in the rows that have nothing to run.
 */
typedef struct {
    int action; /* __monp_actions_value__; 0: the row that ends the table */
    union {
        MONP_RECOVER_FUNC precover;
        MONP_START_FUNC pstart;
    } pfunc;
} MONP_RECOVER_ITEMS, *PMONP_RECOVER_ITEMS;

/* ---------------------------------------------------------------- process-wide state ---- */

/*
 * All zero at program start. The command line fills the first record; every configuration load fills the others in
 * place, and completes the first. Only the main thread writes them, and a collection reads copies of them.
 */
extern MONP_PARAM_INFO gmonpparam;
extern MONP_ALLPOLICY_INFO gmonpallpol;
extern MONP_MYPOLICY_INFO gmonppol;
extern MONP_CPROCPOLICY_INFO gmonpmonpol;

extern MONP_FLAG gbmonpinited;  /* a start is permitted: the service reported, or a start request came */
extern MONP_FLAG gbmonpend;     /* the monitor is asked to end */
extern MONP_FLAG gbreload;      /* the configuration is to be read again */
extern MONP_FLAG gbmonpnostart; /* this monitor never starts the service */
extern MONP_FLAG gbmonpterm;    /* in the launcher's process: the daemon has released it */
extern MONP_FLAG gmdfilemaked;  /* the marker file has been made in this phase */

/*
 * What one operation leaves for another, beside the flags above and the signals that wait for a drain. All zero at
 * program start.
 *   breported    the service of the last start reported in time or was adopted. From the start to the loop, which must
 *                not judge a start by gbmonpinited: any start request sets that again, and a failed start would pass
 *                for a service that ran and died, which may cost the node a reboot. Main thread
 *   bendtested   gbmonpend was tested for the last time before a start. From the loop to the start: if gbmonpend is set
 *                by now, nobody has looked at that request, and the start keeps it. Main thread
 *   bmarkerdue   the marker file is to be made, because a collection has ended. From the collection thread to the next
 *                drain; a removal of the file withdraws it
 *   bexec        a collection is running, and another one is refused. Collection threads
 *   nlogusers    log calls under way; see monp_log.h. Both threads
 */
typedef struct {
    int breported;
    int bendtested;
    MONP_FLAG bmarkerdue;
    MONP_FLAG bexec;
    std::atomic<int> nlogusers;
} MONP_STATE_INFO, *PMONP_STATE_INFO;

extern MONP_STATE_INFO gmonpstate;

extern std::atomic<pid_t> gmonpppid;    /* the launcher's process; 0 once it has been released */
extern std::atomic<void*> gpmonplog;    /* log handle; null while no log is open. See monp_log.h */
extern pthread_attr_t gmonpthattr_elog; /* attributes of every collection thread; valid for the whole run */

extern char (*gpmonpldpol)[CS_TYPE_LEN]; /* policy sections loaded, in load order; null while there are none */
extern int gmonpldpolnum;                /* entries in use */

extern const MONP_RECOVER_ITEMS gmonprecover[]; /* in the order of the actions, from 1 without a gap */

/* ---------------------------------------------------------------- command line ---- */

/*
 * Reads the command line into gmonpparam and gbmonpnostart. Called once, by start-up, before any configuration.
 * The first fault ends the reading and is logged; what was read before it stays, a refused number included. action,
 * restime and wait begin as -1, which leaves them to the policy.
 * Numbers are read as atoi reads them; one beyond the range of an int counts as the nearest int, which refuses a
 * negative one and never turns a large limit into "no limit".
 * Result: MONP_RET_SUCCESS or MONP_RET_FAIL_PARAM.
 */
int monp_getopt(int argc, char** argv);

/*
 * Splits a text at its blanks, in place: read as a string it is its first argument afterwards.
 *   pparam     the text, at most 255 characters; the pointers stored point into it, so it must outlive them
 *   pargv      out: the arguments in order; room for nmaxargc pointers. No null pointer is stored behind them
 *   nmaxargc   arguments to store at most; more are left out with a warning
 *   pparsenum  out: arguments stored
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN when the text is too long, with nothing stored.
 */
int monp_parse_param(char* pparam, char** pargv, int nmaxargc, int* pparsenum);

/* ---------------------------------------------------------------- configuration ---- */

/*
 * Loads the whole configuration into the records: opens the policy library, loads the sections, reads, and releases
 * everything again. Called by start-up, and by the loop for a reload.
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN; the records are partly rewritten then, and the callers end.
 */
int monp_getconfig(void);

/*
 * Open and close the policy library. The caller pairs the calls.
 * Result: MONP_RET_SUCCESS or MONP_RET_FAIL_UNKNOWN.
 */
int monp_xml_initialize(void);
int monp_xml_terminate(void);

/*
 * Loads or releases a configuration.
 *   ppath  the file; null: the cluster's default configuration
 *   phdl   to load: address of the variable that takes the handle, needed with a path only;
 *          to unload: the handle; null: the default configuration
 * Result: MONP_RET_SUCCESS or MONP_RET_FAIL_UNKNOWN.
 */
int monp_xml_loadconfig(char* ppath, void** phdl);
int monp_xml_unloadconfig(void* phdl);

/*
 * Loads a policy section and notes its name in gpmonpldpol, or releases it and takes the name out again. A name loaded
 * twice is noted twice.
 *   ptype  name of the section, at most 31 characters; null, to unload: every section noted. The names whose unloading
 *          failed then stay noted, in their order, and the next unloading tries them again
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN when the library refused, the name is too long or no memory was
 * left for the list, which is unchanged then: a section that was loaded is not noted, one that was released still is.
 */
int monp_xml_loadpolicy(char* ptype);
int monp_xml_unloadpolicy(char* ptype);

/*
 * Reads the settings shared by all services into gmonpallpol. For monp_getconfig.
 * A path that leaves no room for its "/" is refused like one that cannot be read.
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN when the installation path or the core setting is missing.
 */
int monp_xml_getallpolicy(void);

/*
 * Completes gmonpparam and reads the monitor's own settings. For monp_getconfig.
 *   ptype  name of the own section
 *   ppol   out: the settings. lkfpath is read by the first load of the run only
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN when a key without a default is missing.
 */
int monp_xml_getmypolicy(char* ptype, PMONP_MYPOLICY_INFO ppol);

/*
 * Reads the section of the monitored service, while it is loaded. For monp_getconfig.
 *   ptype  name of the section
 *   ppol   out: type, path and, for the three service types that have one, the use flag
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN when type or path is missing.
 */
int monp_xml_getmonpolicy(char* ptype, PMONP_CPROCPOLICY_INFO ppol);

/*
 * Reads the section of another type, opening and closing the policy library by itself. For the recovery actions, never
 * during a configuration load.
 *   ptype  name of the section
 *   ppol   out: type and path; nothing else of it is touched
 * Result: MONP_RET_SUCCESS or MONP_RET_FAIL_UNKNOWN.
 */
int monp_xml_getcprocpolicy(char* ptype, PMONP_CPROCPOLICY_INFO ppol);

/* ---------------------------------------------------------------- daemon and signals ---- */

/*
 * Forks. The child becomes the daemon: session leader, handlers with no signal blocked, limits, working directory,
 * mask; the descriptors stay the launcher's. The launcher's process waits up to parent_initto seconds for SIGUSR1 and
 * ends with status 0; a failed fork ends it with status 1. Called once, by start-up.
 * Result: MONP_RET_SUCCESS, in the child; the launcher's process never returns.
 */
int monp_make_daemon(void);

/*
 * Signal handlers. Each records its signal and stores its flag, and nothing else: the lines that it causes, and the
 * marker file, come from the main thread when it next tests a flag. In signal context, on whichever thread.
 */
void monp_sighandler1(int nsig); /* SIGUSR1: gbmonpinited and the marker file; SIGUSR2: gbmonpend */
void monp_sigusr1(int nsig);     /* SIGUSR1 in the launcher's process: gbmonpterm */
void monp_sighup(int nsig);      /* SIGHUP: gbreload */

/*
 * Prepares the attributes of the detached collection thread. What the system refuses is left as it is.
 * Result: 0.
 */
int monp_make_thattr_detach(pthread_attr_t* pattr);

/* ---------------------------------------------------------------- processes ---- */

/*
 * Runs a program as a child and waits for its end.
 *   ppath  executable, passed on as it is
 *   parg   argument vector, ended by a null pointer
 *   nwait  seconds from an end request to SIGKILL, after which the child is given up without being reaped; 0 or less:
 *          no limit. Signals do not shorten them
 *   nsig   exit signal on an end request; 0 or less: the child is never signalled, not even with SIGKILL, and runs on
 *          when it is given up
 *   ppid   out, may be null: pid of the child, 0 while there is none
 *   pstat  out, never null: exit status or __monp_proc_kill__. -1 until a status is known, and after an end by SIGUSR1;
 *          after SIGKILL 0, or -1 when the action is halt or reboot
 *   bstd   CS_FLAG_ON or CS_FLAG_OFF; only logged
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN when access, fork or wait failed. A failed exec shows as status 4:
 * the child logs one line and ends at once with _exit, as exit would run clean-up handlers of a process that may have
 * had two threads when it was forked.
 * Blocks, polling once a second. Called by the recovery commands (main thread) and the collector (its own thread).
 */
int monp_create_process(char* ppath, char** parg, int nwait, int nsig, pid_t* ppid, int* pstat, int bstd);

/*
 * Starts the service, or adopts a process that already runs its executable, and waits for its end. Arguments, result
 * and status as for monp_create_process, but nsig must be above 0; an adopted process gives status -1, or 0 when the
 * end was requested. Begins by clearing gbmonpinited and gbmonpend: an end request from before is forgotten, but for
 * one that the loop could not see any more. A service that does not report within child_initto seconds gets the exit
 * signal, SIGKILL a second later, and is reaped; an end request from those seconds is acted on afterwards.
 * Leaves gbmonpinited set when the service reported in time or was adopted, and clear otherwise: a report or start
 * request that arrives during a failed start is dropped, and its lines are written by then. gmonpstate.breported is set
 * to the same, and stays.
 * Blocks. Called by the loop, through the restart row of the recovery table.
 */
int monp_create_process_svc(char* ppath, char** parg, int nwait, int nsig, pid_t* ppid, int* pstat, int bstd);

/*
 * Looks in /proc for a process that runs an executable; of several, the first in the byte order of their pids' names.
 *   checkpath  the executable. One that cannot be resolved, or resolves to more than 1023 characters, finds nothing
 *   pid        out: the process; 0 when there is none
 * A process whose executable cannot be told, has more than 1023 characters, or was deleted or replaced since its start
 * is passed over.
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN when none was found or /proc could not be listed.
 */
int monp_getservice(char* checkpath, pid_t* pid);

/*
 * Frees a list made by scandir: its nproc entries and the array. The result carries nothing.
 */
int free_scandir(struct dirent** pplist, int nproc);

/*
 * Waits until a process is gone, whether it is a child or not. One that has ended but was not reaped still counts.
 *   npid      the process; 0 or less counts as gone, since the probe would otherwise mean whole process groups
 *   ntimeout  seconds; 0 or less: no limit
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_TIMEOUT. Blocks, probing once a second. Called by the loop.
 */
int monp_waitprocterm(pid_t npid, int ntimeout);

/* ---------------------------------------------------------------- recovery ---- */

/*
 * Recovery actions: stop of the cluster daemons, halt and reboot of the node. Each runs a command of the policy and
 * waits for it without a limit; halt and reboot fall back to the system's shutdown command when that fails. A command
 * path or name that does not fit its buffer is never run: it counts as a command that could not be started.
 * Result: MONP_RET_SUCCESS or MONP_RET_FAIL_UNKNOWN. Called by the loop, through the recovery table.
 */
int monp_stop_cluster(void);
int monp_os_halt(void);
int monp_os_reboot(void);

/* ---------------------------------------------------------------- diagnostics ---- */

/*
 * Runs the error-log collector and waits for it. Refuses while a collection is running.
 *   pparm  not used
 * A collector or archive path that does not fit is never used: the collection fails like one whose program is missing.
 * A type pair that does not fit is replaced by the service's type alone.
 * Result: 0, or MONP_RET_FAIL_UNKNOWN when the collector could not be started. The work of the collection thread.
 */
int monp_elog_collect(void* pparm);

/*
 * Make and remove the marker file of the service type "pelkant"; nothing for any other type. A path that does not fit
 * is logged and left alone.
 * Result: 0 always, failures are only logged. Entered from the collection thread, monp_make_mdfile leaves the work to
 * the main thread's next drain.
 */
int monp_make_mdfile(void);
int monp_delete_mdfile(void);

#endif
