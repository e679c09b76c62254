#include "HvFileUri.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Hv::Tray::fileUri;

TEST(FileUriTest, KeepsUnreservedCharactersAndSlashes)
{
    EXPECT_EQ(fileUri("/home/user/Downloads/halvo-softphone-report-2026-11-15_200031_UTC-130.264.0.zip"),
              "file:///home/user/Downloads/halvo-softphone-report-2026-11-15_200031_UTC-130.264.0.zip");
    EXPECT_EQ(fileUri("/a~b/C_9.d"), "file:///a~b/C_9.d");
    EXPECT_EQ(fileUri("/"), "file:///");
}

TEST(FileUriTest, EncodesEveryOtherByteInUpperCaseHex)
{
    EXPECT_EQ(fileUri("/my Downloads/x y"), "file:///my%20Downloads/x%20y");
    // Reserved and otherwise special characters, "%" itself included.
    EXPECT_EQ(fileUri("/a%b#c?d&e=f+g;h,i:j@k!l$m'n(o)p*q[r]s"),
              "file:///a%25b%23c%3Fd%26e%3Df%2Bg%3Bh%2Ci%3Aj%40k%21l%24m%27n%28o%29p%2Aq%5Br%5Ds");
    EXPECT_EQ(fileUri("/\"`\\<>{}|^"), "file:///%22%60%5C%3C%3E%7B%7D%7C%5E");
    // Non-ASCII names byte by byte in their UTF-8 form; control bytes too.
    EXPECT_EQ(fileUri("/T\xC3\xA9l\xC3\xA9" "chargements/\xE6\x97\xA5"), "file:///T%C3%A9l%C3%A9chargements/%E6%97%A5");
    EXPECT_EQ(fileUri(std::string("/a\tb\nc\x7F\xFF", 8)), "file:///a%09b%0Ac%7F%FF");
}

} // namespace
