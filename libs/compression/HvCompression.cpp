#include "HvCompression.h"

#include "HvPlatform.h"
#include "HvTrace.h"

#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>

#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <csignal>

#include <string>
#include <vector>

namespace Hv::Compression {

namespace {

std::string zipCmd()
{
    return "zip";
}

std::string unzipCmd()
{
    return "unzip";
}

// A tool's argument vector, and the same command as one would type it on a shell line for the
// log (paths between double quotes, the characters the shell reads there escaped).
struct Command {
    std::vector<std::string> arguments;
    std::string text;

    explicit Command(const std::string& tool)
        : arguments{tool}
        , text(tool)
    {
    }
    Command& option(const std::string& value)
    {
        arguments.push_back(value);
        text += " " + value;
        return *this;
    }
    Command& path(const boost::filesystem::path& value)
    {
        arguments.push_back(value.string());
        text += " \"";
        for (char c : value.string()) {
            if (c == '"' || c == '$' || c == '`' || c == '\\')
                text += '\\';
            text += c;
        }
        text += '"';
        return *this;
    }
    int run(const boost::filesystem::path& outputFile, const boost::filesystem::path& workingDirectory) const
    {
        return runProgram(arguments, outputFile, workingDirectory);
    }
};

// The zip process of the Packing that runs; 0 when none does. Cleared before the process is
// reaped, so that its process id cannot have been reused when it is signalled.
std::atomic<pid_t> g_packingChild{0};

} // namespace

bool pack(const boost::filesystem::path& source, const boost::filesystem::path& target)
{
    HV_TRACE_FREE(source, target);

    // The archive path as given, the folder by its name from its parent, so that the entries
    // start with the folder's name. Packed logs are stored as they are: compressing them again
    // costs time and gains nothing.
    const boost::filesystem::path workingDirectory = source.parent_path();
    Command command(zipCmd());
    command.option("-q").option("-r").option("-n").option(".gz:.zip").path(target).path(source.filename());
    const int status = command.run(boost::filesystem::path(), workingDirectory);
    if (status != 0) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to pack folder: ") << source << LOG4CPLUS_TEXT(", cmd: ") << command.text
                     << LOG4CPLUS_TEXT(", error=") << status);
    }
    return status == 0;
}

Packing::Packing(const boost::filesystem::path& base, const std::vector<boost::filesystem::path>& names,
                 const boost::filesystem::path& target)
    : m_base(base)
{
    HV_TRACE(base, target);
    Command command(zipCmd());
    command.option("-q").option("-r").option("-n").option(".gz:.zip").path(target);
    for (const boost::filesystem::path& name : names)
        command.path(name);
    m_command = command.text;
    m_child = startProgram(command.arguments, boost::filesystem::path(), base);
    if (m_child > 0)
        g_packingChild = m_child;
}

Packing::~Packing()
{
    HV_TRACE();
    wait();
}

bool Packing::wait()
{
    HV_TRACE(m_child, m_waited);
    if (m_waited)
        return m_result;
    m_waited = true;
    if (m_child > 0) {
        // Waited for without reaping, so that cancelPacking() can only meet zip or its zombie.
        siginfo_t info{};
        while (::waitid(P_PID, static_cast<id_t>(m_child), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
        }
        pid_t expected = m_child;
        g_packingChild.compare_exchange_strong(expected, 0);
    }
    const int status = m_child < 0 ? 127 : waitProgram(m_child, zipCmd());
    if (status != 0) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to pack folder: ") << m_base << LOG4CPLUS_TEXT(", cmd: ") << m_command
                     << LOG4CPLUS_TEXT(", error=") << status);
    }
    m_result = status == 0;
    return m_result;
}

void cancelPacking()
{
    HV_TRACE_FREE();
    const pid_t child = g_packingChild;
    if (child > 0) {
        HV_LOG_INFO(LOG4CPLUS_TEXT("Interrupting zip, process ") << child);
        ::kill(child, SIGINT);
    }
}

bool add(const boost::filesystem::path& base, const std::vector<boost::filesystem::path>& names,
         const boost::filesystem::path& target)
{
    HV_TRACE_FREE(base, target);
    Command command(zipCmd());
    command.option("-q").option("-g").path(target);
    for (const boost::filesystem::path& name : names)
        command.path(name);
    const int status = command.run(boost::filesystem::path(), base);
    if (status != 0) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to add to archive: ") << target << LOG4CPLUS_TEXT(", cmd: ") << command.text
                     << LOG4CPLUS_TEXT(", error=") << status);
    }
    return status == 0;
}

bool unpack(const boost::filesystem::path& package, const boost::filesystem::path& target)
{
    HV_TRACE_FREE(package, target);

    const boost::filesystem::path temporary = tempDirectory() / uniqueName();
    HV_LOG_DEBUG(LOG4CPLUS_TEXT("Temporary folder: ") << temporary);

    boost::system::error_code error;
    boost::filesystem::create_directory(temporary, error);
    if (error) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to create temporary folder") << LOG4CPLUS_TEXT(", error:") << error);
        return false;
    }

    bool result = false;
    Command command(unzipCmd());
    command.option("-q").option("-o").option("-d").path(temporary).path(package);
    if (command.run(boost::filesystem::path(), boost::filesystem::path()) != 0) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to unpack archive: ") << package << LOG4CPLUS_TEXT(", cmd: ") << command.text);
    } else {
        boost::filesystem::create_directories(target, error);
        if (error) {
            HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to create target folder ") << target << LOG4CPLUS_TEXT(", error: ")
                         << error);
        } else {
            try {
                result = copyDirectory(temporary, target);
            } catch (const boost::filesystem::filesystem_error& copyError) {
                HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to copy ") << temporary << LOG4CPLUS_TEXT(" to ") << target
                             << LOG4CPLUS_TEXT(", error: ") << copyError.what());
            }
        }
    }

    boost::filesystem::remove_all(temporary, error);
    if (error) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to remove temporary folder ") << temporary << LOG4CPLUS_TEXT(", error: ")
                     << error);
    }
    return result;
}

bool listContent(const boost::filesystem::path& package, const boost::filesystem::path& target)
{
    HV_TRACE_FREE(package, target);

    Command command(unzipCmd());
    command.option("-l").path(package);
    const int status = command.run(target, boost::filesystem::path());
    if (status != 0) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to list content of archive: ") << package << LOG4CPLUS_TEXT(", cmd: ")
                     << command.text);
    }
    return status == 0;
}

} // namespace Hv::Compression
