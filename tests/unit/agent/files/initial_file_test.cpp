// SPDX-License-Identifier: Apache-2.0
// The first configuration from a file: both formats, and files that are refused.

#include "agent/files/configuration_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "agent/agent_world.h"

namespace agent_tests {
namespace {

using testing::HasSubstr;

class InitialFile : public testing::Test {
protected:
    std::vector<std::string> Load(const std::string& text)
    {
        std::ofstream(m_file, std::ios::binary) << text;
        return LoadFile();
    }

    std::vector<std::string> LoadFile()
    {
        return agent::LoadInitialFile(Schema(), *m_store, m_datastore, m_file, "operator", 1'000'000);
    }

    Directory m_directory;
    std::filesystem::path m_file = m_directory.Path() / "first";
    std::unique_ptr<cdb::Store> m_store = OpenStore(m_directory.Path());
    cdb::Datastore m_datastore{Schema(), *m_store};

private:
    static std::unique_ptr<cdb::Store> OpenStore(const std::filesystem::path& directory)
    {
        cdb::StoreOptions options;
        options.mapSize = std::size_t{1} << 24;
        return cdb::Store::Open(directory / "store", options);
    }
};

const std::string kJson = R"({"switch-config:config":{"switch-oam-sflow:oam":{"sflow":{
  "collector":[{"name":"c1","ip":"192.0.2.1"}],
  "interface":[{"name":"eth1"},{"name":"eth2","default-sampling-rate":5}]}}}})";

TEST_F(InitialFile, TakesJson)
{
    EXPECT_THAT(Load("\n " + kJson), testing::ElementsAre(HasSubstr("eth1")));
    EXPECT_EQ(m_store->LastCommit(), 1U);
    const auto history = m_store->History(1);
    ASSERT_EQ(history.size(), 1U);
    EXPECT_EQ(history[0].user, "operator");
    EXPECT_EQ(history[0].source, "init");
}

TEST_F(InitialFile, TakesXml)
{
    EXPECT_THAT(Load("<?xml version=\"1.0\"?>\n" + Sflow(Collector("c1"))), testing::IsEmpty());
    EXPECT_EQ(m_store->LastCommit(), 1U);
}

TEST_F(InitialFile, IsForAnEmptyStore)
{
    Load(kJson);
    EXPECT_THAT([this] { Load(kJson); },
                testing::ThrowsMessage<cdb::FatalError>(HasSubstr("has a configuration already")));
    EXPECT_EQ(m_store->LastCommit(), 1U);
}

struct BadFile {
    const char* name;
    std::string text;
    const char* message;
};

class BadInitialFile : public InitialFile, public testing::WithParamInterface<BadFile> {};

TEST_P(BadInitialFile, IsRefusedAndChangesNothing)
{
    EXPECT_THAT([this] { Load(GetParam().text); },
                testing::ThrowsMessage<cdb::FatalError>(
                    testing::AllOf(HasSubstr(m_file.string()), HasSubstr(GetParam().message))));
    EXPECT_TRUE(m_store->Empty());
    EXPECT_FALSE(m_datastore.Changed());
}

std::string InJson(const std::string& sflow)
{
    return "{\"switch-config:config\":{\"switch-oam-sflow:oam\":\n{\"sflow\":{" + sflow + "}}}}";
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadInitialFile,
    testing::Values(
        BadFile{"Empty", " \n", "it is empty"}, BadFile{"Neither", "config", "neither JSON"},
        BadFile{"MalformedJson", "{\n \"a\": ]\n}", "line 2, column 7"},
        BadFile{"MalformedXml", "<config>\n <a>\n</config>", "line 3, column 3"},
        BadFile{"DeepJson", InJson("\"collector\":" + std::string(1000, '[') + std::string(1000, ']')),
                "an array where \"collector\" can't have one"},
        BadFile{"TwinsWithoutNamespace", "<a xmlns=''/><a xmlns='urn:x'/>",
                "line 1, column 1: element \"a\" has"},
        BadFile{"KeyTwice", InJson(R"("collector":[{"name":"c7","name":"c8"}])"), "given twice"},
        BadFile{"UnknownLeaf", InJson(R"("speed":1)"), "speed"},
        BadFile{"UnknownModule", R"({"other:config":{}})", "other"},
        BadFile{"OutOfRange", InJson(R"("collector":[{"name":"c1","ip":"192.0.2.1","port":0}])"), "0"},
        BadFile{"MissingLeaf", InJson(R"("collector":[{"name":"c1"}])"), "ip"},
        BadFile{"MissingCollector",
                InJson(R"("interface":[{"name":"e","flow-sampling-collector":[{"name":"c1"}]}])"), "c1"},
        BadFile{"State", R"({"switch-state:state":{"system":{}}})", "state"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(InitialFile, ThatIsMissingIsNamed)
{
    EXPECT_THAT([this] { LoadFile(); }, testing::ThrowsMessage<cdb::FatalError>(testing::AllOf(
                                            HasSubstr(m_file.string()), HasSubstr("No such file"))));
}

TEST_F(InitialFile, ThatIsADirectoryIsNamed)
{
    m_file = m_directory.Path();
    EXPECT_THAT([this] { LoadFile(); }, testing::ThrowsMessage<cdb::FatalError>(HasSubstr("directory")));
}

}  // namespace
}  // namespace agent_tests
