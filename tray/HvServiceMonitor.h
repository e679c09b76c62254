#pragma once

#include <boost/asio/io_context.hpp>

#include <functional>

namespace Hv {

// Watches the standard input that the parent process keeps open and calls onStop once it fails:
// the parent has gone and the application should end.
class ServiceMonitor {
public:
    using OnStop = std::function<void()>;

    ServiceMonitor(boost::asio::io_context::executor_type executor, OnStop onStop);

private:
    boost::asio::io_context::executor_type m_executor;
};

} // namespace Hv
