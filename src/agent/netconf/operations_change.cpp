// SPDX-License-Identifier: Apache-2.0
#include <libyang/libyang.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/data/errors.h"
#include "agent/netconf/operations.h"
#include "base/expected.h"
#include "log/log.h"

namespace agent {
namespace {

using cdb::ErrorTag;

struct EditOptions {
    cdb::DefaultOperation operation = cdb::DefaultOperation::kMerge;
    cdb::TestOption test = cdb::TestOption::kTestThenSet;
    cdb::ErrorOption onError = cdb::ErrorOption::kWhole;
    const lyd_node* edit = nullptr;  // first top-level node; null: an empty <config>
};

netconf::RpcError NotOffered(const std::string& what, const std::string& element)
{
    return MakeError(Layer::kProtocol, ErrorTag::kOperationNotSupported, what + " is not offered",
                     {{"bad-element", element}});
}

/// Takes the first top-level node inside a <config>; null if it is empty.
base::expected<const lyd_node*, netconf::RpcError> ContentOf(const lyd_node* config)
{
    const auto* any = reinterpret_cast<const lyd_node_any*>(config);
    if (any->value_type == LYD_ANYDATA_DATATREE) return any->value.tree;
    if (any->value.str != nullptr && *any->value.str != '\0')
        return base::Unexpected(MakeError(Layer::kProtocol, ErrorTag::kInvalidValue,
                                          "<config> holds no elements", {{"bad-element", "config"}}));
    return nullptr;
}

/// libyang has checked the values: each is one that the standard defines.
base::expected<EditOptions, netconf::RpcError> ReadEdit(const lyd_node* operation)
{
    EditOptions options;
    const std::string_view defaultOperation = ChildText(operation, "default-operation");
    if (defaultOperation == "replace") options.operation = cdb::DefaultOperation::kReplace;
    if (defaultOperation == "none") options.operation = cdb::DefaultOperation::kNone;
    // A failed edit is else undone as a whole, so the other two values mean the same.
    if (ChildText(operation, "error-option") == "continue-on-error")
        options.onError = cdb::ErrorOption::kContinue;
    const std::string_view testOption = ChildText(operation, "test-option");
    // <edit-data> has no such parameter: nothing is tested before the candidate is validated or committed.
    if (testOption.empty() || testOption == "set") options.test = cdb::TestOption::kSet;
    if (testOption == "test-only") options.test = cdb::TestOption::kTestOnly;

    const lyd_node* config = ChildNamed(operation, "config");
    if (config == nullptr) return base::Unexpected(NotOffered("an edit without <config>", "edit-config"));
    const auto content = ContentOf(config);
    if (!content) return base::Unexpected(content.error());
    options.edit = *content;
    return options;
}

}  // namespace

/// An edit under way: planned, asked about, applied.
struct Operations::EditJob {
    RequestPtr request;
    EditOptions options;
    DatastorePtr datastore;
    SerialQueue::TicketPtr ticket;  // null: of a private candidate
    std::vector<cdb::NewEntry> entries;
    std::vector<cdb::LeafWrite> writes;
    std::vector<cdb::Error> errors;
};

void Operations::OkOrRefuse(const RequestPtr& request, const std::vector<cdb::Error>& errors) const
{
    if (errors.empty()) return request->Ok();
    request->Refuse(ToRpcErrors(errors, m_services.schema.Context()));
}

void Operations::EditConfig(const RequestPtr& request)
{
    const auto options = ReadEdit(request->Operation());
    if (!options) return request->Refuse(options.error());
    OnCandidate(request, [this, request, edit = *options](const SerialQueue::TicketPtr& ticket) {
        if (RefuseLocked(request, Target::kCandidate)) return;
        PlanEdit(std::make_shared<EditJob>(
            EditJob{request, edit, m_candidates.Of(request->Who().id), ticket, {}, {}, {}}));
    });
}

void Operations::PlanEdit(const EditJobPtr& job)
{
    m_services.changes.Do(
        [this, job] {
            auto& datastore = *job->datastore;
            if (auto error = datastore.Prepare(true)) {
                job->errors = {std::move(*error)};
                return;
            }
            const EditOptions& options = job->options;
            const AccessGrant& grant = *job->request->Who().access;
            if (!grant.WritesAll())
                if (auto denied = grant.CheckEdit(options.edit, options.operation, m_services.schema,
                                                  *datastore.Candidate())) {
                    ++m_services.access.Denied().dataWrites;
                    job->errors = {std::move(*denied)};
                    return;
                }
            job->entries = datastore.EntriesToCreate(options.edit, options.operation, options.onError);
            if (!job->entries.empty()) return;
            job->errors =
                datastore.EditAndTest(options.edit, options.operation, options.test, {}, options.onError);
        },
        [this, job] {
            if (!job->request->Wanted()) return;
            if (!job->entries.empty()) return AskCallpoints(job);
            AnswerEdit(job);
        });
}

void Operations::AskCallpoints(const EditJobPtr& job)
{
    const std::uint32_t session = job->request->Who().id;
    auto cancel = m_services.callpoints.Ask(std::move(job->entries), [this, job](Callpoints::Result result) {
        m_asked.erase(job->request->Who().id);
        if (!job->request->Wanted()) return;
        if (!result) {
            slog::Error("an edit by {} is refused: {}", job->request->Who().user, result.error().message);
            return job->request->Refuse(ToRpcError(result.error(), m_services.schema.Context()));
        }
        job->writes = *std::move(result);
        ApplyEdit(job);
    });
    if (cancel) m_asked.insert_or_assign(session, std::move(cancel));
}

void Operations::ApplyEdit(const EditJobPtr& job)
{
    m_services.changes.Do(
        [job] {
            const EditOptions& options = job->options;
            auto& datastore = *job->datastore;
            // The candidate must be the one that was planned for: it does not move.
            if (auto error = datastore.Prepare(false))
                job->errors = {std::move(*error)};
            else
                job->errors = datastore.EditAndTest(options.edit, options.operation, options.test,
                                                    job->writes, options.onError);
            job->writes = {};  // there may be many
        },
        [this, job] {
            if (!job->request->Wanted()) return;
            AnswerEdit(job);
        });
}

void Operations::AnswerEdit(const EditJobPtr& job)
{
    const EditOptions& options = job->options;
    const bool mayHaveEdited = job->errors.empty() || options.onError == cdb::ErrorOption::kContinue;
    if (mayHaveEdited && options.test != cdb::TestOption::kTestOnly)
        m_candidates.NoteEdit(job->request->Who().id, job->request->Who().user, m_services.now());
    OkOrRefuse(job->request, job->errors);
}

void Operations::Validate(const RequestPtr& request)
{
    const std::string_view name = NameInChild(request->Operation(), "source");
    // Running is always valid: nothing invalid becomes running.
    if (name == "running" || name == "intended") return request->Ok();
    if (name == "config") return ValidateSent(request);
    if (name != "candidate") return RefuseDatastore(request, "validate", "candidate, running or intended");
    OnCandidate(request, [this, request](const SerialQueue::TicketPtr& ticket) {
        const auto errors = std::make_shared<std::vector<cdb::Error>>();
        m_services.changes.Do(
            [errors, datastore = m_candidates.Of(request->Who().id)] { *errors = datastore->Validate(); },
            [this, request, ticket, errors] { OkOrRefuse(request, *errors); });
    });
}

/// Beside the loop and the candidate: what another client edits meanwhile neither waits nor matters.
void Operations::ValidateSent(const RequestPtr& request)
{
    const auto content = ContentOf(ChildNamed(ChildNamed(request->Operation(), "source"), "config"));
    if (!content) return request->Refuse(content.error());
    const auto errors = std::make_shared<std::vector<cdb::Error>>();
    m_services.reads.Do(
        [this, request, errors, config = *content] {
            try {
                *errors = m_services.datastore.ValidateOther(config);
            } catch (const cdb::FatalError& error) {  // the store can't be read
                *errors = {{.tag = ErrorTag::kOperationFailed, .message = error.what()}};
            }
        },
        [this, request, errors] { OkOrRefuse(request, *errors); });
}

/// The only target is the candidate: running is written by commits only (RFC 6241, section 8.2).
void Operations::CopyConfig(const RequestPtr& request)
{
    const lyd_node* operation = request->Operation();
    const std::string_view source = NameInChild(operation, "source");
    if (source == "candidate")
        return request->Refuse(
            MakeError(Layer::kProtocol, ErrorTag::kInvalidValue,
                      "source and target are both the candidate; copy running or a <config>",
                      {{"bad-element", "source"}}));
    const std::string_view defaults = ChildText(operation, "with-defaults");
    if (!defaults.empty() && defaults != "explicit")
        return request->Refuse(NotOffered("copy-config with defaults other than explicit", "with-defaults"));
    if (source == "running") return CopyRunning(request);
    const auto content = ContentOf(ChildNamed(ChildNamed(operation, "source"), "config"));
    if (!content) return request->Refuse(content.error());
    const EditOptions options{cdb::DefaultOperation::kReplace, cdb::TestOption::kSet,
                              cdb::ErrorOption::kWhole, *content};
    OnCandidate(request, [this, request, options](const SerialQueue::TicketPtr& ticket) {
        if (RefuseLocked(request, Target::kCandidate)) return;
        PlanEdit(std::make_shared<EditJob>(
            EditJob{request, options, m_candidates.Of(request->Who().id), ticket, {}, {}, {}}));
    });
}

/// Takes the candidate's changes back, if the user may write what that changes (RFC 8341, section 3.2.6).
/// What the user can't read becomes as in running too, since leaving it out would delete it.
void Operations::CopyRunning(const RequestPtr& request)
{
    OnCandidate(request, [this, request](const SerialQueue::TicketPtr& ticket) {
        if (RefuseLocked(request, Target::kCandidate)) return;
        const auto errors = std::make_shared<std::vector<cdb::Error>>();
        const auto datastore = m_candidates.Of(request->Who().id);
        m_services.changes.Do(
            [this, request, errors, datastore] {
                const AccessGrant& grant = *request->Who().access;
                if (auto error = datastore->Prepare(true)) {
                    errors->push_back(std::move(*error));
                    return;
                }
                auto changes = datastore->ChangedRows();
                for (cdb::RowChange& change : changes) std::swap(change.before, change.now);
                if (auto denied = grant.CheckChanges(m_services.schema, changes)) {
                    ++m_services.access.Denied().dataWrites;
                    errors->push_back(std::move(*denied));
                    return;
                }
                datastore->Discard();
            },
            [this, request, ticket, errors, datastore] {
                if (errors->empty()) m_candidates.NoteClean(request->Who().id, datastore);
                OkOrRefuse(request, *errors);
                m_services.changes.Do([datastore] { datastore->TidyUp(); });
            });
    });
}

void Operations::DiscardChanges(const RequestPtr& request)
{
    OnCandidate(request, [this, request](const SerialQueue::TicketPtr& ticket) {
        if (RefuseLocked(request, Target::kCandidate)) return;
        const auto datastore = m_candidates.Of(request->Who().id);
        const auto changes = std::make_shared<std::optional<std::size_t>>();
        m_services.changes.Do(
            [datastore, changes] {
                // Without its base, what the candidate has changed can't be told.
                if (!datastore->Prepare(false)) *changes = datastore->ChangedRows().size();
                datastore->Discard();
            },
            [this, request, ticket, datastore, changes] {
                m_candidates.NoteClean(request->Who().id, datastore);
                if (*changes) request->NoteChanges(**changes);
                request->Ok();
                m_services.changes.Do([datastore] { datastore->TidyUp(); });
            });
    });
}

}  // namespace agent
