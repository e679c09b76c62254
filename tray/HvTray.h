#pragma once

// The status item's presentation: which of the three icons, which texts and whether the item asks
// for attention, for a service status. The decision and the texts are portable; the platform shell
// only displays the result, through the Display it hands the core.

#include "HvServiceStatus.h"

#include <functional>
#include <string>

namespace Hv::Tray {

enum class Icon { Waiting, Error, Connected };

// Everything the item shows for one status.
struct Presentation {
    Icon icon;
    // "Halvo Softphone (<version>)".
    std::string title;
    // "Waiting", "Connected" or "Error: " and the reason.
    std::string status;
    // The error states: hosts that tuck items away show this one.
    bool needsAttention;

    // The title, a line feed and the status: for items that show one text.
    std::string toolTip() const;
    bool operator==(const Presentation&) const = default;
};

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

// The platform shell's part: shows a presentation (icon first, then the texts), creating the item
// on first use.
using Display = std::function<void(const Presentation&)>;
// Where every later presentation goes; until a display is set, none is shown.
void setDisplay(Display display);

} // namespace Hv::Tray
