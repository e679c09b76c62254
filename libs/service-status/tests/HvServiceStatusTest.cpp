#include "HvServiceStatus.h"

#include <gtest/gtest.h>

using State = Hv::ServiceStatus::ConnectionState;
using Error = Hv::ServiceStatus::ErrorCode;

TEST(ServiceStatus, ParsesExactTextAndDegradesTheRestToUnknown)
{
    const std::tuple<std::string, State::Value, Error::Value> cases[] = {
        {"ConnectionState:Waiting,ErrorCode:NoVDISession", State::Waiting, Error::NoVDISession},
        // Each half is matched exactly and on its own; without the separator neither is.
        {"ConnectionState:Connected", State::Unknown, Error::Unknown},
        {"connectionstate:connected,ErrorCode:Socket", State::Unknown, Error::Socket},
        {" ConnectionState:Connected,ErrorCode:Success", State::Unknown, Error::Success},
        {"ConnectionState:Waiting,ErrorCode:Success,x", State::Waiting, Error::Unknown},
    };
    for (const auto& [text, state, error] : cases) {
        SCOPED_TRACE(text);
        const auto status = Hv::ServiceStatus::fromString(text);
        EXPECT_EQ(status.connectionState(), state);
        EXPECT_EQ(status.error(), error);
        // Only known values make a valid status, which renders back to its text.
        EXPECT_EQ(status.isValid(), state != State::Unknown && error != Error::Unknown);
        EXPECT_EQ(status.isValid() ? status.toString() : text, text);
    }
}
