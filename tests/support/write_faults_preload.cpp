// SPDX-License-Identifier: Apache-2.0
// The library that a test preloads into a process to make its writing fail, or to end it, at a chosen call
// (write_faults.h). It takes the place of the C library's calls and makes the system calls itself, so that it
// is the same with and without sanitizers.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/write_faults_block.h"

namespace {

using support::WriteFaultsBlock;
using support::WriteOutcome;

constexpr int kNoFile = -1;
constexpr int kMaxPieces = 1024;

WriteFaultsBlock* g_block = nullptr;

__attribute__((constructor)) void MapBlock()
{
    const char* path = std::getenv(support::kWriteFaultsVariable);
    if (path == nullptr) return;
    const int file = open(path, O_RDWR | O_CLOEXEC);
    if (file < 0) return;
    void* mapped = mmap(nullptr, sizeof(WriteFaultsBlock), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (mapped != MAP_FAILED) g_block = static_cast<WriteFaultsBlock*>(mapped);
}

bool IsWatched(int file)
{
    if (file == kNoFile) return true;
    std::array<char, 32> link{};
    std::array<char, 512> path{};
    (void)std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", file);
    if (readlink(link.data(), path.data(), path.size() - 1) < 0) return false;
    const std::size_t length = std::strlen(g_block->directory.data());
    return std::strncmp(path.data(), g_block->directory.data(), length) == 0 && path[length] == '/';
}

/// What becomes of the call that is about to be made.
WriteOutcome Next(int file)
{
    if (g_block == nullptr || !g_block->armed) return WriteOutcome::kDone;
    const int error = errno;
    const bool watched = IsWatched(file);
    errno = error;
    if (!watched) return WriteOutcome::kDone;
    const std::uint32_t call = ++g_block->calls;
    const bool meant = g_block->lasting ? call >= g_block->first : call == g_block->first;
    return meant ? g_block->outcome.load() : WriteOutcome::kDone;
}

[[noreturn]] void End()
{
    kill(getpid(), SIGKILL);
    for (;;) pause();
}

long Failed()
{
    errno = g_block->error;
    return -1;
}

/// `whole` makes the call; `half` makes it with half of its bytes.
template <typename Whole, typename Half>
long Call(int file, Whole whole, Half half)
{
    switch (Next(file)) {
    case WriteOutcome::kDone:
        break;
    case WriteOutcome::kEndAfter:
        (void)whole();
        End();
    case WriteOutcome::kEndInTheMiddle:
        (void)half();
        End();
    case WriteOutcome::kFail:
        return Failed();
    case WriteOutcome::kFailAfterwards:
        (void)whole();
        return Failed();
    case WriteOutcome::kShort:
        return half();
    }
    return whole();
}

/// The first half of the bytes of several pieces.
class HalfOf {
public:
    HalfOf(const iovec* pieces, int count)
    {
        std::size_t rest = 0;
        for (int i = 0; i < count; ++i) rest += pieces[i].iov_len;
        rest /= 2;
        for (; m_count < count && m_count < kMaxPieces && rest > 0; ++m_count) {
            iovec& piece = m_pieces[static_cast<std::size_t>(m_count)];
            piece = pieces[m_count];
            if (piece.iov_len > rest) piece.iov_len = rest;
            rest -= piece.iov_len;
        }
    }
    [[nodiscard]] const iovec* Pieces() const { return m_pieces.data(); }
    [[nodiscard]] int Count() const { return m_count; }

private:
    std::array<iovec, kMaxPieces> m_pieces{};
    int m_count = 0;
};

}  // namespace

extern "C" {

ssize_t write(int file, const void* bytes, size_t size)
{
    return Call(
        file, [=] { return syscall(SYS_write, file, bytes, size); },
        [=] { return syscall(SYS_write, file, bytes, size / 2); });
}

ssize_t pwrite64(int file, const void* bytes, size_t size, off64_t at)
{
    return Call(
        file, [=] { return syscall(SYS_pwrite64, file, bytes, size, at); },
        [=] { return syscall(SYS_pwrite64, file, bytes, size / 2, at); });
}

ssize_t pwrite(int file, const void* bytes, size_t size, off_t at) { return pwrite64(file, bytes, size, at); }

ssize_t writev(int file, const iovec* pieces, int count)
{
    return Call(
        file, [=] { return syscall(SYS_writev, file, pieces, count); },
        [=] {
            const HalfOf half(pieces, count);
            return syscall(SYS_writev, file, half.Pieces(), half.Count());
        });
}

ssize_t pwritev64(int file, const iovec* pieces, int count, off64_t at)
{
    return Call(
        file, [=] { return syscall(SYS_pwritev, file, pieces, count, at, 0L); },
        [=] {
            const HalfOf half(pieces, count);
            return syscall(SYS_pwritev, file, half.Pieces(), half.Count(), at, 0L);
        });
}

ssize_t pwritev(int file, const iovec* pieces, int count, off_t at)
{
    return pwritev64(file, pieces, count, at);
}

// What has no bytes has no half.

int fsync(int file)
{
    const auto whole = [=] { return syscall(SYS_fsync, file); };
    return static_cast<int>(Call(file, whole, whole));
}

int fdatasync(int file)
{
    const auto whole = [=] { return syscall(SYS_fdatasync, file); };
    return static_cast<int>(Call(file, whole, whole));
}

int msync(void* address, size_t size, int flags)
{
    const auto whole = [=] { return syscall(SYS_msync, address, size, flags); };
    return static_cast<int>(Call(kNoFile, whole, whole));
}

int ftruncate64(int file, off64_t size) noexcept
{
    const auto whole = [=] { return syscall(SYS_ftruncate, file, size); };
    return static_cast<int>(Call(file, whole, whole));
}

int ftruncate(int file, off_t size) noexcept { return ftruncate64(file, size); }

}  // extern "C"
