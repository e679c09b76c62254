#include "HvChannelMessage.h"

#include <gtest/gtest.h>

namespace {

using Channel = Hv::ChannelMessage::Channel;

TEST(ChannelMessage, KeepsChannelAndBody)
{
    const Channel channel{"a", "b"};
    Hv::ChannelMessage copied(channel, "hello");
    EXPECT_EQ(copied.channel(), channel);
    EXPECT_EQ(copied.message(), "hello");

    Channel moved{"x"};
    Hv::ChannelMessage taken(std::move(moved), "body");
    EXPECT_EQ(taken.channel(), Channel{"x"});
    EXPECT_EQ(taken.message(), "body");

    taken.pushMarker("y");
    EXPECT_EQ(taken.channel(), (Channel{"x", "y"}));
    taken.popMarker();
    taken.popMarker();
    EXPECT_TRUE(taken.channel().empty());
    // Popping an empty channel is harmless.
    taken.popMarker();
    EXPECT_TRUE(taken.channel().empty());
}

TEST(ChannelMessage, BroadcastCannotBeNarrowedOrWidened)
{
    EXPECT_EQ(Hv::ChannelMessage::BROADCAST, Channel{"Broadcast"});
    EXPECT_EQ(Hv::ChannelMessage::MAX_LENGTH, 67108864u);

    Hv::ChannelMessage broadcast(Hv::ChannelMessage::BROADCAST, "x");
    EXPECT_TRUE(broadcast.isBroadcast());
    broadcast.pushMarker("z");
    EXPECT_EQ(broadcast.channel(), Hv::ChannelMessage::BROADCAST);
    broadcast.popMarker();
    EXPECT_EQ(broadcast.channel(), Hv::ChannelMessage::BROADCAST);

    Hv::ChannelMessage narrowed(Channel{"Broadcast", "z"}, "x");
    EXPECT_FALSE(narrowed.isBroadcast());
    narrowed.popMarker();
    EXPECT_TRUE(narrowed.isBroadcast());

    EXPECT_FALSE(Hv::ChannelMessage(Channel{"z", "Broadcast"}, "x").isBroadcast());
    EXPECT_FALSE(Hv::ChannelMessage(Channel{"broadcast"}, "x").isBroadcast());
    EXPECT_FALSE(Hv::ChannelMessage(Channel{}, "x").isBroadcast());
}

} // namespace
