#include "HvStatusMessageHandler.h"

#include "HvServiceStatus.h"
#include "HvTrace.h"
#include "HvTray.h"

namespace Hv::Tray {

void handleStatusMessage(const ChannelMessage::Shared& message)
{
    HV_TRACE_FREE(message);
    if (!message || message->channel() != Signal::ServiceStatus::NAME)
        return;
    setStatus(ServiceStatus::fromString(message->message()));
}

} // namespace Hv::Tray
