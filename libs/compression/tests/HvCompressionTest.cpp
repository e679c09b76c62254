#include "HvTestSupport.h"
#include "HvCompression.h"

#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = boost::filesystem;
using Hv::Test::readFile;
using Hv::Test::writeFile;

class Compression : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_root = fs::temp_directory_path() / fs::unique_path("hv-compression-%%%%-%%%%");
        m_folder = m_root / "with some blanks";
        fs::create_directories(m_folder);
        writeFile(m_folder / "report" / "a.txt", "alpha\n");
        writeFile(m_folder / "report" / "sub" / "b.bin", std::string("\0\1\2zip", 6));
    }
    void TearDown() override { fs::remove_all(m_root); }

    fs::path m_root;
    fs::path m_folder;
};

TEST_F(Compression, PacksFolderUnderItsOwnNameAndListsIt)
{
    const fs::path archive = m_folder / "out archive.zip";
    ASSERT_TRUE(Hv::Compression::pack(m_folder / "report", archive));

    const std::string listing = Hv::Test::commandOutput("unzip -l '" + archive.string() + "'");
    EXPECT_NE(listing.find(" report/a.txt\n"), std::string::npos) << listing;
    EXPECT_NE(listing.find(" report/sub/b.bin\n"), std::string::npos) << listing;
    EXPECT_EQ(listing.find(m_folder.string() + "/report"), std::string::npos) << "entries must be relative";

    // listContent truncates what the file held before.
    const fs::path target = m_root / "listing.txt";
    writeFile(target, std::string(10000, 'x') + "\nSTALE LINE\n");
    ASSERT_TRUE(Hv::Compression::listContent(archive, target));
    const std::string written = readFile(target);
    EXPECT_EQ(written.find("STALE LINE"), std::string::npos);
    EXPECT_EQ(written.find("xxxxxxxxxx"), std::string::npos);
    EXPECT_NE(written.find(" report/sub/b.bin\n"), std::string::npos) << written;
    EXPECT_EQ(written, listing);
}

TEST_F(Compression, ReportsFailuresOfTheTools)
{
    Hv::Test::LogCapture capture;
    const fs::path missing = m_folder / "missing";
    EXPECT_FALSE(Hv::Compression::pack(missing, m_root / "missing.zip"));
    EXPECT_EQ(capture.count(log4cplus::ERROR_LOG_LEVEL,
                            "Unable to pack folder: \"" + missing.string() + "\", cmd: zip -q -r \""
                                + (m_root / "missing.zip").string() + "\" \"missing\", error="),
              1u);

    const fs::path notAnArchive = m_root / "plain.zip";
    writeFile(notAnArchive, "not a zip archive\n");
    EXPECT_FALSE(Hv::Compression::listContent(notAnArchive, m_root / "listing.txt"));
    EXPECT_EQ(capture.count(log4cplus::ERROR_LOG_LEVEL,
                            "Unable to list content of archive: \"" + notAnArchive.string() + "\", cmd: unzip -l \""
                                + notAnArchive.string() + "\""),
              1u);
}

TEST_F(Compression, UnpackOfRejectedArchiveLeavesNoTemporaryFolder)
{
    Hv::Test::LogCapture capture;
    const fs::path notAnArchive = m_root / "plain.zip";
    writeFile(notAnArchive, "not a zip archive\n");

    EXPECT_FALSE(Hv::Compression::unpack(notAnArchive, m_root / "target"));

    const auto debug = capture.messages(log4cplus::DEBUG_LOG_LEVEL);
    const std::string prefix = "Temporary folder: \"";
    const auto line = std::find_if(debug.begin(), debug.end(),
                                   [&](const std::string& message) { return message.rfind(prefix, 0) == 0; });
    ASSERT_NE(line, debug.end());
    const fs::path temporary = line->substr(prefix.size(), line->size() - prefix.size() - 1);
    EXPECT_EQ(temporary.filename().string().rfind("hv-temp", 0), 0u) << temporary;
    EXPECT_FALSE(fs::exists(temporary)) << temporary;
    EXPECT_FALSE(fs::exists(m_root / "target"));
    EXPECT_EQ(capture.count(log4cplus::ERROR_LOG_LEVEL, "Unable to unpack archive: \"" + notAnArchive.string()
                                                            + "\", cmd: unzip -q -o -d \"" + temporary.string() + "\" \""
                                                            + notAnArchive.string() + "\""),
              1u);
}

TEST_F(Compression, UnpackOverwritesFilesOfAnExistingFolder)
{
    const fs::path archive = m_root / "report.zip";
    ASSERT_TRUE(Hv::Compression::pack(m_folder / "report", archive));

    const fs::path target = m_root / "existing";
    writeFile(target / "report" / "a.txt", "old content that is longer\n");
    writeFile(target / "kept.txt", "kept\n");
    ASSERT_TRUE(Hv::Compression::unpack(archive, target));
    EXPECT_EQ(readFile(target / "report" / "a.txt"), "alpha\n");
    EXPECT_EQ(readFile(target / "report" / "sub" / "b.bin"), std::string("\0\1\2zip", 6));
    EXPECT_EQ(readFile(target / "kept.txt"), "kept\n");

    // A target folder that does not exist yet is created.
    ASSERT_TRUE(Hv::Compression::unpack(archive, m_root / "new" / "folder"));
    EXPECT_EQ(readFile(m_root / "new" / "folder" / "report" / "a.txt"), "alpha\n");
}

TEST_F(Compression, PathsAreTakenLiterallyWhateverTheyHold)
{
    Hv::Test::LogCapture capture;
    // A shell would make a file "marker" in the folder it runs in.
    for (const std::string& name : std::vector<std::string>{"a$(touch marker)", "quote\"; touch marker; \"", "back`touch marker`",
                                                            "back\\slash", "caf\u00e9"}) {
        SCOPED_TRACE(name);
        const fs::path folder = m_root / ("dir " + name);
        fs::create_directories(folder);
        fs::copy_file(m_folder / "report" / "a.txt", folder / "a.txt");
        const fs::path archive = m_root / (name + ".zip");
        ASSERT_TRUE(Hv::Compression::pack(folder, archive));
        const fs::path listing = m_root / ("list " + name);
        ASSERT_TRUE(Hv::Compression::listContent(archive, listing));
        EXPECT_NE(readFile(listing).find(" " + folder.filename().string() + "/a.txt\n"), std::string::npos);
        ASSERT_TRUE(Hv::Compression::unpack(archive, folder / "out"));
        EXPECT_EQ(readFile(folder / "out" / folder.filename() / "a.txt"), "alpha\n");
    }
    EXPECT_FALSE(fs::exists(m_root / "marker"));
    EXPECT_FALSE(fs::exists(fs::current_path() / "marker"));

    // The log shows the command as one would type it, the shell's characters escaped.
    const fs::path missing = m_root / "a$b`c\"d\\e";
    EXPECT_FALSE(Hv::Compression::pack(missing / "report", m_root / "out.zip"));
    EXPECT_EQ(capture.count(log4cplus::ERROR_LOG_LEVEL,
                            "cmd: zip -q -r \"" + m_root.string() + "/out.zip\" \"report\", error=127"), 1u);
    EXPECT_EQ(capture.count(log4cplus::ERROR_LOG_LEVEL,
                            "Unable to start zip in " + missing.string() + ": No such file or directory"), 1u);
    const fs::path odd = m_root / "a$b`c\"d\\e.zip";
    writeFile(odd, "not a zip archive\n");
    EXPECT_FALSE(Hv::Compression::listContent(odd, m_root / "listing.txt"));
    EXPECT_EQ(capture.count(log4cplus::ERROR_LOG_LEVEL,
                            "cmd: unzip -l \"" + m_root.string() + "/a\\$b\\`c\\\"d\\\\e.zip\""), 1u);
}

} // namespace
