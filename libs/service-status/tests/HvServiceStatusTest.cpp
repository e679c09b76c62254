#include "HvServiceStatus.h"

#include <gtest/gtest.h>

using State = Hv::ServiceStatus::ConnectionState;
using Error = Hv::ServiceStatus::ErrorCode;

TEST(ServiceStatus, ParsesExactTextAndDegradesTheRestToUnknown)
{
    const std::tuple<std::string, State::Value, Error::Value> cases[] = {
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
    for (const auto& [text, state, error] : cases) {
        SCOPED_TRACE(text);
        const auto status = Hv::ServiceStatus::fromString(text);
        EXPECT_EQ(status.connectionState(), state);
        EXPECT_EQ(status.error(), error);
        const bool valid = state != State::Unknown && error != Error::Unknown;
        EXPECT_EQ(status.isValid(), valid);
        if (valid) {
            EXPECT_EQ(status.toString(), text);
        }
    }
    EXPECT_EQ(Hv::ServiceStatus().toString(), "ConnectionState:Unknown,ErrorCode:Unknown");
}
