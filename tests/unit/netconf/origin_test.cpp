// SPDX-License-Identifier: Apache-2.0
// Where a session over SSH comes from, as the relay tells it.

#include "netconf/origin.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using netconf::OriginLine;
using netconf::TakeOrigin;

TEST(Origin, ArrivesAsItWasSent)
{
    for (const char* host : {"192.0.2.7", "2001:db8::7", "fe80::1"}) {
        std::string message = OriginLine(std::string(host) + " 50022 192.0.2.1 830") + "<hello/>";
        const auto origin = TakeOrigin(message);
        ASSERT_TRUE(origin) << host;
        EXPECT_EQ(origin->host, host);
        EXPECT_EQ(message, "<hello/>");
    }
    EXPECT_EQ(OriginLine("fe80::1%eth0 1 fe80::2%eth0 830"), OriginLine("fe80::1 1 fe80::2 830"));
}

TEST(Origin, IsAnAddressOrNothing)
{
    EXPECT_EQ(OriginLine(""), "");
    EXPECT_EQ(OriginLine("somewhere 1 2 3"), "");
    for (const char* said : {"", "<hello/>", "cdb-netconf-relay ssh <hello/>",
                             "cdb-netconf-relay ssh 192.0.2.7", "cdb-netconf-relay ssh elsewhere\n<hello/>",
                             " cdb-netconf-relay ssh 192.0.2.7\n", "cdb-netconf-relay ssh \n<hello/>"}) {
        std::string message = said;
        EXPECT_FALSE(TakeOrigin(message)) << said;
        EXPECT_EQ(message, said);
    }
}

}  // namespace
