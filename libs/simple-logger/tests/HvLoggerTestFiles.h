#pragma once

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>
#include <zlib.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace Hv::Test {

namespace fs = boost::filesystem;

// A fresh folder under /tmp, removed with its contents at the end of the scope.
struct TempFolder {
    fs::path path;
    TempFolder()
    {
        char name[] = "/tmp/hv-logger-test-XXXXXX";
        path = mkdtemp(name) ? fs::path(name) : fs::path();
    }
    ~TempFolder()
    {
        boost::system::error_code ignored;
        fs::remove_all(path, ignored);
    }
};

inline std::string readFile(const fs::path& path)
{
    std::ifstream in(path.string(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start));
    return lines;
}

inline std::vector<std::string> readLines(const fs::path& path) { return splitLines(readFile(path)); }

// The decompressed members of a gzip file, in file order (an unreadable file gives none).
inline std::vector<std::string> gzipMembers(const fs::path& path)
{
    const std::string packed = readFile(path);
    std::vector<std::string> members;
    z_stream stream{};
    if (inflateInit2(&stream, 16 + MAX_WBITS) != Z_OK)
        return members;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
    stream.avail_in = static_cast<uInt>(packed.size());
    std::string member;
    while (stream.avail_in > 0) {
        char block[4096];
        stream.next_out = reinterpret_cast<Bytef*>(block);
        stream.avail_out = sizeof block;
        const int result = inflate(&stream, Z_NO_FLUSH);
        member.append(block, sizeof block - stream.avail_out);
        if (result == Z_STREAM_END) {
            members.push_back(member);
            member.clear();
            inflateReset(&stream);
        } else if (result != Z_OK) {
            members.push_back("<corrupt>");
            break;
        }
    }
    inflateEnd(&stream);
    return members;
}

// Runs `body` in a forked child, so that each case gets a logger and environment of its own.
// The child's failed expectations (printed by the child) become its exit status. Returns its pid.
inline pid_t inChild(const std::function<void()>& body)
{
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        try {
            body();
        } catch (const std::exception& error) {
            ADD_FAILURE() << "child threw: " << error.what();
        }
        std::fflush(nullptr);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_TRUE(pid > 0 && waitpid(pid, &status, 0) == pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    return pid;
}

} // namespace Hv::Test
