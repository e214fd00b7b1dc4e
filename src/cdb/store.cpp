// The write side of the store: opening and making it, the schema, the history and the faults.
// Transactions: store_transaction.cpp.

#include "cdb/store.h"

#include <fcntl.h>
#include <unistd.h>

#include "cdb/row_view.h"
#include "cdb/store_check.h"
#include "cdb/store_environment.h"
#include "cdb/store_lock.h"
#include "cdb/store_snapshot.h"
#include "cdb/store_transaction.h"

namespace cdb {
namespace {

namespace fs = std::filesystem;

constexpr fs::perms kDirectoryMode = fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec;
constexpr fs::perms kDataMode = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
// Readers note themselves there.
constexpr fs::perms kLockMode = kDataMode | fs::perms::group_write;
constexpr std::size_t kLongestFaultText = 4096;

void MakeDirectory(const fs::path& directory)
{
    std::error_code error;
    if (fs::create_directories(directory, error)) fs::permissions(directory, kDirectoryMode, error);
    if (error) throw FatalError("the directory " + directory.string() + " can't be made: " + error.message());
}

void SyncDirectory(const fs::path& directory)
{
    const int file = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (file < 0) return;
    fsync(file);
    close(file);
}

/// Makes an empty store aside and moves it in place, so that there is a whole one or none.
void MakeStore(const fs::path& directory, std::size_t mapSize)
{
    const fs::path aside = directory / "new";
    std::error_code error;
    fs::remove_all(aside, error);  // what a process has left that died in here
    try {
        MakeDirectory(aside);
        Environment(aside, Environment::Access::kWrite, mapSize).MakeDatabases();
        fs::permissions(aside / kDataFile, kDataMode);
        fs::rename(aside / kDataFile, directory / kDataFile);
    } catch (const std::exception& failure) {
        fs::remove_all(aside, error);
        throw FatalError("a store can't be made in " + directory.string() + ": " + failure.what());
    }
    fs::remove_all(aside, error);
    SyncDirectory(directory);
}

/// The directory, locked, with a store in it that may be opened.
std::unique_ptr<WriterLock> Prepare(const fs::path& directory, std::size_t mapSize)
{
    MakeDirectory(directory);
    auto lock = std::make_unique<WriterLock>(directory);
    std::error_code error;
    if (fs::exists(directory / kDataFile, error))
        CheckStore(directory);
    else if (error)
        throw FatalError((directory / kDataFile).string() + " can't be looked at: " + error.message());
    else
        MakeStore(directory, mapSize);
    return lock;
}

/// The newest records of a database first.
template <typename Record>
std::vector<Record> Newest(Environment& environment, MDB_dbi database, std::size_t limit,
                           std::optional<Record> (*recordOf)(std::string_view))
{
    std::vector<Record> records;
    auto reading = environment.BeginReading();
    MDB_cursor* cursor = nullptr;
    int code = mdb_cursor_open(reading->transaction, database, &cursor);
    if (code != MDB_SUCCESS) environment.Fail("reading", code);
    MDB_val key{};
    MDB_val value{};
    code = limit > 0 ? mdb_cursor_get(cursor, &key, &value, MDB_LAST) : MDB_NOTFOUND;
    while (code == MDB_SUCCESS && records.size() < limit) {
        const auto payload = codec::Payload(Text(value));
        auto record = payload ? recordOf(*payload) : std::nullopt;
        if (record) records.push_back(std::move(*record));
        code = mdb_cursor_get(cursor, &key, &value, MDB_PREV);
    }
    mdb_cursor_close(cursor);
    environment.EndReading(std::move(reading));
    if (code != MDB_SUCCESS && code != MDB_NOTFOUND) environment.Fail("reading", code);
    return records;
}

}  // namespace

class Store::Impl {
public:
    Impl(const fs::path& directory, const StoreOptions& wanted)
        : options(wanted),
          lock(Prepare(directory, wanted.mapSize)),
          environment(std::make_shared<Environment>(directory, Environment::Access::kWrite, wanted.mapSize))
    {
        environment->UseDatabases();
        std::error_code error;  // the files may belong to somebody who lets us use them
        fs::permissions(directory / kDataFile, kDataMode, error);
        fs::permissions(directory / kLockFile, kLockMode, error);
        auto reading = environment->BeginReading();
        keys = std::make_shared<const codec::RowKeys>(StoredSchema(*environment, reading->transaction));
        environment->EndReading(std::move(reading));
    }

    StoreOptions options;
    std::unique_ptr<WriterLock> lock;  // given up after the environment is closed
    std::shared_ptr<Environment> environment;
    std::shared_ptr<const codec::RowKeys> keys;
    WriteSlot slot;
};

std::unique_ptr<Store> Store::Open(const fs::path& directory, const StoreOptions& options)
{
    return std::unique_ptr<Store>(new Store(std::make_unique<Impl>(directory, options)));
}

Store::Store(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

Store::~Store() = default;

const fs::path& Store::Directory() const { return m_impl->environment->Directory(); }

bool Store::Empty() const { return LastCommit() == 0; }

std::uint64_t Store::LastCommit() const { return Read().Commit(); }

void Store::SetSchema(const SchemaTable& schema)
{
    if (schema == m_impl->keys->Schema()) return;
    WriteTransaction write(m_impl->environment, m_impl->slot, "storing the schema");
    write.Put(m_impl->environment->meta, codec::kSchemaKey, schema.Serialize());
    if (const auto error = write.Commit()) throw FatalError(error->message);
    m_impl->keys = std::make_shared<const codec::RowKeys>(schema);
}

StoreReader::Snapshot Store::Read() const
{
    return StoreReader::Snapshot(
        std::make_unique<StoreReader::Snapshot::Impl>(m_impl->environment, m_impl->keys));
}

std::unique_ptr<RowView> MakeRowView(const Store& store)
{
    return MakeRowView(store.m_impl->environment, store.m_impl->keys);
}

Store::Transaction Store::Begin()
{
    return Transaction(std::make_unique<Transaction::Impl>(m_impl->environment, m_impl->slot, m_impl->keys,
                                                           m_impl->options.historyLimit));
}

std::vector<HistoryEntry> Store::History(std::size_t limit) const
{
    return Newest(*m_impl->environment, m_impl->environment->history, limit, codec::HistoryEntryOf);
}

std::optional<Error> Store::AddFault(Fault fault)
{
    for (std::string* text : {&fault.process, &fault.function, &fault.file, &fault.text})
        if (text->size() > kLongestFaultText) text->resize(kLongestFaultText);
    const MDB_dbi faults = m_impl->environment->faults;
    WriteTransaction write(m_impl->environment, m_impl->slot, "noting a fault");
    fault.number = write.LastNumber(faults) + 1;
    write.Put(faults, codec::NumberBytes(fault.number), codec::ToBytes(fault));
    write.Trim(faults, m_impl->options.faultLimit);
    return write.Commit();
}

std::vector<Fault> Store::Faults(std::size_t limit) const
{
    return Newest(*m_impl->environment, m_impl->environment->faults, limit, codec::FaultOf);
}

}  // namespace cdb
