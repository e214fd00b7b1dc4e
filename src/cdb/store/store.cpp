// SPDX-License-Identifier: Apache-2.0
#include "cdb/store/store.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "cdb/rows/environment.h"
#include "cdb/rows/row_view.h"
#include "cdb/store/backup.h"
#include "cdb/store/check.h"
#include "cdb/store/history.h"
#include "cdb/store/place.h"
#include "cdb/store/writer.h"

namespace cdb {
namespace {

namespace fs = std::filesystem;

// Readers register in LMDB's lock file.
constexpr fs::perms kLockMode = kDataMode | fs::perms::group_write;
constexpr std::size_t kLongestFaultText = 4096;

/// The records of a database, newest first, at most `limit`; unreadable ones are left out.
template <typename Record, typename RecordOf>
std::vector<Record> Newest(Environment& environment, MDB_dbi database, std::size_t limit,
                           const RecordOf& recordOf)
{
    std::vector<Record> records;
    const auto reading = environment.BeginReading();
    Cursor cursor(reading->transaction, database);
    for (bool more = cursor.Go(MDB_LAST); more && records.size() < limit; more = cursor.Go(MDB_PREV)) {
        const auto payload = codec::Payload(cursor.Value());
        auto record = payload ? recordOf(*payload) : std::nullopt;
        if (record) records.push_back(std::move(*record));
    }
    if (cursor.code != MDB_SUCCESS && cursor.code != MDB_NOTFOUND) environment.Fail("reading", cursor.code);
    return records;
}

Error NoCheckpoint(const std::string& name)
{
    return {.tag = ErrorTag::kDataMissing,
            .message = "there is no checkpoint " + name + "; the history lists those there are"};
}

}  // namespace

class Store::Impl {
public:
    Impl(const fs::path& directory, const StoreOptions& wanted)
        : options(wanted),
          place(PreparePlace(directory, wanted)),
          environment(std::make_shared<Environment>(directory, Environment::Access::kWrite, wanted.mapSize)),
          writer(std::make_shared<StoreWriter>(environment, wanted))
    {
        environment->UseOrAddDatabases();
        std::error_code error;  // ignored: the files may belong to another user
        fs::permissions(directory / kDataFile, kDataMode, error);
        fs::permissions(directory / kLockFile, kLockMode, error);
        auto reading = environment->BeginReading();
        m_keys = std::make_shared<const codec::RowKeys>(StoredSchema(*environment, reading->transaction));
        m_fingerprint = environment->Meta(reading->transaction, codec::kFingerprintKey).value_or("");
        reading.reset();
        if (place.recordedMap != 0 && place.recordedMap < wanted.mapSize) TellReadersOfTheMap();
    }

    /// An empty store made in place of a lost one is removed if it got no commit, so that its directory is
    /// refused again.
    ~Impl()
    {
        const fs::path directory = environment->Directory();
        const bool lost = place.remade && LastCommit() == 0;
        writer.reset();
        environment.reset();
        if (lost) LoseAgain(directory);
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    std::uint64_t LastCommit() const { return StoreReader::Snapshot(environment, Keys()).Commit(); }

    std::shared_ptr<const codec::RowKeys> Keys() const
    {
        const std::lock_guard hold(m_mutex);
        return m_keys;
    }

    std::string Fingerprint() const
    {
        const std::lock_guard hold(m_mutex);
        return m_fingerprint;
    }

    void SetSchema(const SchemaTable& schema, const std::string& fingerprint)
    {
        const std::lock_guard hold(m_mutex);
        if (!(schema == m_keys->Schema())) m_keys = std::make_shared<const codec::RowKeys>(schema);
        m_fingerprint = fingerprint;
    }

    /// One durable write; an error if another is under way.
    std::optional<Error> Write(const std::string& what, const StoreWriter::Apply& apply)
    {
        if (!writer->Slot().Take()) return SlotTaken(what);
        const WriteSlot::Hold hold(writer->Slot());
        return writer->Do(what, apply);
    }

    StoreOptions options;
    StorePlace place;  // destroyed after the environment: its lock is held until then
    std::shared_ptr<Environment> environment;
    std::shared_ptr<StoreWriter> writer;

private:
    /// Readers take the map's size from the file; a write puts the new size there.
    void TellReadersOfTheMap()
    {
        // The error is ignored: without space the file does not outgrow the old map either.
        static_cast<void>(Write("enlarging the map", [this](WriteTransaction& write) {
            write.PutSealed(environment->meta, codec::kFormatKey, codec::FormatMark());
        }));
    }

    mutable std::mutex m_mutex;
    std::shared_ptr<const codec::RowKeys> m_keys;
    std::string m_fingerprint;
};

std::unique_ptr<Store> Store::Open(const fs::path& directory, const StoreOptions& options)
{
    return std::unique_ptr<Store>(new Store(std::make_unique<Impl>(directory, options)));
}

Store::Store(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

Store::~Store() = default;

const fs::path& Store::Directory() const { return m_impl->environment->Directory(); }

StoreFigures Store::Check(const fs::path& directory)
{
    std::error_code error;
    if (!fs::exists(directory / kDataFile, error))
        throw FatalError("there is no store in " + directory.string() + "; is it the right --state-dir?");
    const WriterLock lock(directory);
    return CheckStore(directory, CheckDepth::kEverything);
}

bool Store::Empty() const { return LastCommit() == 0; }

std::uint64_t Store::LastCommit() const { return m_impl->LastCommit(); }

void Store::SetSchema(const SchemaTable& schema, const std::string& fingerprint)
{
    const bool sameTable = schema == m_impl->Keys()->Schema();
    const bool sameFingerprint = fingerprint == m_impl->Fingerprint();
    if (sameTable && sameFingerprint) return;
    const MDB_dbi meta = m_impl->environment->meta;
    const auto error = m_impl->Write("storing the schema", [&](WriteTransaction& write) {
        if (!sameTable) write.Put(meta, codec::kSchemaKey, schema.Serialize());
        if (fingerprint.empty())
            write.Erase(meta, codec::kFingerprintKey);
        else
            write.Put(meta, codec::kFingerprintKey, fingerprint);
    });
    if (error) throw FatalError(error->message);
    m_impl->SetSchema(schema, fingerprint);
}

std::string Store::SchemaFingerprint() const { return m_impl->Fingerprint(); }

SchemaTable Store::Schema() const { return m_impl->Keys()->Schema(); }

StoreReader::Snapshot Store::Read() const { return {m_impl->environment, m_impl->Keys()}; }

std::unique_ptr<RowView> MakeRowView(const Store& store)
{
    return MakeRowView(store.m_impl->environment, store.m_impl->Keys());
}

std::string Store::StoredKey(const RowKey& key) const
{
    std::string stored;
    m_impl->Keys()->Prefix(key.node, key.keys, stored);
    return stored;
}

std::optional<RowKey> Store::RowKeyOf(std::string_view storedKey) const
{
    return m_impl->Keys()->KeyOf(storedKey);
}

Store::Transaction Store::Begin(std::optional<std::uint64_t> expectedCommit)
{
    return Transaction(std::make_unique<StagedCommit>(m_impl->writer, m_impl->Keys(), expectedCommit));
}

Store::Transaction::Transaction(std::unique_ptr<StagedCommit> staged) : m_staged(std::move(staged)) {}
Store::Transaction::Transaction(Transaction&&) noexcept = default;
Store::Transaction::~Transaction() = default;

void Store::Transaction::Put(const RowKey& key, const Row& row) { m_staged->Put(key, row); }
void Store::Transaction::Erase(const RowKey& key) { m_staged->Erase(key); }
void Store::Transaction::Append(const HistoryEntry& entry) { m_staged->Append(entry); }
void Store::Transaction::SetPending(const std::optional<PendingCommit>& pending)
{
    m_staged->SetPending(pending);
}
std::optional<Error> Store::Transaction::Commit() { return m_staged->Commit(); }

std::vector<HistoryEntry> Store::History(std::size_t limit) const
{
    return Newest<HistoryEntry>(*m_impl->environment, m_impl->environment->history, limit,
                                [](std::string_view payload) {
                                    auto stored = codec::HistoryEntryOf(payload);
                                    if (stored) stored->entry.undo.clear();
                                    return stored ? std::optional(std::move(stored->entry)) : std::nullopt;
                                });
}

base::expected<HistoryEntry, Error> Store::HistoryUndo(std::uint64_t commit) const
{
    auto& environment = *m_impl->environment;
    const auto reading = environment.BeginReading();
    return history::WithUndo(environment, reading->transaction, commit);
}

std::uint64_t Store::HistoryBytes() const
{
    auto& environment = *m_impl->environment;
    const auto reading = environment.BeginReading();
    const auto stored = environment.Meta(reading->transaction, codec::kHistoryBytesKey);
    return stored ? codec::NumberOf(*stored).value_or(0)
                  : history::CountBytes(environment, reading->transaction);
}

StoreSize Store::Size() const
{
    auto& environment = *m_impl->environment;
    StoreSize size;
    size.commit = LastCommit();
    size.historyBytes = HistoryBytes();
    const auto reading = environment.BeginReading();
    MDB_stat history{};
    MDB_envinfo info{};
    int code = mdb_stat(reading->transaction, environment.history, &history);
    if (code == 0) code = mdb_env_info(environment.Handle(), &info);
    if (code != 0) environment.Fail("reading", code);
    size.historyEntries = history.ms_entries;
    size.bytes = (info.me_last_pgno + 1) * history.ms_psize;
    size.limit = info.me_mapsize;
    return size;
}

base::expected<Checkpoint, Error> Store::SetCheckpoint(Checkpoint checkpoint, bool replace)
{
    const auto& options = m_impl->options;
    const MDB_dbi database = m_impl->environment->checkpoints;
    auto error = m_impl->Write("setting the checkpoint", [&](WriteTransaction& write) {
        checkpoint.commit = write.Number(codec::kCommitKey).value_or(0);
        const bool isThere = write.Has(database, checkpoint.name);
        if (isThere && !replace)
            write.Fail({.tag = ErrorTag::kDataExists,
                        .message = "there is a checkpoint " + checkpoint.name +
                                   "; replace it, delete it first, or choose another name"});
        if (!isThere && write.Count(database) >= options.checkpointLimit)
            write.Fail({.tag = ErrorTag::kResourceDenied,
                        .message = "there are " + std::to_string(options.checkpointLimit) +
                                   " checkpoints, which is the most; delete one first"});
        write.Put(database, checkpoint.name, codec::ToBytes(checkpoint));
    });
    if (error) return base::Unexpected(std::move(*error));
    return checkpoint;
}

std::optional<Error> Store::DropCheckpoint(const std::string& name)
{
    const MDB_dbi database = m_impl->environment->checkpoints;
    return m_impl->Write("deleting the checkpoint", [&](WriteTransaction& write) {
        if (!write.Has(database, name)) write.Fail(NoCheckpoint(name));
        write.Erase(database, name);
    });
}

base::expected<Checkpoint, Error> Store::FindCheckpoint(const std::string& name) const
{
    const auto all = Checkpoints();
    const auto found =
        std::find_if(all.begin(), all.end(), [&name](const Checkpoint& each) { return each.name == name; });
    if (found == all.end()) return base::Unexpected(NoCheckpoint(name));
    return *found;
}

std::vector<Checkpoint> Store::Checkpoints() const
{
    auto& environment = *m_impl->environment;
    const auto reading = environment.BeginReading();
    std::vector<Checkpoint> checkpoints;
    Cursor cursor(reading->transaction, environment.checkpoints);
    for (bool more = cursor.Go(MDB_FIRST); more; more = cursor.Go(MDB_NEXT)) {
        const auto payload = codec::Payload(cursor.Value());
        auto checkpoint = payload ? codec::CheckpointOf(cursor.Key(), *payload) : std::nullopt;
        if (checkpoint) checkpoints.push_back(std::move(*checkpoint));
    }
    if (cursor.code != MDB_NOTFOUND) environment.Fail("reading", cursor.code);
    return checkpoints;
}

std::optional<PendingCommit> Store::Pending() const
{
    auto& environment = *m_impl->environment;
    const auto reading = environment.BeginReading();
    const auto record = environment.Meta(reading->transaction, codec::kPendingCommitKey);
    return record ? codec::PendingCommitOf(*record) : std::nullopt;
}

std::optional<Error> Store::SetPending(const std::optional<PendingCommit>& pending)
{
    return m_impl->Write("noting the commit that waits for its confirmation",
                         [&](WriteTransaction& write) { PutPending(write, *m_impl->environment, pending); });
}

NodeRole Store::RoleOfNode() const
{
    auto& environment = *m_impl->environment;
    const auto reading = environment.BeginReading();
    const auto record = environment.Meta(reading->transaction, codec::kNodeRoleKey);
    return (record ? codec::NodeRoleOf(*record) : std::nullopt).value_or(NodeRole{});
}

std::optional<Error> Store::SetRoleOfNode(const NodeRole& role)
{
    return m_impl->Write("noting the node's role", [&](WriteTransaction& write) {
        write.Put(m_impl->environment->meta, codec::kNodeRoleKey, codec::ToBytes(role));
    });
}

std::optional<Error> Store::AddFaults(std::vector<Fault> faults)
{
    if (faults.empty()) return std::nullopt;
    const std::size_t limit = m_impl->options.faultLimit;
    // Those beyond the limit would be dropped at once.
    if (faults.size() > limit)
        faults.erase(faults.begin(), faults.end() - static_cast<std::ptrdiff_t>(limit));
    for (auto& fault : faults)
        for (std::string* text : {&fault.process, &fault.function, &fault.file, &fault.text})
            if (text->size() > kLongestFaultText) text->resize(kLongestFaultText);
    const MDB_dbi database = m_impl->environment->faults;
    return m_impl->Write("noting a fault", [&](WriteTransaction& write) {
        auto number = write.LastNumber(database);
        for (auto& fault : faults) {
            fault.number = ++number;
            write.Put(database, codec::NumberBytes(fault.number), codec::ToBytes(fault));
        }
        write.Trim(database, limit);
    });
}

std::vector<Fault> Store::Faults(std::size_t limit) const
{
    return Newest<Fault>(*m_impl->environment, m_impl->environment->faults, limit, &codec::FaultOf);
}

std::function<std::optional<Error>()> Store::Backup(fs::path file) const
{
    return [environment = m_impl->environment, target = std::move(file)] {
        return CopyEnvironment(*environment, target);
    };
}

}  // namespace cdb
