// SPDX-License-Identifier: Apache-2.0
// The configuration to a file and from one.

#include "agent/files/configuration_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "agent/agent_world.h"

namespace agent_tests {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class ExportedFile : public testing::Test {
protected:
    ExportedFile() { Open(); }

    void Open()
    {
        m_datastore.reset();
        m_store.reset();
        m_store = cdb::Store::Open(m_directory.Path() / "store", {.mapSize = std::size_t{1} << 24});
        m_datastore = std::make_unique<cdb::Datastore>(Schema(), *m_store);
    }

    std::filesystem::path Write(const std::string& name, const std::string& text)
    {
        const auto file = m_directory.Path() / name;
        std::ofstream(file, std::ios::binary) << text;
        return file;
    }

    bool Import(const std::filesystem::path& file)
    {
        return agent::ImportFile(Schema(), *m_datastore, file, "operator", 1'000'000);
    }

    /// What is written to the file, or to standard output; the switch is stopped meanwhile, because a
    /// process opens a store only once.
    std::string Export(const std::string& name)
    {
        m_datastore.reset();
        m_store.reset();
        std::ostringstream out;
        const std::filesystem::path file = name == "-" ? name : (m_directory.Path() / name).string();
        agent::ExportFile(Schema(), m_directory.Path() / "store", file, out);
        Open();
        if (name == "-") return out.str();
        EXPECT_EQ(out.str(), "");
        std::ifstream in(file);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    Directory m_directory;
    std::unique_ptr<cdb::Store> m_store;
    std::unique_ptr<cdb::Datastore> m_datastore;
};

const std::string kXml =
    Sflow(Collector("c2") + Collector("c1", "<ip>192.0.2.1</ip><port>7</port>") +
          Interface("eth1", "<flow-sampling-collector><name>c1</name></flow-sampling-collector>"));

TEST_F(ExportedFile, IsWhatMakesTheSameStoreInEitherForm)
{
    EXPECT_TRUE(Import(Write("first", kXml)));
    const std::string json = Export("a.json");
    const std::string xml = Export("a.xml");
    EXPECT_EQ(Export("-"), json);
    EXPECT_THAT(
        json, AllOf(HasSubstr("\"switch-config:config\""), HasSubstr("\"port\": 7"), Not(HasSubstr("6343"))));
    EXPECT_THAT(xml, AllOf(HasSubstr("<port>7</port>"), Not(HasSubstr("6343"))));
    EXPECT_LT(json.find("\"c1\""), json.find("\"c2\""));
    for (const auto& text : {json, xml}) {
        EXPECT_FALSE(Import(Write("again", text)));  // it is that already
        EXPECT_EQ(m_store->LastCommit(), 1U);
    }
}

TEST_F(ExportedFile, OfAnEmptyStoreCanBeImported)
{
    const std::string json = Export("a.json");
    const std::string xml = Export("a.xml");
    EXPECT_TRUE(Import(Write("some", kXml)));
    EXPECT_TRUE(Import(Write("none", json)));
    EXPECT_TRUE(Import(Write("some", kXml)));
    EXPECT_TRUE(Import(Write("none", xml)));
    EXPECT_EQ(Export("b.xml"), xml);
    EXPECT_EQ(m_store->LastCommit(), 4U);
}

TEST_F(ExportedFile, ReplacesAllAndKeepsTheHistory)
{
    EXPECT_TRUE(Import(Write("first", kXml)));
    EXPECT_TRUE(Import(Write("second", Sflow(Collector("c9")))));
    const auto history = m_store->History(5);
    ASSERT_EQ(history.size(), 2U);
    EXPECT_EQ(history[0].source, "import");
    EXPECT_EQ(history[0].user, "operator");
    EXPECT_THAT(Export("-"), AllOf(HasSubstr("c9"), Not(HasSubstr("c1")), Not(HasSubstr("eth1"))));
}

TEST_F(ExportedFile, ThatIsNotValidChangesNothing)
{
    EXPECT_TRUE(Import(Write("first", kXml)));
    const std::string before = Export("-");
    for (const auto& bad :
         {Sflow(Interface("eth1", "<flow-sampling-collector><name>none</name></flow-sampling-collector>")),
          Sflow("<collector><name>c1</name></collector>"), std::string("<config"), std::string()})
        EXPECT_THROW(Import(Write("bad", bad)), cdb::FatalError) << bad;
    EXPECT_FALSE(m_datastore->Changed());
    EXPECT_EQ(Export("-"), before);
    EXPECT_EQ(m_store->LastCommit(), 1U);
}

TEST_F(ExportedFile, HasAnEndingAndAPlace)
{
    EXPECT_THAT([this] { Export("a.txt"); },
                testing::ThrowsMessage<cdb::FatalError>(HasSubstr(".json or .xml")));
    Open();
    EXPECT_THAT([this] { Export("none/a.json"); }, testing::ThrowsMessage<cdb::FatalError>(AllOf(
                                                       HasSubstr("a.json"), HasSubstr("No such file"))));
    Write("a.json", "something else");
    Open();
    EXPECT_THAT(Export("a.json"), HasSubstr("{"));
    std::size_t files = 0;
    for (const auto& each : std::filesystem::directory_iterator(m_directory.Path()))
        files += each.is_regular_file() ? 1U : 0U;
    EXPECT_EQ(files, 1U);  // nothing is left beside it
}

TEST(Backup, IsMadeWhileTheStoreIsInUse)
{
    const Directory directory;
    const std::string file = directory.Path() / "data.mdb";
    World world;
    auto client = world.Connect();
    Do(client, netconf::EditConfig(Sflow(Collector("c1"))));
    Do(client, netconf::Commit());
    Do(client, netconf::Backup(file));
    EXPECT_THAT(Refused(client, netconf::Backup(file), "data-exists").message, HasSubstr(file));
    Refused(client, netconf::Backup("relative/path"), "invalid-value");
    Refused(client, netconf::Backup("/no/such/directory/file"), "invalid-value");
    const auto copy = cdb::StoreReader::Open(directory.Path());
    EXPECT_EQ(copy->Read().Commit(), 1U);
    EXPECT_TRUE(copy->Read().Get({copy->Schema().Find("/config/oam/sflow/collector"), {"c1"}}));
}

TEST_F(ExportedFile, WhatIsImportedIsNotRolledBackWithWhatWaitedForAConfirmation)
{
    const auto file = Write("a.xml", Sflow(Collector("c1")));
    for (const bool changes : {true, false}) {
        ASSERT_EQ(m_store->SetPending(cdb::PendingCommit{.last = m_store->LastCommit()}), std::nullopt);
        EXPECT_EQ(Import(file), changes);
        EXPECT_EQ(m_store->Pending(), std::nullopt) << changes;
    }
    // One that is refused leaves it.
    const cdb::PendingCommit waiting{.last = m_store->LastCommit()};
    ASSERT_EQ(m_store->SetPending(waiting), std::nullopt);
    EXPECT_THROW(Import(Write("c.xml", Sflow("<no-such-thing/>"))), cdb::FatalError);
    EXPECT_THROW(Import(Write("d.xml", Sflow(Interface("eth1",
                                                       "<flow-sampling-collector><name>none</name>"
                                                       "</flow-sampling-collector>")))),
                 cdb::FatalError);
    EXPECT_EQ(m_store->Pending(), waiting);
}

}  // namespace
}  // namespace agent_tests
