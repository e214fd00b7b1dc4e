// SPDX-License-Identifier: Apache-2.0
#include "cdb/store/place.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include "cdb/model/error.h"
#include "cdb/rows/environment.h"
#include "cdb/store/check.h"

namespace cdb {
namespace {

namespace fs = std::filesystem;

constexpr const char* kAside = "new";
constexpr mode_t kLockFileMode = 0640;
constexpr fs::perms kDirectoryMode = fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec;
constexpr const char* kMarkText =
    "A store of cdbd was made in this directory. Without its data.mdb cdbd does not start here.\n";

void MakeDirectory(const fs::path& directory)
{
    std::error_code error;
    if (fs::create_directories(directory, error)) fs::permissions(directory, kDirectoryMode, error);
    if (error) throw FatalError("the directory " + directory.string() + " can't be made: " + error.message());
}

void SyncDirectory(const fs::path& directory)
{
    const base::UniqueFd file(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (file) fsync(file.Get());
}

bool Exists(const fs::path& file)
{
    std::error_code error;
    const bool exists = fs::exists(fs::symlink_status(file, error));
    if (error && error != std::errc::no_such_file_or_directory)
        throw FatalError(file.string() + " can't be looked at: " + error.message());
    return exists;
}

/// Errors are ignored: a store without the mark works, and the next start writes it.
void WriteMark(const fs::path& directory)
{
    const auto mark = directory / kMarkFile;
    std::error_code error;
    if (fs::exists(mark, error)) return;
    std::ofstream(mark) << kMarkText;
    fs::permissions(mark, kDataMode, error);
}

/// Makes an empty store aside and moves it into place, so that the directory has a whole one or none.
void MakeStore(const fs::path& directory, std::size_t mapSize)
{
    const fs::path aside = directory / kAside;
    std::error_code error;
    try {
        MakeDirectory(aside);
        // The remains of a process that died here.
        for (const auto& file : fs::directory_iterator(aside)) fs::remove_all(file.path());
        Environment(aside, Environment::Access::kWrite, mapSize).MakeDatabases();
        fs::permissions(aside / kDataFile, kDataMode);
        // The lock file of a lost store does not apply to this one.
        fs::remove(directory / kLockFile);
        fs::rename(aside / kDataFile, directory / kDataFile);
    } catch (const std::exception& failure) {
        for (const char* file : {kDataFile, kLockFile}) fs::remove(aside / file, error);
        throw FatalError("a store can't be made in " + directory.string() + ": " + failure.what());
    }
    SyncDirectory(directory);
}

[[noreturn]] void RefuseLost(const fs::path& directory, const char* trace)
{
    throw FatalError("the store in " + directory.string() + " has lost its file " + kDataFile + " (" + trace +
                     " says that there was one); restore the directory from a copy, or begin anew with "
                     "--import FILE or --init FILE");
}

std::string Holder(int file)
{
    std::array<char, 32> buffer{};
    const ssize_t count = pread(file, buffer.data(), buffer.size(), 0);
    std::string text(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    text.resize(std::min(text.find('\n'), text.size()));
    return text.empty() ? "another process" : "process " + text;
}

}  // namespace

WriterLock::WriterLock(const fs::path& directory)
{
    const std::string path = directory / kWriterLockFile;
    m_file = base::UniqueFd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kLockFileMode));
    if (!m_file) throw FatalError(path + " can't be opened: " + std::strerror(errno));
    if (flock(m_file.Get(), LOCK_EX | LOCK_NB) != 0) {
        const int code = errno;
        const std::string holder = Holder(m_file.Get());
        if (code != EWOULDBLOCK) throw FatalError(path + " can't be locked: " + std::strerror(code));
        throw FatalError("the store in " + directory.string() + " is in use by " + holder +
                         "; stop that one first");
    }
    const std::string text = std::to_string(getpid()) + '\n';
    const bool named = ftruncate(m_file.Get(), 0) == 0 &&
                       pwrite(m_file.Get(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
    if (!named) throw FatalError(path + " can't be written: " + std::strerror(errno));
}

StorePlace PreparePlace(const fs::path& directory, const StoreOptions& options)
{
    MakeDirectory(directory);
    const fs::path data = directory / kDataFile;
    const fs::path aside = directory / kAside;
    const char* trace = nullptr;  // a file that is made beside a store
    for (const char* file : {kMarkFile, kLockFile, kWriterLockFile})
        if (trace == nullptr && Exists(directory / file)) trace = file;
    // The directory aside is made before the first of these files and removed when the store is complete.
    if (trace == nullptr && !Exists(data)) MakeDirectory(aside);
    StorePlace place{std::make_unique<WriterLock>(directory)};
    if (Exists(data)) {
        place.recordedMap = CheckStore(directory, CheckDepth::kStart).mapSize;
    } else {
        const bool beingMade = Exists(aside) && !Exists(directory / kMarkFile);
        if (!beingMade && !options.remake) RefuseLost(directory, trace == nullptr ? kWriterLockFile : trace);
        place.remade = !beingMade;
        // The mark keeps the store a lost one if making it fails.
        if (place.remade) WriteMark(directory);
        MakeStore(directory, options.mapSize);
    }
    WriteMark(directory);
    std::error_code ignored;
    fs::remove_all(aside, ignored);
    return place;
}

void LoseAgain(const fs::path& directory)
{
    std::error_code ignored;
    for (const char* file : {kDataFile, kLockFile}) fs::remove(directory / file, ignored);
}

}  // namespace cdb
