#include "HvTrayIOService.h"

#include "HvTrace.h"

#include <boost/system/error_code.hpp>
#include <boost/system/system_error.hpp>

#include <exception>

namespace Hv {

const std::uint32_t TrayIOService::TIMER_INTERVAL_MILLISECONDS = 100;
const int TrayIOService::MAX_HANDLERS_PER_TICK = 100;

TrayIOService::TrayIOService(boost::asio::io_context& ioContext)
    : m_ioContext(&ioContext)
{
    HV_TRACE(m_ioContext);
}

boost::asio::io_context::executor_type TrayIOService::ioExecutor() const
{
    return m_ioContext->get_executor();
}

std::size_t TrayIOService::handleIoEvents()
{
    // poll_one() stops a context that momentarily has no work; without a restart it would never
    // run a handler again, and the pump would go quiet for good.
    if (m_ioContext->stopped())
        m_ioContext->restart();
    std::size_t handled = 0;
    for (int i = 0; i < MAX_HANDLERS_PER_TICK; ++i) {
        boost::system::error_code error;
        const std::size_t ran = m_ioContext->poll_one(error);
        if (error)
            throw boost::system::system_error(error);
        if (ran == 0)
            break;
        handled += ran;
    }
    return handled;
}

void TrayIOService::pump() noexcept
{
    try {
        handleIoEvents();
    } catch (const std::exception& error) {
        HV_LOG_ERROR("Exception in an event handler: " << error.what());
    } catch (...) {
        HV_LOG_ERROR("Exception in an event handler: not a standard exception");
    }
}

} // namespace Hv
