#pragma once

#include <boost/filesystem/path.hpp>

namespace Hv::Tray {

// Shows the file selected in the desktop's file manager (org.freedesktop.FileManager1.ShowItems on
// the session bus). When no file manager answers, opens the containing folder with the desktop's
// default handler instead, and when nothing can, tells the user where the file is (a notification
// of the item, or a box). Returns at once; the answers are handled by the event loop.
void revealFile(const boost::filesystem::path& path);

} // namespace Hv::Tray
