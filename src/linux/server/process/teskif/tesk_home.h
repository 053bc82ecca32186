/*
 * Where the cluster's files lie, for the two libraries and the operator's tools: nobody else reads the environment
 * variable.
 */
#ifndef TESK_HOME_H
#define TESK_HOME_H

#include <cstdlib>

/* The environment variable that names the home directory. */
static constexpr const char* gtesk_homevariable = "TESK_HOME";

/*
 * The home directory of configuration and logs of a process.
 *   phome  value of its environment variable, or NULL if that is not set
 * Result: the value unless it is empty, else the prefix that the libraries were built for.
 */
static inline const char* tesk_home_of(const char* phome)
{
    return phome != nullptr && phome[0] != '\0' ? phome : TESK_HOME_DEFAULT;
}

/*
 * The home directory of this process. Must not be called in a signal handler.
 */
static inline const char* tesk_home()
{
    return tesk_home_of(getenv(gtesk_homevariable));
}

#endif
