// SPDX-License-Identifier: Apache-2.0
// The child is a fork: it has the memory and the rights of the process, and one thread. A process group's
// signal to end does not end it: its handlers are those of the process.

#include "capture/ebpf/last_process.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

#include "base/unique_fd.h"

namespace capture {
namespace {

bool Hears(const base::UniqueFd& event, std::chrono::milliseconds within)
{
    pollfd waiting{event.Get(), POLLIN, 0};
    return ::poll(&waiting, 1, static_cast<int>(within.count())) > 0;
}

void CloseFrom(int first, int last)
{
    constexpr int kMost = 1 << 18;  // where the kernel closes only one by one: before 5.9
    if (last < first || ::close_range(static_cast<unsigned>(first), static_cast<unsigned>(last), 0) == 0)
        return;
    for (int file = first; file <= std::min(last, kMost); ++file) ::close(file);
}

// Listening sockets among them, which the next manager needs.
void CloseAllBut(std::vector<int> kept)
{
    std::ranges::sort(kept);
    int next = STDERR_FILENO + 1;
    for (const int file : kept) {
        CloseFrom(next, file - 1);
        next = std::max(next, file + 1);
    }
    CloseFrom(next, std::numeric_limits<int>::max());
}

}  // namespace

std::optional<pid_t> UnmakeInLastProcess(const LeftHooks& left, std::chrono::milliseconds patience)
{
    // Before the parent has closed its own, a link that the child closes is not unmade.
    constexpr std::chrono::milliseconds kLetGo{1000};
    const base::UniqueFd letGo(::eventfd(0, EFD_CLOEXEC)), done(::eventfd(0, EFD_CLOEXEC));
    const pid_t child = letGo && done ? ::fork() : -1;
    if (child == 0) {
        std::vector<int> kept = left.files;
        kept.insert(kept.end(), {letGo.Get(), done.Get()});
        CloseAllBut(kept);
        (void)Hears(letGo, kLetGo);
        left.unmake();
        (void)::eventfd_write(done.Get(), 1);
        ::_exit(0);
    }
    if (child < 0) {
        left.unmake();
        return std::nullopt;
    }
    left.letGo();
    (void)::eventfd_write(letGo.Get(), 1);
    if (Hears(done, patience)) return std::nullopt;
    return child;
}

}  // namespace capture
