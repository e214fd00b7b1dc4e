// What is read of the configuration that comes with the database's questions.

#include "manager/configured.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace manager {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Configuration, IsReadAsFarAsItIsNeeded)
{
    const auto read = ReadConfigured(R"({"switch-oam-sflow:sflow":{"agent":{"ipv4":"192.0.2.9"},
        "collector":[{"name":"c1","ip":"192.0.2.1"},{"name":"c2","enabled":false,"ip":"192.0.2.2"},
                     {"name":"c3","enabled":true,"ip":"192.0.2.3"}],
        "interface":[{"name":"eth1","sampling-rate":512,"default-sampling-rate":1000,
                      "flow-sampling-collector":[{"name":"c1"},{"name":"c2"}],
                      "counter-sampling-collector":[{"name":"c3"}]},
                     {"name":"eth2","default-sampling-rate":1000}]}})");
    ASSERT_TRUE(read);
    ASSERT_EQ(3U, read->collectors.size());
    EXPECT_TRUE(read->collectors.at("c1").enabled);
    EXPECT_FALSE(read->collectors.at("c2").enabled);
    EXPECT_TRUE(read->collectors.at("c3").enabled);
    ASSERT_EQ(2U, read->interfaces.size());
    EXPECT_TRUE(read->interfaces.at("eth1").ownRate);
    EXPECT_THAT(read->interfaces.at("eth1").Of(Kind::kFlow), ElementsAre("c1", "c2"));
    EXPECT_THAT(read->interfaces.at("eth1").Of(Kind::kCounter), ElementsAre("c3"));
    EXPECT_FALSE(read->interfaces.at("eth2").ownRate);
    EXPECT_THAT(read->interfaces.at("eth2").Of(Kind::kFlow), IsEmpty());
}

TEST(Configuration, MayBeEmpty)
{
    const auto read = ReadConfigured(R"({"switch-oam-sflow:sflow":{}})");
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->collectors.empty() && read->interfaces.empty());
}

TEST(Configuration, IsReadInAnyOrderAndBesideWhatIsNotNeeded)
{
    const auto read = ReadConfigured(
        R"({"x":{"collector":[{"name":"w"}]},"switch-oam-sflow:sflow":{"other":[{"name":"x"},[],5],
        "agent":{"collector":[{"name":"y"}],"name":"z"},
        "interface":[{"counter-sampling-collector":[{"more":[{"name":"n"}],"name":"c3"}],"sampling-rate":9,
                      "other":{"name":"x","sampling-rate":1},"name":"b"},{"name":"a"},{"name":"b"}],
        "collector":[{"enabled":false,"name":"c1","other":[{"enabled":true,"name":"q"}]}]}})");
    ASSERT_TRUE(read);
    ASSERT_EQ(1U, read->collectors.size());
    EXPECT_FALSE(read->collectors.at("c1").enabled);
    ASSERT_EQ(2U, read->interfaces.size());
    EXPECT_FALSE(read->interfaces.at("a").ownRate);
    EXPECT_FALSE(read->interfaces.at("b").ownRate) << "the last entry of a name counts";
    EXPECT_THAT(read->interfaces.at("b").Of(Kind::kCounter), IsEmpty());
}

TEST(Configuration, ThatIsNoneIsNotRead)
{
    for (const char* json :
         {"", "{", "[]", "null", "{}", R"({"other":{}})", R"({"switch-oam-sflow:sflow":5})",
          R"({"switch-oam-sflow:sflow":{"collector":[1]}})",
          R"({"switch-oam-sflow:sflow":{"collector":{"name":"c1"}}})",
          R"({"switch-oam-sflow:sflow":{"collector":[{"name":1}]}})",
          R"({"switch-oam-sflow:sflow":{"interface":[{"sampling-rate":1}]}})",
          R"({"switch-oam-sflow:sflow":{"interface":[[]]}})",
          R"({"switch-oam-sflow:sflow":{"interface":null}})", R"({"switch-oam-sflow:sflow":[]})",
          R"({"switch-oam-sflow:sflow":null})", "5", "[{}]",
          R"({"switch-oam-sflow:sflow":{"interface":[{"name":"a"}]})"})
        EXPECT_FALSE(ReadConfigured(json)) << json;
}

}  // namespace
}  // namespace manager
