#include "HvImmortalIOService.h"
#include "HvSingleton.h"
#include "HvTrayIOService.h"

#include <QCoreApplication>
#include <QTimer>

namespace Hv {

namespace {
void pumpSharedService()
{
    Util::Singleton<TrayIOService>::shared()->handleIoEvents();
}
} // namespace

// The pump of the Qt shell: a repeating timer on the main thread, first tick as soon as the
// event loop runs. It is never stopped; it goes with the application object.
TrayIOService::TrayIOService()
    : TrayIOService(ImmortalIOService::get())
{
    auto* timer = new QTimer(QCoreApplication::instance());
    timer->setInterval(static_cast<int>(TIMER_INTERVAL_MILLISECONDS));
    QObject::connect(timer, &QTimer::timeout, &pumpSharedService);
    QTimer::singleShot(0, &pumpSharedService);
    timer->start();
}

} // namespace Hv
