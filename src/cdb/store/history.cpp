// SPDX-License-Identifier: Apache-2.0
#include "cdb/store/history.h"

#include <limits>

#include "cdb/store/transaction.h"

namespace cdb::history {
namespace {

std::uint64_t CommitOf(std::string_view undoKey)
{
    return codec::NumberOf(undoKey.substr(0, sizeof(std::uint64_t))).value_or(0);
}

/// The history within one write, with its counts.
class Change {
public:
    Change(WriteTransaction& write, const Environment& environment)
        : m_write(write), m_environment(environment)
    {
        const auto stored = write.Number(codec::kHistoryBytesKey);
        if (write.Failed()) return;
        // A store of an older version has no count yet.
        m_bytes = stored ? *stored : CountBytes(environment, write.Handle());
        MDB_stat statistics{};
        write.Remember(mdb_stat(write.Handle(), environment.history, &statistics));
        m_entries = statistics.ms_entries;
        const auto record = write.Meta(codec::kPendingCommitKey);
        const auto pending = record ? codec::PendingCommitOf(*record) : std::nullopt;
        if (pending) m_lastFree = pending->returnTo;
    }

    [[nodiscard]] std::uint64_t ByteCount() const { return m_bytes; }
    [[nodiscard]] std::size_t Entries() const { return m_entries; }

    /// The oldest entry's time; nullopt if it can't be read.
    [[nodiscard]] std::optional<std::int64_t> OldestTime()
    {
        if (m_write.Failed()) return std::nullopt;
        Cursor cursor(m_write.Handle(), m_environment.history);
        if (!cursor.Go(MDB_FIRST)) return std::nullopt;
        const auto payload = codec::Payload(cursor.Value());
        const auto stored = payload ? codec::HistoryEntryOf(*payload) : std::nullopt;
        return stored ? std::optional(stored->entry.timeUs) : std::nullopt;
    }

    /// Whether the oldest entry belongs to a commit that waits for its confirmation.
    [[nodiscard]] bool IsOldestHeld()
    {
        if (m_write.Failed() || m_lastFree == kAllFree) return false;
        Cursor cursor(m_write.Handle(), m_environment.history);
        return cursor.Go(MDB_FIRST) && codec::NumberOf(cursor.Key()).value_or(0) > m_lastFree;
    }

    void DropOldest()
    {
        if (m_write.Failed()) return;
        std::uint64_t commit = 0;
        {
            Cursor cursor(m_write.Handle(), m_environment.history);
            if (cursor.Go(MDB_FIRST)) {
                commit = codec::NumberOf(cursor.Key()).value_or(0);
                Drop(cursor);
            }
            m_write.Remember(cursor.code);
        }
        if (m_entries > 0) --m_entries;
        DropUndo(0, commit);
    }

    void Drop(std::uint64_t commit)
    {
        if (m_write.Failed()) return;
        const std::string key = codec::NumberBytes(commit);
        {
            Cursor cursor(m_write.Handle(), m_environment.history);
            if (!cursor.GoTo(key) || cursor.Key() != key) return;
            Drop(cursor);
            m_write.Remember(cursor.code);
        }
        --m_entries;
        DropUndo(commit, commit);
    }

    void Add(const Addition& addition)
    {
        Put(m_environment.history, codec::NumberBytes(addition.commit), addition.payload);
        ++m_entries;
        std::string_view rest = addition.undo;
        for (std::uint32_t chunk = 0; !rest.empty() && !m_write.Failed(); ++chunk) {
            Put(m_environment.undo, codec::UndoKey(addition.commit, chunk),
                rest.substr(0, codec::kUndoChunk));
            rest.remove_prefix(std::min(codec::kUndoChunk, rest.size()));
        }
    }

    void Finish() { m_write.Put(m_environment.meta, codec::kHistoryBytesKey, codec::NumberBytes(m_bytes)); }

private:
    void Put(MDB_dbi database, const std::string& key, std::string_view payload)
    {
        const std::string sealed = codec::Seal(key, payload);
        m_write.PutSealed(database, key, sealed);
        m_bytes += sealed.size();
    }

    void Drop(Cursor& cursor)
    {
        m_bytes -= std::min<std::uint64_t>(m_bytes, cursor.Value().size());
        cursor.Drop();
    }

    void DropUndo(std::uint64_t first, std::uint64_t last)
    {
        if (m_write.Failed()) return;
        const std::string begin = codec::UndoKey(first, 0);
        Cursor cursor(m_write.Handle(), m_environment.undo);
        while (cursor.GoTo(begin) && CommitOf(cursor.Key()) <= last) {
            Drop(cursor);
            if (cursor.code != MDB_SUCCESS) break;
        }
        if (cursor.code != MDB_NOTFOUND) m_write.Remember(cursor.code);
    }

    static constexpr std::uint64_t kAllFree = std::numeric_limits<std::uint64_t>::max();

    WriteTransaction& m_write;
    const Environment& m_environment;
    std::uint64_t m_bytes = 0;
    std::size_t m_entries = 0;
    std::uint64_t m_lastFree = kAllFree;  // the entries of later commits must stay
};

Error NotKept(std::uint64_t commit, const std::string& why)
{
    return {.tag = ErrorTag::kDataMissing,
            .message = "what undoes commit " + std::to_string(commit) + " is not kept: " + why};
}

Error NoRoomForHeld()
{
    return {.tag = ErrorTag::kResourceDenied,
            .message =
                "the commit failed: what undoes the commits that wait for their confirmation would be "
                "more than the history may be; confirm or cancel them, or raise cdbd's --history-limit "
                "and --history-bytes; nothing was changed"};
}

}  // namespace

Addition Encode(const HistoryEntry& entry, const Limits& limits)
{
    Addition addition{entry.commit, entry.timeUs, {}, codec::UndoBytes(entry), false};
    addition.undoLeftOut = addition.undo.size() > limits.bytes;
    if (addition.undoLeftOut) addition.undo.clear();
    const auto chunks = (addition.undo.size() + codec::kUndoChunk - 1) / codec::kUndoChunk;
    addition.payload = codec::ToBytes(entry, static_cast<std::uint32_t>(chunks), addition.undoLeftOut);
    return addition;
}

void Append(WriteTransaction& write, const Environment& environment, const Addition& addition,
            const Limits& limits)
{
    Change change(write, environment);
    change.Drop(addition.commit);
    change.Add(addition);
    const auto tooOld = [&] {
        const auto time = limits.ageUs > 0 ? change.OldestTime() : std::nullopt;
        return time && *time < addition.timeUs - limits.ageUs;
    };
    const auto tooLarge = [&] {
        return change.Entries() > limits.entries || change.ByteCount() > limits.bytes;
    };
    while (!write.Failed() && change.Entries() > 1 && (tooLarge() || tooOld())) {
        if (change.IsOldestHeld()) {
            if (tooLarge()) write.Fail(NoRoomForHeld());
            break;
        }
        change.DropOldest();
    }
    change.Finish();
}

std::size_t DropHalf(WriteTransaction& write, const Environment& environment)
{
    Change change(write, environment);
    const auto wanted = change.ByteCount() / 2;
    std::size_t dropped = 0;
    for (; !write.Failed() && change.Entries() > 1 && change.ByteCount() > wanted && !change.IsOldestHeld();
         ++dropped)
        change.DropOldest();
    change.Finish();
    return dropped;
}

void WriteAgain(WriteTransaction& write, const Environment& environment)
{
    Change(write, environment).Finish();
}

std::uint64_t CountBytes(const Environment& environment, MDB_txn* transaction)
{
    std::uint64_t bytes = 0;
    for (const MDB_dbi database : {environment.history, environment.undo}) {
        if (database == Environment::kNoDatabase) continue;
        Cursor cursor(transaction, database);
        for (bool more = cursor.Go(MDB_FIRST); more; more = cursor.Go(MDB_NEXT))
            bytes += cursor.Value().size();
        if (cursor.code != MDB_NOTFOUND) environment.Fail("reading", cursor.code);
    }
    return bytes;
}

base::expected<HistoryEntry, Error> WithUndo(const Environment& environment, MDB_txn* transaction,
                                             std::uint64_t commit)
{
    const auto damaged = [&] {
        return base::Unexpected(Error{
            .tag = ErrorTag::kOperationFailed,
            .message = "the store in " + environment.Directory().string() +
                       " is damaged: what undoes commit " + std::to_string(commit) +
                       " can't be read; load a configuration instead, or restore the directory from a copy"});
    };
    const std::string key = codec::NumberBytes(commit);
    Cursor entries(transaction, environment.history);
    if (!entries.GoTo(key) || entries.Key() != key) {
        if (entries.code != MDB_SUCCESS && entries.code != MDB_NOTFOUND) return damaged();
        return base::Unexpected(NotKept(commit, "it is not in the history, or not any more"));
    }
    if (!codec::IsIntact(key, entries.Value())) return damaged();
    auto stored = codec::HistoryEntryOf(*codec::Payload(entries.Value()));
    if (!stored) return damaged();
    if (stored->undoLeftOut)
        return base::Unexpected(NotKept(
            commit, "it was larger than the history may be; raise cdbd's --history-bytes for later ones"));
    if (stored->undoChunks == 0 || environment.undo == Environment::kNoDatabase)
        return std::move(stored->entry);
    std::string undo;
    Cursor chunks(transaction, environment.undo);
    for (std::uint32_t chunk = 0; chunk < stored->undoChunks; ++chunk) {
        const std::string name = codec::UndoKey(commit, chunk);
        const bool found = chunk == 0 ? chunks.GoTo(name) : chunks.Go(MDB_NEXT);
        if (!found || chunks.Key() != name || !codec::IsIntact(name, chunks.Value())) return damaged();
        undo += *codec::Payload(chunks.Value());
    }
    if (!codec::ReadUndo(undo, stored->entry)) return damaged();
    return std::move(stored->entry);
}

}  // namespace cdb::history
