#include "HvTrayIOServiceImpl.h"

#include "HvImmortalIOService.h"
#include "HvSingleton.h"
#include "HvTrayIOService.h"

#include <QCoreApplication>
#include <QTimer>

namespace Hv {

namespace {

void pumpSharedService()
{
    Util::Singleton<TrayIOService>::shared()->pump();
}

// Made with the service, started by startPumping(); never stopped, it goes with the application.
QTimer* g_pumpTimer = nullptr;

} // namespace

TrayIOService::TrayIOService()
    : TrayIOService(ImmortalIOService::get())
{
    g_pumpTimer = new QTimer(QCoreApplication::instance());
    g_pumpTimer->setInterval(static_cast<int>(TIMER_INTERVAL_MILLISECONDS));
    QObject::connect(g_pumpTimer, &QTimer::timeout, &pumpSharedService);
}

void startPumping()
{
    if (g_pumpTimer == nullptr || g_pumpTimer->isActive())
        return;
    g_pumpTimer->start();
    pumpSharedService();
}

} // namespace Hv
