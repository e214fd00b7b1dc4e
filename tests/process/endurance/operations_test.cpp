// SPDX-License-Identifier: Apache-2.0
// Every operation of the service while packets flow at 1:1 on two ports: what it does, and that it loses and
// doubles nothing of what it does not concern. Port p1 and collector "a" are what operations are about;
// port p2 and collector "b" stand by. "c" is a collector that is not configured at first.

#include <algorithm>
#include <iterator>
#include <ostream>
#include <string>
#include <tuple>

#include "endurance/operations_world.h"

namespace endurance {
namespace {

struct Operation {
    const char* name;
    /// Carries it out, amid traffic before and behind it.
    void (*apply)(OperationsWorld&);
    /// What it must have done, when traffic has ended.
    void (*expect)(OperationsWorld&);
    /// What it concerns; of the rest every frame must have come once.
    Concerns concerns;
};

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

void Nothing(OperationsWorld&) {}

const Operation kOperations[] = {
    {"AgentAddress",
     [](OperationsWorld& w) { w.Service().SetAgentAddress("192.0.2.77"); },
     [](OperationsWorld& w) {
         for (DecodingCollector* one : {&w.a, &w.b}) {
             EXPECT_EQ(one->Arrivals().front().datagram.agent, "192.0.2.1");
             EXPECT_EQ(one->Arrivals().back().datagram.agent, "192.0.2.77");
             EXPECT_EQ(FaultInDatagrams(one->Arrivals()), "");
         }
     },
     {}},
    {"CollectorAddedAndNotAttached",
     [](OperationsWorld& w) { w.world.AddCollector("c", w.c); },
     [](OperationsWorld& w) { EXPECT_EQ(w.c.Count(), 0U); },
     {}},
    {"CollectorAddedAndAttached",
     [](OperationsWorld& w) {
         w.world.AddCollector("c", w.c);
         w.Service().AddSampleCollector("p1", "c");
     },
     [](OperationsWorld& w) {
         const Flows flows = w.c.Flows();
         ASSERT_FALSE(flows.empty());
         EXPECT_EQ(FaultInSequence(flows, flows.front().sequence), "");
         EXPECT_EQ(flows.back().sequence, w.Frames("p1")) << "nothing is missing at the end";
         EXPECT_EQ(w.c.Flows(w.p2).size(), 0U);
         EXPECT_EQ(FaultInDatagrams(w.c.Arrivals()), "");
     },
     {}},
    {"CollectorAttachedBeforeItIsAdded",
     [](OperationsWorld& w) {
         w.Service().AddSampleCollector("p1", "c");
         w.Flow();
         w.world.AddCollector("c", w.c);
     },
     [](OperationsWorld& w) {
         const Flows flows = w.c.Flows();
         ASSERT_FALSE(flows.empty());
         EXPECT_EQ(FaultInSequence(flows, flows.front().sequence), "");
         EXPECT_EQ(flows.back().sequence, w.Frames("p1"));
     },
     {}},
    {"CollectorMoved",
     [](OperationsWorld& w) { w.world.AddCollector("a", w.c); },
     [](OperationsWorld& w) {
         // Both places together have each datagram once, the old one the first of them.
         EXPECT_EQ(FaultInDatagrams(w.a.Arrivals()), "");
         ASSERT_GT(w.c.Count(), 0U);
         EXPECT_EQ(FaultInDatagrams(w.c.Arrivals(), w.a.Arrivals().back().datagram.sequence + 1), "");
         for (const auto& [name, index] : {std::pair{"p1", w.p1}, {"p2", w.p2}}) {
             Flows flows = w.a.Flows(index);
             const Flows rest = w.c.Flows(index);
             flows.insert(flows.end(), rest.begin(), rest.end());
             EXPECT_EQ(FaultInWhole(flows, w.Frames(name), w.pool), "") << name;
         }
     },
     {.collectorA = true}},
    {"DatagramSizeChanged",
     [](OperationsWorld& w) { w.world.AddCollector("a", w.a, 400); },
     [](OperationsWorld& w) {
         EXPECT_LE(w.a.Arrivals().back().bytes.size(), 400U);
         EXPECT_EQ(FaultInDatagrams(w.a.Arrivals()), "");
     },
     {}},
    {"CollectorDeleted",
     [](OperationsWorld& w) { w.Service().DeleteCollector("a"); },
     [](OperationsWorld& w) {
         for (const auto index : {w.p1, w.p2}) {
             const Flows flows = w.a.Flows(index);
             EXPECT_EQ(FaultInSequence(flows), "") << "what was sampled before has come";
             EXPECT_GE(flows.size(), w.flowsAtA.at(index));
             EXPECT_LT(flows.size(), w.b.Flows(index).size());
         }
     },
     {.collectorA = true}},
    {"CollectorDisabledAndEnabled",
     [](OperationsWorld& w) {
         w.Service().DeleteCollector("a");
         w.world.AwaitApplied();
         w.Flow();
         w.world.AddCollector("a", w.a);
     },
     [](OperationsWorld& w) {
         for (const auto& [name, index] : {std::pair{"p1", w.p1}, {"p2", w.p2}}) {
             const Flows flows = w.a.Flows(index);
             EXPECT_EQ(FaultInPart(flows, 1), "") << name;
             EXPECT_EQ(flows.back().sequence, w.Frames(name));
             EXPECT_LT(flows.size(), w.Frames(name)) << "it was away for a while";
         }
     },
     {.collectorA = true}},
    {"TheSameAgain",
     [](OperationsWorld& w) {
         w.Service().SetAgentAddress("192.0.2.1");
         w.world.AddCollector("a", w.a);
         w.Service().UpdateInterface({.name = "p1", .flowCollector = "a"});
         w.Service().AddSampleCollector("p1", "b");
     },
     [](OperationsWorld& w) { EXPECT_EQ(FaultInDatagrams(w.a.Arrivals()), ""); },
     {}},
    {"RateChanged",
     [](OperationsWorld& w) { w.Service().UpdateInterface({.name = "p1", .rate = 10}); },
     [](OperationsWorld& w) {
         w.ExpectRates({1, 10});
     },
     {.portOne = true}},
    {"RateChangedThereAndBack",
     [](OperationsWorld& w) {
         w.Service().UpdateInterface({.name = "p1", .rate = 7});
         w.Flow();
         w.Service().UpdateInterface({.name = "p1", .rate = 1});
     },
     [](OperationsWorld& w) {
         w.ExpectRates({1, 7, 1});
     },
     {.portOne = true}},
    {"HeaderSizeChanged",
     [](OperationsWorld& w) { w.Service().UpdateInterface({.name = "p1", .headerSize = 64}); },
     [](OperationsWorld& w) {
         const Flows flows = w.b.Flows(w.p1);
         EXPECT_EQ(flows.front().header->bytes.size(), 128U);
         EXPECT_EQ(flows.back().header->bytes.size(), 64U);
         EXPECT_EQ(flows.back().header->frameLength, 204U);
     },
     {}},
    {"HeaderSizeChangedToTheLargest",
     [](OperationsWorld& w) { w.Service().UpdateInterface({.name = "p1", .headerSize = 512}); },
     [](OperationsWorld& w) { EXPECT_EQ(w.b.Flows(w.p1).back().header->bytes.size(), 200U); },
     {}},
    {"DirectionChangedToBoth",
     [](OperationsWorld& w) { w.Service().UpdateInterface({.name = "p1", .direction = 3}); },
     [](OperationsWorld& w) {
         const Flows flows = w.b.Flows(w.p1);
         EXPECT_EQ(FaultInSequence(flows), "");
         EXPECT_EQ(w.World().Numbers().OfInterface("p1", "packets_seen_total"), flows.size());
         Flows entered;
         std::copy_if(flows.begin(), flows.end(), std::back_inserter(entered),
                      [&](const auto& flow) { return flow.input.value == w.p1; });
         if (w.MostUnseen() == 0) {
             EXPECT_EQ(FaultInNumbers(entered), "");
         }
         OperationsWorld::ExpectSeen(entered.size(), w.Frames("p1"), w.MostUnseen());
         EXPECT_GT(flows.size(), entered.size());
     },
     {.portOne = true}},
    {"CountersOnAndOff",
     [](OperationsWorld& w) {
         w.Service().UpdateInterface({.name = "p1", .counterCollector = "a", .interval = 1});
         Await("counters", [&] { return w.a.Counters(w.p1).size() >= 2; });
         w.Service().UpdateInterface({.name = "p1", .interval = 0});
         w.world.AwaitApplied();
         w.counters = w.World().Numbers().OfInterface("p1", "counters_sent_total");
         w.FlowFor(std::chrono::milliseconds(1200));
     },
     [](OperationsWorld& w) {
         const auto counters = w.a.Counters();
         EXPECT_EQ(counters.size(), w.counters);
         for (std::size_t i = 0; i < counters.size(); ++i) {
             EXPECT_EQ(counters[i].sequence, i + 1);
             EXPECT_EQ(counters[i].sourceIndex, w.p1);
         }
         EXPECT_EQ(w.b.Counters().size(), 0U);
     },
     {}},
    {"CounterCollectorsAddedAndRemoved",
     [](OperationsWorld& w) {
         w.Service().UpdateInterface({.name = "p1", .counterCollector = "a", .interval = 1});
         w.Service().AddCounterCollector("p1", "b");
         Await("counters at both", [&] { return !w.a.Counters().empty() && !w.b.Counters().empty(); });
         w.Service().RemoveCounterCollector("p1", "a");
         w.world.AwaitApplied();
         w.counters = w.a.Counters().size();
         const std::size_t atB = w.b.Counters().size();
         Await("counters at the other", [&] { return w.b.Counters().size() > atB; });
     },
     [](OperationsWorld& w) {
         EXPECT_EQ(w.a.Counters().size(), w.counters);
         const auto counters = w.b.Counters();
         for (std::size_t i = 0; i < counters.size(); ++i) EXPECT_EQ(counters[i].sequence, i + 1);
     },
     {}},
    {"FlowCollectorRemoved",
     [](OperationsWorld& w) { w.Service().RemoveSampleCollector("p1", "a"); },
     [](OperationsWorld& w) {
         const Flows flows = w.a.Flows(w.p1);
         EXPECT_EQ(FaultInSequence(flows), "");
         EXPECT_GE(flows.size(), w.flowsAtA.at(w.p1));
         EXPECT_LT(flows.size(), w.Frames("p1"));
         EXPECT_EQ(FaultInDatagrams(w.a.Arrivals()), "");
     },
     {.portOneAtA = true}},
    {"FlowCollectorRemovedAndAdded",
     [](OperationsWorld& w) {
         w.Service().RemoveSampleCollector("p1", "a");
         w.Flow();
         w.Service().AddSampleCollector("p1", "a");
     },
     [](OperationsWorld& w) {
         const Flows flows = w.a.Flows(w.p1);
         EXPECT_EQ(FaultInPart(flows, 1), "");
         EXPECT_EQ(flows.back().sequence, w.Frames("p1"));
         EXPECT_EQ(FaultInDatagrams(w.a.Arrivals()), "");
     },
     {.portOneAtA = true}},
    {"AllFlowCollectorsRemovedAndOneAdded",
     [](OperationsWorld& w) {
         w.Service().RemoveSampleCollector("p1", "a");
         w.Service().RemoveSampleCollector("p1", "b");
         w.Flow();
         w.Service().AddSampleCollector("p1", "b");
     },
     [](OperationsWorld& w) { w.ExpectPause(); },
     {.portOne = true}},
    {"InterfaceDeleted",
     [](OperationsWorld& w) { w.Service().UnsetInterface("p1"); },
     [](OperationsWorld& w) {
         const Flows flows = w.b.Flows(w.p1);
         EXPECT_EQ(FaultInSequence(flows), "");
         EXPECT_EQ(FaultInPool(flows, w.pool), "");
         EXPECT_GE(flows.size(), w.flowsAtA.at(w.p1));
         EXPECT_LT(flows.size(), w.Frames("p1"));
     },
     {.portOne = true}},
    {"InterfaceDeletedAndMadeAgain",
     [](OperationsWorld& w) {
         w.Service().UnsetInterface("p1");
         w.Flow();
         w.Service().UpdateInterface({.name = "p1", .flowCollector = "b"});
     },
     [](OperationsWorld& w) { w.ExpectPause(); },
     {.portOne = true}},
    {"SessionLost",
     [](OperationsWorld& w) {
         w.world.CloseSession();
         w.Flow();
         w.world.OpenSession();
     },
     Nothing,
     {}},
    {"SessionThatSaysTheSame",
     [](OperationsWorld& w) {
         w.world.OpenSession();
         w.Configure();
     },
     [](OperationsWorld& w) { EXPECT_EQ(FaultInDatagrams(w.a.Arrivals()), ""); },
     {}},
    {"SessionThatLeavesOnePortOut",
     [](OperationsWorld& w) {
         w.world.OpenSession();
         w.Configure({"p2"});
     },
     [](OperationsWorld& w) {
         EXPECT_FALSE(w.World().Numbers().Has("sflow_interface_present{interface=\"p1\"}"));
         const Flows flows = w.b.Flows(w.p1);
         EXPECT_EQ(FaultInSequence(flows), "");
         EXPECT_LT(flows.size(), w.Frames("p1"));
     },
     {.portOne = true}},
};

using Row = std::tuple<std::string, Operation>;

class Operations : public EnduranceTest, public testing::WithParamInterface<Row> {};

TEST_P(Operations, LoseAndDoubleNothingOfWhatTheyDoNotConcern)
{
    const auto& [source, operation] = GetParam();
    Start(source);
    if (IsSkipped() || HasFatalFailure()) return;
    OperationsWorld world(World(), CountsPool());
    world.Flow();
    operation.apply(world);
    world.world.AwaitApplied();
    world.Flow();
    world.EndTraffic();
    operation.expect(world);
    world.ExpectTheRestWhole(operation.concerns);
}

INSTANTIATE_TEST_SUITE_P(, Operations,
                         testing::Combine(testing::Values<std::string>(kTcx, kPacketSocket),
                                          testing::ValuesIn(kOperations)),
                         [](const auto& row) {
                             return TestName(std::get<0>(row.param)) + "_" + std::get<1>(row.param).name;
                         });

}  // namespace
}  // namespace endurance
