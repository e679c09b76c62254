#pragma once

#include <boost/filesystem/path.hpp>

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Hv {

// Where the product's files live, and small process, session and file helpers.
// The directory getters read the environment once, at their first call from any thread, and keep
// that answer for the life of the process.

// Per-user application data (XDG data home on Linux, ~/Library/Application Support on macOS).
const boost::filesystem::path& appDataDirectory();
// The same object as appDataDirectory(): local and roaming data are one place here.
const boost::filesystem::path& localAppDataDirectory();
boost::filesystem::path halvoDirectoryFromParent(const boost::filesystem::path& parent);
const boost::filesystem::path& halvoDirectory();
const boost::filesystem::path& localHalvoDirectory();
const boost::filesystem::path& localProductDirectory();
// HV_SOFTPHONE_LOG_DIR (read once) or the product's "logs" folder.
const boost::filesystem::path& logsDirectory();
const boost::filesystem::path& binDirectory();
const boost::filesystem::path& installationDirectory();
const boost::filesystem::path& tempDirectory();
const boost::filesystem::path& downloadsDirectory();
// For a process that starts the product's other processes; call before binDirectory()/installationDirectory().
void initializeEnv(const boost::filesystem::path& installationDir);
void setEnv(const char* name, const char* value);
// "hv-temp-<steady clock ns>-<rand()>", for temporary folders.
std::string uniqueName();
const std::string& autoUpdatePackName();

// Creates the folder and its missing parents with mode 0700 (folders that exist are left as they
// are); throws boost::filesystem::filesystem_error with the folder that could not be made.
void createPrivateDirectories(const boost::filesystem::path& directory);
// Removes the entries of a folder that are older than four days; never throws.
void removeOldLogs(const boost::filesystem::path& directory);

// HV_SOFTPHONE_VDI_REMOTE_IP, "auto" when the "vdi_mode" marker file exists, or empty. Read once.
std::string vdiRemoteIp();
// The effective user id of a process in decimal, or "" when it cannot be read.
std::string processOwner(uint32_t pid);
// True when this process's graphical session is the active one on its seat / the console.
bool isSystemSessionActive();
// Runs `cd "<workingDirectory>"; <command> > "<outputFile>"` through system(); returns its status.
int runCommand(const std::string& command, const boost::filesystem::path& outputFile,
               const boost::filesystem::path& workingDirectory);
// Runs a program found through PATH with exactly these arguments (the first names the program;
// no shell reads them, so any character is fine), standard output into `outputFile` (else into
// standard error) and in `workingDirectory` when they are given, and waits for it. Returns its exit status, 128 plus
// the signal number when a signal ended it, or 127 when it could not be started (logged).
int runProgram(const std::vector<std::string>& arguments, const boost::filesystem::path& outputFile,
               const boost::filesystem::path& workingDirectory);
// runProgram in two halves, so that the caller works on while the program runs: startProgram
// returns the child's process id at once (-1 when it could not be started, logged), and
// waitProgram waits for it and returns what runProgram would (`name` is for the log).
pid_t startProgram(const std::vector<std::string>& arguments, const boost::filesystem::path& outputFile,
                   const boost::filesystem::path& workingDirectory);
int waitProgram(pid_t child, const std::string& name);
// Copies the entries of `from` into the existing folder `to`; stops at the first failure.
bool copyDirectory(boost::filesystem::path from, boost::filesystem::path to);
// Masks the values of "password" and "engineLicense" members before a body is logged.
std::string hideSecretInfo(const std::string& text);
// Points fd at /dev/null and returns a duplicate of what it referred to.
int lockDescriptor(int fd);

} // namespace Hv
