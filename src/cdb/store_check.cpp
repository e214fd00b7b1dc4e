// Reads a whole store in a child process and reports what is wrong with it.

#include "cdb/store_check.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>

#include "cdb/store_environment.h"

namespace cdb {
namespace {

// What the child says when all is well; anything else is a complaint, nothing means that it died.
constexpr std::string_view kSound = "sound";
constexpr rlim_t kLongestSeconds = 60;  // of processor time: damaged pages can form a ring

class Damaged : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

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

    /// Every record, in order, and as many as the database says that it has.
    void Run(const std::function<void(std::string_view key, std::string_view value)>& check)
    {
        MDB_val key{};
        MDB_val value{};
        std::size_t count = 0;
        int code = mdb_cursor_get(m_cursor, &key, &value, MDB_FIRST);
        for (; code == MDB_SUCCESS; code = mdb_cursor_get(m_cursor, &key, &value, MDB_NEXT)) {
            if (++count > m_statistics.ms_entries) throw Damaged("it has more records than it says");
            check(Text(key), Text(value));
        }
        if (code != MDB_NOTFOUND) throw Damaged(mdb_strerror(code));
        if (count != m_statistics.ms_entries) throw Damaged("it has fewer records than it says");
    }

private:
    static void Expect(int code)
    {
        if (code != MDB_SUCCESS) throw Damaged(mdb_strerror(code));
    }

    MDB_txn* m_transaction = nullptr;
    MDB_cursor* m_cursor = nullptr;
    MDB_stat m_statistics{};
};

/// The list of free pages, which writing trusts: counted, and inside the file.
void CheckFreePages(MDB_env* environment)
{
    constexpr MDB_dbi kFreePages = 0;
    constexpr std::size_t kFirstData = 2;  // after the two pages that describe the file
    MDB_envinfo info{};
    mdb_env_info(environment, &info);
    Scan(environment, kFreePages).Run([&info](std::string_view key, std::string_view value) {
        const auto number = [&value](std::size_t index) {
            std::size_t result = 0;
            std::memcpy(&result, value.data() + index * sizeof(result), sizeof(result));
            return result;
        };
        const std::size_t words = value.size() / sizeof(std::size_t);
        if (key.size() != sizeof(std::size_t) || words == 0 || number(0) > words - 1)
            throw Damaged("its list of free pages can't be read");
        for (std::size_t i = 1; i <= number(0); ++i)
            if (number(i) < kFirstData || number(i) > info.me_last_pgno)
                throw Damaged("its list of free pages names a page that it does not have");
    });
}

/// Keys ascend, values are intact and of a kind that `readable` knows.
void CheckRecords(MDB_env* environment, MDB_dbi database, const std::string& kind,
                  const std::function<bool(std::string_view payload)>& readable)
{
    std::string last;
    Scan(environment, database).Run([&](std::string_view key, std::string_view value) {
        const std::string which = "its " + kind + ' ' + codec::Readable(key);
        if (!last.empty() && key <= last) throw Damaged(which + " is out of order");
        last = key;
        if (!codec::IsIntact(key, value)) throw Damaged(which + " has changed since it was written");
        if (!readable(*codec::Payload(value))) throw Damaged(which + " can't be read");
    });
}

std::string Verdict(const std::filesystem::path& directory)
{
    try {
        Environment environment(directory, Environment::Access::kCheck, 0);
        mdb_env_set_assert(environment.Handle(), [](MDB_env*, const char*) { _exit(1); });
        environment.UseDatabases();
        CheckFreePages(environment.Handle());
        Row row;
        CheckRecords(environment.Handle(), environment.rows, "row",
                     [&](std::string_view payload) { return codec::ReadRow(payload, row); });
        CheckRecords(environment.Handle(), environment.history, "history entry",
                     [](std::string_view payload) { return codec::HistoryEntryOf(payload).has_value(); });
        CheckRecords(environment.Handle(), environment.faults, "fault",
                     [](std::string_view payload) { return codec::FaultOf(payload).has_value(); });
        auto reading = environment.BeginReading();
        static_cast<void>(StoredSchema(environment, reading->transaction));
        static_cast<void>(environment.Meta(reading->transaction, codec::kCommitKey));
        environment.EndReading(std::move(reading));
        return std::string(kSound);
    } catch (const FatalError& error) {
        return error.what();
    } catch (const Damaged& damage) {
        return "the store in " + directory.string() + " is damaged: " + damage.what() +
               "; restore the directory from a copy, or move it away to begin with an empty one";
    } catch (const std::exception& error) {
        return "the store in " + directory.string() + " can't be checked: " + error.what();
    }
}

[[noreturn]] void RunChild(const std::filesystem::path& directory, int output)
{
    for (const int signal : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL}) std::signal(signal, SIG_DFL);
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    const rlimit time{kLongestSeconds, kLongestSeconds};
    setrlimit(RLIMIT_CPU, &time);
    const std::string verdict = Verdict(directory);
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

void CheckStore(const std::filesystem::path& directory)
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        throw FatalError(std::string("checking the store failed: ") + std::strerror(errno));
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        RunChild(directory, ends[1]);
    }
    close(ends[1]);
    const std::string verdict = child > 0 ? ReadAll(ends[0]) : std::string();
    close(ends[0]);
    if (child < 0) throw FatalError("checking the store failed: no process can be started");
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
    if (verdict == kSound) return;
    if (!verdict.empty()) throw FatalError(verdict);
    throw FatalError(
        "the store in " + directory.string() +
        " is damaged: it can't be read to its end; restore the directory from a copy, or move it away "
        "to begin with an empty one");
}

}  // namespace cdb
