// SPDX-License-Identifier: Apache-2.0
// The contract suite on the embedded platform: its client libraries against a store that the real
// datastore has written, with a scripted cdbd and sflow-mgr.

#include <libyang/libyang.h>

#include "cdb/datastore/datastore.h"
#include "cdb/model/value_message.h"
#include "cdb/schema/schema.h"
#include "contract/contract_suite.h"
#include "log/log.h"
#include "platform/embedded/world.h"

namespace {

using ipc::manager::ClientMessage;

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

std::string Dotted(std::uint32_t word) { return Quoted(nettypes::IPv4Addr(word).to_string()); }

std::string Attachment(const char* name, const ipc::manager::Attachment& attachment)
{
    return std::string(name) + "(" + Quoted(attachment.interface()) + ", " + Quoted(attachment.collector()) +
           ")";
}

/// Empty for what is no operation.
std::string CallText(const ClientMessage& message)
{
    switch (message.body_case()) {
    case ClientMessage::kAddCollector: {
        const auto& add = message.add_collector();
        return "AddCollector(" + Quoted(add.name()) + ", " + Dotted(add.address()) + ", " +
               std::to_string(add.port()) + ", " + std::to_string(add.datagram_size()) + ")";
    }
    case ClientMessage::kUpdateInterface: {
        const auto& update = message.update_interface();
        return "UpdateInterface(" + Quoted(update.interface()) + ", " + Quoted(update.sample_collector()) +
               ", " + Quoted(update.counter_collector()) + ", " + std::to_string(update.rate()) + ", " +
               std::to_string(update.direction()) + ", " + std::to_string(update.max_header_size()) + ", " +
               std::to_string(update.interval()) + ")";
    }
    case ClientMessage::kDeleteCollector:
        return "DeleteCollector(" + Quoted(message.delete_collector().name()) + ")";
    case ClientMessage::kUnsetInterface:
        return "UnsetInterface(" + Quoted(message.unset_interface().interface()) + ")";
    case ClientMessage::kSetAgentAddress:
        return "SetAgentAddress(" + Dotted(message.set_agent_address().address()) + ")";
    case ClientMessage::kAddSampleCollector:
        return Attachment("AddSampleCollector", message.add_sample_collector());
    case ClientMessage::kRemoveSampleCollector:
        return Attachment("RemoveSampleCollector", message.remove_sample_collector());
    case ClientMessage::kAddCounterCollector:
        return Attachment("AddCounterCollector", message.add_counter_collector());
    case ClientMessage::kRemoveCounterCollector:
        return Attachment("RemoveCounterCollector", message.remove_counter_collector());
    default:
        return "";
    }
}

/// Replaces what the store in `directory` holds by the JSON; false if it is not taken.
bool Replace(const std::filesystem::path& directory, const cdb::Schema& schema, const std::string& json)
{
    const auto store = cdb::Store::Open(directory);
    store->SetSchema(schema.Table());
    cdb::Datastore datastore(schema, *store);
    lyd_node* content = nullptr;
    if (lyd_parse_data_mem(schema.Context(), json.c_str(), LYD_JSON, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0,
                           &content) != LY_SUCCESS)
        return false;
    const auto refused = datastore.Edit(content, cdb::DefaultOperation::kReplace, {});
    lyd_free_all(content);
    if (refused) {
        slog::Error("{} {}", refused->path, refused->message);
        return false;
    }
    const auto result = datastore.Commit({"test", "test", "", 0});
    if (!result) {
        for (const auto& error : result.error()) slog::Error("{} {}", error.path, error.message);
        return false;
    }
    return true;
}

class OnEmbedded : public contract::Platform, private World {
public:
    OnEmbedded()
    {
        m_manager->onMessage = [this](const ClientMessage& message) {
            if (message.has_hello()) {
                ipc::manager::ServerMessage opened;
                opened.mutable_opened()->set_pid(1);
                m_manager->Send(opened);
            }
            if (const std::string text = CallText(message); !text.empty()) m_operations.push_back(text);
        };
        m_cdb->Listen();
        MakeFramework();
        World::Settle();
        Welcome();
        World::Settle();
    }

    void Load(const std::string& json) override
    {
        InAnotherProcess([&] { return Replace(m_directory / "state", Modules(), json); });
    }
    QxConfdInterface& Confd() override { return *m_config.Confd(); }
    void SetManager(bool present) override { present ? m_manager->Listen() : m_manager->Die(); }
    std::vector<std::string> Received() override { return m_operations; }

    bool RunUntil(const std::function<bool()>& condition) override
    {
        constexpr int kTurns = 1000;
        for (int turn = 0; turn < kTurns && !condition(); ++turn) Advance(std::chrono::milliseconds{100});
        return condition();
    }
    void Settle() override { World::Settle(); }

    bool CanCreate() const override { return true; }
    Created Create(const std::string& interface, const Body& body) override
    {
        Created created;
        m_data.createBody = [&](confd_trans_ctx* transaction, confd_hkeypath_t* keypath) {
            return created.result = body(transaction, keypath);
        };
        ipc::cdb::ServerMessage message;
        auto& request = *message.mutable_callpoint_request();
        request.set_transaction(1);
        request.set_callpoint("sflow-set-sampling-rate");
        request.set_path("/config/oam/sflow/interface{" + interface + "}");
        m_cdb->Take();
        m_cdb->Send(message);
        World::Settle();
        m_data.createBody = nullptr;
        for (const auto& answer : m_cdb->Take())
            for (const auto& write : answer.callpoint_reply().writes())
                created.written.push_back(write.path() + " = " +
                                          cdb::ToText(cdb::FromMessage(write.value()).value()));
        return created;
    }

private:
    void TestBody() override {}

    std::vector<std::string> m_operations;
};

INSTANTIATE_TEST_SUITE_P(Embedded, ContractTest,
                         testing::Values(contract::Choice{"embedded",
                                                          [] { return std::make_unique<OnEmbedded>(); }}),
                         contract::NameOf);

}  // namespace
