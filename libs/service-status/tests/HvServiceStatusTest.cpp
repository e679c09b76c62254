#include "HvServiceStatus.h"

#include "HvChannelMessageUtil.h"
#include "HvLogCapture.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using State = Hv::ServiceStatus::ConnectionState;
using Error = Hv::ServiceStatus::ErrorCode;

void expectParsed(const std::string& text, State::Value state, Error::Value error)
{
    const auto status = Hv::ServiceStatus::fromString(text);
    EXPECT_EQ(status.connectionState(), state) << '"' << text << '"';
    EXPECT_EQ(status.error(), error) << '"' << text << '"';
}

TEST(ServiceStatus, ParsesWholeText)
{
    const auto status = Hv::ServiceStatus::fromString("ConnectionState:Waiting,ErrorCode:Socket");
    EXPECT_EQ(status.connectionState(), State::Waiting);
    EXPECT_EQ(status.error(), Error::Socket);
    EXPECT_TRUE(status.isValid());
    EXPECT_EQ(status.toString(), "ConnectionState:Waiting,ErrorCode:Socket");
}

TEST(ServiceStatus, DegradesUnrecognisedPartsToUnknown)
{
    expectParsed("ConnectionState:Connected", State::Unknown, Error::Unknown);
    expectParsed("", State::Unknown, Error::Unknown);
    expectParsed("ConnectionState:Connected,", State::Connected, Error::Unknown);
    expectParsed(",ErrorCode:Success", State::Unknown, Error::Success);
    expectParsed("connectionstate:connected,ErrorCode:Success", State::Unknown, Error::Success);
    expectParsed("ConnectionState:Connected,ErrorCode:Success,x", State::Connected, Error::Unknown);
    expectParsed(" ConnectionState:Connected,ErrorCode:Success", State::Unknown, Error::Success);
    // The text of Unknown is not a recognised value either; it maps to Unknown all the same.
    expectParsed("ConnectionState:Unknown,ErrorCode:Unknown", State::Unknown, Error::Unknown);

    EXPECT_FALSE(Hv::ServiceStatus::fromString("ConnectionState:Connected,").isValid());
    EXPECT_FALSE(Hv::ServiceStatus::fromString(",ErrorCode:Success").isValid());

    const Hv::ServiceStatus unknown;
    EXPECT_FALSE(unknown.isValid());
    EXPECT_EQ(unknown.toString(), "ConnectionState:Unknown,ErrorCode:Unknown");
}

TEST(ServiceStatus, RendersEveryValue)
{
    for (auto state : {State::Unknown, State::Waiting, State::Connected}) {
        for (auto error : {Error::Unknown, Error::Success, Error::Socket, Error::Validation, Error::NoVDISession}) {
            const Hv::ServiceStatus status(state, error);
            const std::string text = status.toString();
            EXPECT_EQ(text, State(state).toString() + "," + Error(error).toString());
            const auto back = Hv::ServiceStatus::fromString(text);
            EXPECT_EQ(back.connectionState(), state);
            EXPECT_EQ(back.error(), error);
        }
    }
    EXPECT_EQ(Error(Error::NoVDISession).toString(), "ErrorCode:NoVDISession");

    log4cplus::tostringstream stream;
    stream << State(State::Waiting) << ' ' << Error(Error::Validation);
    EXPECT_EQ(stream.str(), "ConnectionState:Waiting ErrorCode:Validation");
}

TEST(ServiceStatus, TracesPartsByName)
{
    Hv::Test::LogCapture capture;
    const Hv::ServiceStatus status(State::Connected, Error::Socket);
    const Hv::ServiceStatus unknown;
    EXPECT_EQ(capture.count(log4cplus::TRACE_LOG_LEVEL,
                            "] -> (connectionState = ConnectionState:Connected, error = ErrorCode:Socket)"),
              1u);
    EXPECT_EQ(capture.count(log4cplus::TRACE_LOG_LEVEL,
                            "] -> (m_connectionState = ConnectionState:Unknown, m_error = ErrorCode:Unknown)"),
              1u);
}

TEST(ServiceStatus, CreatesStatusMessage)
{
    EXPECT_EQ(Hv::Signal::ServiceStatus::NAME, Hv::ChannelMessage::Channel{"ServiceStatus"});

    const auto message = Hv::Signal::ServiceStatus::create(Hv::ServiceStatus(State::Connected, Error::Success));
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->channel(), Hv::ChannelMessage::Channel{"ServiceStatus"});
    EXPECT_EQ(message->message(), "ConnectionState:Connected,ErrorCode:Success");

    std::string encoded;
    const std::string channel = Hv::Util::serializeChannel(message->channel());
    for (const auto& buffer : Hv::Util::channelMessageBuffer(channel, message->message()))
        encoded.append(static_cast<const char*>(buffer.data()), buffer.size());
    EXPECT_EQ(encoded, "ServiceStatus|ConnectionState:Connected,ErrorCode:Success");
}

} // namespace
