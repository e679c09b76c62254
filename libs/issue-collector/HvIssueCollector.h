#pragma once

#include <boost/filesystem/path.hpp>

namespace Hv::IssueCollector {

// Gathers the product's logs, the TCP connection table and the process list into
// "halvo-softphone-report-<UTC time>-<version>.zip" in the downloads folder. Returns the
// archive's path, or an empty path on any failure (the reason is in the log).
boost::filesystem::path prepareReport();

// Asks a report that is being built, from any thread, to give up: the archive being written is
// dropped and prepareReport() returns an empty path, leaving nothing behind.
void cancelReport();

// The two listings of the report, one record per line (the file is created or truncated).
// Public so that the benchmark can time them on their own.
void printNetwork(const boost::filesystem::path& path);
void printTaskList(const boost::filesystem::path& path);

} // namespace Hv::IssueCollector
