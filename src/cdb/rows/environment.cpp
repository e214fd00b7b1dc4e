// SPDX-License-Identifier: Apache-2.0
#include "cdb/rows/environment.h"

#include <sys/resource.h>
#include <sys/statvfs.h>

#include <cerrno>

namespace cdb {
namespace {

constexpr unsigned kDatabases = 8;
constexpr unsigned kReaders = 512;
constexpr std::size_t kKeptReadings = 8;
constexpr mdb_mode_t kFileMode = 0640;

/// Whether the file can't grow: the disk is full, or the process's file size limit is reached.
bool NoSpaceLeft(const std::filesystem::path& directory)
{
    constexpr std::uint64_t kNearlyNothing = std::uint64_t{1} << 20;
    struct statvfs disk {};
    if (statvfs(directory.c_str(), &disk) == 0 && disk.f_bavail * disk.f_frsize < kNearlyNothing) return true;
    rlimit limit{};
    std::error_code error;
    const auto size = std::filesystem::file_size(directory / kDataFile, error);
    return !error && getrlimit(RLIMIT_FSIZE, &limit) == 0 && size + kNearlyNothing > limit.rlim_cur;
}

bool IsFull(const std::filesystem::path& directory, int code)
{
    // LMDB reports a write that was cut short for lack of space as EIO.
    if (code == EIO) return NoSpaceLeft(directory);
    return code == MDB_MAP_FULL || code == MDB_TXN_FULL || code == ENOSPC || code == EDQUOT || code == EFBIG;
}

unsigned Flags(Environment::Access access)
{
    if (access == Environment::Access::kWrite) return MDB_NOTLS;
    return MDB_NOTLS | MDB_RDONLY | (access == Environment::Access::kCheck ? MDB_NOLOCK : 0);
}

std::string Reason(int code)
{
    switch (code) {
    case MDB_INVALID:
        return "the file is damaged or no database";
    case MDB_VERSION_MISMATCH:
        return "the file was written by another version of the database library";
    case MDB_CORRUPTED:
    case MDB_PAGE_NOTFOUND:
        return "the file is damaged";
    case ENOENT:
        return "there is none";
    default:
        return mdb_strerror(code);
    }
}

}  // namespace

Error ToError(const std::filesystem::path& directory, const std::string& what, int code)
{
    Error error;
    const std::string store = "the store in " + directory.string();
    if (IsFull(directory, code)) {
        error.tag = ErrorTag::kResourceDenied;
        error.message = what + " failed: " + store + " is full (" +
                        (code == EIO ? "no space left" : mdb_strerror(code)) +
                        "), and without older history too; free some space on its disk, or start cdbd with a "
                        "larger --map-size, and try again; nothing was changed";
    } else if (code == MDB_BAD_VALSIZE) {
        error.tag = ErrorTag::kTooBig;
        error.message = what + " failed: the keys of an entry are too long together; use shorter names";
    } else if (code == MDB_PANIC) {
        error.message =
            what + " failed: an earlier write to " + store + " could not be finished; restart cdbd";
    } else {
        error.message = what + " failed in " + store + ": " + mdb_strerror(code) + "; nothing was changed";
    }
    return error;
}

Environment::Environment(const std::filesystem::path& directory, Access access, std::size_t mapSize)
    : m_directory(directory)
{
    // LMDB would make its lock file even if there is no store, and take an empty file for a new store.
    std::error_code error;
    const auto size = std::filesystem::file_size(directory / kDataFile, error);
    if (error && access != Access::kWrite) Fail("opening", error.value());
    if (!error && size == 0) Fail("opening", MDB_INVALID);
    int code = mdb_env_create(&m_environment);
    if (code != MDB_SUCCESS) Fail("opening", code);
    mdb_env_set_maxdbs(m_environment, kDatabases);
    mdb_env_set_maxreaders(m_environment, kReaders);
    if (mapSize != 0) mdb_env_set_mapsize(m_environment, mapSize);
    code = mdb_env_open(m_environment, directory.c_str(), Flags(access), kFileMode);
    if (code == MDB_SUCCESS && access != Access::kCheck) code = mdb_reader_check(m_environment, nullptr);
    if (code == MDB_SUCCESS && access == Access::kWrite) code = TakeOverFromLastWriter();
    if (code == MDB_SUCCESS) return;
    mdb_env_close(m_environment);
    Fail("opening", code);
}

int Environment::TakeOverFromLastWriter()
{
    // A commit first writes its meta page, then its number into the lock file. A writer that was killed in
    // between leaves the older number there while any reader keeps the file open, so reads by that number see
    // the previous commit. The next write lock finds its owner dead and corrects the number.
    MDB_txn* transaction = nullptr;
    const int code = mdb_txn_begin(m_environment, nullptr, 0, &transaction);
    if (code == MDB_SUCCESS) mdb_txn_abort(transaction);
    return code;
}

Environment::~Environment()
{
    m_idle.clear();
    mdb_env_close(m_environment);
}

void Environment::Fail(const std::string& what, int code) const
{
    std::string remedy;
    if (code == ENOENT) remedy = "; is cdbd running, with the same SFLOW_STATE_DIR?";
    if (code == EACCES || code == EPERM) remedy = "; run as a user who may use it";
    throw FatalError(what + " the store in " + m_directory.string() + " failed: " + Reason(code) + remedy);
}

std::array<std::pair<const char*, MDB_dbi*>, 2> Environment::Added()
{
    return {{{"undo", &undo}, {"checkpoints", &checkpoints}}};
}

void Environment::UseDatabases()
{
    MDB_txn* transaction = nullptr;
    int code = mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &transaction);
    if (code != MDB_SUCCESS) Fail("reading", code);
    MDB_val key = Bytes(codec::kFormatKey);
    MDB_val mark{};
    code = mdb_dbi_open(transaction, "meta", 0, &meta);
    if (code == MDB_SUCCESS) code = mdb_get(transaction, meta, &key, &mark);
    // 0 is no format: the file is not ours.
    const std::uint32_t format = code == MDB_SUCCESS ? codec::FormatOf(Text(mark)).value_or(0) : 0;
    if (format == codec::kFormat) {
        code = mdb_dbi_open(transaction, "rows", 0, &rows);
        if (code == MDB_SUCCESS) code = mdb_dbi_open(transaction, "history", 0, &history);
        if (code == MDB_SUCCESS) code = mdb_dbi_open(transaction, "faults", 0, &faults);
        for (const auto& [name, database] : Added())
            if (code == MDB_SUCCESS && mdb_dbi_open(transaction, name, 0, database) != MDB_SUCCESS)
                *database = kNoDatabase;
        if (code != MDB_SUCCESS) mdb_txn_abort(transaction);
        if (code == MDB_SUCCESS) code = mdb_txn_commit(transaction);  // keeps the handles
        if (code != MDB_SUCCESS) Fail("reading", code);
        return;
    }
    mdb_txn_abort(transaction);
    const std::string file = (m_directory / kDataFile).string();
    if (format == 0)
        throw FatalError(file + " is not a store of this program; move it away or name another directory");
    throw FatalError(file + " has the format " + std::to_string(format) +
                     ", but this program knows the format " + std::to_string(codec::kFormat) +
                     " only; use the version that wrote it");
}

void Environment::UseOrAddDatabases()
{
    UseDatabases();
    if (undo != kNoDatabase && checkpoints != kNoDatabase) return;
    MDB_txn* transaction = nullptr;
    int code = mdb_txn_begin(m_environment, nullptr, 0, &transaction);
    if (code != MDB_SUCCESS) Fail("opening", code);
    for (const auto& [name, database] : Added())
        if (code == MDB_SUCCESS) code = mdb_dbi_open(transaction, name, MDB_CREATE, database);
    if (code != MDB_SUCCESS) mdb_txn_abort(transaction);
    if (code == MDB_SUCCESS) code = mdb_txn_commit(transaction);
    if (code != MDB_SUCCESS) Fail("opening", code);
}

void Environment::MakeDatabases()
{
    MDB_txn* transaction = nullptr;
    int code = mdb_txn_begin(m_environment, nullptr, 0, &transaction);
    if (code != MDB_SUCCESS) Fail("making", code);
    const std::string mark = codec::FormatMark();
    const std::string schema = codec::Seal(codec::kSchemaKey, SchemaTable().Serialize());
    const auto put = [&](std::string_view name, const std::string& bytes) {
        MDB_val key = Bytes(name);
        MDB_val value = Bytes(bytes);
        return mdb_put(transaction, meta, &key, &value, 0);
    };
    code = mdb_dbi_open(transaction, "meta", MDB_CREATE, &meta);
    if (code == MDB_SUCCESS) code = mdb_dbi_open(transaction, "rows", MDB_CREATE, &rows);
    if (code == MDB_SUCCESS) code = mdb_dbi_open(transaction, "history", MDB_CREATE, &history);
    if (code == MDB_SUCCESS) code = mdb_dbi_open(transaction, "faults", MDB_CREATE, &faults);
    for (const auto& [name, database] : Added())
        if (code == MDB_SUCCESS) code = mdb_dbi_open(transaction, name, MDB_CREATE, database);
    if (code == MDB_SUCCESS) code = put(codec::kFormatKey, mark);
    if (code == MDB_SUCCESS) code = put(codec::kSchemaKey, schema);
    if (code != MDB_SUCCESS) mdb_txn_abort(transaction);
    if (code == MDB_SUCCESS) code = mdb_txn_commit(transaction);
    if (code != MDB_SUCCESS) Fail("making", code);
}

std::optional<std::string> Environment::Meta(MDB_txn* transaction, std::string_view name) const
{
    MDB_val key = Bytes(name);
    MDB_val value{};
    const int code = mdb_get(transaction, meta, &key, &value);
    if (code == MDB_NOTFOUND) return std::nullopt;
    if (code != MDB_SUCCESS) Fail("reading", code);
    if (!codec::IsIntact(name, Text(value)))
        throw FatalError("the store in " + m_directory.string() + " is damaged: its record \"" +
                         std::string(name) + "\" can't be read; restore the directory from a copy");
    return std::string(*codec::Payload(Text(value)));
}

Environment::ReadingPtr Environment::BeginReading()
{
    ReadingPtr reading(nullptr, {this});
    {
        const std::lock_guard lock(m_idleMutex);
        if (!m_idle.empty()) {
            reading.reset(m_idle.back().release());
            m_idle.pop_back();
        }
    }
    if (reading) {
        const int code = mdb_txn_renew(reading->transaction);
        if (code != MDB_SUCCESS) Fail("reading", code);
        for (auto& pass : reading->idlePasses) mdb_cursor_renew(reading->transaction, pass->cursor);
        return reading;
    }
    reading.reset(new Reading);
    const int code = mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &reading->transaction);
    if (code != MDB_SUCCESS) Fail("reading", code);
    return reading;
}

void Environment::EndReading::operator()(Reading* reading) const
{
    std::unique_ptr<Reading> ended(reading);
    if (ended->transaction == nullptr) return;  // it did not begin
    mdb_txn_reset(ended->transaction);
    const std::lock_guard lock(environment->m_idleMutex);
    if (environment->m_idle.size() < kKeptReadings) environment->m_idle.push_back(std::move(ended));
}

std::unique_ptr<Environment::Pass> Environment::TakePass(Reading& reading) const
{
    if (!reading.idlePasses.empty()) {
        auto pass = std::move(reading.idlePasses.back());
        reading.idlePasses.pop_back();
        return pass;
    }
    auto pass = std::make_unique<Pass>();
    const int code = mdb_cursor_open(reading.transaction, rows, &pass->cursor);
    if (code != MDB_SUCCESS) Fail("reading", code);
    return pass;
}

void Environment::ReadRow(const MDB_val& key, const MDB_val& value, Pass& pass) const
{
    const auto payload = codec::Payload(Text(value));
    if (payload && codec::ReadRow(*payload, pass.row)) return;
    throw FatalError("the store in " + m_directory.string() + " is damaged: the row of " +
                     codec::Readable(Text(key)) + " can't be read; restore the directory from a copy");
}

Environment::Reading::~Reading()
{
    for (auto& pass : idlePasses) mdb_cursor_close(pass->cursor);
    if (transaction != nullptr) mdb_txn_abort(transaction);
}

SchemaTable StoredSchema(const Environment& environment, MDB_txn* transaction)
{
    const auto bytes = environment.Meta(transaction, codec::kSchemaKey);
    auto schema = bytes ? SchemaTable::Parse(*bytes) : std::nullopt;
    if (schema) return std::move(*schema);
    throw FatalError("the store in " + environment.Directory().string() +
                     " is damaged: its schema can't be read; restore the directory from a copy");
}

}  // namespace cdb
