// SPDX-License-Identifier: Apache-2.0
// Change sets as messages.

#include <functional>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>

#include "change_sample.h"
#include "ipc/cdb.pb.h"

namespace {

using cdb::ChangeOp;
using change_sample::Node;
using Message = ipc::cdb::ChangeNode;

TEST(ChangeSetMessage, CarriesAnyChange)
{
    std::mt19937 random(5);
    for (int round = 0; round < 100; ++round) {
        const auto changes = change_sample::RandomChanges(random);
        Message message;
        cdb::ToMessage(changes.root, message);
        Message received;
        ASSERT_TRUE(received.ParseFromString(message.SerializeAsString()));
        ASSERT_EQ(cdb::FromMessage(sample::Table(), received), changes.root);
    }
}

/// A sound message of one collector with one leaf set.
Message SoundMessage()
{
    const auto changes = change_sample::Config({change_sample::Container(
        "/config/oam",
        {change_sample::Container(
            "/config/oam/sflow",
            {change_sample::Entry(sample::kCollector, "c1", ChangeOp::kModified,
                                  {change_sample::Set(sample::kCollector + "/port", std::uint16_t{7})})})})});
    Message message;
    cdb::ToMessage(changes.root, message);
    return message;
}

Message& Collector(Message& root)
{
    return *root.mutable_children(0)->mutable_children(0)->mutable_children(0);
}

TEST(ChangeSetMessage, IsRefusedWhereTheSchemaDoesNotFit)
{
    struct Row {
        const char* name;
        std::function<void(Message&)> damage;
        std::string complaint;
    };
    const Row table[] = {
        {"an unknown node", [](Message& m) { Collector(m).set_node(9999); },
         "a change set has a node number that the schema does not have: 9999"},
        {"a node elsewhere", [](Message& m) { Collector(m).set_node(Node(sample::kFlow)); },
         "a change set has the node flow-sampling-collector in a wrong place"},
        {"a root that is none", [](Message& m) { m.set_node(Node("/config/oam")); },
         "a change set has the node oam in a wrong place"},
        {"no key", [](Message& m) { Collector(m).clear_keys(); },
         "a change set has the node collector with a wrong number of keys"},
        {"too many keys", [](Message& m) { Collector(m).add_keys("c2"); },
         "a change set has the node collector with a wrong number of keys"},
        {"a value on an entry", [](Message& m) { Collector(m).set_operation(Message::VALUE_SET); },
         "a change set has the node collector with an operation that it can't have"},
        {"a created leaf",
         [](Message& m) { Collector(m).mutable_children(0)->set_operation(Message::CREATED); },
         "a change set has the node port with an operation that it can't have"},
        {"a deleted container", [](Message& m) { m.set_operation(Message::DELETED); },
         "a change set has the node config with an operation that it can't have"},
        {"an unknown operation",
         [](Message& m) { Collector(m).set_operation(static_cast<Message::Operation>(17)); },
         "a change set has the unknown operation 17"},
        {"another type", [](Message& m) { Collector(m).mutable_children(0)->mutable_value()->set_text("7"); },
         "a change set has the node port with a value of a wrong type"},
        {"no value", [](Message& m) { Collector(m).mutable_children(0)->clear_value(); },
         "a change set has the node port with a value of a wrong type"},
        {"a number too large",
         [](Message& m) { Collector(m).mutable_children(0)->mutable_value()->set_uint16(65536); },
         "a change set has the node port with a value of a wrong type"},
    };
    EXPECT_NO_THROW(cdb::FromMessage(sample::Table(), SoundMessage()));
    for (const auto& row : table) {
        Message message = SoundMessage();
        row.damage(message);
        try {
            cdb::FromMessage(sample::Table(), message);
            ADD_FAILURE() << row.name << " was accepted";
        } catch (const std::invalid_argument& error) {
            EXPECT_EQ(error.what(), row.complaint) << row.name;
        }
    }
}

}  // namespace
