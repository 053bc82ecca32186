/*
 * The process-wide state. Apart from the main thread's id it is constant-initialised, so it is there before any code
 * runs and until the process ends.
 */
#include "monp.h"
#include "monp_view.h"

MONP_PARAM_INFO gmonpparam;
MONP_ALLPOLICY_INFO gmonpallpol;
MONP_MYPOLICY_INFO gmonppol;
MONP_CPROCPOLICY_INFO gmonpmonpol;

constinit thread_local MONP_VIEW gview = { &gmonpallpol, &gmonppol, &gmonpmonpol };

static const pthread_t gmainthread = pthread_self();

int monp_ismainthread(void)
{
    return pthread_equal(pthread_self(), gmainthread) != 0 ? -1 : 0;
}

constinit MONP_FLAG gbmonpinited{ 0 };
constinit MONP_FLAG gbmonpend{ 0 };
constinit MONP_FLAG gbreload{ 0 };
constinit MONP_FLAG gbmonpnostart{ 0 };
constinit MONP_FLAG gbmonpterm{ 0 };
constinit MONP_FLAG gmdfilemaked{ 0 };

constinit MONP_STATE_INFO gmonpstate = {};

constinit std::atomic<pid_t> gmonpppid{ 0 };
constinit std::atomic<void*> gpmonplog{ nullptr };
pthread_attr_t gmonpthattr_elog;

char (*gpmonpldpol)[CS_TYPE_LEN] = nullptr;
int gmonpldpolnum = 0;
