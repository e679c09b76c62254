#pragma once

#include <boost/filesystem/path.hpp>

#include <sys/types.h>

#include <string>
#include <vector>

// ZIP archives through the system's zip and unzip tools, started with their arguments as they
// are (no shell), so paths may hold any character. Failures are an ERROR line and false.
namespace Hv::Compression {

// Packs the folder recursively; the archive's entries start with the folder's own name. Files
// ending in .gz or .zip are stored, not compressed again.
bool pack(const boost::filesystem::path& source, const boost::filesystem::path& target);

// Packing that goes on in a zip process of its own while the caller works on: `names` (folders
// packed recursively, packed logs stored as pack does) are relative to `base`, and so are the
// archive's entries. The destructor waits for zip if wait() has not.
class Packing {
public:
    Packing(const boost::filesystem::path& base, const std::vector<boost::filesystem::path>& names,
            const boost::filesystem::path& target);
    ~Packing();
    Packing(const Packing&) = delete;
    Packing& operator=(const Packing&) = delete;

    // Waits for zip; false (and an ERROR line) when it failed or could not be started.
    bool wait();

private:
    boost::filesystem::path m_base;
    std::string m_command;
    pid_t m_child;
    bool m_waited = false;
    bool m_result = false;
};

// Interrupts the Packing that is running, if any (zip removes what it has written) and makes its
// wait() fail. Safe from any thread.
void cancelPacking();

// Adds `names` (relative to `base`; a folder alone, not its content) to an existing archive, in
// place: the archive is grown, not copied.
bool add(const boost::filesystem::path& base, const std::vector<boost::filesystem::path>& names,
         const boost::filesystem::path& target);

// Extracts the archive into the folder (created if needed, files of the same name overwritten).
bool unpack(const boost::filesystem::path& package, const boost::filesystem::path& target);
// Writes unzip's listing of the archive into the text file (created or truncated).
bool listContent(const boost::filesystem::path& package, const boost::filesystem::path& target);

} // namespace Hv::Compression
