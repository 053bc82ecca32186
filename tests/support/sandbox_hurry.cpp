/*
 * Preloaded: the seconds of the monitor's passes and pauses last a few milliseconds, for what has to happen often.
 */
#include <ctime>
#include <unistd.h>

constexpr long SECOND = 5; // milliseconds

extern "C" unsigned sleep(unsigned seconds)
{
    const long milliseconds = static_cast<long>(seconds) * SECOND;
    const timespec time = { milliseconds / 1000, milliseconds % 1000 * 1000000 };

    return nanosleep(&time, nullptr) == 0 ? 0 : seconds;
}

extern "C" int usleep(useconds_t microseconds)
{
    const timespec time = { 0, static_cast<long>(microseconds) * SECOND };

    return nanosleep(&time, nullptr);
}
