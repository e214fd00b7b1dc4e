// SPDX-License-Identifier: Apache-2.0
#include <libyang/libyang.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/data/data_source.h"
#include "agent/data/data_writer.h"
#include "agent/data/errors.h"
#include "agent/data/schema_list.h"
#include "agent/netconf/operations.h"
#include "agent/netconf/reading.h"
#include "base/expected.h"
#include "netconf/xml.h"

namespace agent {
namespace {

constexpr std::string_view kInMonitoring = " xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\"";

/// Resolves what the request asks for and calls `goOn`, or refuses it. A long request's filter is resolved
/// beside the loop.
void WithReading(Workbench& bench, const DataSchema& schema, const FilterLimits& limits,
                 const RequestPtr& request, const std::function<void(const ReadingPtr& reading)>& goOn)
{
    const auto resolve = [&schema, &limits, request, access = request->Who().access] {
        return MakeReading(schema, *request, access, limits);
    };
    const auto end = [request, goOn](const ReadingOrError& read) {
        if (!read) return request->Refuse(read.error());
        goOn(*read);
    };
    if (!request->IsLong()) return end(resolve());
    const auto read = std::make_shared<ReadingOrError>();
    bench.Do([read, resolve] { *read = resolve(); }, [read, end] { end(*read); });
}

void WriteRunning(const DataSchema& schema, const cdb::Store& store, const Reading& reading, std::string& out)
{
    if (!reading.configuration) return;
    const auto rows = cdb::MakeRowView(store);
    RowSource source(schema, *rows, reading.missing);
    WriteData(schema, source, reading.options, out);
}

/// Up to this many entries are read and written in the loop; more, beside it.
constexpr std::size_t kEntriesAtOnce = 32;

constexpr std::size_t kAllEntries = std::numeric_limits<std::size_t>::max() / 2;

/// How many entries of outermost lists the branch names; kAllEntries if it selects entries without naming
/// their keys.
std::size_t EntriesNamed(const FilterPlan::Branch& branch)
{
    if (branch.whole) return kAllEntries;
    std::size_t count = 0;
    for (const FilterPlan::Inner& inner : branch.inners) {
        if (inner.node->schema->nodetype == LYS_LIST) {
            if (!inner.NamesEntries()) return kAllEntries;
            for (const auto& matches : inner.matches) count += matches.byValues.size();
            continue;
        }
        if (!inner.node->hasLists) continue;
        if (!inner.matches.empty() || !inner.tests.empty()) return kAllEntries;
        if (inner.always != nullptr) count += std::min(EntriesNamed(*inner.always), kAllEntries - count);
    }
    return std::min(count, kAllEntries);
}

bool IsShort(const Reading& reading)
{
    return reading.filter && EntriesNamed(reading.filter->Root()) <= kEntriesAtOnce;
}

/// A read error of the store ends the request, not the process.
void AnswerWith(const RequestPtr& request, const ReadingPtr& reading,
                const std::function<void(std::string& out)>& write,
                const std::vector<netconf::RpcError>& warnings = {})
{
    try {
        request->Data(write, reading->attributes, warnings);
    } catch (const cdb::FatalError& error) {
        request->Refuse(MakeError(Layer::kApplication, cdb::ErrorTag::kOperationFailed, error.what()));
    }
}

/// The same beside the loop, for long answers.
void AnswerBeside(Workbench& bench, const RequestPtr& request, const ReadingPtr& reading,
                  std::function<void(std::string& out)> write,
                  const std::vector<netconf::RpcError>& warnings = {})
{
    struct Outcome {
        std::string text;
        std::string problem;
    };
    const auto outcome = std::make_shared<Outcome>();
    bench.Do(
        [request, reading, outcome, warnings, doWrite = std::move(write)] {
            try {
                outcome->text = request->DataText(doWrite, reading->attributes, warnings);
            } catch (const cdb::FatalError& error) {
                outcome->problem = error.what();
            }
        },
        [request, outcome] {
            if (outcome->problem.empty()) return request->Reply(std::move(outcome->text));
            request->Refuse(
                MakeError(Layer::kApplication, cdb::ErrorTag::kOperationFailed, outcome->problem));
        });
}

}  // namespace

void Operations::Get(const RequestPtr& request)
{
    const auto read = [this, request](const ReadingPtr& reading) {
        const auto selections = std::make_shared<StateSelections>(request->Filter());
        const auto collect = [this, request, reading, selections] { ReadAll(request, reading, *selections); };
        const auto begin = [this, request, reading, collect] {
            if (IsShort(*reading)) return collect();
            m_services.room.Enter(request, collect);
        };
        if (!request->IsLong()) return begin();
        m_services.reads.Do(
            [selections, containers = m_services.state.Containers()] { selections->Prepare(containers); },
            begin);
    };
    WithReading(m_services.reads, m_dataSchema, m_services.filterLimits, request, read);
}

void Operations::ReadAll(const RequestPtr& request, const ReadingPtr& reading, StateSelections& selections)
{
    const auto answer = [this, request, reading](const CollectedState& state) {
        const auto write = [this, reading, data = state.data, bytes = state.bytes](std::string& out) {
            out.reserve(out.size() + bytes + bytes / 2);  // growing by doubling costs as much as writing
            WriteRunning(m_dataSchema, m_services.store, *reading, out);
            if (data) WriteData(m_dataSchema, *data, reading->options, out);
        };
        if (IsShort(*reading)) return AnswerWith(request, reading, write, state.warnings);
        AnswerBeside(m_services.reads, request, reading, write, state.warnings);
    };
    if (!reading->state) return answer({});
    m_services.state.Collect(selections, answer);
}

void Operations::GetConfig(const RequestPtr& request)
{
    WithReading(m_services.reads, m_dataSchema, m_services.filterLimits, request,
                [this, request](const ReadingPtr& reading) { ReadConfig(request, reading); });
}

void Operations::ReadConfig(const RequestPtr& request, const ReadingPtr& reading)
{
    using Which = cdb::Datastore::Which;
    const bool ofCandidate = reading->ofCandidate;
    const bool touchedOnly = ChildNamed(request->Operation(), "touched-only") != nullptr;
    const bool ofRows = !ofCandidate && !touchedOnly;
    const auto write = [=, this, datastore = m_candidates.Of(request->Who().id)](std::string& out) {
        if (ofRows) return WriteRunning(m_dataSchema, m_services.store, *reading, out);
        if (!reading->configuration) return;
        if (const auto error = datastore->Prepare(true)) throw cdb::FatalError(error->message);
        const auto rows = touchedOnly
                              ? datastore->DirtyRows(ofCandidate ? Which::kCandidate : Which::kRunning)
                              : datastore->Candidate();
        RowSource source(m_dataSchema, *rows);
        WriteData(m_dataSchema, source, reading->options, out);
    };
    const bool isShort = IsShort(*reading);
    if (isShort && ofRows) return AnswerWith(request, reading, write);
    Workbench& bench = ofRows ? m_services.reads : m_services.changes;
    const auto begin = [=, &bench] { AnswerBeside(bench, request, reading, write); };
    if (isShort) return begin();
    m_services.room.Enter(request, begin);
}

void Operations::GetSchema(const RequestPtr& request)
{
    const lyd_node* operation = request->Operation();
    const std::string_view format = ChildText(operation, "format");
    const std::string_view name = ChildText(operation, "identifier");
    const lyd_node* version = ChildNamed(operation, "version");
    const bool isYang = format.empty() || format == "yang" || format.ends_with(":yang");
    std::vector<SchemaText> found;
    if (isYang) found = SchemasOf(m_services.schema.Context());
    std::erase_if(found, [&](const SchemaText& each) {
        return each.name != name || (version != nullptr && each.revision != lyd_get_value(version));
    });
    if (found.size() > 1) {
        auto error = MakeError(Layer::kApplication, cdb::ErrorTag::kOperationFailed,
                               "there are several revisions of \"" + std::string(name) + "\"; name one");
        error.appTag = "data-not-unique";
        return request->Refuse(error);
    }
    const auto text = found.empty() ? std::nullopt : YangOf(found.front());
    if (!text)
        return request->Refuse(
            MakeError(Layer::kApplication, cdb::ErrorTag::kInvalidValue,
                      "there is no module \"" + std::string(name) + "\" of that version and format",
                      {{"bad-element", isYang ? "identifier" : "format"}}));
    request->Data([&text](std::string& out) { netconf::AppendEscaped(out, *text); }, kInMonitoring);
}

}  // namespace agent
