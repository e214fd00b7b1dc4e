#include <libyang/libyang.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "agent/errors.h"
#include "agent/operations.h"
#include "log/log.h"

namespace agent {
namespace {

using cdb::ErrorTag;

struct EditOptions {
    cdb::DefaultOperation operation = cdb::DefaultOperation::kMerge;
    cdb::ErrorOption onError = cdb::ErrorOption::kStopOnError;
    cdb::TestOption test = cdb::TestOption::kTestThenSet;
    const lyd_node* edit = nullptr;  // first top-level node; null: an empty <config>
};

netconf::RpcError NotOffered(const std::string& what, const std::string& element)
{
    return MakeError(Layer::kProtocol, ErrorTag::kOperationNotSupported, what + " is not offered",
                     {{"bad-element", element}});
}

/// The values are libyang's to check: what is here is one of the standard's.
std::variant<EditOptions, netconf::RpcError> ReadEdit(const lyd_node* operation)
{
    EditOptions options;
    const std::string_view defaultOperation = ChildText(operation, "default-operation");
    if (defaultOperation == "replace") options.operation = cdb::DefaultOperation::kReplace;
    if (defaultOperation == "none") options.operation = cdb::DefaultOperation::kNone;
    const std::string_view errorOption = ChildText(operation, "error-option");
    if (errorOption == "rollback-on-error") options.onError = cdb::ErrorOption::kRollbackOnError;
    if (errorOption == "continue-on-error")
        return NotOffered("error-option continue-on-error", "error-option");
    const std::string_view testOption = ChildText(operation, "test-option");
    if (testOption == "set") options.test = cdb::TestOption::kSet;
    if (testOption == "test-only") options.test = cdb::TestOption::kTestOnly;

    const lyd_node* config = ChildNamed(operation, "config");
    if (config == nullptr) return NotOffered("an edit without <config>", "edit-config");
    const auto* any = reinterpret_cast<const lyd_node_any*>(config);
    if (any->value_type == LYD_ANYDATA_DATATREE) {
        options.edit = any->value.tree;
    } else if (any->value.str != nullptr && *any->value.str != '\0') {
        return MakeError(Layer::kProtocol, ErrorTag::kInvalidValue, "<config> holds no elements",
                         {{"bad-element", "config"}});
    }
    return options;
}

std::vector<netconf::RpcError> Warnings(const std::vector<std::string>& texts)
{
    std::vector<netconf::RpcError> warnings;
    for (const std::string& text : texts) warnings.push_back(MakeWarning(text));
    return warnings;
}

/// Parameters of RFC 6241's confirmed commit.
constexpr std::array kConfirmedCommit{"confirmed", "confirm-timeout", "persist", "persist-id"};

}  // namespace

void Operations::EditConfig(const RequestPtr& request)
{
    const auto options = ReadEdit(request->Operation());
    if (const auto* error = std::get_if<netconf::RpcError>(&options)) return request->Refuse(*error);
    InTurn(request, [this, request](const CandidateQueue::TurnPtr& turn) { Edit(request, turn); });
}

void Operations::Edit(const RequestPtr& request, const CandidateQueue::TurnPtr& turn)
{
    if (RefuseLocked(request, Target::kCandidate)) return;
    const auto options = std::get<EditOptions>(ReadEdit(request->Operation()));
    auto entries = m_services.datastore.EntriesToCreate(options.edit, options.operation);
    m_services.callpoints.Ask(
        std::move(entries), [this, request, options, turn](const Callpoints::Result& result) {
            if (!request->Wanted()) return;
            if (const auto* error = std::get_if<cdb::Error>(&result)) {
                slog::Error("an edit by {} is refused: {}", request->Who().user, error->message);
                return request->Refuse(ToRpcError(*error, m_services.schema.Context()));
            }
            const auto errors =
                m_services.datastore.EditAndTest(options.edit, options.operation, options.onError,
                                                 options.test, std::get<std::vector<cdb::LeafWrite>>(result));
            if (errors.empty()) return request->Ok();
            request->Refuse(ToRpcErrors(errors, m_services.schema.Context()));
        });
}

void Operations::Validate(const RequestPtr& request)
{
    const lyd_node* source = ChildNamed(request->Operation(), "source");
    const std::string_view name = lyd_child(source) == nullptr ? "" : lyd_child(source)->schema->name;
    // Running is valid: nothing else ever becomes running.
    if (name == "running") return request->Ok();
    if (name != "candidate") return request->Refuse(NotOffered("validation of what is sent along", "config"));
    InTurn(request, [this, request](const CandidateQueue::TurnPtr&) {
        const auto errors = m_services.datastore.Validate();
        if (errors.empty()) return request->Ok();
        request->Refuse(ToRpcErrors(errors, m_services.schema.Context()));
    });
}

void Operations::Commit(const RequestPtr& request)
{
    for (const char* parameter : kConfirmedCommit)
        if (const lyd_node* node = ChildNamed(request->Operation(), parameter);
            node != nullptr && (node->flags & LYD_DEFAULT) == 0)
            return request->Refuse(NotOffered("a confirmed commit", parameter));
    InTurn(request, [this, request](const CandidateQueue::TurnPtr& turn) {
        if (RefuseLocked(request, Target::kCandidate) || RefuseLocked(request, Target::kRunning)) return;
        cdb::CommitInfo info;
        info.user = request->Who().user;
        info.source = "netconf";
        info.comment = ChildText(request->Operation(), "comment");
        info.timeUs = m_services.now();
        const auto result = m_services.datastore.Commit(info);
        if (const auto* errors = std::get_if<std::vector<cdb::Error>>(&result))
            return request->Refuse(ToRpcErrors(*errors, m_services.schema.Context()));
        const auto& changes = std::get<cdb::ChangeSet>(result);
        if (changes.Empty()) return request->Ok();
        slog::Notice("commit {} by {}", changes.commit, info.user);
        m_services.delivery.Deliver(changes, [request, turn](const std::vector<std::string>& undelivered) {
            request->Ok(Warnings(undelivered));
        });
    });
}

void Operations::DiscardChanges(const RequestPtr& request)
{
    InTurn(request, [this, request](const CandidateQueue::TurnPtr&) {
        if (RefuseLocked(request, Target::kCandidate)) return;
        m_services.datastore.Discard();
        request->Ok();
    });
}

}  // namespace agent
