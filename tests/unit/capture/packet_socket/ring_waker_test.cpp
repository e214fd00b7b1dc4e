// SPDX-License-Identifier: Apache-2.0
// When a ring wakes the process, and how its sockets are ended.

#include "capture/packet_socket/waker.h"

#include <gmock/gmock.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <set>
#include <vector>

#include "capture/packet_socket/maker.h"
#include "capture/packet_source.h"
#include "support/network.h"

namespace {

using namespace capture;
using testing::ElementsAre;
using testing::IsEmpty;

// Something that can be readable.
class Bell {
public:
    Bell() : m_file(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    Bell(const Bell&) = delete;
    Bell& operator=(const Bell&) = delete;
    ~Bell() { close(m_file); }
    [[nodiscard]] int Get() const { return m_file; }
    void Ring() const { ASSERT_EQ(eventfd_write(m_file, 1), 0); }
    void Silence() const
    {
        eventfd_t value = 0;
        eventfd_read(m_file, &value);
    }

private:
    int m_file;
};

class Waker : public testing::Test {
protected:
    // The keys it wakes with, all that are due now.
    std::vector<std::uint32_t> Woken()
    {
        m_keys.clear();
        m_loop.restart();
        while (m_loop.poll() > 0) continue;
        return m_keys;
    }

    boost::asio::io_context m_loop;
    std::vector<std::uint32_t> m_keys;
    RingWaker m_waker{m_loop, [this](std::span<const std::uint32_t> keys) {
                          m_keys.insert(m_keys.end(), keys.begin(), keys.end());
                      }};
};

TEST_F(Waker, WakesOnceUntilItIsAskedAgain)
{
    const Bell bell;
    m_waker.Add(bell.Get(), 7);
    EXPECT_THAT(Woken(), IsEmpty());
    bell.Ring();
    EXPECT_THAT(Woken(), ElementsAre(7));
    bell.Silence();
    bell.Ring();
    bell.Ring();
    EXPECT_THAT(Woken(), IsEmpty());
    bell.Silence();
    m_waker.Rearm(bell.Get(), 7);
    EXPECT_THAT(Woken(), IsEmpty());
    bell.Ring();
    EXPECT_THAT(Woken(), ElementsAre(7));
}

TEST_F(Waker, WakesAtOnceForWhatIsReadableAlready)
{
    const Bell bell;
    bell.Ring();
    m_waker.Add(bell.Get(), 1);
    EXPECT_THAT(Woken(), ElementsAre(1));
    m_waker.Rearm(bell.Get(), 2);
    EXPECT_THAT(Woken(), ElementsAre(2));
}

TEST_F(Waker, ForgetsWhatIsRemoved)
{
    const Bell goes, stays;
    m_waker.Add(goes.Get(), 1);
    m_waker.Add(stays.Get(), 2);
    m_waker.Remove(goes.Get());
    goes.Ring();
    stays.Ring();
    EXPECT_THAT(Woken(), ElementsAre(2));
}

TEST_F(Waker, WakesForMoreThanItTakesAtATime)
{
    constexpr std::uint32_t kBells = 200;
    std::vector<std::unique_ptr<Bell>> bells;
    for (std::uint32_t key = 0; key < kBells; ++key) {
        bells.push_back(std::make_unique<Bell>());
        m_waker.Add(bells.back()->Get(), key);
        bells.back()->Ring();
    }
    const std::vector<std::uint32_t> woken = Woken();
    EXPECT_EQ(woken.size(), kBells);
    EXPECT_EQ(std::set<std::uint32_t>(woken.begin(), woken.end()).size(), kBells);
}

TEST_F(Waker, RefusesWhatCannotBeWaitedFor) { EXPECT_THROW(m_waker.Add(-1, 1), Unavailable); }

// ---- ending ----

class Closer : public testing::Test {
protected:
    void SetUp() override
    {
        if (const std::string why = support::Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
        support::Network::Veth("near", "far");
        for (int i = 0; i < 20; ++i) {
            m_pairs.push_back(std::make_shared<PacketSocketPair>(64U << 10U));
            m_pairs.back()->Prepare(support::Network::Index("near"), {.rate = 10}, 0);
            m_watched.emplace_back(m_pairs.back());
        }
    }

    void CloseAll(RingCloser& closer)
    {
        for (auto& pair : m_pairs) closer.Close(std::move(pair));
    }

    [[nodiscard]] bool AllClosed() const
    {
        return std::ranges::all_of(m_watched, [](const auto& pair) { return pair.expired(); });
    }

    std::optional<support::Network> m_network;
    std::vector<std::shared_ptr<PacketSocketPair>> m_pairs;
    std::vector<std::weak_ptr<PacketSocketPair>> m_watched;
};

TEST_F(Closer, ClosesAllBeforeItEndsAndHoldsNobodyUp)
{
    const auto begin = std::chrono::steady_clock::now();
    std::optional<RingCloser> closer(std::in_place);
    CloseAll(*closer);
    const auto handedOver = std::chrono::steady_clock::now() - begin;
    closer.reset();
    const auto closed = std::chrono::steady_clock::now() - begin;
    EXPECT_TRUE(AllClosed());
    EXPECT_LT(handedOver, closed);
    RecordProperty("Microseconds", static_cast<int>(handedOver / std::chrono::microseconds(1)));
}

// From now on this process can make neither threads nor processes.
bool ForbidThreads()
{
    sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 1, 0),
                            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone3, 0, 1),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

TEST_F(Closer, ClosesByItselfWhereThereCanBeNoThreads)
{
    // In a process of its own: what is forbidden stays so.
    EXPECT_EXIT(
        {
            RingCloser closer;
            if (!ForbidThreads()) _exit(2);
            CloseAll(closer);
            _exit(AllClosed() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
