#include "HvAppDelegate.h"
#include "HvServiceMonitor.h"
#include "HvSimpleLogger.h"
#include "HvSingleton.h"
#include "HvTrace.h"
#include "HvTrayIOService.h"
#include "HvTrayIOServiceImpl.h"

#include <QApplication>
#include <QTimer>

#include <csignal>

int main(int argc, char* argv[])
{
    // Once the parent is gone, a write to its end of a pipe must fail, not kill the tray.
    std::signal(SIGPIPE, SIG_IGN);
    Hv::SimpleLogger::initialize("HalvoSoftphoneTray");
    HV_TRACE_FREE(argc, argv);
    {
        QApplication application(argc, argv);
        // The title of the XEmbed icon and of the boxes; the native item names itself.
        QApplication::setApplicationName(QStringLiteral("Halvo Softphone"));
        // The item's menu is the only window the application ever shows.
        QApplication::setQuitOnLastWindowClosed(false);

        std::unique_ptr<HvAppDelegate> delegate = HvAppDelegate::create();
        QObject::connect(&application, &QCoreApplication::aboutToQuit, delegate.get(),
                         [&delegate] { delegate->applicationWillTerminate(); });
        // As on macOS, launching finishes before the run loop's timer pumps the event loop.
        QTimer::singleShot(0, delegate.get(), [&delegate] {
            delegate->applicationDidFinishLaunching();
            Hv::startPumping();
        });

        Hv::ServiceMonitor monitor(Hv::Util::Singleton<Hv::TrayIOService>::shared()->ioExecutor(),
                                   [] { QCoreApplication::quit(); });
        QApplication::exec();
    }
    HV_LOG_INFO("tray application has been stopped");
    Hv::SimpleLogger::destroy();
    return 0;
}
