// SPDX-License-Identifier: Apache-2.0
// The operations of the module switch-history: rolling back, comparing with the past, checkpoints.

#include <charconv>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/data/data_source.h"
#include "agent/data/data_writer.h"
#include "agent/data/errors.h"
#include "agent/netconf/operations.h"
#include "log/log.h"
#include "netconf/names.h"

namespace agent {
namespace {

/// libyang has checked the number.
std::uint64_t NumberOf(std::string_view text)
{
    std::uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

cdb::Moment MomentOf(const lyd_node* operation)
{
    cdb::Moment moment;
    if (ChildNamed(operation, "back") != nullptr) moment.back = NumberOf(ChildText(operation, "back"));
    if (ChildNamed(operation, "commit") != nullptr) moment.commit = NumberOf(ChildText(operation, "commit"));
    moment.checkpoint = ChildText(operation, "checkpoint");
    return moment;
}

std::string Describe(const cdb::Moment& moment)
{
    if (moment.back) return std::to_string(*moment.back) + " commits ago";
    if (moment.commit) return "commit " + std::to_string(*moment.commit);
    return "checkpoint " + moment.checkpoint;
}

/// An element of the module switch-history around what `write` appends.
void AppendElement(std::string& out, std::string_view name,
                   const std::function<void(std::string& out)>& write)
{
    out.append("<").append(name).append(" xmlns=\"").append(netconf::kHistoryNamespace).append("\">");
    write(out);
    out.append("</").append(name).append(">");
}

}  // namespace

void Operations::RollBack(const RequestPtr& request)
{
    OnCandidate(request, [this, request](const SerialQueue::TicketPtr& ticket) {
        if (RefuseLocked(request, Target::kCandidate)) return;
        const cdb::Moment moment = MomentOf(request->Operation());
        const auto errors = std::make_shared<std::vector<cdb::Error>>();
        const auto moved = std::make_shared<std::size_t>(0);
        const auto permit = [this, access = request->Who().access](
                                const std::vector<cdb::RowChange>& changes) -> std::optional<cdb::Error> {
            auto denied = access->CheckChanges(m_services.schema, changes);
            if (denied) ++m_services.access.Denied().dataWrites;
            return denied;
        };
        const bool mayAll = request->Who().access->WritesAll();
        const auto datastore = m_candidates.Of(request->Who().id);
        m_services.changes.Do(
            [datastore, errors, moment, permit, mayAll, moved] {
                *errors = datastore->RollBack(moment, mayAll ? cdb::Datastore::Permit() : permit);
                if (errors->empty()) *moved = datastore->ChangedRows().size();
            },
            [this, request, ticket, errors, moment, datastore, moved] {
                if (errors->empty()) {
                    request->NoteChanges(*moved);
                    // What was edited before is gone.
                    m_candidates.NoteClean(request->Who().id, datastore);
                    m_candidates.NoteEdit(request->Who().id, request->Who().user, m_services.now());
                    slog::Notice("{}, session {}, has rolled the candidate back: {}", request->Who().user,
                                 request->Who().id, Describe(moment));
                }
                OkOrRefuse(request, *errors);
                m_services.changes.Do([datastore] { datastore->TidyUp(); });
            });
    });
}

void Operations::CompareWith(const RequestPtr& request)
{
    using Result = base::expected<cdb::Datastore::Comparison, cdb::Error>;
    AnswerComparison(request,
                     [moment = MomentOf(request->Operation()),
                      datastore = m_candidates.Of(request->Who().id)]() -> Result {
                         if (auto error = datastore->Prepare(true))
                             return base::Unexpected(std::move(*error));
                         return datastore->CompareWith(moment);
                     });
}

void Operations::CommitChanges(const RequestPtr& request)
{
    AnswerComparison(request, [this, commit = NumberOf(ChildText(request->Operation(), "commit"))] {
        return m_services.datastore.ChangesOf(commit);
    });
}

void Operations::AnswerComparison(const RequestPtr& request, const Compare& compare)
{
    struct Written {
        std::string text;
        std::optional<cdb::Error> error;
    };
    const auto work = [this, request, compare, access = request->Who().access](Written& outcome) {
        const auto compared = compare();
        if (!compared) {
            outcome.error = compared.error();
            return;
        }
        WriteOptions options;
        if (!access->ReadsAll())
            options.access = [&access](const lysc_node* node, std::span<const std::string> keys) {
                return access->Reading(node, keys) != Visibility::kHidden;
            };
        const auto rowsOf = [&](cdb::RowView& rows) {
            return [&](std::string& out) {
                RowSource source(m_dataSchema, rows);
                WriteData(m_dataSchema, source, options, out);
            };
        };
        outcome.text = request->OutputText([&](std::string& out) {
            AppendElement(out, "before", rowsOf(*compared->before));
            AppendElement(out, "after", rowsOf(*compared->after));
        });
    };
    const auto begin = [this, request, work] {
        const auto outcome = std::make_shared<Written>();
        m_services.changes.Do(
            [outcome, work] {
                try {
                    work(*outcome);
                } catch (const cdb::FatalError& error) {  // the store: ends the request, not the process
                    outcome->error = cdb::Error{.message = error.what()};
                }
            },
            [this, request, outcome] {
                if (!outcome->error) return request->Reply(std::move(outcome->text));
                request->Refuse(ToRpcError(*outcome->error, m_services.schema.Context()));
            });
    };
    m_services.room.Enter(request, begin);
}

void Operations::SetCheckpoint(const RequestPtr& request)
{
    cdb::Checkpoint checkpoint;
    checkpoint.name = ChildText(request->Operation(), "name");
    checkpoint.timeUs = m_services.now();
    checkpoint.user = request->Who().user;
    const bool replace = ChildNamed(request->Operation(), "replace") != nullptr;
    const auto result = std::make_shared<base::expected<cdb::Checkpoint, cdb::Error>>(checkpoint);
    m_services.changes.Do(
        [this, result, checkpoint, replace] {
            *result = m_services.store.SetCheckpoint(checkpoint, replace);
        },
        [this, request, result] {
            if (!*result) return request->Refuse(ToRpcError(result->error(), m_services.schema.Context()));
            const cdb::Checkpoint& made = **result;
            slog::Notice("{} has set the checkpoint {} at commit {}", made.user, made.name, made.commit);
            request->Ok();
        });
}

void Operations::DeleteCheckpoint(const RequestPtr& request)
{
    const std::string name(ChildText(request->Operation(), "name"));
    const auto error = std::make_shared<std::optional<cdb::Error>>();
    m_services.changes.Do([this, error, name] { *error = m_services.store.DropCheckpoint(name); },
                          [this, request, error, name] {
                              if (*error)
                                  return request->Refuse(ToRpcError(**error, m_services.schema.Context()));
                              slog::Notice("{} has deleted the checkpoint {}", request->Who().user, name);
                              request->Ok();
                          });
}

}  // namespace agent
