#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/shared_ptr.hpp>

#include <cstdint>

namespace Hv {

// Runs the process's event loop on the user-interface thread: a platform timer calls
// handleIoEvents() every TIMER_INTERVAL_MILLISECONDS, so every completion handler runs there.
class TrayIOService {
public:
    using Shared = boost::shared_ptr<TrayIOService>;

    static const std::uint32_t TIMER_INTERVAL_MILLISECONDS;
    // Ready handlers run by one handleIoEvents(), so that a burst cannot starve the interface.
    static const int MAX_HANDLERS_PER_TICK;

    // Takes the immortal context and starts the platform timer (defined by the platform unit).
    TrayIOService();
    // Pumps `ioContext` without a timer; the caller calls handleIoEvents() itself.
    explicit TrayIOService(boost::asio::io_context& ioContext);

    boost::asio::io_context::executor_type ioExecutor() const;
    // Runs ready handlers one by one, at most MAX_HANDLERS_PER_TICK, stopping at the first poll
    // that runs nothing; returns how many ran. An error of poll_one is thrown as system_error.
    std::size_t handleIoEvents();
    // What the platform timer calls: handleIoEvents(), with any exception that a handler throws
    // caught and logged at ERROR, so that the tray neither dies nor stops pumping; the handlers
    // still waiting run on the next tick.
    void pump() noexcept;

private:
    boost::asio::io_context* m_ioContext;
};

} // namespace Hv
