// SPDX-License-Identifier: Apache-2.0
// Reads the records of a store, in a child process since a damaged file may end it, and reports what is
// wrong.

#include "cdb/store/check.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <string_view>
#include <type_traits>

#include "base/unique_fd.h"
#include "cdb/rows/environment.h"
#include "cdb/store/history.h"

namespace cdb {
namespace {

class DamagedRecord : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

constexpr std::size_t kFirstData = 2;  // after the two meta pages

/// A cursor and the read transaction around it.
class Scan {
public:
    Scan(MDB_env* environment, MDB_dbi database)
    {
        Expect(mdb_txn_begin(environment, nullptr, MDB_RDONLY, &m_transaction));
        Expect(mdb_stat(m_transaction, database, &m_statistics));
        Expect(mdb_cursor_open(m_transaction, database, &m_cursor));
    }
    ~Scan()
    {
        mdb_cursor_close(m_cursor);
        mdb_txn_abort(m_transaction);
    }
    Scan(const Scan&) = delete;
    Scan& operator=(const Scan&) = delete;

    /// Calls `check` with every record, in order, and returns their number. Throws DamagedRecord if it is not
    /// the number that the database states.
    std::uint64_t Run(const std::function<void(std::string_view key, std::string_view value)>& check)
    {
        MDB_val key{};
        MDB_val value{};
        std::size_t count = 0;
        int code = mdb_cursor_get(m_cursor, &key, &value, MDB_FIRST);
        for (; code == MDB_SUCCESS; code = mdb_cursor_get(m_cursor, &key, &value, MDB_NEXT)) {
            if (++count > m_statistics.ms_entries) throw DamagedRecord("it has more records than it says");
            check(Text(key), Text(value));
        }
        if (code != MDB_NOTFOUND) throw DamagedRecord(mdb_strerror(code));
        if (count != m_statistics.ms_entries) throw DamagedRecord("it has fewer records than it says");
        return count;
    }

private:
    static void Expect(int code)
    {
        if (code != MDB_SUCCESS) throw DamagedRecord(mdb_strerror(code));
    }

    MDB_txn* m_transaction = nullptr;
    MDB_cursor* m_cursor = nullptr;
    MDB_stat m_statistics{};
};

/// Values on pages of their own. LMDB frees as many pages for one as the head of its first page says, so the
/// heads must be right.
class LargeValues {
public:
    explicit LargeValues(const Environment& environment)
    {
        MDB_envinfo info{};
        MDB_stat statistics{};
        mdb_env_info(environment.Handle(), &info);
        mdb_env_stat(environment.Handle(), &statistics);
        m_pageSize = statistics.ms_psize;
        m_pages = info.me_last_pgno + 1;
        // LMDB does not tell the address of its map; the page of a small record, whose head has its number,
        // does. With another page size than the memory's, a page need not begin at a memory page.
        m_known = m_pageSize == static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        if (m_known) m_map = MapOf(environment);
    }

    /// Whether the value has pages of its own: one that shares a page has its key before it there.
    [[nodiscard]] bool IsOne(std::string_view value) const
    {
        return m_known && Offset(value) % m_pageSize == kHeadSize;
    }

    [[nodiscard]] bool IsSound(std::string_view value) const
    {
        const std::size_t page = Offset(value) / m_pageSize;
        const std::size_t count = (value.size() + kHeadSize + m_pageSize - 1) / m_pageSize;
        if (page < kFirstData || page + count > m_pages) return false;
        const char* head = value.data() - kHeadSize;
        std::size_t number = 0;
        std::uint16_t flags = 0;
        std::uint32_t pages = 0;
        std::memcpy(&number, head, sizeof(number));
        std::memcpy(&flags, head + kFlagsAt, sizeof(flags));
        std::memcpy(&pages, head + kPagesAt, sizeof(pages));
        // A value that has replaced a longer one keeps that one's pages.
        return number == page && flags == kOverflow && pages >= count && pages <= m_pages - page;
    }

private:
    // LMDB's page head: the page's number, two unused bytes, two of flags, four with the number of an
    // overflow value's pages.
    static constexpr std::size_t kHeadSize = 16;
    static constexpr std::size_t kFlagsAt = 10;
    static constexpr std::size_t kPagesAt = 12;
    static constexpr std::uint16_t kOverflow = 4;

    [[nodiscard]] std::size_t Offset(std::string_view value) const
    {
        return static_cast<std::size_t>(value.data() - m_map);
    }

    [[nodiscard]] const char* MapOf(const Environment& environment) const
    {
        MDB_txn* transaction = nullptr;
        MDB_val key = Bytes(codec::kFormatKey);
        MDB_val value{};
        int code = mdb_txn_begin(environment.Handle(), nullptr, MDB_RDONLY, &transaction);
        if (code == MDB_SUCCESS) code = mdb_get(transaction, environment.meta, &key, &value);
        if (transaction != nullptr) mdb_txn_abort(transaction);
        if (code != MDB_SUCCESS) throw DamagedRecord(mdb_strerror(code));
        const auto* bytes = static_cast<const char*>(value.mv_data);
        const char* page = bytes - reinterpret_cast<std::uintptr_t>(bytes) % m_pageSize;
        std::size_t number = 0;
        std::memcpy(&number, page, sizeof(number));
        return page - number * m_pageSize;
    }

    const char* m_map = nullptr;
    bool m_known = false;
    std::size_t m_pageSize = 0;
    std::size_t m_pages = 0;
};

/// Checks that the list of free pages, which writing trusts, is readable and names only pages of the file.
/// Returns their number.
std::uint64_t CheckFreePages(MDB_env* environment)
{
    constexpr MDB_dbi kFreePages = 0;
    MDB_envinfo info{};
    mdb_env_info(environment, &info);
    std::uint64_t total = 0;
    Scan(environment, kFreePages).Run([&](std::string_view key, std::string_view value) {
        const auto number = [&value](std::size_t index) {
            std::size_t result = 0;
            std::memcpy(&result, value.data() + index * sizeof(result), sizeof(result));
            return result;
        };
        const std::size_t words = value.size() / sizeof(std::size_t);
        if (key.size() != sizeof(std::size_t) || words == 0 || number(0) > words - 1)
            throw DamagedRecord("its list of free pages can't be read");
        for (std::size_t i = 1; i <= number(0); ++i)
            if (number(i) < kFirstData || number(i) > info.me_last_pgno)
                throw DamagedRecord("its list of free pages names a page that it does not have");
        total += number(0);
    });
    return total;
}

/// The number that a key begins with.
std::string NumberText(std::string_view key)
{
    return std::to_string(codec::NumberOf(key.substr(0, sizeof(std::uint64_t))).value_or(0));
}

/// Checks the records of one database after the other.
class Reader {
public:
    Reader(Environment& environment, CheckDepth depth)
        : m_environment(environment), m_depth(depth), m_large(environment)
    {
    }

    /// Checks that keys ascend, and that values are intact and accepted by `readable`. Returns their number.
    std::uint64_t Check(MDB_dbi database, const std::string& kind,
                        const std::function<bool(std::string_view key, std::string_view payload)>& readable)
    {
        const bool isHistory = database == m_environment.history || database == m_environment.undo;
        std::string last;
        return Scan(m_environment.Handle(), database).Run([&](std::string_view key, std::string_view value) {
            const bool isNamed = database == m_environment.rows || database == m_environment.checkpoints;
            const auto which = [&] {
                return "its " + kind + ' ' + (isNamed ? codec::Readable(key) : NumberText(key));
            };
            if (!last.empty() && key <= last) throw DamagedRecord(which() + " is out of order");
            last = key;
            if (m_large.IsOne(value)) {
                if (!m_large.IsSound(value))
                    throw DamagedRecord("a page of " + which() + " has another head");
                if (isHistory && m_depth == CheckDepth::kStart) return;
            }
            if (!codec::IsIntact(key, value))
                throw DamagedRecord(which() + " has changed since it was written");
            if (!readable(key, *codec::Payload(value))) throw DamagedRecord(which() + " can't be read");
        });
    }

private:
    Environment& m_environment;
    CheckDepth m_depth;
    LargeValues m_large;
};

/// Checks that each commit's undo is complete and that the count of the bytes is right.
void CheckHistoryWhole(Environment& environment, const std::vector<std::uint64_t>& commits,
                       std::uint64_t bytes)
{
    auto reading = environment.BeginReading();
    for (const std::uint64_t commit : commits) {
        const auto found = history::WithUndo(environment, reading->transaction, commit);
        if (!found && found.error().tag != ErrorTag::kDataMissing)
            throw DamagedRecord("what undoes commit " + std::to_string(commit) + " can't be read");
    }
    const auto stored = environment.Meta(reading->transaction, codec::kHistoryBytesKey);
    if (stored && codec::NumberOf(*stored) != bytes)
        throw DamagedRecord("its count of the history's bytes is wrong");
}

void FillSizes(MDB_env* environment, StoreFigures& figures)
{
    MDB_envinfo info{};
    MDB_stat statistics{};
    mdb_env_info(environment, &info);
    mdb_env_stat(environment, &statistics);
    figures.pageSize = statistics.ms_psize;
    figures.pages = info.me_last_pgno + 1;
    figures.mapSize = info.me_mapsize;
}

/// Throws DamagedRecord or FatalError.
StoreFigures ReadRecords(const std::filesystem::path& directory, CheckDepth depth)
{
    StoreFigures figures;
    Environment environment(directory, Environment::Access::kCheck, 0);
    mdb_env_set_assert(environment.Handle(), [](MDB_env*, const char*) { _exit(1); });
    environment.UseDatabases();
    FillSizes(environment.Handle(), figures);
    figures.freePages = CheckFreePages(environment.Handle());
    Reader reader(environment, depth);
    Row row;
    figures.rows = reader.Check(environment.rows, "row", [&](std::string_view, std::string_view payload) {
        return codec::ReadRow(payload, row);
    });
    std::vector<std::uint64_t> commits;
    figures.historyEntries = reader.Check(
        environment.history, "history entry", [&](std::string_view key, std::string_view payload) {
            commits.push_back(codec::NumberOf(key).value_or(0));
            return key.size() == sizeof(std::uint64_t) && codec::HistoryEntryOf(payload).has_value();
        });
    if (environment.undo != Environment::kNoDatabase)
        reader.Check(environment.undo, "undo of commit", [](std::string_view key, std::string_view payload) {
            return key.size() == codec::kUndoKeySize && payload.size() <= codec::kUndoChunk;
        });
    if (environment.checkpoints != Environment::kNoDatabase)
        reader.Check(environment.checkpoints, "checkpoint",
                     [](std::string_view key, std::string_view payload) {
                         return codec::CheckpointOf(key, payload).has_value();
                     });
    figures.faults = reader.Check(
        environment.faults, "fault",
        [](std::string_view, std::string_view payload) { return codec::FaultOf(payload).has_value(); });
    auto reading = environment.BeginReading();
    static_cast<void>(StoredSchema(environment, reading->transaction));
    for (const auto name : {codec::kFingerprintKey, codec::kHistoryBytesKey})
        static_cast<void>(environment.Meta(reading->transaction, name));
    const auto pending = environment.Meta(reading->transaction, codec::kPendingCommitKey);
    if (pending && !codec::PendingCommitOf(*pending))
        throw DamagedRecord("its record of the commit that waits for its confirmation can't be read");
    const auto role = environment.Meta(reading->transaction, codec::kNodeRoleKey);
    if (role && !codec::NodeRoleOf(*role)) throw DamagedRecord("its record of the node's role can't be read");
    const auto commit = environment.Meta(reading->transaction, codec::kCommitKey);
    figures.commit = commit ? codec::NumberOf(*commit).value_or(0) : 0;
    figures.historyBytes = history::CountBytes(environment, reading->transaction);
    reading.reset();
    if (depth == CheckDepth::kEverything) CheckHistoryWhole(environment, commits, figures.historyBytes);
    return figures;
}

static_assert(std::is_trivially_copyable_v<StoreFigures>);

// The child's first words if the store is sound; other text is an error, and no text means that the child
// died.
constexpr std::string_view kSound = "sound\n";
constexpr rlim_t kLongestSeconds = 60;  // of processor time: damaged pages can form a ring

/// kSound and the bytes of the figures, or what is wrong.
std::string Verdict(const std::filesystem::path& directory, CheckDepth depth)
{
    try {
        const StoreFigures figures = ReadRecords(directory, depth);
        std::string verdict(kSound);
        return verdict.append(reinterpret_cast<const char*>(&figures), sizeof(figures));
    } catch (const FatalError& error) {
        return error.what();
    } catch (const DamagedRecord& damage) {
        return "the store in " + directory.string() + " is damaged: " + damage.what() +
               "; restore the directory from a copy, or move it away to begin with an empty one";
    } catch (const std::exception& error) {
        return "the store in " + directory.string() + " can't be checked: " + error.what();
    }
}

[[noreturn]] void RunChild(const std::filesystem::path& directory, CheckDepth depth, int output)
{
    for (const int signal : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL}) std::signal(signal, SIG_DFL);
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    const rlimit time{kLongestSeconds, kLongestSeconds};
    setrlimit(RLIMIT_CPU, &time);
    const std::string verdict = Verdict(directory, depth);
    std::string_view rest = verdict;
    while (!rest.empty()) {
        const ssize_t written = write(output, rest.data(), rest.size());
        if (written <= 0) _exit(1);
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    _exit(0);
}

std::string ReadAll(int input)
{
    std::string text;
    std::array<char, 1024> buffer{};
    for (;;) {
        const ssize_t count = read(input, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

StoreFigures CheckStore(const std::filesystem::path& directory, CheckDepth depth)
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        throw FatalError(std::string("checking the store failed: ") + std::strerror(errno));
    base::UniqueFd reader(ends[0]);
    base::UniqueFd writer(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        reader.Close();
        RunChild(directory, depth, writer.Get());
    }
    writer.Close();
    const std::string verdict = child > 0 ? ReadAll(reader.Get()) : std::string();
    if (child < 0) throw FatalError("checking the store failed: no process can be started");
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
    StoreFigures figures;
    if (verdict.starts_with(kSound) && verdict.size() == kSound.size() + sizeof(figures)) {
        std::memcpy(&figures, verdict.data() + kSound.size(), sizeof(figures));
        return figures;
    }
    if (!verdict.empty()) throw FatalError(verdict);
    throw FatalError(
        "the store in " + directory.string() +
        " is damaged: it can't be read to its end; restore the directory from a copy, or move it away "
        "to begin with an empty one");
}

}  // namespace cdb
