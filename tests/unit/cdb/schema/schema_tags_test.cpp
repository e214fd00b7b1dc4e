// SPDX-License-Identifier: Apache-2.0
// The generated constants, as the daemon sees them.

#include <switch_schema.h>

#include <gtest/gtest.h>

#include "cdb/sample.h"

namespace {

TEST(SchemaTags, AreThoseOfTheModules)
{
    const std::pair<const char*, std::uint32_t> tags[] = {
        {"collector", switch_schema::tag_collector},
        {"interface", switch_schema::tag_interface},
        {"sampling-rate", switch_schema::tag_sampling_rate},
        {"max-header-size", switch_schema::tag_max_header_size},
        {"polling-interval", switch_schema::tag_polling_interval},
        {"flow-sampling-collector", switch_schema::tag_flow_sampling_collector},
        {"counter-sampling-collector", switch_schema::tag_counter_sampling_collector},
        {"enabled", switch_schema::tag_enabled},
        {"ipv4", switch_schema::tag_ipv4},
        {"ip", switch_schema::tag_ip},
        {"datagram-size", switch_schema::tag_datagram_size},
        {"port", switch_schema::tag_port},
        {"default-sampling-rate", switch_schema::tag_default_sampling_rate},
    };
    for (const auto& [name, tag] : tags) EXPECT_EQ(sample::Table().NameOfTag(tag), name);
}

// Programs are compiled with these numbers, so they never change.
TEST(SchemaTags, KeepTheirNumbers)
{
    EXPECT_EQ(switch_schema::tag_collector, 1045927289U);
    EXPECT_EQ(switch_schema::tag_interface, 221572658U);
    EXPECT_EQ(switch_schema::tag_sampling_rate, 110935930U);
    EXPECT_EQ(switch_schema::tag_max_header_size, 228099567U);
    EXPECT_EQ(switch_schema::tag_polling_interval, 875618961U);
    EXPECT_EQ(switch_schema::tag_flow_sampling_collector, 180728652U);
    EXPECT_EQ(switch_schema::tag_counter_sampling_collector, 1381769666U);
    EXPECT_EQ(switch_schema::tag_enabled, 197426095U);
    EXPECT_EQ(switch_schema::tag_ipv4, 1643785435U);
    EXPECT_EQ(switch_schema::tag_ip, 268057062U);
    EXPECT_EQ(switch_schema::tag_datagram_size, 10387472U);
    EXPECT_EQ(switch_schema::tag_port, 254454410U);
    EXPECT_EQ(switch_schema::ns_switch_interfaces, 328607681);
    EXPECT_EQ(switch_schema::ns_switch_oam_sflow, 116992694);
}

}  // namespace
