// hv-service-peer: writes channel messages to a local pipe the way the softphone service does,
// e.g. `hv-service-peer --pipe tray --status Connected,Success`. With --spawn it also plays the
// service's parent role: it starts the tray with a pipe on its standard input and ends it by
// closing that pipe.

#include "HvAsyncLocalPipe.h"
#include "HvChildProcess.h"
#include "HvCommandLine.h"
#include "HvServicePeerOptions.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include <csignal>
#include <iostream>

namespace {

using Hv::ServicePeer::ChildProcess;
using Hv::ServicePeer::Options;

class Peer {
public:
    Peer(boost::asio::io_context& ioContext, const Options& options)
        : m_ioContext(ioContext)
        , m_options(options)
        , m_stopSignals(ioContext, SIGINT, SIGTERM)
        , m_childSignal(ioContext, SIGCHLD)
        , m_deadline(ioContext)
        , m_pause(ioContext)
        , m_stopTimer(ioContext)
        , m_childTimer(ioContext)
    {
    }

    int run()
    {
        if (m_options.spawn) {
            std::string error;
            std::optional<ChildProcess> child = ChildProcess::start({*m_options.spawn}, error);
            if (!child) {
                std::cerr << "hv-service-peer: " << error << "\n";
                return 1;
            }
            m_child.emplace(std::move(*child));
            watchChild();
        }
        waitForStopSignal();
        if (m_options.stopAfter) {
            m_stopTimer.expires_after(*m_options.stopAfter);
            m_stopTimer.async_wait([this](const boost::system::error_code& error) {
                if (!error)
                    stop();
            });
        }
        if (!m_options.messages.empty()) {
            m_sender = Hv::Async::LocalPipe::Sender::create(m_ioContext, m_options.pipe);
            m_sender->onConnected([this] { onConnected(); });
            armDeadline("no receiver on pipe '" + m_options.pipe + "'");
            // The first attempt happens inside create(), before anybody could subscribe.
            if (m_sender->isConnected())
                onConnected();
        }
        m_ioContext.run();
        return m_result;
    }

private:
    void onConnected()
    {
        if (m_draining)
            return;
        if (m_started) {
            // A reconnection: what was in flight is lost, so say so instead of guessing.
            fail("connection to pipe '" + m_options.pipe + "' was lost");
            return;
        }
        m_started = true;
        m_deadline.cancel();
        sendNext();
    }

    void sendNext()
    {
        if (m_stopping) {
            drain();
            return;
        }
        if (m_next == m_options.messages.size()) {
            if (!m_options.cycle) {
                drain();
                return;
            }
            m_next = 0;
        }
        const Hv::ServicePeer::OutgoingMessage& outgoing = m_options.messages[m_next++];
        auto message = std::make_shared<Hv::ChannelMessage>(outgoing.channel, std::string(outgoing.body));
        m_writing = true;
        armDeadline("timed out writing to pipe '" + m_options.pipe + "'");
        m_sender->sendMessage(message, [this] {
            m_writing = false;
            m_deadline.cancel();
            const bool more = m_options.cycle || m_next < m_options.messages.size();
            if (m_stopping || !more || m_options.delay.count() == 0) {
                sendNext();
                return;
            }
            m_pause.expires_after(m_options.delay);
            m_pause.async_wait([this](const boost::system::error_code& error) {
                if (!error)
                    sendNext();
            });
        });
    }

    // The receiver serves one client at a time and drops a connection still waiting in its
    // backlog when it accepts another, so leaving right after the last write can lose messages
    // of the next peer. Half-close and wait until the receiver has read everything and let go.
    void drain()
    {
        if (m_draining)
            return;
        m_draining = true;
        m_pause.cancel();
        if (!m_sender || !m_sender->isConnected()) {
            drained();
            return;
        }
        armDeadline("the receiver on pipe '" + m_options.pipe + "' did not finish reading");
        m_sender->shutdownSend([this] {
            m_deadline.cancel();
            m_delivered = m_options.cycle || m_next == m_options.messages.size();
            drained();
        });
    }

    void drained()
    {
        if (m_sender)
            m_sender->close();
        if (m_sender && !m_delivered && m_result == 0) {
            std::cerr << "hv-service-peer: stopped before the receiver had read the messages\n";
            m_result = 1;
        }
        // A list sent to a spawned child: the child keeps showing it until told to stop.
        if (m_stopping || !m_child)
            endChild();
    }

    void stop()
    {
        if (m_stopping)
            return;
        m_stopping = true;
        m_stopTimer.cancel();
        // The write in flight finishes first; its completion comes back here through sendNext.
        if (m_writing)
            return;
        if (m_draining) {
            if (!m_sender || !m_sender->isConnected())
                endChild();
            return;
        }
        drain();
    }

    void fail(const std::string& error)
    {
        std::cerr << "hv-service-peer: " << error << "\n";
        m_result = 1;
        m_stopping = true;
        m_draining = true;
        m_writing = false;
        m_pause.cancel();
        m_stopTimer.cancel();
        if (m_sender)
            m_sender->close();
        endChild();
    }

    void armDeadline(const std::string& what)
    {
        m_deadline.expires_after(m_options.timeout);
        m_deadline.async_wait([this, what](const boost::system::error_code& error) {
            if (!error)
                fail(what + " within " + std::to_string(m_options.timeout.count()) + " ms");
        });
    }

    void waitForStopSignal()
    {
        m_stopSignals.async_wait([this](const boost::system::error_code& error, int) {
            if (error)
                return;
            if (m_stopping && m_child) {
                // Asked twice: do not wait for the child any longer.
                m_child->kill();
                return;
            }
            stop();
            waitForStopSignal();
        });
    }

    // Closing the pipe is how the parent says goodbye; the child then has `timeout` to end.
    void endChild()
    {
        if (!m_child || m_childEnding) {
            if (!m_child)
                finish();
            return;
        }
        m_childEnding = true;
        m_child->closeInput();
        m_childTimer.expires_after(m_options.timeout);
        m_childTimer.async_wait([this](const boost::system::error_code& error) {
            if (error || !m_child || m_child->poll())
                return;
            std::cerr << "hv-service-peer: " << *m_options.spawn << " did not end within "
                      << m_options.timeout.count() << " ms of closing its input; killing it\n";
            m_child->kill();
        });
        onChildSignal();
    }

    void watchChild()
    {
        m_childSignal.async_wait([this](const boost::system::error_code& error, int) {
            if (!error)
                onChildSignal();
        });
    }

    void onChildSignal()
    {
        const std::optional<int> status = m_child->poll();
        if (!status) {
            watchChild();
            return;
        }
        std::cout << *m_options.spawn << " (pid " << m_child->pid() << ") "
                  << Hv::ServicePeer::describeWaitStatus(*status) << std::endl;
        const int code = Hv::ServicePeer::exitCodeOf(*status);
        if (!m_childEnding) {
            std::cerr << "hv-service-peer: the child ended before its input was closed\n";
            m_result = code == 0 ? 1 : code;
        } else if (m_result == 0) {
            m_result = code;
        }
        m_child.reset();
        if (m_sender)
            m_sender->close();
        finish();
    }

    void finish()
    {
        m_deadline.cancel();
        m_pause.cancel();
        m_stopTimer.cancel();
        m_childTimer.cancel();
        m_ioContext.stop();
    }

    boost::asio::io_context& m_ioContext;
    const Options& m_options;
    boost::asio::signal_set m_stopSignals;
    boost::asio::signal_set m_childSignal;
    boost::asio::steady_timer m_deadline;
    boost::asio::steady_timer m_pause;
    boost::asio::steady_timer m_stopTimer;
    boost::asio::steady_timer m_childTimer;
    Hv::Async::LocalPipe::Sender::Shared m_sender;
    std::optional<ChildProcess> m_child;
    std::size_t m_next = 0;
    bool m_started = false;
    // The receiver read the whole list (or, in a cycle, whatever was sent) before closing.
    bool m_delivered = false;
    bool m_writing = false;
    bool m_draining = false;
    bool m_stopping = false;
    bool m_childEnding = false;
    int m_result = 0;
};

} // namespace

int main(int argc, char** argv)
{
    const Hv::ServicePeer::ParseResult parsed =
        Hv::ServicePeer::parseArguments(std::vector<std::string>(argv + 1, argv + argc));
    if (!parsed.options)
        return Hv::CommandLine::refuse("hv-service-peer", parsed.error);
    const Options& options = *parsed.options;
    if (options.help) {
        std::cout << Hv::ServicePeer::usage();
        return 0;
    }
    if (options.version) {
        std::cout << Hv::CommandLine::versionLine("hv-service-peer") << '\n';
        return 0;
    }
    std::signal(SIGPIPE, SIG_IGN);

    boost::asio::io_context ioContext;
    Peer peer(ioContext, options);
    return peer.run();
}
