#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include <functional>
#include <memory>

namespace Hv {

// Watches the standard input that the parent process keeps open and calls onStop once it ends or
// fails: the parent has gone and the application should end. What the parent writes is read and
// dropped. SIGTERM, SIGINT and SIGHUP lead to the same stop, from the event loop.
class ServiceMonitor {
public:
    using OnStop = std::function<void()>;

    ServiceMonitor(boost::asio::io_context::executor_type executor, OnStop onStop);
    ServiceMonitor(const ServiceMonitor&) = delete;
    ServiceMonitor& operator=(const ServiceMonitor&) = delete;

private:
    boost::asio::io_context::executor_type m_executor;
    std::shared_ptr<boost::asio::signal_set> m_signals;
};

} // namespace Hv
