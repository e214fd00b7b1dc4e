// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/interfaces_text.h"

#include <gtest/gtest.h>

#include "cli/yang.h"

namespace {

using cli_test::FromJson;

constexpr const char* kKernelState = R"({"switch-state:state":{"oam":{"sflow":{
    "interface":[{"name":"gigabit-ethernet-1/1/2","sampling-rate":1000,"kernel-interface":"p2",
                  "packet-source":"packet-socket"},
                 {"name":"gigabit-ethernet-1/1/10","sampling-rate":0,"kernel-interface":"p10",
                  "packet-source":"none","problem":["interface-down"]},
                 {"name":"gone","sampling-rate":1000,"packet-source":"none","problem":["interface-missing"]}],
    "kernel-interface":[
        {"name":"lo","ifindex":1,"admin-status":"up","oper-status":"up"},
        {"name":"p10","ifindex":12,"alias":"gigabit-ethernet-1/1/10","kind":"veth","speed":"10000000000",
         "admin-status":"up","oper-status":"down"},
        {"name":"p2","ifindex":3,"alias":"gigabit-ethernet-1/1/2","kind":"veth","speed":"2500000000",
         "admin-status":"up","oper-status":"up"},
        {"name":"p3","ifindex":4,"alternative-name":["untold"],"admin-status":"down","oper-status":"down"}],
    "problem":[{"subject":"interface","name":"untold","reason":"not-loaded","severity":"broken","text":"x"},
               {"subject":"interface","name":"gone","reason":"interface-missing","severity":"broken",
                "text":"x"}]}}}})";

TEST(Interfaces, ConfiguredOrNotWithWhatIsSampled)
{
    EXPECT_EQ(
        cli::InterfacesTable(FromJson(kKernelState).get(), 120),
        R"(Name  Alias                    Speed  State    Sampled                Configured as            Kind  Index
lo    -                        -      up       no: not configured     -                        -     1
p2    gigabit-ethernet-1/1/2   2.5G   up       1 in 1000              gigabit-ethernet-1/1/2   veth  3
p3    -                        -      down     no: not-loaded         untold                   -     4
p10   gigabit-ethernet-1/1/10  10G    no link  no: interface-down     gigabit-ethernet-1/1/10  veth  12
-     -                        -      missing  no: interface-missing  gone                     -     -
)");
}

TEST(Interfaces, NarrowLinesHaveFewerColumns)
{
    EXPECT_EQ(cli::InterfacesTable(FromJson(kKernelState).get(), 79),
              R"(Name  Speed  State    Sampled                Configured as
lo    -      up       no: not configured     -
p2    2.5G   up       1 in 1000              gigabit-ethernet-1/1/2
p3    -      down     no: not-loaded         untold
p10   10G    no link  no: interface-down     gigabit-ethernet-1/1/10
-     -      missing  no: interface-missing  gone
)");
    EXPECT_EQ(cli::InterfacesTable(FromJson(kKernelState).get(), 40),
              R"(Name  State    Sampled
lo    up       no: not configured
p2    up       1 in 1000
p3    down     no: not-loaded
p10   no link  no: interface-down
-     missing  no: interface-missing
)");
}

TEST(Interfaces, WithoutAManagerNothingIsClaimed)
{
    EXPECT_EQ(cli::InterfacesTable(nullptr, 79),
              "No state of interfaces: the sFlow manager is not connected to the database.\n");
}

TEST(Interfaces, SpeedsAreShort)
{
    EXPECT_EQ(cli::SpeedText(10'000'000), "10M");
    EXPECT_EQ(cli::SpeedText(2'500'000'000), "2.5G");
    EXPECT_EQ(cli::SpeedText(400'000'000'000), "400G");
    EXPECT_EQ(cli::SpeedText(56), "56");
}

}  // namespace
