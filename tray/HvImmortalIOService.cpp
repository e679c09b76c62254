#include "HvImmortalIOService.h"

namespace Hv {

boost::asio::io_context* ImmortalIOService::m_ioContext = nullptr;

boost::asio::io_context& ImmortalIOService::get()
{
    if (m_ioContext == nullptr)
        m_ioContext = new boost::asio::io_context();
    return *m_ioContext;
}

} // namespace Hv
