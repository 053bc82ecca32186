/*
 * The order of a run: the foreground steps, the daemon, the supervision, and the one way out.
 */
#include "monp.h"

#include "monp_child.h"
#include "monp_log.h"
#include "monp_run.h"
#include "monp_signal.h"

#include <cstdlib>
#include <unistd.h>

int main(int argc, char** argv)
{
    MONP_RUN_INFO run = {};
    pid_t npid = 0;

    monp_startup_descriptors();
    monp_log_open(0, MONP_DEF_LOGSZ);
    MONP_INFO("****** Start Process Monitor ******");

    run.nfuncret = monp_startup_settings(argc, argv);
    if (run.nfuncret != MONP_RET_SUCCESS) {
        goto monp_exit_proc;
    }
    monp_startup_lockfile();
    monp_startup_directory();
    monp_startup_log();

    /* The launcher's process stays behind in here. Its pid is taken before: if it is gone when the daemon asks for its
       parent, that would be a stranger. */
    npid = getpid();
    monp_make_daemon();
    gmonpppid = npid;
    monp_make_thattr_detach(&gmonpthattr_elog);
    monp_startup_environment();
    monp_startup_program(&run);

    /* A signal caught since the handlers stand must not make the marker file after it was removed. */
    monp_drainsignals();
    monp_delete_mdfile();
    gbmonpinited = -1;
    gbmonpend = 0;
    gmdfilemaked = 0;
    monp_loop(&run);

monp_exit_proc:
    monp_drainsignals();
    monp_release_launcher();
    monp_removelockfile();
    MONP_INFO("end - (type=%s ret=%d)", gmonpmonpol.type, run.nfuncret);
    /* A collection may still be running; what it writes from here on is dropped. */
    monp_log_close();
    exit(run.nfuncret);
}
