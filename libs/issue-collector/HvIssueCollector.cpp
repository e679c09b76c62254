#include "HvIssueCollector.h"

#include "HvCompression.h"
#include "HvNetwork.h"
#include "HvPlatform.h"
#include "HvTaskList.h"
#include "HvTrace.h"
#include "HvVersion.h"

#include <log4cplus/fstreams.h>

#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <fstream>
#include <string>

namespace Hv::IssueCollector {

namespace {

const char* const REPORT_FOLDER = "report";
const char* const LOGS_FOLDER = "logs";
const char* const NETWORK_FILE = "nestat";
const char* const TASK_LIST_FILE = "tasklist";

// Writes every record of a table walk on a line of its own.
template <typename Record, typename Search>
void printTable(const boost::filesystem::path& path, Search search)
{
    log4cplus::tofstream file(path.string().c_str(), std::ios::out | std::ios::trunc);
    if (!file) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to open file ") << path);
        return;
    }
    search([&file](const Record& record) {
        file << record << LOG4CPLUS_TEXT('\n');
        file.flush();
        return false;
    });
}

std::string archiveName()
{
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char time[64];
    std::strftime(time, sizeof(time), "%Y-%m-%d_%H%M%S_UTC", &utc);
    return std::string("halvo-softphone-report-") + time + "-" + PRODUCT_VERSION + ".zip";
}

// Private: the report copies the user's logs and the machine's tables.
std::atomic<bool> g_cancelled{false};

bool createFolder(const boost::filesystem::path& path)
{
    if (::mkdir(path.c_str(), 0700) != 0) {
        const boost::system::error_code error(errno, boost::system::system_category());
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to create folder") << LOG4CPLUS_TEXT(", error:") << error);
        return false;
    }
    return true;
}

// A report that fails takes its copy of the logs and tables with it.
void removeContainer(const boost::filesystem::path& container)
{
    boost::system::error_code error;
    boost::filesystem::remove_all(container, error);
    if (error) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to remove container folder ") << container << LOG4CPLUS_TEXT(", error: ")
                     << error);
    }
}

// Builds the report in the container; the archive's path, or empty on failure.
boost::filesystem::path buildReport(const boost::filesystem::path& container)
{
    const boost::filesystem::path report = container / REPORT_FOLDER;
    const boost::filesystem::path logs = report / LOGS_FOLDER;
    if (!createFolder(report) || !createFolder(logs))
        return {};

    HV_LOG_DEBUG(LOG4CPLUS_TEXT("Copying softphoe logs to ") << logs);
    try {
        if (!copyDirectory(logsDirectory(), logs))
            return {};
    } catch (const boost::filesystem::filesystem_error& error) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to copy ") << logsDirectory() << LOG4CPLUS_TEXT(", error: ")
                     << error.what());
        return {};
    }

    // A fresh account may not have its download folder yet; browsers make it, and so do we.
    const boost::filesystem::path& downloads = downloadsDirectory();
    boost::system::error_code error;
    boost::filesystem::create_directories(downloads, error);
    if (error) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to create download folder ") << downloads << LOG4CPLUS_TEXT(", error: ")
                     << error.message());
        return {};
    }
    // Written under a hidden name of its own and renamed once complete, so that the download
    // folder never shows a half-written archive.
    const std::string name = archiveName();
    const boost::filesystem::path archive = downloads / name;
    const boost::filesystem::path partial = downloads / ("." + name + "." + uniqueName() + ".part");
    const boost::filesystem::path reportName = REPORT_FOLDER;
    bool packed = false;
    {
        // zip packs the logs meanwhile, in a process of its own; the listings follow in place.
        HV_LOG_DEBUG(LOG4CPLUS_TEXT("Compressing debug files"));
        if (g_cancelled)
            return {};
        Compression::Packing packing(container, {reportName / LOGS_FOLDER}, partial);
        // A cancel that came while zip was being started.
        if (g_cancelled)
            Compression::cancelPacking();

        HV_LOG_DEBUG(LOG4CPLUS_TEXT("Creating netstat file"));
        printNetwork(report / NETWORK_FILE);

        HV_LOG_DEBUG(LOG4CPLUS_TEXT("Creating tasklist file"));
        printTaskList(report / TASK_LIST_FILE);

        packed = packing.wait() &&
                 Compression::add(container, {reportName, reportName / NETWORK_FILE, reportName / TASK_LIST_FILE}, partial);
    }
    if (packed)
        boost::filesystem::rename(partial, archive, error);
    if (!packed || error) {
        if (error) {
            HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to rename ") << partial << LOG4CPLUS_TEXT(" to ") << archive
                         << LOG4CPLUS_TEXT(", error: ") << error.message());
        }
        boost::filesystem::remove(partial, error);
        return {};
    }

    // The container stays, empty, in the temporary folder.
    boost::filesystem::remove_all(report, error);
    if (error) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to remove container folder ") << report << LOG4CPLUS_TEXT(", error: ")
                     << error);
    }
    return archive;
}

} // namespace

void printNetwork(const boost::filesystem::path& path)
{
    HV_TRACE_FREE(path);
    printTable<Network::TcpConnectionInfo>(path, Network::searchInTcpTable);
}

void printTaskList(const boost::filesystem::path& path)
{
    HV_TRACE_FREE(path);
    printTable<TaskList::TaskInfo>(path, TaskList::searchInTable);
}

void cancelReport()
{
    HV_TRACE_FREE();
    g_cancelled = true;
    Compression::cancelPacking();
}

boost::filesystem::path prepareReport()
{
    HV_TRACE_FREE();
    g_cancelled = false;

    const boost::filesystem::path container = tempDirectory() / uniqueName();
    HV_LOG_DEBUG(LOG4CPLUS_TEXT("Temporary folder: ") << container);
    if (!createFolder(container))
        return {};

    const boost::filesystem::path archive = buildReport(container);
    if (archive.empty())
        removeContainer(container);
    return archive;
}

} // namespace Hv::IssueCollector
