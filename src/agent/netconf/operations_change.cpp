// SPDX-License-Identifier: Apache-2.0
#include <libyang/libyang.h>

#include <array>
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
    const lyd_node* edit = nullptr;  // first top-level node; null: an empty <config>
};

netconf::RpcError NotOffered(const std::string& what, const std::string& element)
{
    return MakeError(Layer::kProtocol, ErrorTag::kOperationNotSupported, what + " is not offered",
                     {{"bad-element", element}});
}

/// libyang has checked the values: each is one that the standard defines.
base::expected<EditOptions, netconf::RpcError> ReadEdit(const lyd_node* operation)
{
    EditOptions options;
    const std::string_view defaultOperation = ChildText(operation, "default-operation");
    if (defaultOperation == "replace") options.operation = cdb::DefaultOperation::kReplace;
    if (defaultOperation == "none") options.operation = cdb::DefaultOperation::kNone;
    // A failed edit is always undone as a whole, so the other two values mean the same.
    if (ChildText(operation, "error-option") == "continue-on-error")
        return base::Unexpected(NotOffered("error-option continue-on-error", "error-option"));
    const std::string_view testOption = ChildText(operation, "test-option");
    if (testOption == "set") options.test = cdb::TestOption::kSet;
    if (testOption == "test-only") options.test = cdb::TestOption::kTestOnly;

    const lyd_node* config = ChildNamed(operation, "config");
    if (config == nullptr) return base::Unexpected(NotOffered("an edit without <config>", "edit-config"));
    const auto* any = reinterpret_cast<const lyd_node_any*>(config);
    if (any->value_type == LYD_ANYDATA_DATATREE) {
        options.edit = any->value.tree;
    } else if (any->value.str != nullptr && *any->value.str != '\0') {
        return base::Unexpected(MakeError(Layer::kProtocol, ErrorTag::kInvalidValue,
                                          "<config> holds no elements", {{"bad-element", "config"}}));
    }
    return options;
}

std::vector<netconf::RpcError> Warnings(const std::vector<std::string>& texts)
{
    std::vector<netconf::RpcError> warnings;
    warnings.reserve(texts.size());
    for (const std::string& text : texts) warnings.push_back(MakeWarning(text));
    return warnings;
}

/// Parameters of a confirmed commit (RFC 6241, section 8.4).
constexpr std::array kConfirmedCommit{"confirmed", "confirm-timeout", "persist", "persist-id"};

}  // namespace

/// An edit under way: planned, asked about, applied.
struct Operations::EditJob {
    RequestPtr request;
    EditOptions options;
    SerialQueue::TicketPtr ticket;
    std::vector<cdb::NewEntry> entries;
    std::vector<cdb::LeafWrite> writes;
    std::vector<cdb::Error> errors;
};

/// A commit under way: written, delivered.
struct Operations::CommitJob {
    RequestPtr request;
    SerialQueue::TicketPtr commitTicket;
    SerialQueue::TicketPtr ticket;  // with the candidate; ends once the commit is written
    cdb::CommitInfo info;
    std::vector<cdb::Error> errors;
    WrittenChanges written;
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
    InTurn(request, [this, request, edit = *options](const SerialQueue::TicketPtr& ticket) {
        if (RefuseLocked(request, Target::kCandidate)) return;
        PlanEdit(std::make_shared<EditJob>(EditJob{request, edit, ticket, {}, {}, {}}));
    });
}

void Operations::PlanEdit(const EditJobPtr& job)
{
    m_services.changes.Do(
        [this, job] {
            auto& datastore = m_services.datastore;
            const EditOptions& options = job->options;
            const AccessGrant& grant = *job->request->Who().access;
            if (!grant.WritesAll())
                if (auto denied = grant.CheckEdit(options.edit, options.operation, m_services.schema,
                                                  *datastore.Candidate())) {
                    ++m_services.access.Denied().dataWrites;
                    job->errors = {std::move(*denied)};
                    return;
                }
            job->entries = datastore.EntriesToCreate(options.edit, options.operation);
            if (!job->entries.empty()) return;
            job->errors = datastore.EditAndTest(options.edit, options.operation, options.test, {});
        },
        [this, job] {
            if (!job->request->Wanted()) return;
            if (!job->entries.empty()) return AskCallpoints(job);
            OkOrRefuse(job->request, job->errors);
        });
}

void Operations::AskCallpoints(const EditJobPtr& job)
{
    auto cancel = m_services.callpoints.Ask(std::move(job->entries), [this, job](Callpoints::Result result) {
        m_asked = {};
        if (!job->request->Wanted()) return;
        if (!result) {
            slog::Error("an edit by {} is refused: {}", job->request->Who().user, result.error().message);
            return job->request->Refuse(ToRpcError(result.error(), m_services.schema.Context()));
        }
        job->writes = *std::move(result);
        ApplyEdit(job);
    });
    m_asked = {job->request->Who().id, std::move(cancel)};
}

void Operations::ApplyEdit(const EditJobPtr& job)
{
    m_services.changes.Do(
        [this, job] {
            const EditOptions& options = job->options;
            job->errors =
                m_services.datastore.EditAndTest(options.edit, options.operation, options.test, job->writes);
            job->writes = {};  // there may be many
        },
        [this, job] {
            if (!job->request->Wanted()) return;
            OkOrRefuse(job->request, job->errors);
        });
}

void Operations::Validate(const RequestPtr& request)
{
    const std::string_view name = NameInChild(request->Operation(), "source");
    // Running is always valid: nothing invalid becomes running.
    if (name == "running") return request->Ok();
    if (name != "candidate") return request->Refuse(NotOffered("validation of what is sent along", "config"));
    InTurn(request, [this, request](const SerialQueue::TicketPtr& ticket) {
        const auto errors = std::make_shared<std::vector<cdb::Error>>();
        m_services.changes.Do([this, errors] { *errors = m_services.datastore.Validate(); },
                              [this, request, ticket, errors] { OkOrRefuse(request, *errors); });
    });
}

void Operations::Commit(const RequestPtr& request)
{
    for (const char* parameter : kConfirmedCommit)
        if (const lyd_node* node = ChildNamed(request->Operation(), parameter);
            node != nullptr && (node->flags & LYD_DEFAULT) == 0)
            return request->Refuse(NotOffered("a confirmed commit", parameter));
    // While a commit waits for its subscribers, edits go on; only the next commit waits.
    m_commits.Push([this, request](const SerialQueue::TicketPtr& commitTicket) {
        InTurn(request, [this, request, commitTicket](const SerialQueue::TicketPtr& ticket) {
            if (RefuseLocked(request, Target::kCandidate) || RefuseLocked(request, Target::kRunning)) return;
            const auto job = std::make_shared<CommitJob>();
            job->request = request;
            job->commitTicket = commitTicket;
            job->ticket = ticket;
            job->info.user = request->Who().user;
            job->info.source = "netconf";
            job->info.comment = ChildText(request->Operation(), "comment");
            job->info.timeUs = m_services.now();
            WriteCommit(job);
        });
    });
}

void Operations::WriteCommit(const CommitJobPtr& job)
{
    m_services.changes.Do(
        [this, job] {
            const AccessGrant& grant = *job->request->Who().access;
            if (!grant.WritesAll()) {
                auto denied = grant.CheckChanges(m_services.schema, m_services.datastore.ChangedRows());
                if (denied) {
                    ++m_services.access.Denied().dataWrites;
                    job->errors = {std::move(*denied)};
                    return;
                }
            }
            auto result = m_services.datastore.Commit(job->info);
            if (result)
                job->written = WriteOut(*std::move(result));
            else
                job->errors = std::move(result.error());
        },
        [this, job] {
            job->ticket.reset();
            if (job->errors.empty()) return DeliverCommit(job);
            job->request->Refuse(ToRpcErrors(job->errors, m_services.schema.Context()));
            // A store whose last page could not be written can't be read until it is opened again: this
            // throws then and ends the process, which restarts with the commits before this one.
            m_services.changes.Do([this] { static_cast<void>(m_services.store.LastCommit()); });
        });
}

void Operations::DeliverCommit(const CommitJobPtr& job)
{
    const cdb::ChangeSet& changes = job->written.changes;
    if (changes.Empty()) {
        job->request->Ok();
    } else {
        slog::Notice("commit {} by {}", changes.commit, job->info.user);
        m_services.events.ConfigChanged(changes, SessionParty{job->info.user, job->request->Who().id},
                                        job->info.comment);
        m_services.delivery.Deliver(job->written, [job](const std::vector<std::string>& undelivered) {
            job->request->Ok(Warnings(undelivered));
            job->commitTicket.reset();
        });
    }
    m_services.changes.Do([this, written = std::make_shared<WrittenChanges>(std::move(job->written))] {
        *written = {};  // freeing a large change takes time
        m_services.datastore.TidyUp();
    });
}

void Operations::DiscardChanges(const RequestPtr& request)
{
    InTurn(request, [this, request](const SerialQueue::TicketPtr& ticket) {
        if (RefuseLocked(request, Target::kCandidate)) return;
        m_services.changes.Do([this] { m_services.datastore.Discard(); },
                              [this, request, ticket] {
                                  request->Ok();
                                  m_services.changes.Do([this] { m_services.datastore.TidyUp(); });
                              });
    });
}

}  // namespace agent
