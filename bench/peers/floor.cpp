/*
 * The least that a supervisor which looks once a second can be: starts the service and starts it again when it ended.
 * Usage: peers_floor SERVICE STAMPS
 */
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv)
{
    pid_t service = -1;

    if (argc != 3) {
        return 2;
    }
    for (;;) {
        if (service < 0 || waitpid(service, nullptr, WNOHANG) == service) {
            service = fork();
            if (service == 0) {
                execv(argv[1], argv + 1);
                _exit(127);
            }
        }
        sleep(1);
    }
}
