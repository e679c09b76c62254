#pragma once

#include <boost/filesystem/path.hpp>

namespace Hv::Tray {

// Shows the file selected in the desktop's file manager (org.freedesktop.FileManager1.ShowItems on
// the session bus). When no file manager answers, opens the containing folder with the desktop's
// default handler instead. Returns at once; the answer is handled by the event loop.
void revealFile(const boost::filesystem::path& path);

} // namespace Hv::Tray
