#pragma once

#include "HvChannelMessage.h"

namespace Hv::Tray {

// The subscriber of the pipe "tray": a message on exactly the channel "ServiceStatus" is parsed
// and shown with setStatus (an unparsable body arrives as Unknown, Unknown); any other message is
// dropped silently.
void handleStatusMessage(const ChannelMessage::Shared& message);

} // namespace Hv::Tray
