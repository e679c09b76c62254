#include "HvServiceStatus.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using State = Hv::ServiceStatus::ConnectionState;
using Error = Hv::ServiceStatus::ErrorCode;

TEST(ServiceStatus, ParsesExactTextAndDegradesTheRestToUnknown)
{
    struct Case {
        std::string text;
        State::Value state;
        Error::Value error;
    };
    const Case cases[] = {
        {"ConnectionState:Waiting,ErrorCode:Socket", State::Waiting, Error::Socket},
        {"ConnectionState:Connected,ErrorCode:Success", State::Connected, Error::Success},
        {"ConnectionState:Waiting,ErrorCode:Validation", State::Waiting, Error::Validation},
        {"ConnectionState:Connected,ErrorCode:NoVDISession", State::Connected, Error::NoVDISession},
        {"ConnectionState:Connected", State::Unknown, Error::Unknown},
        {"", State::Unknown, Error::Unknown},
        {"ConnectionState:Connected,", State::Connected, Error::Unknown},
        {",ErrorCode:Success", State::Unknown, Error::Success},
        {"connectionstate:connected,ErrorCode:Success", State::Unknown, Error::Success},
        {" ConnectionState:Connected,ErrorCode:Success", State::Unknown, Error::Success},
        {"ConnectionState:Connected,ErrorCode:Success,x", State::Connected, Error::Unknown},
        {"ConnectionState:Unknown,ErrorCode:Unknown", State::Unknown, Error::Unknown},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const auto status = Hv::ServiceStatus::fromString(c.text);
        EXPECT_EQ(status.connectionState(), c.state);
        EXPECT_EQ(status.error(), c.error);
        const bool valid = c.state != State::Unknown && c.error != Error::Unknown;
        EXPECT_EQ(status.isValid(), valid);
        if (valid) {
            EXPECT_EQ(status.toString(), c.text);
        }
    }
    EXPECT_EQ(Hv::ServiceStatus().toString(), "ConnectionState:Unknown,ErrorCode:Unknown");
}

TEST(ServiceStatus, CreatesTheStatusMessage)
{
    const auto message = Hv::Signal::ServiceStatus::create(Hv::ServiceStatus(State::Connected, Error::Success));
    ASSERT_NE(message, nullptr);
    EXPECT_EQ(message->channel(), Hv::ChannelMessage::Channel{"ServiceStatus"});
    EXPECT_EQ(message->message(), "ConnectionState:Connected,ErrorCode:Success");
}

} // namespace
