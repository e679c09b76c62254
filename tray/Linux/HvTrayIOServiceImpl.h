#pragma once

namespace Hv {

// Starts the pump of the shared TrayIOService: one tick at once, then one every
// TIMER_INTERVAL_MILLISECONDS. Called once launching has finished, so that no handler of the
// event loop runs before the delegate has subscribed to the service's messages (the service
// connects and speaks the moment the socket exists).
void startPumping();

} // namespace Hv
