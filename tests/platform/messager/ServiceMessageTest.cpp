// The datagram form of a message.
#include <gtest/gtest.h>

#include <string>

#include "ServiceMessage.h"

using system_extension::ServiceMessage;

TEST(ServiceMessage, EncodesThreeFieldsSeparatedByNul) {
    const ServiceMessage message{"dvr_server", "hibernationstate", "suspendbegin"};
    EXPECT_EQ(std::string("dvr_server\0hibernationstate\0suspendbegin", 40), message.encode());
}

TEST(ServiceMessage, DecodesWhatItEncodes) {
    const ServiceMessage message{"dvr_server", "hibernationstate", ""};
    const std::string datagram = message.encode();
    ServiceMessage decoded;
    ASSERT_TRUE(ServiceMessage::decode(datagram.data(), datagram.size(), &decoded));
    EXPECT_EQ("dvr_server", decoded.name);
    EXPECT_EQ("hibernationstate", decoded.message);
    EXPECT_EQ("", decoded.value);
}

TEST(ServiceMessage, MalformedDatagramsAreRejectedAndChangeNothing) {
    const std::string longField(ServiceMessage::kFieldMax + 1, 'x');
    const std::string datagrams[] = {
        "",
        "only a name",
        std::string("name\0message", 12),
        std::string("name\0message\0value\0extra", 25),
        std::string("\0message\0value", 14),
        std::string("name\0\0value", 11),
        longField + std::string("\0message\0value", 14),
    };
    for (const std::string &datagram : datagrams) {
        ServiceMessage decoded{"kept", "kept", "kept"};
        EXPECT_FALSE(ServiceMessage::decode(datagram.data(), datagram.size(), &decoded));
        EXPECT_EQ("kept", decoded.name);
        EXPECT_EQ("kept", decoded.value);
    }
}

TEST(ServiceMessage, ValidityFollowsTheFieldLimits) {
    const std::string longest(ServiceMessage::kFieldMax, 'x');
    EXPECT_TRUE((ServiceMessage{longest, longest, longest}.isValid()));
    EXPECT_FALSE((ServiceMessage{"", "m", "v"}.isValid()));
    EXPECT_FALSE((ServiceMessage{"n", "", "v"}.isValid()));
    EXPECT_FALSE((ServiceMessage{"n", "m", longest + "x"}.isValid()));
    EXPECT_FALSE((ServiceMessage{"n", std::string("a\0b", 3), "v"}.isValid()));
}
