#include "HvPlatform.h"
#include "HvPlatformDetail.h"

#include "HvTrace.h"

#include <boost/filesystem/operations.hpp>

#include <fcntl.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <string_view>

// Not declared by every C library's headers.
extern char** environ;

namespace fs = boost::filesystem;

namespace Hv {

namespace PlatformDetail {

std::optional<std::string> environmentValue(const char* name)
{
    const char* value = std::getenv(name);
    if (value == nullptr)
        return std::nullopt;
    return std::string(value);
}

fs::path fallbackDirectory()
{
    boost::system::error_code error;
    return fs::is_directory("/tmp", error) ? fs::path("/tmp") : fs::path(".");
}

fs::path homeDirectory()
{
    if (const std::optional<std::string> home = environmentValue("HOME"))
        return *home;
    // The owner of the files this process creates, so that they land in that user's own tree.
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::string buffer(size > 0 ? static_cast<std::size_t>(size) : 16384, '\0');
    struct passwd entry{};
    struct passwd* found = nullptr;
    int error = 0;
    while ((error = ::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found)) == ERANGE)
        buffer.resize(buffer.size() * 2);
    if (error == 0 && found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/')
        return found->pw_dir;
    // No home at all: a folder that only the administrator may write, never a shared one.
    return "/";
}

namespace {

// Undoes the shell-style escapes (\" \\ \$) that xdg-user-dirs writes into quoted values.
std::string unescape(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size())
            ++i;
        result += text[i];
    }
    return result;
}

} // namespace

std::optional<fs::path> downloadDirectoryFromUserDirs(const std::string& text, const std::string& home)
{
    static const std::string KEY = "XDG_DOWNLOAD_DIR=";
    static const std::string HOME_VARIABLE = "$HOME";

    std::optional<fs::path> result;
    std::istringstream lines(text);
    std::string line;
    // The last assignment wins, as when the file is sourced by a shell.
    while (std::getline(lines, line)) {
        const std::size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line.compare(start, KEY.size(), KEY) != 0)
            continue;
        std::string value = line.substr(start + KEY.size());
        const std::size_t end = value.find_last_not_of(" \t\r");
        value.erase(end == std::string::npos ? 0 : end + 1);
        if (value.size() < 2 || value.front() != '"' || value.back() != '"')
            continue;
        value = unescape(value.substr(1, value.size() - 2));

        // Only "$HOME/..." and absolute paths are valid values.
        if (value.compare(0, HOME_VARIABLE.size(), HOME_VARIABLE) == 0
            && (value.size() == HOME_VARIABLE.size() || value[HOME_VARIABLE.size()] == '/')) {
            const std::string rest = value.substr(HOME_VARIABLE.size());
            fs::path folder(home);
            if (rest.find_first_not_of('/') != std::string::npos)
                folder /= rest.substr(1);
            result = folder;
        } else if (!value.empty() && value.front() == '/') {
            result = fs::path(value);
        }
    }
    return result;
}

std::string commandLine(const std::string& command, const fs::path& outputFile,
                        const fs::path& workingDirectory)
{
    std::string line;
    if (!workingDirectory.empty())
        line += "cd \"" + workingDirectory.string() + "\"; ";
    line += command;
    if (!outputFile.empty())
        line += " > \"" + outputFile.string() + "\"";
    return line;
}

std::optional<std::string> effectiveUidFromStatus(const std::string& statusText)
{
    std::istringstream lines(statusText);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.compare(0, 4, "Uid:") != 0)
            continue;
        // Real, effective, saved and file-system ids follow the label.
        std::istringstream fields(line.substr(4));
        std::string real;
        std::string effective;
        if (!(fields >> real >> effective))
            return std::nullopt;
        if (effective.find_first_not_of("0123456789") != std::string::npos)
            return std::nullopt;
        return effective;
    }
    return std::nullopt;
}

std::string ownerFromTaskInfo(uint32_t pid, int returnedSize, int expectedSize, uint32_t uid)
{
    if (returnedSize == expectedSize)
        return std::to_string(uid);
    if (returnedSize == 0)
        HV_LOG_INFO("Unable to get process info for pid: " << pid);
    else
        HV_LOG_ERROR("Error while getting process info for pid: " << pid);
    return std::string();
}

} // namespace PlatformDetail

using PlatformDetail::environmentValue;

namespace {

// What removeOldLogs() keeps: four days' worth.
constexpr std::time_t OLD_LOG_AGE_SECONDS = 4 * 24 * 60 * 60;

} // namespace

const fs::path& localAppDataDirectory()
{
    return appDataDirectory();
}

fs::path halvoDirectoryFromParent(const fs::path& parent)
{
    return fs::absolute(parent / "Halvo", fs::current_path());
}

const fs::path& halvoDirectory()
{
    static const fs::path directory = halvoDirectoryFromParent(appDataDirectory());
    return directory;
}

const fs::path& localHalvoDirectory()
{
    static const fs::path directory = halvoDirectoryFromParent(localAppDataDirectory());
    return directory;
}

const fs::path& localProductDirectory()
{
    static const fs::path directory = localHalvoDirectory() / "HalvoSoftphone-10.0";
    return directory;
}

const fs::path& logsDirectory()
{
    // Read once: the logger's folder must not move while the process runs. An empty value counts as none.
    static const fs::path directory = [] {
        const std::optional<std::string> envPath = environmentValue("HV_SOFTPHONE_LOG_DIR");
        if (envPath && !envPath->empty())
            return fs::path(*envPath);
        return fs::absolute(localProductDirectory() / "logs", fs::current_path());
    }();
    return directory;
}

const fs::path& binDirectory()
{
    static const fs::path directory = environmentValue("__HV_PRODUCT_BIN_DIR").value_or(".");
    return directory;
}

const fs::path& installationDirectory()
{
    static const fs::path directory = environmentValue("__HV_PRODUCT_INSTALLATION_DIR").value_or(".");
    return directory;
}

const fs::path& tempDirectory()
{
    static const fs::path directory = [] {
        const std::optional<std::string> tmpdir = environmentValue("TMPDIR");
        boost::system::error_code error;
        return tmpdir && fs::is_directory(*tmpdir, error) ? fs::path(*tmpdir) : PlatformDetail::fallbackDirectory();
    }();
    return directory;
}

void initializeEnv(const fs::path& installationDir)
{
    HV_TRACE_FREE(installationDir);
    setEnv("__HV_PRODUCT_BIN_DIR", fs::system_complete(localProductDirectory() / "bin").c_str());
    setEnv("__HV_PRODUCT_INSTALLATION_DIR", fs::system_complete(installationDir).c_str());
}

void setEnv(const char* name, const char* value)
{
    HV_TRACE_FREE(name, value);
    ::setenv(name, value, 1);
}

std::string uniqueName()
{
    // Re-seeded on every call; the clock part keeps two names apart even if rand() repeats.
    std::srand(static_cast<unsigned>(std::clock()));
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
    return "hv-temp-" + std::to_string(nanoseconds.count()) + "-" + std::to_string(std::rand());
}

void createPrivateDirectories(const fs::path& directory)
{
    boost::system::error_code error;
    if (directory.empty() || fs::is_directory(directory, error))
        return;
    createPrivateDirectories(directory.parent_path());
    // Created for this user alone, whatever the umask; a folder that exists keeps its mode.
    if (::mkdir(directory.c_str(), S_IRWXU) != 0) {
        const int mkdirError = errno;
        if (mkdirError == EEXIST && fs::is_directory(directory, error))
            return;
        throw fs::filesystem_error("Unable to create folder", directory,
                                   boost::system::error_code(mkdirError, boost::system::system_category()));
    }
    if (::chmod(directory.c_str(), S_IRWXU) != 0)
        throw fs::filesystem_error("Unable to restrict folder", directory,
                                   boost::system::error_code(errno, boost::system::system_category()));
}

void removeOldLogs(const fs::path& directory)
{
    HV_TRACE_FREE(directory);
    boost::system::error_code error;
    fs::directory_iterator entry(directory, error);
    if (error)
        return;
    const std::time_t oldest = std::time(nullptr) - OLD_LOG_AGE_SECONDS;
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        boost::system::error_code entryError;
        const std::time_t written = fs::last_write_time(entry->path(), entryError);
        // A non-empty folder fails to go, which is intended.
        if (!entryError && written < oldest)
            fs::remove(entry->path(), entryError);
    }
}

std::string vdiRemoteIp()
{
    static const std::optional<std::string> remoteIp = [] {
        const std::optional<std::string> value = environmentValue("HV_SOFTPHONE_VDI_REMOTE_IP");
        HV_LOG_DEBUG("HV_SOFTPHONE_VDI_REMOTE_IP = " << LOG4CPLUS_STRING_TO_TSTRING(value.value_or("NULL")));
        if (value)
            return value;
        boost::system::error_code error;
        if (fs::status(installationDirectory() / "vdi_mode", error).type() == fs::regular_file) {
            HV_LOG_DEBUG("vdi_mode file found");
            return std::optional<std::string>("auto");
        }
        return std::optional<std::string>(std::string());
    }();
    if (remoteIp)
        HV_LOG_TRACE("[] -> (remoteIp = { '" << LOG4CPLUS_STRING_TO_TSTRING(*remoteIp) << "' })");
    else
        HV_LOG_TRACE("[] -> (remoteIp = { Nothing })");
    return remoteIp.value_or(std::string());
}

int runCommand(const std::string& command, const fs::path& outputFile, const fs::path& workingDirectory)
{
    HV_TRACE_FREE(command, outputFile, workingDirectory);
    return std::system(PlatformDetail::commandLine(command, outputFile, workingDirectory).c_str());
}

namespace {
const int CANNOT_START = 127;
}

int runProgram(const std::vector<std::string>& arguments, const fs::path& outputFile, const fs::path& workingDirectory)
{
    HV_TRACE_FREE(arguments, outputFile, workingDirectory);
    const pid_t child = startProgram(arguments, outputFile, workingDirectory);
    return child < 0 ? CANNOT_START : waitProgram(child, arguments[0]);
}

pid_t startProgram(const std::vector<std::string>& arguments, const fs::path& outputFile, const fs::path& workingDirectory)
{
    HV_TRACE_FREE(arguments, outputFile, workingDirectory);
    if (arguments.empty())
        return -1;
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!workingDirectory.empty())
        posix_spawn_file_actions_addchdir_np(&actions, workingDirectory.c_str());
    // Without a file the tool's output goes to standard error: a child process's standard output
    // may be a framed stream that its parent reads.
    if (!outputFile.empty())
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    else
        posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    pid_t child = -1;
    // The program starts with the signals as a fresh process has them, whatever this process
    // blocks or ignores: it can then be interrupted, and clean up after itself.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
        sigaddset(&signals, number);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int error = posix_spawnp(&child, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        // A failed change of directory shows here too, so the folder is named.
        const std::string where = workingDirectory.empty() ? std::string("the current folder") : workingDirectory.string();
        HV_LOG_ERROR("Unable to start " << arguments[0] << " in " << where << ": " << std::strerror(error));
        return -1;
    }
    return child;
}

int waitProgram(pid_t child, const std::string& name)
{
    HV_TRACE_FREE(child, name);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            HV_LOG_ERROR("Unable to wait for " << name << ": " << std::strerror(errno));
            return CANNOT_START;
        }
    }
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

bool copyDirectory(fs::path from, fs::path to)
{
    HV_TRACE_FREE(from, to);
    for (const fs::directory_entry& entry : fs::directory_iterator(from)) {
        const fs::path& source = entry.path();
        const fs::path target = to / source.filename();
        boost::system::error_code error;
        if (fs::is_symlink(entry.symlink_status(error))) {
            fs::copy_symlink(source, target, error);
            if (error) {
                HV_LOG_ERROR("Unable to copy " << source << " symlink to " << to << ", error: " << LOG4CPLUS_STRING_TO_TSTRING(error.message()));
                return false;
            }
        } else if (!fs::is_directory(entry.status(error))) {
            // The standard library's copy: boost 1.74's forces every copied file to disk, which
            // makes a throw-away copy wait for the disk's other writers.
            std::error_code copyError;
            std::filesystem::copy_file(source.string(), target.string(), std::filesystem::copy_options::overwrite_existing,
                                       copyError);
            if (copyError) {
                HV_LOG_ERROR("Unable to copy " << source << " file to " << to << ", error: " << LOG4CPLUS_STRING_TO_TSTRING(copyError.message()));
                return false;
            }
        } else {
            fs::create_directory(target, error);
            if (error) {
                HV_LOG_ERROR("Unable to create " << target << " directory, error: " << LOG4CPLUS_STRING_TO_TSTRING(error.message()));
                return false;
            }
            if (!copyDirectory(source, target))
                return false;
        }
    }
    return true;
}

namespace {

// Where a secret value ends: its closing quote, a line break or the end of the text. Three
// memchr scans rather than one scan for any of three characters, which goes byte by byte.
std::size_t valueEnd(std::string_view text, std::size_t value)
{
    std::size_t end = std::min(text.find('"', value), text.size());
    for (const char lineBreak : {'\n', '\r'})
        end = std::min(end, text.substr(0, end).find(lineBreak, value));
    return end;
}

} // namespace

std::string hideSecretInfo(const std::string& text)
{
    // No entry trace: the argument is exactly what must not reach the log.
    // One pass over the text, no recursion, no backtracking: bodies of up to a whole frame (64 MiB)
    // are logged through here. A value ends at the first double quote, escaped or not; one that
    // runs into a line break or the end of the text is masked up to there, so that a body cut
    // short never leaves its secret in the log.
    static constexpr std::string_view KEYS[] = {"\"password\"", "\"engineLicense\""};
    static constexpr std::string_view COLON = ":\"";
    const std::string_view input(text);
    std::string masked;
    masked.reserve(input.size());
    std::size_t copied = 0;
    // The quote that closes a value cannot open the next key.
    std::size_t nextKey = 0;
    // Colons are rarer than quotes: look for the colon between a key and its value first.
    for (std::size_t colon = input.find(COLON); colon != std::string_view::npos; colon = input.find(COLON, colon + 1)) {
        const std::string_view before = input.substr(nextKey, colon - std::min(colon, nextKey));
        if (std::none_of(std::begin(KEYS), std::end(KEYS), [&](std::string_view key) { return before.ends_with(key); }))
            continue;
        const std::size_t value = colon + COLON.size();
        const std::size_t end = valueEnd(input, value);
        masked.append(input, copied, value - copied).append(1, '*');
        copied = end;
        nextKey = end < input.size() && input[end] == '"' ? end + 1 : end;
        colon = end;
    }
    masked.append(input, copied);
    return masked;
}

int lockDescriptor(int fd)
{
    HV_TRACE_FREE(fd);
    const int previous = ::dup(fd);
    const int devNull = ::open("/dev/null", O_WRONLY);
    ::dup2(devNull, fd);
    ::close(devNull);
    return previous;
}

} // namespace Hv
