#include "HvCompression.h"
#include "HvTestSupport.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include <regex>
#include <utility>

namespace {

namespace fs = boost::filesystem;
using namespace Hv::Test;

TEST(Compression, PacksListsAndUnpacksWhateverThePathsHoldAndLeavesNoTemporaryFolder)
{
    TemporaryFolder root;
    // A fresh process: the temporary folder is read once.
    inFreshProcess([&] {
        setenv("TMPDIR", (root.path() / "tmp").c_str(), 1);
        fs::create_directory(root.path() / "tmp");
        // A shell would make a file "marker" in the folder it runs in, whichever quoting it used.
        const std::string name = "with blanks a$(touch marker) quote\"; touch marker; \" back`touch marker` back\\slash caf\u00e9";
        const fs::path folder = root.path() / name / ("dir " + name);
        writeFile(folder / "a.txt", "alpha\n");
        writeFile(folder / "sub" / "b.bin", std::string("\0\1\2zip", 6));
        const fs::path archive = root.path() / name / (name + ".zip");
        ASSERT_TRUE(Hv::Compression::pack(folder, archive));

        // The entries start with the folder's own name; the listing replaces what the file held.
        const fs::path listing = root.path() / name / "listing";
        writeFile(listing, std::string(10000, 'x') + "\n");
        ASSERT_TRUE(Hv::Compression::listContent(archive, listing));
        const std::string written = readFile(listing);
        EXPECT_NE(written.find(" dir " + name + "/sub/b.bin\n"), std::string::npos) << written;
        EXPECT_EQ(written.find("xxxxx"), std::string::npos) << written;

        // Into a new folder, then into the same one again over a changed file.
        const fs::path target = root.path() / name / "out" / "new";
        ASSERT_TRUE(Hv::Compression::unpack(archive, target));
        writeFile(target / ("dir " + name) / "a.txt", "changed, and longer than before\n");
        ASSERT_TRUE(Hv::Compression::unpack(archive, target));
        EXPECT_EQ(readFile(target / ("dir " + name) / "a.txt"), "alpha\n");
        EXPECT_EQ(readFile(target / ("dir " + name) / "sub" / "b.bin"), std::string("\0\1\2zip", 6));

        // Packed logs are stored as they are, however well they would compress; text is deflated.
        // zip packs while the caller writes a file, which then goes into the same archive.
        const std::string text(64 * 1024, 'a');
        writeFile(root.path() / "logs" / "today.log", text);
        writeFile(root.path() / "logs" / "yesterday.gz", text);
        writeFile(root.path() / "logs" / "older.zip", text);
        Hv::Compression::Packing packing(root.path(), {"logs"}, root.path() / "logs.zip");
        writeFile(root.path() / "listing", text);
        ASSERT_TRUE(packing.wait());
        ASSERT_TRUE(Hv::Compression::add(root.path(), {"listing"}, root.path() / "logs.zip"));
        const std::string verbose = commandOutput("unzip -v '" + (root.path() / "logs.zip").string() + "'");
        for (const auto& [name, method] : {std::pair{"logs/today.log", "Defl:"}, {"logs/yesterday.gz", "Stored"},
                                           {"logs/older.zip", "Stored"}, {"listing", "Defl:"}})
            EXPECT_TRUE(std::regex_search(verbose, std::regex(std::string(method) + ".* " + name + "\n"))) << verbose;

        // Failures are false, also with the shell's characters in the archive's path (a text file).
        EXPECT_FALSE(Hv::Compression::pack(root.path() / "missing", root.path() / "out.zip"));
        EXPECT_FALSE(Hv::Compression::listContent(listing, root.path() / "listing"));
        EXPECT_FALSE(Hv::Compression::unpack(listing, root.path() / "target"));
        EXPECT_FALSE(fs::exists(root.path() / "target"));
        EXPECT_TRUE(fs::is_empty(root.path() / "tmp"));
    });
    EXPECT_FALSE(fs::exists(fs::current_path() / "marker"));
}

} // namespace
