// Runs a ParentProcessPipe on this process's own standard streams, waits for the first failure
// and writes what it saw as one line of key=value pairs to descriptor 3.

#include "HvAsyncParentProcessPipe.h"
#include "HvLogCapture.h"
#include "HvTestSupport.h"

#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>

namespace {

constexpr int REPORT = 3;

void report(const std::string& text)
{
    (void)!::write(REPORT, text.data(), text.size());
}

using Hv::Test::runUntil;

} // namespace

int main(int argc, char** argv)
{
    Hv::Test::LogCapture capture;
    const std::string pid = std::to_string(::getpid());
    boost::asio::io_context ioContext;
    if (argc > 1 && std::string(argv[1]) == "--close-input")
        ::close(STDIN_FILENO);
    auto pipe = std::make_shared<Hv::Async::ParentProcessPipe>(ioContext);

    int calls = 0;
    int reads = 0;
    bool disabledAtCall = false;
    std::size_t errorsAtCall = 0;
    pipe->onAppStreamError([&] {
        ++calls;
        // Posted: the failing completion and handleAppStreamError are over by now.
        disabledAtCall = !pipe->in()->areQueuesEnabled() && !pipe->out()->areQueuesEnabled() &&
                         !pipe->error()->areQueuesEnabled();
        errorsAtCall = capture.count(log4cplus::ERROR_LOG_LEVEL, "Error in in-" + pid);
    });
    pipe->in()->asyncRead(std::make_shared<Hv::Async::AppStream::Buffer>(), [&] { ++reads; });
    report("ready\n");

    const bool failed = runUntil(ioContext, [&] { return calls > 0; }, std::chrono::seconds(10));
    // A second failure and a late subscriber stay unheard.
    int lateCalls = 0;
    pipe->onAppStreamError([&] { ++lateCalls; });
    pipe->in()->asyncRead(std::make_shared<Hv::Async::AppStream::Buffer>(), [&] { ++reads; });
    pipe->out()->asyncWrite(std::make_shared<Hv::Async::AppStream::Buffer>(std::vector<char>{'x'}), [&] { ++reads; });
    runUntil(ioContext, [] { return false; }, std::chrono::milliseconds(100));

    std::ostringstream line;
    line << "failed=" << failed << " calls=" << calls << " lateCalls=" << lateCalls << " reads=" << reads
         << " in=" << pipe->in()->areQueuesEnabled() << " out=" << pipe->out()->areQueuesEnabled()
         << " error=" << pipe->error()->areQueuesEnabled() << " disabledAtCall=" << disabledAtCall
         << " errorsAtCall=" << errorsAtCall
         << " assign=" << capture.count(log4cplus::ERROR_LOG_LEVEL, " on assigning in in-" + pid)
         << " lengthError=" << capture.count(log4cplus::ERROR_LOG_LEVEL, "Error while reading length in in-" + pid)
         << " names=" << pipe->in()->name() << "," << pipe->out()->name() << "," << pipe->error()->name() << " pid=" << pid
         << "\n";
    pipe.reset();
    report(line.str());
    return 0;
}
