// SPDX-License-Identifier: Apache-2.0
// Messages that become operations, and those whose content can't be one.

#include "manager/service/operation.h"

#include <gtest/gtest.h>

#include <functional>

#include "ipc/manager.pb.h"
#include "manager/recorder.h"
#include "manager/service/journal.h"

namespace manager {
namespace {

using ipc::manager::ClientMessage;

struct MessageRow {
    const char* name;
    std::function<void(ClientMessage&)> fill;
    const char* result;  // the journal's line, or part of the refusal's reason
    bool refused = false;
};

void PrintTo(const MessageRow& row, std::ostream* out) { *out << row.name; }

void FillAttachment(ipc::manager::Attachment* attachment)
{
    attachment->set_interface("eth1");
    attachment->set_collector("c1");
}

void FillCollector(ClientMessage& message, const std::string& name, std::uint32_t port, std::uint32_t size)
{
    auto& collector = *message.mutable_add_collector();
    collector.set_name(name);
    collector.set_address(Address("192.0.2.1"));
    collector.set_port(port);
    collector.set_datagram_size(size);
}

void FillUpdate(ClientMessage& message, std::int32_t direction, std::uint32_t header, std::uint32_t interval)
{
    auto& update = *message.mutable_update_interface();
    update.set_interface("eth1");
    update.set_sample_collector("c1");
    update.set_counter_collector("c2");
    update.set_rate(4096);
    update.set_direction(direction);
    update.set_max_header_size(header);
    update.set_interval(interval);
}

class Message : public testing::TestWithParam<MessageRow> {};

TEST_P(Message, BecomesItsOperationOrIsRefused)
{
    ClientMessage message;
    GetParam().fill(message);
    ASSERT_TRUE(IsOperation(message));
    const auto result = ToOperation(message);
    ASSERT_EQ(GetParam().refused, !result.has_value());
    if (GetParam().refused)
        EXPECT_EQ(GetParam().result, result.error());
    else
        EXPECT_EQ(GetParam().result, JournalText(*result));
}

const MessageRow kMessageRows[] = {
    {"AddCollector", [](auto& m) { FillCollector(m, "c1", 6343, 1400); },
     R"({"op":"AddCollector","args":["c1","192.0.2.1",6343,1400]})"},
    {"LongestName", [](auto& m) { FillCollector(m, std::string(64, 'c'), 1, 200); },
     R"({"op":"AddCollector","args":["cccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccc","192.0.2.1",1,200]})"},
    {"NameTooLong", [](auto& m) { FillCollector(m, std::string(65, 'c'), 6343, 1400); },
     "the name of the collector has 65 bytes, more than 64", true},
    {"PortOutOfRange", [](auto& m) { FillCollector(m, "c1", 65536, 1400); }, "port 65536 is out of range",
     true},
    {"SizeOutOfRange", [](auto& m) { FillCollector(m, "c1", 1, 4294967295U); },
     "datagram size 4294967295 is out of range", true},
    {"DeleteCollector", [](auto& m) { m.mutable_delete_collector()->set_name("c1"); },
     R"({"op":"DeleteCollector","args":["c1"]})"},
    {"UpdateInterface", [](auto& m) { FillUpdate(m, 2, 128, 20); },
     R"({"op":"UpdateInterface","args":["eth1","c1","c2",4096,2,128,20]})"},
    {"DirectionTooLow", [](auto& m) { FillUpdate(m, 0, 128, 20); }, "direction 0 is none of 1, 2 and 3",
     true},
    {"DirectionTooHigh", [](auto& m) { FillUpdate(m, 4, 128, 20); }, "direction 4 is none of 1, 2 and 3",
     true},
    {"HeaderSizeOutOfRange", [](auto& m) { FillUpdate(m, 2, 65536, 20); },
     "header size 65536 is out of range", true},
    {"IntervalOutOfRange", [](auto& m) { FillUpdate(m, 2, 128, 65536); },
     "polling interval 65536 is out of range", true},
    {"AddSampleCollector", [](auto& m) { FillAttachment(m.mutable_add_sample_collector()); },
     R"({"op":"AddSampleCollector","args":["eth1","c1"]})"},
    {"RemoveSampleCollector", [](auto& m) { FillAttachment(m.mutable_remove_sample_collector()); },
     R"({"op":"RemoveSampleCollector","args":["eth1","c1"]})"},
    {"AddCounterCollector", [](auto& m) { FillAttachment(m.mutable_add_counter_collector()); },
     R"({"op":"AddCounterCollector","args":["eth1","c1"]})"},
    {"RemoveCounterCollector", [](auto& m) { FillAttachment(m.mutable_remove_counter_collector()); },
     R"({"op":"RemoveCounterCollector","args":["eth1","c1"]})"},
    {"UnsetInterface", [](auto& m) { m.mutable_unset_interface()->set_interface("eth1"); },
     R"({"op":"UnsetInterface","args":["eth1"]})"},
    {"InterfaceNameTooLong",
     [](auto& m) { m.mutable_unset_interface()->set_interface(std::string(1U << 20U, 'e')); },
     "the name of the interface has 1048576 bytes, more than 64", true},
    {"SetAgentAddress", [](auto& m) { m.mutable_set_agent_address()->set_address(Address("10.0.0.5")); },
     R"({"op":"SetAgentAddress","args":["10.0.0.5"]})"},
};

INSTANTIATE_TEST_SUITE_P(Table, Message, testing::ValuesIn(kMessageRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Message, ThatIsNoOperationIsNotTakenForOne)
{
    ClientMessage empty;
    ClientMessage hello;
    hello.mutable_hello();
    ClientMessage loaded;
    loaded.mutable_loaded();
    for (const auto& message : {empty, hello, loaded}) {
        EXPECT_FALSE(IsOperation(message));
        EXPECT_FALSE(ToOperation(message).has_value());
    }
}

}  // namespace
}  // namespace manager
