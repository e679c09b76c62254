// Builds the diagnostics report from the command line and prints the archive's path.

#include "HvCommandLine.h"
#include "HvIssueCollector.h"
#include "HvPlatform.h"
#include "HvSimpleLogger.h"

#include <log4cplus/appender.h>
#include <log4cplus/spi/loggingevent.h>

#include <exception>
#include <iostream>
#include <mutex>
#include <sstream>

namespace {

namespace po = boost::program_options;

constexpr const char* TOOL = "hv-collect-report";

// Keeps the first ERROR or FATAL message: the report returns only an empty path on failure and
// logs why, and that line is the reason the user needs on the terminal.
class FirstErrorRecorder : public log4cplus::Appender {
public:
    FirstErrorRecorder() { setThreshold(log4cplus::ERROR_LOG_LEVEL); }
    ~FirstErrorRecorder() override { destructorImpl(); }

    void close() override { closed = true; }

    std::string message() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_message;
    }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_message.empty())
            m_message = LOG4CPLUS_TSTRING_TO_STRING(event.getMessage());
    }

private:
    mutable std::mutex m_mutex;
    std::string m_message;
};

po::options_description describeOptions()
{
    po::options_description options("Options");
    options.add_options()
        ("help,h", "print this help and exit")
        ("version", "print the version and exit");
    return options;
}

std::string usage()
{
    std::ostringstream text;
    text << "usage: hv-collect-report [--help] [--version]\n"
            "Builds the Halvo softphone diagnostics report (the softphone's logs, the TCP\n"
            "connection table with owning processes, the process list) as a ZIP archive in\n"
            "the user's download folder and prints the archive's path.\n"
            "The logs come from $HV_SOFTPHONE_LOG_DIR, else from\n"
            "Halvo/HalvoSoftphone-10.0/logs in $XDG_DATA_HOME (~/.local/share). The download\n"
            "folder is XDG_DOWNLOAD_DIR in ~/.config/user-dirs.dirs, else ~/Downloads. The\n"
            "archive is made with zip.\n\n"
         << describeOptions()
         << "\nExit status:\n"
            "  0  the archive was made; its path is on standard output\n"
            "  1  the report could not be built; the reason is on standard error\n"
            "  2  the command line was refused\n";
    return text.str();
}

} // namespace

int main(int argc, char** argv)
{
    po::variables_map values;
    try {
        Hv::CommandLine::parse(std::vector<std::string>(argv + 1, argv + argc), describeOptions(), values);
    } catch (const po::error& error) {
        return Hv::CommandLine::refuse(TOOL, error.what());
    }
    if (values.count("help")) {
        std::cout << usage();
        return 0;
    }
    if (values.count("version")) {
        std::cout << Hv::CommandLine::versionLine(TOOL) << '\n';
        return 0;
    }

    // Without a log folder the report can still be made; the logger then says why on standard error.
    Hv::SimpleLogger::initialize("HalvoSoftphoneCollectReport");
    const log4cplus::SharedAppenderPtr recorder(new FirstErrorRecorder);
    Hv::SimpleLogger::addAppender(recorder);

    boost::filesystem::path archive;
    std::string reason;
    try {
        archive = Hv::IssueCollector::prepareReport();
    } catch (const std::exception& error) {
        reason = error.what();
    }
    if (reason.empty())
        reason = static_cast<const FirstErrorRecorder&>(*recorder).message();

    // The logger is left to the library's own shutdown at exit: destroy() cancels the cleaning
    // thread without waiting for it, and a thread still ending while the process exits can bring
    // the process down with it.

    if (archive.empty()) {
        std::cerr << TOOL << ": the report could not be built";
        if (!reason.empty())
            std::cerr << ": " << reason;
        if (Hv::SimpleLogger::hasLogFile())
            std::cerr << " (log in " << Hv::logsDirectory().string() << ")";
        std::cerr << '\n';
        return 1;
    }
    std::cout << archive.string() << '\n';
    return 0;
}
