#include "HvPlatform.h"
#include "HvPlatformDetail.h"
#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include <cstdlib>

namespace fs = boost::filesystem;
using namespace Hv::Test;

namespace {

template <const fs::path& (*getter)()>
std::string text()
{
    return getter().string();
}

const char* const VARIABLES[] = {"HOME", "TMPDIR", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "HV_SOFTPHONE_LOG_DIR",
                                 "__HV_PRODUCT_BIN_DIR", "__HV_PRODUCT_INSTALLATION_DIR", "HV_SOFTPHONE_VDI_REMOTE_IP"};

struct Case {
    // In values and paths "~" stands for the case's home folder; a null value unsets the variable.
    std::vector<std::pair<const char*, const char*>> environment;
    std::vector<std::pair<std::string, std::string>> files; // a path ending in '/' is a folder
    std::string (*getter)();
    std::string expected;
};

std::string home(std::string text, const fs::path& folder)
{
    for (std::size_t at = 0; (at = text.find('~', at)) != std::string::npos; at += folder.size())
        text.replace(at, 1, folder.string());
    return text;
}

TEST(PlatformDirectories, FollowTheEnvironmentAndKeepTheFirstAnswer)
{
    const std::string logs = "/Halvo/HalvoSoftphone-10.0/logs";
    const std::string userDirs = "XDG_DOWNLOAD_DIR=\"$HOME/T\xc3\xa9l\xc3\xa9\x63hargements\"\n";
    const Case cases[] = {
        {{}, {}, text<Hv::logsDirectory>, "~/.local/share" + logs},
        {{}, {}, text<Hv::downloadsDirectory>, "~/Downloads"},
        {{}, {}, text<Hv::installationDirectory>, "."},
        {{{"XDG_DATA_HOME", "~/data"}}, {}, text<Hv::logsDirectory>, "~/data" + logs},
        {{{"XDG_DATA_HOME", "data"}}, {}, text<Hv::appDataDirectory>, "~/.local/share"}, // must be absolute
        {{{"HV_SOFTPHONE_LOG_DIR", "relative/logs"}}, {}, text<Hv::logsDirectory>, "relative/logs"},
        {{{"HV_SOFTPHONE_LOG_DIR", ""}}, {}, text<Hv::logsDirectory>, "~/.local/share" + logs},
        {{{"HOME", nullptr}}, {}, text<Hv::logsDirectory>, "/tmp/.local/share" + logs},
        {{{"HOME", nullptr}, {"TMPDIR", "~/missing"}}, {}, text<Hv::downloadsDirectory>, "/tmp"},
        {{{"TMPDIR", "~"}}, {}, text<Hv::tempDirectory>, "~"},
        {{}, {{"~/.config/user-dirs.dirs", "# a comment\n" + userDirs}}, text<Hv::downloadsDirectory>,
         "~/T\xc3\xa9l\xc3\xa9\x63hargements"},
        {{{"XDG_CONFIG_HOME", "~/config"}}, {{"~/config/user-dirs.dirs", userDirs}}, text<Hv::downloadsDirectory>,
         "~/T\xc3\xa9l\xc3\xa9\x63hargements"},
        // Asked before initializeEnv(), the getter keeps its old answer.
        {{}, {}, [] {
             const std::string before = Hv::binDirectory().string();
             Hv::initializeEnv(std::getenv("HOME"));
             return before + " " + std::getenv("__HV_PRODUCT_BIN_DIR") + " " + Hv::installationDirectory().string();
         },
         ". ~/.local/share/Halvo/HalvoSoftphone-10.0/bin ~"},
        // The marker file counts only without the variable, and only as a file.
        {{{"__HV_PRODUCT_INSTALLATION_DIR", "~"}}, {{"~/vdi_mode", ""}}, Hv::vdiRemoteIp, "auto"},
        {{{"__HV_PRODUCT_INSTALLATION_DIR", "~"}}, {{"~/vdi_mode/", ""}}, Hv::vdiRemoteIp, ""},
        {{{"__HV_PRODUCT_INSTALLATION_DIR", "~"}, {"HV_SOFTPHONE_VDI_REMOTE_IP", ""}}, {{"~/vdi_mode", ""}},
         Hv::vdiRemoteIp, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.expected);
        // The getters keep their first answer for the life of the process: a fresh one each.
        inFreshProcess([&] {
            TemporaryFolder folder;
            for (const char* name : VARIABLES)
                ::unsetenv(name);
            ::setenv("HOME", folder.path().c_str(), 1);
            for (const auto& [name, value] : c.environment)
                value ? ::setenv(name, home(value, folder.path()).c_str(), 1) : ::unsetenv(name);
            for (const auto& [path, content] : c.files)
                path.back() == '/' ? (void)fs::create_directories(home(path, folder.path()))
                                   : writeFile(home(path, folder.path()), content);

            const std::string first = c.getter();
            EXPECT_EQ(first, home(c.expected, folder.path()));
            EXPECT_FALSE(fs::exists(folder.path() / ".local")) << "created by asking";
            fs::remove_all(folder.path());
            for (const char* name : VARIABLES)
                ::setenv(name, "/elsewhere", 1);
            EXPECT_EQ(c.getter(), first);
        });
    }
}

TEST(PlatformDirectories, DownloadFolderOfUserDirs)
{
    using Hv::PlatformDetail::downloadDirectoryFromUserDirs;
    const std::pair<std::string, std::string> cases[] = {
        {"XDG_DOWNLOAD_DIR=\"$HOME/Down\"", "/home/u/Down"},
        {"  XDG_DOWNLOAD_DIR=\"/srv/dl\"  \r\n", "/srv/dl"},
        {"XDG_DOWNLOAD_DIR=\"$HOME/\"", "/home/u"},
        {"XDG_DOWNLOAD_DIR=\"$HOME/a \\\"b\\\"\"", "/home/u/a \"b\""},
        // The last assignment wins, as when a shell sources the file.
        {"XDG_DOWNLOAD_DIR=\"$HOME/A\"\nXDG_DOWNLOAD_DIR=\"$HOME/B\"\n", "/home/u/B"},
        {"# XDG_DOWNLOAD_DIR=\"$HOME/x\"\n", ""},
        {"XDG_DOWNLOAD_DIR=$HOME/x\n", ""},
        {"XDG_DOWNLOAD_DIR=\"relative\"\n", ""},
        {"XDG_DOWNLOAD_DIR=\"$HOMEX/y\"\n", ""},
        {"XDG_MUSIC_DIR=\"$HOME/Music\"\n", ""},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(downloadDirectoryFromUserDirs(text, "/home/u").value_or(""), fs::path(expected)) << text;
}

} // namespace
