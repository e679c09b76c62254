#pragma once

#include <boost/asio/io_context.hpp>

#include <chrono>

namespace Hv::Test {

// Runs the event loop in short slices until done() holds or the limit passes; never sleeps
// blindly. done() is asked once per slice, so it may have side effects (a connection attempt).
template <typename Predicate>
bool runUntil(boost::asio::io_context& ioContext, Predicate done,
              std::chrono::milliseconds limit = std::chrono::seconds(10))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (done())
            return true;
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        ioContext.restart();
        ioContext.run_one_for(std::chrono::milliseconds(5));
    }
}

} // namespace Hv::Test
