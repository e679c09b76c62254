// One step of the report per run, for timing from the outside:
//   hv-report-bench network FILE      the connection listing
//   hv-report-bench tasklist FILE     the process listing
//   hv-report-bench report            the whole report (prints the archive path)
//   hv-report-bench make-logs DIR MB  log-like text files of MB megabytes in all

#include "HvIssueCollector.h"

#include <boost/filesystem.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <string>

namespace {

int usage()
{
    std::cerr << "usage: hv-report-bench network FILE | tasklist FILE | report | make-logs DIR MB\n";
    return 2;
}

// Trace lines with varying pointers, times and values: about as compressible as real logs.
int makeLogs(const boost::filesystem::path& folder, long megabytes)
{
    boost::filesystem::create_directories(folder);
    std::mt19937_64 random(42);
    const char* const functions[] = {"Hv::Async::AppStream::Duplex::read", "Hv::Async::LocalPipe::Receiver::accept",
                                     "Hv::ServiceMonitor::onInput", "Hv::Tray::setStatus",
                                     "Hv::Async::OperationQueue::push"};
    const long fileSize = 10L << 20;
    long left = megabytes << 20;
    for (int index = 0; left > 0; ++index) {
        char name[64];
        std::snprintf(name, sizeof(name), "2026-11-%02d_000000_UTC-130.264.0-%d", index % 28 + 1, 1000 + index);
        FILE* const file = std::fopen((folder / name).c_str(), "w");
        if (file == nullptr)
            return 1;
        long written = 0;
        char line[512];
        while (written < fileSize && written < left) {
            const uint64_t value = random();
            const int size = std::snprintf(
                line, sizeof(line),
                "[TRACE] 2026-11-%02d %02d:%02d:%02d,%03d [%u] - [this = 0x%012llx] -> (buffer->size() = %u, "
                "m_queue.size() = %u)\n\t^^^ from: %s,\n\t^^^ at: /src/libs/x/HvX.cpp:%u\n",
                index % 28 + 1, static_cast<int>(value % 24), static_cast<int>(value / 24 % 60),
                static_cast<int>(value / 1440 % 60), static_cast<int>(value / 86400 % 1000),
                static_cast<unsigned>(value >> 48), static_cast<unsigned long long>(value & 0xFFFFFFFFFFFull),
                static_cast<unsigned>(value >> 20 & 0xFFFF), static_cast<unsigned>(value >> 36 & 7),
                functions[value % 5], static_cast<unsigned>(value >> 40 & 511));
            std::fwrite(line, 1, static_cast<std::size_t>(size), file);
            written += size;
        }
        std::fclose(file);
        left -= written;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return usage();
    const std::string command = argv[1];
    if (command == "network" && argc == 3) {
        Hv::IssueCollector::printNetwork(argv[2]);
        return 0;
    }
    if (command == "tasklist" && argc == 3) {
        Hv::IssueCollector::printTaskList(argv[2]);
        return 0;
    }
    if (command == "report" && argc == 2) {
        const boost::filesystem::path archive = Hv::IssueCollector::prepareReport();
        std::cout << archive.string() << '\n';
        return archive.empty() ? 1 : 0;
    }
    if (command == "make-logs" && argc == 4)
        return makeLogs(argv[2], std::atol(argv[3]));
    return usage();
}
