#pragma once

#include <boost/asio/io_context.hpp>

namespace Hv {

// The process's one event loop. It is created on first use and never destroyed, so that objects
// torn down at exit may still post to it. Not locked: the first call happens during start-up.
class ImmortalIOService {
public:
    static boost::asio::io_context& get();

private:
    static boost::asio::io_context* m_ioContext;
};

} // namespace Hv
