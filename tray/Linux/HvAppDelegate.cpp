#include "HvAppDelegate.h"

#include "HvTrace.h"
#include "HvTrayApplication.h"
#include "HvTrayImpl.h"

std::unique_ptr<HvAppDelegate> HvAppDelegate::create()
{
    HV_TRACE_FREE();
    auto delegate = std::make_unique<HvAppDelegate>();
    delegate->init();
    return delegate;
}

void HvAppDelegate::init()
{
    HV_TRACE();
    m_serviceChannel = Hv::Tray::listenForService();
}

void HvAppDelegate::applicationDidFinishLaunching()
{
    HV_TRACE();
    Hv::Tray::didFinishLaunching(m_serviceChannel, [](const Hv::Tray::Presentation& presentation) {
        HvTray::instance()->setPresentation(presentation);
    });
}

void HvAppDelegate::applicationWillTerminate()
{
    HV_TRACE();
    Hv::Tray::willTerminate([] { HvTray::instance()->finishReport(); });
}
