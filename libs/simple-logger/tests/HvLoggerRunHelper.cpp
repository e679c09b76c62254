// One logger run in a process of its own, meant to run under faketime with a sped-up clock: logs
// one event per (faked) half minute until ten minutes past the next midnight, then destroys the
// logger and exits.
#include "HvSimpleLogger.h"
#include "HvTrace.h"

#include <unistd.h>

#include <ctime>

int main()
{
    Hv::SimpleLogger::initialize("DayChange");
    const std::time_t end = (std::time(nullptr) / 86400 + 1) * 86400 + 600;
    for (int event = 0; std::time(nullptr) < end; ++event) {
        HV_LOG_INFO("event " << event);
        usleep(30 * 1000000); // faketime shortens sleeps by its speed factor
    }
    Hv::SimpleLogger::destroy();
    Hv::SimpleLogger::destroy(); // a second call must do nothing
    return 0;
}
