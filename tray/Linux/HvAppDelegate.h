#pragma once

#include "HvAsyncLocalPipe.h"

#include <QObject>

#include <memory>

// Owns the receiving end of the pipe "tray" and relays the application's start and end to the
// status item.
class HvAppDelegate : public QObject {
public:
    // Traces, then makes and initialises a delegate.
    static std::unique_ptr<HvAppDelegate> create();

    // Takes the shared pump and starts listening on the pipe "tray".
    void init();
    // Once the event loop runs: shows the waiting state, then subscribes to status messages.
    void applicationDidFinishLaunching();
    void applicationWillTerminate();

private:
    Hv::Async::LocalPipe::Receiver::Shared m_serviceChannel;
};
