// SPDX-License-Identifier: Apache-2.0
// The owner of a descriptor, on descriptors of the test's own.

#include "base/unique_fd.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <cerrno>

namespace {

using base::UniqueFd;

bool IsOpen(int descriptor) { return ::fcntl(descriptor, F_GETFD) >= 0; }

UniqueFd Opened() { return UniqueFd(::eventfd(0, EFD_CLOEXEC)); }

TEST(UniqueFd, ClosesWhatItHas)
{
    int first = -1, second = -1;
    {
        UniqueFd owner = Opened();
        first = owner.Get();
        UniqueFd other = Opened();
        second = other.Get();
        ASSERT_TRUE(IsOpen(first) && IsOpen(second));
        owner = std::move(other);
        EXPECT_FALSE(IsOpen(first));
        EXPECT_FALSE(other);
        EXPECT_EQ(owner.Get(), second);
    }
    EXPECT_FALSE(IsOpen(second));
}

TEST(UniqueFd, ClosesNothingThatItHasGivenAway)
{
    int descriptor = -1;
    {
        UniqueFd owner = Opened();
        const UniqueFd moved = std::move(owner);
        EXPECT_FALSE(owner);
        EXPECT_TRUE(moved);
        UniqueFd released = Opened();
        descriptor = released.Release();
        EXPECT_FALSE(released);
    }
    EXPECT_TRUE(IsOpen(descriptor));
    const UniqueFd again(descriptor);
}

TEST(UniqueFd, LeavesTheErrorThatIsNamedAfterIt)
{
    UniqueFd owner(1'000'000);  // no open descriptor: closing it fails
    errno = ENOSPC;
    owner.Close();
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(owner);
}

}  // namespace
