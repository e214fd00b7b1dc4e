// SPDX-License-Identifier: Apache-2.0
// Sequences of operations: what is held after them, and what observers were told of the last one.

#include "manager/service/state.h"

#include <gtest/gtest.h>

#include "manager/recorder.h"

namespace manager {
namespace {

struct OperationRow {
    const char* name;
    std::vector<Operation> before;
    Operation last;
    Texts held;
    Texts changes;  // of the last operation
};

void PrintTo(const OperationRow& row, std::ostream* out) { *out << row.name; }

class StateOperations : public testing::TestWithParam<OperationRow> {};

TEST_P(StateOperations, LeaveAndTellWhatTheyShould)
{
    State state;
    Recorder recorder;
    state.AddObserver(recorder);
    for (const auto& operation : GetParam().before) EXPECT_EQ("", state.Apply(operation));
    recorder.Take();
    EXPECT_EQ("", state.Apply(GetParam().last));
    EXPECT_EQ(GetParam().held, Held(state));
    EXPECT_EQ(GetParam().changes, recorder.Take());
    // A second time it changes nothing, and nobody hears of it.
    EXPECT_EQ("", state.Apply(GetParam().last));
    EXPECT_EQ(GetParam().held, Held(state));
    EXPECT_EQ(Texts{}, recorder.Take());
}

const OperationRow kOperationRows[] = {
    {"AgentAddressIsSet", {}, Agent("192.0.2.9"), {"agent 192.0.2.9"}, {"agent 192.0.2.9"}},
    {"AgentAddressIsReplaced",
     {Agent("192.0.2.9")},
     Agent("10.0.0.5"),
     {"agent 10.0.0.5"},
     {"agent 10.0.0.5"}},
    {"AgentAddressZeroIsOne", {}, Agent("0.0.0.0"), {"agent 0.0.0.0"}, {"agent 0.0.0.0"}},
    {"CollectorIsAdded", {}, Add("c1"), {"c1 192.0.2.1 6343 1400"}, {"collector c1 192.0.2.1 6343 1400"}},
    {"CollectorWithAllZeroSettingsIsNewsToo",
     {},
     Add("c1", "0.0.0.0", 0, 0),
     {"c1 0.0.0.0 0 0"},
     {"collector c1 0.0.0.0 0 0"}},
    {"CollectorIsReplacedByOneOfItsName",
     {Add("c1"), Add("c2")},
     Add("c1", "192.0.2.7", 1, 200),
     {"c1 192.0.2.7 1 200", "c2 192.0.2.1 6343 1400"},
     {"collector c1 192.0.2.7 1 200"}},
    {"DeletedCollectorLeavesAttachments",
     {Add("c1"), Update("eth1", "c1", "c1")},
     Delete("c1"),
     {"eth1 4096 2 128 20 flow c1 counter c1"},
     {"collector c1 gone"}},
    {"AddedCollectorLeavesAttachments",
     {Update("eth1", "c1", "c2")},
     Add("c1"),
     {"c1 192.0.2.1 6343 1400", "eth1 4096 2 128 20 flow c1 counter c2"},
     {"collector c1 192.0.2.1 6343 1400"}},
    {"DeletedCollectorThatIsNotThere", {Add("c1")}, Delete("c2"), {"c1 192.0.2.1 6343 1400"}, {}},
    {"UpdateCreatesTheInterfaceAndAttaches",
     {},
     Update("eth1", "c1", "c2"),
     {"eth1 4096 2 128 20 flow c1 counter c2"},
     {"interface eth1 4096 2 128 20", "eth1 + flow c1", "eth1 + counter c2"}},
    {"UpdateWithoutCollectorsCreatesTheInterface",
     {},
     Update("eth1"),
     {"eth1 4096 2 128 20"},
     {"interface eth1 4096 2 128 20"}},
    {"UpdateSetsNumbersAndRemovesNoCollector",
     {Update("eth1", "c1", "c2")},
     Update("eth1", "", "", 512),
     {"eth1 512 2 128 20 flow c1 counter c2"},
     {"interface eth1 512 2 128 20"}},
    {"UpdateAddsToTheCollectorsThereAre",
     {Update("eth1", "c1", "c2")},
     Update("eth1", "c3", "c1"),
     {"eth1 4096 2 128 20 flow c1 flow c3 counter c1 counter c2"},
     {"eth1 + flow c3", "eth1 + counter c1"}},
    {"AttachmentForSamples",
     {Update("eth1")},
     AddFlow("eth1", "c1"),
     {"eth1 4096 2 128 20 flow c1"},
     {"eth1 + flow c1"}},
    {"AttachmentForCounters",
     {Update("eth1", "c1")},
     AddCounter("eth1", "c1"),
     {"eth1 4096 2 128 20 flow c1 counter c1"},
     {"eth1 + counter c1"}},
    {"DetachmentForSamplesLeavesCounters",
     {Update("eth1", "c1", "c1")},
     RemoveFlow("eth1", "c1"),
     {"eth1 4096 2 128 20 counter c1"},
     {"eth1 - flow c1"}},
    {"DetachmentForCountersLeavesSamples",
     {Update("eth1", "c1", "c1")},
     RemoveCounter("eth1", "c1"),
     {"eth1 4096 2 128 20 flow c1"},
     {"eth1 - counter c1"}},
    {"DetachmentOfTheLastLeavesTheInterface",
     {Update("eth1", "c1")},
     RemoveFlow("eth1", "c1"),
     {"eth1 4096 2 128 20"},
     {"eth1 - flow c1"}},
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
     {"interface eth1 gone"}},
    {"UnsetOfAnInterfaceThatIsNotThere", {Update("eth2")}, Unset("eth1"), {"eth2 4096 2 128 20"}, {}},
    {"NamesMayHaveWhatTheModelAllows",
     {},
     Update("xe-0/0/1:2.100%a\\b", "c/1"),
     {"xe-0/0/1:2.100%a\\b 4096 2 128 20 flow c/1"},
     {"interface xe-0/0/1:2.100%a\\b 4096 2 128 20", "xe-0/0/1:2.100%a\\b + flow c/1"}},
};

INSTANTIATE_TEST_SUITE_P(Table, StateOperations, testing::ValuesIn(kOperationRows),
                         [](const auto& row) { return std::string(row.param.name); });

struct Refused {
    const char* name;
    Operation operation;
    const char* reason;
};

void PrintTo(const Refused& row, std::ostream* out) { *out << row.name; }

class StateRefusals : public testing::TestWithParam<Refused> {};

TEST_P(StateRefusals, ChangeNothingAndSayWhy)
{
    State state;
    Recorder recorder;
    state.Apply(Update("eth1", "c1"));
    state.AddObserver(recorder);
    EXPECT_NE(std::string::npos, state.Apply(GetParam().operation).find(GetParam().reason))
        << state.Apply(GetParam().operation);
    EXPECT_EQ(Texts{"eth1 4096 2 128 20 flow c1"}, Held(state));
    EXPECT_EQ(Texts{}, recorder.Take());
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

INSTANTIATE_TEST_SUITE_P(Table, StateRefusals, testing::ValuesIn(kRefused),
                         [](const auto& row) { return std::string(row.param.name); });

constexpr State::Limits kFew{2, 3, 4};

TEST(StateLimits, MoreCollectorsAreRefusedAndThoseThereCanStillChange)
{
    State state(kFew);
    EXPECT_EQ("", state.Apply(Add("c1")));
    EXPECT_EQ("", state.Apply(Add("c2")));
    EXPECT_EQ("there are 2 collectors already, the most that the manager keeps", state.Apply(Add("c3")));
    EXPECT_EQ(2U, state.Collectors().size());
    EXPECT_EQ("", state.Apply(Add("c1", "192.0.2.7")));
    EXPECT_EQ("", state.Apply(Delete("c1")));
    EXPECT_EQ("", state.Apply(Add("c3")));
}

TEST(StateLimits, MoreInterfacesAreRefusedAndThoseThereCanStillChange)
{
    State state(kFew);
    for (const auto* name : {"e1", "e2", "e3"}) EXPECT_EQ("", state.Apply(Update(name)));
    EXPECT_EQ("there are 3 interfaces already, the most that the manager keeps", state.Apply(Update("e4")));
    EXPECT_EQ(3U, state.Interfaces().size());
    EXPECT_EQ("", state.Apply(Update("e1", "c1", "", 7)));
    EXPECT_EQ("", state.Apply(Unset("e1")));
    EXPECT_EQ("", state.Apply(Update("e4")));
}

TEST(StateLimits, MoreAttachmentsAreRefusedAndThoseThereCanBeNamedAgain)
{
    const std::string refusal = "there are 4 attachments already, the most that the manager keeps";
    State state(kFew);
    EXPECT_EQ("", state.Apply(Update("e1", "c1", "c1")));
    EXPECT_EQ("", state.Apply(Update("e2", "c1")));
    EXPECT_EQ(refusal, state.Apply(Update("e2", "c2", "c2")));
    EXPECT_EQ("", state.Apply(AddCounter("e2", "c1")));
    EXPECT_EQ(refusal, state.Apply(AddFlow("e2", "c2")));
    EXPECT_EQ(refusal, state.Apply(Update("e3", "", "c2")));
    EXPECT_EQ((Texts{"e1 4096 2 128 20 flow c1 counter c1", "e2 4096 2 128 20 flow c1 counter c1"}),
              Held(state));
    EXPECT_EQ("", state.Apply(Update("e1", "c1", "c1", 7)));
    EXPECT_EQ("", state.Apply(AddFlow("e2", "c1")));
    EXPECT_EQ("", state.Apply(Update("e3")));
    EXPECT_EQ("", state.Apply(Unset("e1")));
    EXPECT_EQ("", state.Apply(Update("e3", "c2", "c2")));
    EXPECT_EQ(refusal, state.Apply(AddFlow("e2", "c2")));
    EXPECT_EQ("", state.Apply(RemoveFlow("e3", "c2")));
    EXPECT_EQ("", state.Apply(AddFlow("e2", "c2")));
}

}  // namespace
}  // namespace manager
