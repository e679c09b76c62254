#include "HvTray.h"

#include "HvTrace.h"
#include "HvVersion.h"

namespace Hv::Tray {

namespace {

const char* const TITLE = "Halvo Softphone";

std::string productTitle()
{
    return std::string(TITLE) + " (" + PRODUCT_VERSION + ")";
}

// The shell's display: set at launch, used on the user-interface thread only.
Display& display()
{
    static Display shell;
    return shell;
}

void showPresentation(const Presentation& presentation)
{
    if (display())
        display()(presentation);
}

} // namespace

std::string Presentation::toolTip() const
{
    return title + "\n" + status;
}

const char* iconName(Icon icon)
{
    switch (icon) {
    case Icon::Waiting:
        return "waiting";
    case Icon::Error:
        return "error";
    case Icon::Connected:
        return "connected";
    }
    return "waiting";
}

void setDisplay(Display shell)
{
    display() = std::move(shell);
}

void init()
{
    HV_TRACE_FREE();
}

void destroy()
{
    HV_TRACE_FREE();
}

void setStatus(const ServiceStatus& serviceStatus)
{
    HV_TRACE_FREE(serviceStatus.connectionState(), serviceStatus.error());
    switch (serviceStatus.connectionState()) {
    case ServiceStatus::ConnectionState::Connected:
        setConnectedStatus();
        return;
    case ServiceStatus::ConnectionState::Waiting:
        // The error look is reached only through the waiting state.
        if (serviceStatus.error() == ServiceStatus::ErrorCode::Success)
            setWaitingStatus();
        else
            setErrorStatus(serviceStatus.error());
        return;
    default:
        HV_LOG_WARN("Unexpected status; ignored");
        return;
    }
}

void setWaitingStatus()
{
    HV_TRACE_FREE();
    showPresentation({Icon::Waiting, productTitle(), "Waiting", false});
}

void setErrorStatus(ServiceStatus::ErrorCode error)
{
    HV_TRACE_FREE(error);
    showPresentation({Icon::Error, productTitle(), "Error: " + errorString(error), true});
}

void setConnectedStatus()
{
    HV_TRACE_FREE();
    showPresentation({Icon::Connected, productTitle(), "Connected", false});
}

std::string formatStatus(const std::string& status)
{
    HV_TRACE_FREE(status);
    return productTitle() + "\n" + status;
}

std::string formatStatus(const std::string& status, ServiceStatus::ErrorCode error)
{
    HV_TRACE_FREE(status, error);
    return formatStatus(status) + ": " + errorString(error);
}

std::string errorString(ServiceStatus::ErrorCode error)
{
    HV_TRACE_FREE(error);
    switch (error) {
    case ServiceStatus::ErrorCode::Success:
        return "";
    case ServiceStatus::ErrorCode::Socket:
        return "Port busy";
    case ServiceStatus::ErrorCode::Validation:
        return "Invalid client connection";
    case ServiceStatus::ErrorCode::NoVDISession:
        return "Unknown host";
    default:
        return "Internal error";
    }
}

} // namespace Hv::Tray
