// SPDX-License-Identifier: Apache-2.0
// The child that unmakes what is left at the end, with pipes instead of hooks: a pipe's reader sees when the
// last copy of its other end is closed.

#include "capture/ebpf/last_process.h"

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "support/poll.h"

namespace {

using base::UniqueFd;
using capture::LeftHooks;
using capture::UnmakeInLastProcess;
using std::chrono::milliseconds;

struct Pipe {
    Pipe()
    {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("pipe");
        reader = UniqueFd(ends[0]);
        writer = std::make_shared<UniqueFd>(ends[1]);
    }
    /// No process has the other end.
    [[nodiscard]] bool IsClosed() const
    {
        char byte = 0;
        return ::read(reader.Get(), &byte, 1) == 0;
    }
    /// What closes the other end in the process that calls it.
    [[nodiscard]] std::function<void()> Closing() const
    {
        return [held = writer] { held->Close(); };
    }

    UniqueFd reader;
    std::shared_ptr<UniqueFd> writer;
};

bool HasEnded(pid_t child) { return ::waitpid(child, nullptr, WNOHANG) == child; }

TEST(EbpfLastProcessTest, UnmakesAllBeforeItReturns)
{
    const Pipe hook, other;
    LeftHooks left{
        .count = 1, .files = {hook.writer->Get()}, .letGo = hook.Closing(), .unmake = hook.Closing()};
    EXPECT_FALSE(UnmakeInLastProcess(left, support::kPatience));
    EXPECT_TRUE(hook.IsClosed());
    other.writer->Close();
    EXPECT_TRUE(other.IsClosed()) << "the child has kept no other file";
    EXPECT_TRUE(support::Becomes([] { return ::waitpid(-1, nullptr, WNOHANG) > 0; }));
}

TEST(EbpfLastProcessTest, LeavesTheRestToTheChildWhenItTakesTooLong)
{
    const Pipe hook, gate, listening;
    LeftHooks left;
    left.count = 1;
    left.files = {hook.writer->Get(), gate.reader.Get()};
    left.letGo = hook.Closing();
    left.unmake = [&] {
        (void)support::Becomes([&] { return gate.IsClosed(); });
        hook.writer->Close();
    };
    const std::optional<pid_t> child = UnmakeInLastProcess(left, milliseconds(20));
    ASSERT_TRUE(child);
    EXPECT_FALSE(hook.IsClosed()) << "the child still has it";
    listening.writer->Close();
    EXPECT_TRUE(support::Becomes([&] { return listening.IsClosed(); })) << "the next manager needs it";
    EXPECT_FALSE(HasEnded(*child));
    gate.writer->Close();
    EXPECT_TRUE(support::Becomes([&] { return hook.IsClosed() && HasEnded(*child); }));
}

}  // namespace
