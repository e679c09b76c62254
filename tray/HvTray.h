#pragma once

// The status item's presentation: which of the three icons and which tool tip a service status
// gets. The decision and the texts are portable; the platform shell only displays the result
// through showPresentation().

#include "HvServiceStatus.h"

#include <string>

namespace Hv::Tray {

enum class Icon { Waiting, Error, Connected };

// The named image of an icon: "waiting", "error" or "connected".
const char* iconName(Icon icon);

// Entry trace only: the item is created on first use by the platform shell.
void init();
// Entry trace only: the item goes with the process.
void destroy();

// Connected → connected; Waiting+Success → waiting; Waiting+other → error; anything else is
// logged at WARN and changes nothing.
void setStatus(const ServiceStatus& serviceStatus);
void setWaitingStatus();
void setErrorStatus(ServiceStatus::ErrorCode error);
void setConnectedStatus();

// "Halvo Softphone (<version>)" and a line feed, then the status word.
std::string formatStatus(const std::string& status);
// formatStatus(status), ": ", errorString(error).
std::string formatStatus(const std::string& status, ServiceStatus::ErrorCode error);
// The reason shown after "Error: "; empty for Success.
std::string errorString(ServiceStatus::ErrorCode error);

// Platform shell: sets the item's icon, then its tool tip, creating the item on first use.
void showPresentation(Icon icon, const std::string& toolTip);

} // namespace Hv::Tray
