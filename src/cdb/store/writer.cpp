// SPDX-License-Identifier: Apache-2.0
#include "cdb/store/writer.h"

#include <algorithm>

#include "log/log.h"

namespace cdb {
namespace {

constexpr int kRounds = 4;                 // of making room: a sixteenth of the history is left after them
constexpr std::size_t kShareOfTheMap = 4;  // the history takes at most this fraction of the map
constexpr std::int64_t kDayUs = std::int64_t{86'400} * 1'000'000;

constexpr const char* kCommitting = "the commit";

}  // namespace

void PutPending(WriteTransaction& write, const Environment& environment,
                const std::optional<PendingCommit>& pending)
{
    if (pending)
        write.Put(environment.meta, codec::kPendingCommitKey, codec::ToBytes(*pending));
    else
        write.Erase(environment.meta, codec::kPendingCommitKey);
}

Error SlotTaken(const std::string& what)
{
    return {.tag = ErrorTag::kInUse,
            .message = what + " failed: another write to the store is under way; try again"};
}

StoreWriter::StoreWriter(std::shared_ptr<Environment> environment, const StoreOptions& options)
    : m_environment(std::move(environment)),
      m_limits{.entries = options.historyLimit,
               .bytes = std::min(options.historyBytes, options.mapSize / kShareOfTheMap),
               .ageUs = options.historyDays * kDayUs}
{
}

std::optional<Error> StoreWriter::Do(const std::string& what, const Apply& apply)
{
    for (int round = 0;; ++round) {
        WriteTransaction write(*m_environment, what);
        apply(write);
        auto error = write.Commit();
        if (!write.Full() || round == kRounds || !MakeRoom()) return error;
    }
}

bool StoreWriter::MakeRoom()
{
    std::size_t dropped = 0;
    // LMDB reuses the pages that a transaction has freed only in the next transaction but one; the second
    // write here serves only that.
    for (const bool drop : {true, false}) {
        WriteTransaction write(*m_environment, "making room");
        if (drop) dropped = history::DropHalf(write, *m_environment);
        if (drop && dropped == 0) return false;
        if (!drop) history::WriteAgain(write, *m_environment);
        if (write.Commit()) return false;
    }
    slog::Notice("the store in {} is full: the oldest {} commits of its history were dropped",
                 m_environment->Directory().string(), dropped);
    return true;
}

StagedCommit::StagedCommit(std::shared_ptr<StoreWriter> writer, std::shared_ptr<const codec::RowKeys> keys,
                           std::optional<std::uint64_t> expectedCommit)
    : m_writer(std::move(writer)), m_keys(std::move(keys)), m_expectedCommit(expectedCommit)
{
    m_open = m_writer->Slot().Take();
    if (!m_open) m_error = SlotTaken(kCommitting);
}

StagedCommit::~StagedCommit() { End(); }

void StagedCommit::End()
{
    if (m_open) m_writer->Slot().GiveBack();
    m_open = false;
}

void StagedCommit::Fail(ErrorTag tag, const std::string& why)
{
    if (!m_error) m_error = Error{.tag = tag, .message = std::string(kCommitting) + " failed: " + why};
}

bool StagedCommit::Name(const RowKey& key)
{
    if (m_error) return false;
    for (const auto& one : key.keys)
        if (one.find('\0') != std::string::npos)
            Fail(ErrorTag::kInvalidValue, "a key has a NUL character in it; use another name");
    if (key.node >= m_keys->Schema().Size())
        Fail(ErrorTag::kOperationFailed, "the store's schema has no such node");
    if (m_error) return false;
    m_keys->Prefix(key.node, key.keys, m_name);
    if (m_name.size() > static_cast<std::size_t>(mdb_env_get_maxkeysize(m_writer->Used().Handle())))
        m_error = ToError(m_writer->Used().Directory(), kCommitting, MDB_BAD_VALSIZE);
    return !m_error;
}

void StagedCommit::Put(const RowKey& key, const Row& row)
{
    if (!Name(key)) return;
    codec::ToBytes(row, m_payload);
    const std::string sealed = codec::Seal(m_name, m_payload);
    m_changes.push_back({m_name.size(), sealed.size()});
    m_bytes.append(m_name).append(sealed);
}

void StagedCommit::Erase(const RowKey& key)
{
    if (!Name(key)) return;
    m_changes.push_back({m_name.size(), 0});
    m_bytes += m_name;
}

void StagedCommit::Append(const HistoryEntry& entry)
{
    if (m_error) return;
    if (m_addition) return Fail(ErrorTag::kOperationFailed, "it has two entries for the history");
    m_addition = history::Encode(entry, m_writer->Limits());
}

void StagedCommit::Apply(WriteTransaction& write) const
{
    const auto stored = write.Number(codec::kCommitKey).value_or(0);
    if (m_expectedCommit && *m_expectedCommit != stored)
        write.Fail({.tag = ErrorTag::kOperationFailed,
                    .message = std::string(kCommitting) + " failed: the store is at commit " +
                               std::to_string(stored) + ", not " + std::to_string(*m_expectedCommit) +
                               ": another process has written it; restart cdbd"});
    std::string_view rest = m_bytes;
    const auto take = [&rest](std::size_t size) {
        const auto bytes = rest.substr(0, size);
        rest.remove_prefix(size);
        return bytes;
    };
    const MDB_dbi rows = m_writer->Used().rows;
    for (const Change& change : m_changes) {
        const auto key = take(change.keySize);
        const auto value = take(change.valueSize);
        if (value.empty())
            write.Erase(rows, key);
        else
            write.PutSealed(rows, key, value);
        if (write.Failed()) return;
    }
    if (m_pending) PutPending(write, m_writer->Used(), *m_pending);  // before the history, which heeds it
    if (!m_addition) return;
    write.Put(m_writer->Used().meta, codec::kCommitKey, codec::NumberBytes(m_addition->commit));
    history::Append(write, m_writer->Used(), *m_addition, m_writer->Limits());
}

std::optional<Error> StagedCommit::Commit()
{
    if (!m_open) Fail(ErrorTag::kOperationFailed, "it has ended before");
    if (m_pending && *m_pending && m_addition && m_addition->undoLeftOut)
        Fail(ErrorTag::kResourceDenied,
             "what undoes it is larger than the history may be, so it could not be rolled back; commit it "
             "as final, or raise cdbd's --history-bytes");
    if (!m_error) m_error = m_writer->Do(kCommitting, [this](WriteTransaction& write) { Apply(write); });
    const bool wasOpen = m_open;
    End();
    auto error = m_error;
    if (wasOpen && !m_error) Fail(ErrorTag::kOperationFailed, "it has ended before");  // for later calls
    return error;
}

}  // namespace cdb
