#pragma once

#include <boost/filesystem/path.hpp>

// ZIP archives through the system's zip and unzip tools, started with their arguments as they
// are (no shell), so paths may hold any character. Failures are an ERROR line and false.
namespace Hv::Compression {

// Packs the folder recursively; the archive's entries start with the folder's own name. Files
// ending in .gz or .zip are stored, not compressed again.
bool pack(const boost::filesystem::path& source, const boost::filesystem::path& target);
// Extracts the archive into the folder (created if needed, files of the same name overwritten).
bool unpack(const boost::filesystem::path& package, const boost::filesystem::path& target);
// Writes unzip's listing of the archive into the text file (created or truncated).
bool listContent(const boost::filesystem::path& package, const boost::filesystem::path& target);

} // namespace Hv::Compression
