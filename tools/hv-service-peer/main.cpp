// hv-service-peer: writes channel messages to a local pipe the way the softphone service does,
// e.g. `hv-service-peer --pipe tray --status Connected,Success`.

#include "HvAsyncLocalPipe.h"
#include "HvServicePeerOptions.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <csignal>
#include <functional>
#include <iostream>

int main(int argc, char** argv)
{
    const Hv::ServicePeer::ParseResult parsed =
        Hv::ServicePeer::parseArguments(std::vector<std::string>(argv + 1, argv + argc));
    if (!parsed.options) {
        std::cerr << "hv-service-peer: " << parsed.error << "\n" << Hv::ServicePeer::usage();
        return 2;
    }
    const Hv::ServicePeer::Options& options = *parsed.options;
    if (options.help) {
        std::cout << Hv::ServicePeer::usage();
        return 0;
    }
    std::signal(SIGPIPE, SIG_IGN);

    boost::asio::io_context ioContext;
    boost::asio::steady_timer deadline(ioContext);
    boost::asio::steady_timer pause(ioContext);
    int status = 1;
    bool started = false;
    std::size_t next = 0;

    const auto sender = Hv::Async::LocalPipe::Sender::create(ioContext, options.pipe);
    const auto finish = [&](int result, const std::string& error) {
        if (!error.empty())
            std::cerr << "hv-service-peer: " << error << "\n";
        status = result;
        sender->close();
        ioContext.stop();
    };
    // Every step of progress pushes the deadline out again.
    const auto armDeadline = [&] {
        deadline.expires_after(options.timeout);
        deadline.async_wait([&](const boost::system::error_code& error) {
            if (error)
                return;
            finish(1, (started ? "timed out writing to pipe '" : "no receiver on pipe '") + options.pipe + "' within " +
                          std::to_string(options.timeout.count()) + " ms");
        });
    };
    std::function<void()> sendNext = [&] {
        if (next == options.messages.size()) {
            finish(0, "");
            return;
        }
        const Hv::ServicePeer::OutgoingMessage& outgoing = options.messages[next++];
        auto message = std::make_shared<Hv::ChannelMessage>(outgoing.channel, std::string(outgoing.body));
        sender->sendMessage(message, [&] {
            armDeadline();
            if (options.delay.count() > 0 && next < options.messages.size()) {
                pause.expires_after(options.delay);
                pause.async_wait([&](const boost::system::error_code& error) {
                    if (!error)
                        sendNext();
                });
            } else {
                sendNext();
            }
        });
    };
    const auto start = [&] {
        if (started) {
            // A reconnection: what was in flight is lost, so say so instead of guessing.
            finish(1, "connection to pipe '" + options.pipe + "' was lost");
            return;
        }
        started = true;
        armDeadline();
        sendNext();
    };
    sender->onConnected(start);
    armDeadline();
    // The first attempt happens inside create(), before anybody could subscribe.
    if (sender->isConnected())
        start();
    ioContext.run();
    return status;
}
