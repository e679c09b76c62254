#include "HvCompression.h"

#include "HvPlatform.h"
#include "HvTrace.h"

#include <boost/filesystem/operations.hpp>
#include <boost/system/error_code.hpp>

#include <initializer_list>
#include <string>

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

// True when every path may go between plain double quotes on a shell line.
bool shellSafe(std::initializer_list<const boost::filesystem::path*> paths)
{
    for (const boost::filesystem::path* path : paths) {
        if (path->string().find_first_of("\"$`\\") != std::string::npos) {
            HV_LOG_ERROR(LOG4CPLUS_TEXT("Refusing a path with a shell special character: ") << *path);
            return false;
        }
    }
    return true;
}

std::string quoted(const boost::filesystem::path& path)
{
    return "\"" + path.string() + "\"";
}

} // namespace

bool pack(const boost::filesystem::path& source, const boost::filesystem::path& target)
{
    HV_TRACE_FREE(source, target);

    const boost::filesystem::path workingDirectory = source.parent_path();
    const boost::filesystem::path name = source.filename();
    if (!shellSafe({&source, &target}))
        return false;

    const std::string command = zipCmd() + " -q -r " + quoted(target) + " " + quoted(name);
    const int status = runCommand(command, boost::filesystem::path(), workingDirectory);
    if (status != 0) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to pack folder: ") << source << LOG4CPLUS_TEXT(", cmd: ") << command
                     << LOG4CPLUS_TEXT(", error=") << status);
    }
    return status == 0;
}

bool unpack(const boost::filesystem::path& package, const boost::filesystem::path& target)
{
    HV_TRACE_FREE(package, target);

    const boost::filesystem::path temporary = tempDirectory() / uniqueName();
    HV_LOG_DEBUG(LOG4CPLUS_TEXT("Temporary folder: ") << temporary);
    if (!shellSafe({&package, &temporary}))
        return false;

    boost::system::error_code error;
    boost::filesystem::create_directory(temporary, error);
    if (error) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to create temporary folder") << LOG4CPLUS_TEXT(", error:") << error);
        return false;
    }

    bool result = false;
    const std::string command = unzipCmd() + " -q -o -d " + quoted(temporary) + " " + quoted(package);
    if (runCommand(command, boost::filesystem::path(), boost::filesystem::path()) != 0) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to unpack archive: ") << package << LOG4CPLUS_TEXT(", cmd: ") << command);
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

    if (!shellSafe({&package, &target}))
        return false;

    const std::string command = unzipCmd() + " -l " + quoted(package);
    const int status = runCommand(command, target, boost::filesystem::path());
    if (status != 0) {
        HV_LOG_ERROR(LOG4CPLUS_TEXT("Unable to list content of archive: ") << package << LOG4CPLUS_TEXT(", cmd: ")
                     << command);
    }
    return status == 0;
}

} // namespace Hv::Compression
