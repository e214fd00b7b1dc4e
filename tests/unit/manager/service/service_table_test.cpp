// SPDX-License-Identifier: Apache-2.0
// Sequences of operations: what is held after them, and what the last one touched.

#include "manager/service/service_table.h"

#include <gtest/gtest.h>

#include "manager/recorder.h"

namespace manager {
namespace {

struct OperationRow {
    const char* name;
    std::vector<Operation> before;
    Operation last;
    Texts held;
    Texts touched;  // by the last operation
};

void PrintTo(const OperationRow& row, std::ostream* out) { *out << row.name; }

class TableOperations : public testing::TestWithParam<OperationRow> {};

TEST_P(TableOperations, LeaveAndTouchWhatTheyShould)
{
    ServiceTable table;
    for (const auto& operation : GetParam().before) EXPECT_EQ("", ReasonOf(table.Apply(operation)));
    EXPECT_EQ(GetParam().touched, Text(table.Apply(GetParam().last)));
    EXPECT_EQ(GetParam().held, Held(table));
    // A second time it changes and touches nothing.
    EXPECT_EQ(Texts{}, Text(table.Apply(GetParam().last)));
    EXPECT_EQ(GetParam().held, Held(table));
}

const OperationRow kOperationRows[] = {
    {"AgentAddressIsSet", {}, Agent("192.0.2.9"), {"agent 192.0.2.9"}, {"agent"}},
    {"AgentAddressIsReplaced", {Agent("192.0.2.9")}, Agent("10.0.0.5"), {"agent 10.0.0.5"}, {"agent"}},
    {"AgentAddressZeroIsOne", {}, Agent("0.0.0.0"), {"agent 0.0.0.0"}, {"agent"}},
    {"CollectorIsAdded", {}, Add("c1"), {"c1 192.0.2.1 6343 1400"}, {"collector c1"}},
    {"CollectorWithAllZeroSettingsIsNewsToo",
     {},
     Add("c1", "0.0.0.0", 0, 0),
     {"c1 0.0.0.0 0 0"},
     {"collector c1"}},
    {"CollectorIsReplacedByOneOfItsName",
     {Add("c1"), Add("c2")},
     Add("c1", "192.0.2.7", 1, 200),
     {"c1 192.0.2.7 1 200", "c2 192.0.2.1 6343 1400"},
     {"collector c1"}},
    {"DeletedCollectorLeavesAttachments",
     {Add("c1"), Update("eth1", "c1", "c1")},
     Delete("c1"),
     {"eth1 4096 2 128 20 flow c1 counter c1"},
     {"collector c1"}},
    {"AddedCollectorLeavesAttachments",
     {Update("eth1", "c1", "c2")},
     Add("c1"),
     {"c1 192.0.2.1 6343 1400", "eth1 4096 2 128 20 flow c1 counter c2"},
     {"collector c1"}},
    {"DeletedCollectorThatIsNotThere", {Add("c1")}, Delete("c2"), {"c1 192.0.2.1 6343 1400"}, {}},
    {"UpdateCreatesTheInterfaceAndAttaches",
     {},
     Update("eth1", "c1", "c2"),
     {"eth1 4096 2 128 20 flow c1 counter c2"},
     {"interface eth1"}},
    {"UpdateWithoutCollectorsCreatesTheInterface",
     {},
     Update("eth1"),
     {"eth1 4096 2 128 20"},
     {"interface eth1"}},
    {"UpdateSetsNumbersAndRemovesNoCollector",
     {Update("eth1", "c1", "c2")},
     Update("eth1", "", "", 512),
     {"eth1 512 2 128 20 flow c1 counter c2"},
     {"interface eth1"}},
    {"UpdateAddsToTheCollectorsThereAre",
     {Update("eth1", "c1", "c2")},
     Update("eth1", "c3", "c1"),
     {"eth1 4096 2 128 20 flow c1 flow c3 counter c1 counter c2"},
     {"interface eth1"}},
    {"AttachmentForSamples",
     {Update("eth1")},
     AddFlow("eth1", "c1"),
     {"eth1 4096 2 128 20 flow c1"},
     {"interface eth1"}},
    {"AttachmentForCounters",
     {Update("eth1", "c1")},
     AddCounter("eth1", "c1"),
     {"eth1 4096 2 128 20 flow c1 counter c1"},
     {"interface eth1"}},
    {"DetachmentForSamplesLeavesCounters",
     {Update("eth1", "c1", "c1")},
     RemoveFlow("eth1", "c1"),
     {"eth1 4096 2 128 20 counter c1"},
     {"interface eth1"}},
    {"DetachmentForCountersLeavesSamples",
     {Update("eth1", "c1", "c1")},
     RemoveCounter("eth1", "c1"),
     {"eth1 4096 2 128 20 flow c1"},
     {"interface eth1"}},
    {"DetachmentOfTheLastLeavesTheInterface",
     {Update("eth1", "c1")},
     RemoveFlow("eth1", "c1"),
     {"eth1 4096 2 128 20"},
     {"interface eth1"}},
    {"DetachmentOfWhatIsNotAttached",
     {Update("eth1", "c1")},
     RemoveFlow("eth1", "c2"),
     {"eth1 4096 2 128 20 flow c1"},
     {}},
    {"DetachmentFromAnInterfaceThatIsNotThere", {}, RemoveCounter("eth1", "c2"), {}, {}},
    {"UnsetForgetsTheInterfaceWithItsAttachments",
     {Update("eth1", "c1", "c2"), Update("eth2", "c1")},
     Unset("eth1"),
     {"eth2 4096 2 128 20 flow c1"},
     {"interface eth1"}},
    {"UnsetOfAnInterfaceThatIsNotThere", {Update("eth2")}, Unset("eth1"), {"eth2 4096 2 128 20"}, {}},
    {"NamesMayHaveWhatTheModelAllows",
     {},
     Update("xe-0/0/1:2.100%a\\b", "c/1"),
     {"xe-0/0/1:2.100%a\\b 4096 2 128 20 flow c/1"},
     {"interface xe-0/0/1:2.100%a\\b"}},
};

INSTANTIATE_TEST_SUITE_P(Table, TableOperations, testing::ValuesIn(kOperationRows),
                         [](const auto& row) { return std::string(row.param.name); });

struct Refused {
    const char* name;
    Operation operation;
    const char* reason;
};

void PrintTo(const Refused& row, std::ostream* out) { *out << row.name; }

class TableRefusals : public testing::TestWithParam<Refused> {};

TEST_P(TableRefusals, ChangeNothingAndSayWhy)
{
    ServiceTable table;
    EXPECT_EQ(Texts{"interface eth1"}, Text(table.Apply(Update("eth1", "c1"))));
    const std::string reason = ReasonOf(table.Apply(GetParam().operation));
    EXPECT_NE(std::string::npos, reason.find(GetParam().reason)) << reason;
    EXPECT_EQ(Texts{"eth1 4096 2 128 20 flow c1"}, Held(table));
}

const Refused kRefused[] = {
    {"AttachmentToAnUnknownInterface", AddFlow("eth9", "c1"), "interface eth9 is not known"},
    {"EmptyCollectorName", Add(""), "a collector's name is empty"},
    {"CollectorNameWithPercent", Add("c%1"), "a collector's name"},
    {"CollectorNameWithBlank", Add("c 1"), "a collector's name"},
    {"CollectorNameWithLineEnd", Add("c\n1"), "a collector's name"},
    {"CollectorNameBeyondAscii", Add("c\xc3\xa9"), "a collector's name"},
    {"AttachedNameWithBrace", AddCounter("eth1", "c{1"), "a collector's name"},
    {"EmptyAttachedName", AddCounter("eth1", ""), "a collector's name"},
    {"UpdateWithABadSampleCollector", Update("eth1", "c;", "", 1), "a collector's name"},
    {"UpdateWithABadCounterCollector", Update("eth1", "", "c|", 1), "a collector's name"},
    {"EmptyInterfaceName", Update(""), "an interface's name is empty"},
    {"InterfaceNameWithQuote", Update("eth\"1"), "an interface's name"},
    {"InterfaceNameWithZeroByte", Update(std::string("eth\0", 4)), "an interface's name"},
};

INSTANTIATE_TEST_SUITE_P(Table, TableRefusals, testing::ValuesIn(kRefused),
                         [](const auto& row) { return std::string(row.param.name); });

constexpr ServiceTable::Limits kFew{2, 3, 4};

TEST(TableLimits, MoreCollectorsAreRefusedAndThoseThereCanStillChange)
{
    ServiceTable table(kFew);
    EXPECT_EQ("", ReasonOf(table.Apply(Add("c1"))));
    EXPECT_EQ("", ReasonOf(table.Apply(Add("c2"))));
    EXPECT_EQ("there are 2 collectors already, the most that the manager keeps",
              ReasonOf(table.Apply(Add("c3"))));
    EXPECT_EQ(2U, table.AllCollectors().size());
    EXPECT_EQ("", ReasonOf(table.Apply(Add("c1", "192.0.2.7"))));
    EXPECT_EQ("", ReasonOf(table.Apply(Delete("c1"))));
    EXPECT_EQ("", ReasonOf(table.Apply(Add("c3"))));
}

TEST(TableLimits, MoreInterfacesAreRefusedAndThoseThereCanStillChange)
{
    ServiceTable table(kFew);
    for (const auto* name : {"e1", "e2", "e3"}) EXPECT_EQ("", ReasonOf(table.Apply(Update(name))));
    EXPECT_EQ("there are 3 interfaces already, the most that the manager keeps",
              ReasonOf(table.Apply(Update("e4"))));
    EXPECT_EQ(3U, table.AllInterfaces().size());
    EXPECT_EQ("", ReasonOf(table.Apply(Update("e1", "c1", "", 7))));
    EXPECT_EQ("", ReasonOf(table.Apply(Unset("e1"))));
    EXPECT_EQ("", ReasonOf(table.Apply(Update("e4"))));
}

TEST(TableLimits, MoreAttachmentsAreRefusedAndThoseThereCanBeNamedAgain)
{
    const std::string refusal = "there are 4 attachments already, the most that the manager keeps";
    ServiceTable table(kFew);
    EXPECT_EQ("", ReasonOf(table.Apply(Update("e1", "c1", "c1"))));
    EXPECT_EQ("", ReasonOf(table.Apply(Update("e2", "c1"))));
    EXPECT_EQ(refusal, ReasonOf(table.Apply(Update("e2", "c2", "c2"))));
    EXPECT_EQ("", ReasonOf(table.Apply(AddCounter("e2", "c1"))));
    EXPECT_EQ(refusal, ReasonOf(table.Apply(AddFlow("e2", "c2"))));
    EXPECT_EQ(refusal, ReasonOf(table.Apply(Update("e3", "", "c2"))));
    EXPECT_EQ((Texts{"e1 4096 2 128 20 flow c1 counter c1", "e2 4096 2 128 20 flow c1 counter c1"}),
              Held(table));
    EXPECT_EQ("", ReasonOf(table.Apply(Update("e1", "c1", "c1", 7))));
    EXPECT_EQ("", ReasonOf(table.Apply(AddFlow("e2", "c1"))));
    EXPECT_EQ("", ReasonOf(table.Apply(Update("e3"))));
    EXPECT_EQ("", ReasonOf(table.Apply(Unset("e1"))));
    EXPECT_EQ("", ReasonOf(table.Apply(Update("e3", "c2", "c2"))));
    EXPECT_EQ(refusal, ReasonOf(table.Apply(AddFlow("e2", "c2"))));
    EXPECT_EQ("", ReasonOf(table.Apply(RemoveFlow("e3", "c2"))));
    EXPECT_EQ("", ReasonOf(table.Apply(AddFlow("e2", "c2"))));
}

TEST(TableUsers, AreTheInterfacesThatNameACollectorForAnyKind)
{
    const auto users = [](const ServiceTable& table) {
        Texts texts;
        for (const auto& [collector, interfaces] : table.AllUsers())
            for (const auto interface : interfaces) texts.push_back(collector + " " + std::string(interface));
        return texts;
    };
    ServiceTable table;
    for (const auto& operation : {Update("e2", "c1", "c1"), Update("e1", "c2", "c1"), AddFlow("e1", "c1")})
        EXPECT_EQ("", ReasonOf(table.Apply(operation)));
    EXPECT_EQ((Texts{"c1 e1", "c1 e2", "c2 e1"}), users(table));
    EXPECT_EQ("", ReasonOf(table.Apply(RemoveFlow("e2", "c1"))));
    EXPECT_EQ((Texts{"c1 e1", "c1 e2", "c2 e1"}), users(table)) << "for counters it stays";
    EXPECT_EQ("", ReasonOf(table.Apply(RemoveCounter("e2", "c1"))));
    EXPECT_EQ((Texts{"c1 e1", "c2 e1"}), users(table));
    EXPECT_EQ(1U, table.UsersOf("c2").size());
    table.BeginSession();
    EXPECT_EQ("", ReasonOf(table.Apply(Update("e1", "c2"))));
    EXPECT_EQ((Texts{"interface e1", "interface e2"}), Text(table.Sweep()));
    EXPECT_EQ(Texts{"c2 e1"}, users(table));
    EXPECT_EQ("", ReasonOf(table.Apply(Unset("e1"))));
    EXPECT_EQ(Texts{}, users(table));
    EXPECT_TRUE(table.UsersOf("c2").empty());
}

}  // namespace
}  // namespace manager
