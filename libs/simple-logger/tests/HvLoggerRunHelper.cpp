// One logger run in a process of its own: initialize, log, destroy, exit.
// With --across-midnight it logs one event per (faked) half minute until ten minutes past the next
// midnight; meant to run under faketime with a sped-up clock.
#include "HvSimpleLogger.h"
#include "HvTrace.h"

#include <unistd.h>

#include <ctime>
#include <string>

int main(int argc, char** argv)
{
    const bool acrossMidnight = argc > 1 && std::string(argv[1]) == "--across-midnight";
    Hv::SimpleLogger::initialize(acrossMidnight ? "DayChange" : "Exit");
    const std::time_t end = acrossMidnight ? (std::time(nullptr) / 86400 + 1) * 86400 + 600 : 0;
    int event = 0;
    do {
        HV_LOG_INFO("event " << event++);
        if (acrossMidnight)
            usleep(30 * 1000000); // faketime shortens sleeps by its speed factor
    } while (std::time(nullptr) < end);
    Hv::SimpleLogger::destroy();
    return 0;
}
