/*
 * Where the cluster's files lie, for the two libraries and the operator's tools: nobody else reads the environment
 * variable.
 */
#ifndef TESK_HOME_H
#define TESK_HOME_H

#include <cstdlib>

/*
 * The home directory of configuration and logs: the environment variable TESK_HOME if it is set and not empty, else the
 * prefix that the libraries were built for. Must not be called in a signal handler.
 */
static inline const char* tesk_home()
{
    const char* phome = getenv("TESK_HOME");

    return phome != nullptr && phome[0] != '\0' ? phome : TESK_HOME_DEFAULT;
}

#endif
