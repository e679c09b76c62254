// Builds the diagnostics report from the command line and prints the archive's path.

#include "HvIssueCollector.h"
#include "HvPlatform.h"
#include "HvSimpleLogger.h"

#include <exception>
#include <iostream>

int main()
{
    bool logging = true;
    try {
        Hv::SimpleLogger::initialize("HalvoSoftphoneCollectReport");
    } catch (const std::exception& error) {
        // The report can still be built; only its own log is missing.
        std::cerr << "hv-collect-report: logging is off: " << error.what() << '\n';
        logging = false;
    }

    boost::filesystem::path archive;
    try {
        archive = Hv::IssueCollector::prepareReport();
    } catch (const std::exception& error) {
        std::cerr << "hv-collect-report: " << error.what() << '\n';
    }

    // The logger is left to the library's own shutdown at exit: destroy() cancels the cleaning
    // thread without waiting for it, and a thread still ending while the process exits can bring
    // the process down with it.

    if (archive.empty()) {
        std::cerr << "hv-collect-report: the report could not be built";
        if (logging)
            std::cerr << "; see the log in " << Hv::logsDirectory().string();
        std::cerr << '\n';
        return 1;
    }
    std::cout << archive.string() << '\n';
    return 0;
}
