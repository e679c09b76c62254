#include "HvPlatform.h"
#include "HvPlatformDetail.h"
#include "HvTestSupport.h"

#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include <cstdlib>

namespace fs = boost::filesystem;
using Hv::Test::TemporaryFolder;
using Hv::Test::inFreshProcess;
using Hv::Test::writeFile;

namespace {

// Starts a scenario from an environment without any of the variables the getters read.
void clearDirectoryEnvironment()
{
    for (const char* name : {"HOME", "TMPDIR", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "HV_SOFTPHONE_LOG_DIR",
                             "__HV_PRODUCT_BIN_DIR", "__HV_PRODUCT_INSTALLATION_DIR",
                             "HV_SOFTPHONE_VDI_REMOTE_IP"})
        ::unsetenv(name);
}

} // namespace

TEST(PlatformDirectories, FollowHomeWithXdgDefaults)
{
    inFreshProcess([] {
        TemporaryFolder home;
        clearDirectoryEnvironment();
        ::setenv("HOME", home.path().c_str(), 1);

        const fs::path share = home.path() / ".local" / "share";
        EXPECT_EQ(share, Hv::appDataDirectory());
        EXPECT_EQ(&Hv::appDataDirectory(), &Hv::localAppDataDirectory());
        EXPECT_EQ(share / "Halvo", Hv::halvoDirectory());
        EXPECT_EQ(share / "Halvo" / "HalvoSoftphone-10.0", Hv::localProductDirectory());
        EXPECT_EQ(share / "Halvo" / "HalvoSoftphone-10.0" / "logs", Hv::logsDirectory());
        EXPECT_EQ(home.path() / "Downloads", Hv::downloadsDirectory());
        EXPECT_EQ(fs::path("."), Hv::binDirectory());
        EXPECT_EQ(fs::path("."), Hv::installationDirectory());
        EXPECT_EQ("HalvoSoftphone-Linux.zip", Hv::autoUpdatePackName());
        // Nothing is created by asking.
        EXPECT_FALSE(fs::exists(share));
    });
}

TEST(PlatformDirectories, FallBackToTmpWithoutHomeOrTmpdir)
{
    ASSERT_TRUE(fs::is_directory("/tmp"));
    inFreshProcess([] {
        clearDirectoryEnvironment();
        ::setenv("TMPDIR", "/tmp/hv-platform-test-missing/folder", 1);
        EXPECT_EQ(fs::path("/tmp/.local/share"), Hv::appDataDirectory());
        EXPECT_EQ(fs::path("/tmp/.local/share/Halvo/HalvoSoftphone-10.0/logs"), Hv::logsDirectory());
        EXPECT_EQ(fs::path("/tmp"), Hv::tempDirectory());
        EXPECT_EQ(Hv::tempDirectory(), Hv::downloadsDirectory());
    });
}

TEST(PlatformDirectories, LogDirectoryVariableIsReadOnce)
{
    inFreshProcess([] {
        clearDirectoryEnvironment();
        ::setenv("HV_SOFTPHONE_LOG_DIR", "relative/logs", 1);
        EXPECT_EQ(fs::path("relative/logs"), Hv::logsDirectory());
        ::setenv("HV_SOFTPHONE_LOG_DIR", "/elsewhere", 1);
        EXPECT_EQ(fs::path("relative/logs"), Hv::logsDirectory());
    });
    inFreshProcess([] {
        TemporaryFolder home;
        clearDirectoryEnvironment();
        ::setenv("HOME", home.path().c_str(), 1);
        ::setenv("HV_SOFTPHONE_LOG_DIR", "", 1);
        EXPECT_EQ(home.path() / ".local/share/Halvo/HalvoSoftphone-10.0/logs", Hv::logsDirectory());
        // The variable was read at the first call: setting it now changes nothing.
        ::setenv("HV_SOFTPHONE_LOG_DIR", "/elsewhere", 1);
        EXPECT_EQ(home.path() / ".local/share/Halvo/HalvoSoftphone-10.0/logs", Hv::logsDirectory());
    });
}

TEST(PlatformDirectories, DataHomeMustBeAbsolute)
{
    inFreshProcess([] {
        TemporaryFolder home;
        clearDirectoryEnvironment();
        ::setenv("HOME", home.path().c_str(), 1);
        ::setenv("XDG_DATA_HOME", (home.path() / "data").c_str(), 1);
        EXPECT_EQ(home.path() / "data", Hv::appDataDirectory());
        EXPECT_EQ(home.path() / "data/Halvo/HalvoSoftphone-10.0/logs", Hv::logsDirectory());
    });
    inFreshProcess([] {
        TemporaryFolder home;
        clearDirectoryEnvironment();
        ::setenv("HOME", home.path().c_str(), 1);
        ::setenv("XDG_DATA_HOME", "data", 1);
        EXPECT_EQ(home.path() / ".local/share", Hv::appDataDirectory());
    });
}

TEST(PlatformDirectories, HalvoDirectoryIsMadeAbsolute)
{
    EXPECT_EQ(fs::current_path() / "parent" / "Halvo", Hv::halvoDirectoryFromParent("parent"));
    EXPECT_EQ(fs::path("/data/Halvo"), Hv::halvoDirectoryFromParent("/data"));
}

TEST(PlatformDirectories, DownloadsFollowUserDirs)
{
    inFreshProcess([] {
        TemporaryFolder home;
        clearDirectoryEnvironment();
        ::setenv("HOME", home.path().c_str(), 1);
        fs::create_directories(home.path() / ".config");
        writeFile(home.path() / ".config/user-dirs.dirs",
                  "# written by xdg-user-dirs-update\nXDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
                  "XDG_DOWNLOAD_DIR=\"$HOME/T\xc3\xa9l\xc3\xa9\x63hargements\"\n");
        EXPECT_EQ(home.path() / "T\xc3\xa9l\xc3\xa9\x63hargements", Hv::downloadsDirectory());
    });
    inFreshProcess([] {
        TemporaryFolder home;
        TemporaryFolder config;
        clearDirectoryEnvironment();
        ::setenv("HOME", home.path().c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", config.path().c_str(), 1);
        writeFile(config.path() / "user-dirs.dirs", "XDG_MUSIC_DIR=\"$HOME/Music\"\n");
        EXPECT_EQ(home.path() / "Downloads", Hv::downloadsDirectory());
    });
}

TEST(PlatformDirectories, UserDirsParsing)
{
    using Hv::PlatformDetail::downloadDirectoryFromUserDirs;
    EXPECT_EQ(fs::path("/home/u/Down"), downloadDirectoryFromUserDirs("XDG_DOWNLOAD_DIR=\"$HOME/Down\"", "/home/u"));
    EXPECT_EQ(fs::path("/srv/dl"), downloadDirectoryFromUserDirs("  XDG_DOWNLOAD_DIR=\"/srv/dl\"  \r\n", "/home/u"));
    EXPECT_EQ(fs::path("/home/u"), downloadDirectoryFromUserDirs("XDG_DOWNLOAD_DIR=\"$HOME/\"", "/home/u"));
    EXPECT_EQ(fs::path("/home/u/a \"b\""),
              downloadDirectoryFromUserDirs("XDG_DOWNLOAD_DIR=\"$HOME/a \\\"b\\\"\"", "/home/u"));
    // The last assignment wins, as when a shell sources the file.
    EXPECT_EQ(fs::path("/home/u/B"),
              downloadDirectoryFromUserDirs("XDG_DOWNLOAD_DIR=\"$HOME/A\"\nXDG_DOWNLOAD_DIR=\"$HOME/B\"\n", "/home/u"));
    EXPECT_FALSE(downloadDirectoryFromUserDirs("# XDG_DOWNLOAD_DIR=\"$HOME/x\"\n", "/home/u"));
    EXPECT_FALSE(downloadDirectoryFromUserDirs("XDG_DOWNLOAD_DIR=$HOME/x\n", "/home/u"));
    EXPECT_FALSE(downloadDirectoryFromUserDirs("XDG_DOWNLOAD_DIR=\"relative\"\n", "/home/u"));
    EXPECT_FALSE(downloadDirectoryFromUserDirs("XDG_DOWNLOAD_DIR=\"$HOMEX/y\"\n", "/home/u"));
    EXPECT_FALSE(downloadDirectoryFromUserDirs("", "/home/u"));
}

TEST(PlatformDirectories, InitializeEnvComesBeforeTheGetters)
{
    inFreshProcess([] {
        TemporaryFolder home;
        clearDirectoryEnvironment();
        ::setenv("HOME", home.path().c_str(), 1);
        EXPECT_EQ(fs::path("."), Hv::binDirectory());
        Hv::initializeEnv("install");
        const fs::path bin = home.path() / ".local/share/Halvo/HalvoSoftphone-10.0/bin";
        EXPECT_STREQ(bin.c_str(), std::getenv("__HV_PRODUCT_BIN_DIR"));
        // Asked too early: the old answer stays.
        EXPECT_EQ(fs::path("."), Hv::binDirectory());
        EXPECT_EQ(fs::current_path() / "install", Hv::installationDirectory());
    });
}

TEST(PlatformVdi, MarkerFileAndVariable)
{
    // Set but empty: the marker file is not even looked at.
    inFreshProcess([] {
        TemporaryFolder install;
        clearDirectoryEnvironment();
        writeFile(install.path() / "vdi_mode", "");
        ::setenv("__HV_PRODUCT_INSTALLATION_DIR", install.path().c_str(), 1);
        ::setenv("HV_SOFTPHONE_VDI_REMOTE_IP", "", 1);
        EXPECT_EQ("", Hv::vdiRemoteIp());
    });
    inFreshProcess([] {
        TemporaryFolder install;
        clearDirectoryEnvironment();
        fs::create_directory(install.path() / "vdi_mode");
        ::setenv("__HV_PRODUCT_INSTALLATION_DIR", install.path().c_str(), 1);
        EXPECT_EQ("", Hv::vdiRemoteIp());
    });
    inFreshProcess([] {
        TemporaryFolder install;
        clearDirectoryEnvironment();
        Hv::Test::LogCapture capture;
        writeFile(install.path() / "vdi_mode", "");
        ::setenv("__HV_PRODUCT_INSTALLATION_DIR", install.path().c_str(), 1);
        EXPECT_EQ("auto", Hv::vdiRemoteIp());
        // Read once: removing the marker changes nothing.
        fs::remove(install.path() / "vdi_mode");
        EXPECT_EQ("auto", Hv::vdiRemoteIp());
        const std::vector<std::string> debug = capture.messages(log4cplus::DEBUG_LOG_LEVEL);
        EXPECT_EQ((std::vector<std::string>{"HV_SOFTPHONE_VDI_REMOTE_IP = NULL", "vdi_mode file found"}), debug);
        EXPECT_EQ(2u, capture.count(log4cplus::TRACE_LOG_LEVEL, "[] -> (remoteIp = { 'auto' })"));
    });
}
