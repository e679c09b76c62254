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

bool createFolder(const boost::filesystem::path& path)
{
    boost::system::error_code error;
    boost::filesystem::create_directory(path, error);
    if (error) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to create folder") << LOG4CPLUS_TEXT(", error:") << error);
        return false;
    }
    return true;
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

boost::filesystem::path prepareReport()
{
    HV_TRACE_FREE();

    const boost::filesystem::path container = tempDirectory() / uniqueName();
    HV_LOG_DEBUG(LOG4CPLUS_TEXT("Temporary folder: ") << container);

    const boost::filesystem::path report = container / REPORT_FOLDER;
    const boost::filesystem::path logs = report / LOGS_FOLDER;
    if (!createFolder(container) || !createFolder(report) || !createFolder(logs))
        return {};

    HV_LOG_DEBUG(LOG4CPLUS_TEXT("Creating netstat file"));
    printNetwork(report / NETWORK_FILE);

    HV_LOG_DEBUG(LOG4CPLUS_TEXT("Creating tasklist file"));
    printTaskList(report / TASK_LIST_FILE);

    HV_LOG_DEBUG(LOG4CPLUS_TEXT("Copying softphoe logs to ") << logs);
    try {
        if (!copyDirectory(logsDirectory(), logs))
            return {};
    } catch (const boost::filesystem::filesystem_error& error) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to copy ") << logsDirectory() << LOG4CPLUS_TEXT(", error: ")
                     << error.what());
        return {};
    }

    HV_LOG_DEBUG(LOG4CPLUS_TEXT("Compressing debug files"));
    // A fresh account may not have its download folder yet; browsers make it, and so do we.
    const boost::filesystem::path& downloads = downloadsDirectory();
    boost::system::error_code error;
    boost::filesystem::create_directories(downloads, error);
    if (error) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to create download folder ") << downloads << LOG4CPLUS_TEXT(", error: ")
                     << error.message());
        return {};
    }
    const boost::filesystem::path archive = downloads / archiveName();
    if (!Compression::pack(report, archive))
        return {};

    // The container stays, empty, in the temporary folder.
    boost::filesystem::remove_all(report, error);
    if (error) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to remove container folder ") << report << LOG4CPLUS_TEXT(", error: ")
                     << error);
    }
    return archive;
}

} // namespace Hv::IssueCollector
