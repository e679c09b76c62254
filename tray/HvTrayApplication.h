#pragma once

// The start-up and stop steps that the application delegate of each platform shell takes, in this
// order; the shells add only their toolkit calls.

#include "HvAsyncLocalPipe.h"
#include "HvTray.h"

#include <functional>

namespace Hv::Tray {

// The delegate's init: the process's event loop (its pump starts with it) and the receiver of the
// pipe "tray", listening at once.
Async::LocalPipe::Receiver::Shared listenForService();
// Once launching has finished: the item, shown through `display`, in the waiting state, then the
// service's statuses.
void didFinishLaunching(const Async::LocalPipe::Receiver::Shared& serviceChannel, Display display);
// At termination: `finishReport` lets a report that is being built finish (for a bounded time),
// then the item is let go.
void willTerminate(const std::function<void()>& finishReport);

} // namespace Hv::Tray
