// SPDX-License-Identifier: Apache-2.0
// What the tests of the source of drops stand on: a network namespace with "near0" and "near1", each the end
// of a virtual cable to a host of its own ("far0", "far1", in namespaces of theirs), a sink that keeps
// everything, and time that the test advances.

#ifndef TESTS_UNIT_CAPTURE_DROPS_WORLD_H
#define TESTS_UNIT_CAPTURE_DROPS_WORLD_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>
#include <boost/asio/io_context.hpp>

#include "capture/drop_source.h"
#include "support/manual_timers.h"
#include "support/network.h"
#include "support/poll.h"

/// A drop with its bytes and texts.
struct KeptDrop {
    capture::Drop drop;
    std::string reason, function;
    support::Bytes header;
};

class KeepingDropSink final : public capture::DropSink {
public:
    void OnDrops(std::span<const capture::Drop> batch) noexcept override
    {
        for (const auto& drop : batch) {
            auto& kept = drops.emplace_back(KeptDrop{drop,
                                                     std::string(drop.reasonName),
                                                     std::string(drop.function),
                                                     {drop.header.begin(), drop.header.end()}});
            kept.drop.reasonName = kept.drop.function = {};
            kept.drop.header = {};
        }
    }
    void OnDrained() noexcept override { ++drained; }

    [[nodiscard]] std::size_t At(std::uint32_t ifIndex) const
    {
        std::size_t count = 0;
        for (const auto& kept : drops) count += kept.drop.ifIndex == ifIndex ? 1 : 0;
        return count;
    }

    std::vector<KeptDrop> drops;
    int drained = 0;
};

/// A copy of the drop as a sink gets it; it points into the kept one.
inline capture::Drop Told(const KeptDrop& kept)
{
    capture::Drop drop = kept.drop;
    drop.reasonName = kept.reason;
    drop.function = kept.function;
    drop.header = kept.header;
    return drop;
}

class DropsWorld : public testing::Test {
protected:
    void SetUp() override;

    /// A source with these options, or a skipped test where the kernel or the privileges don't allow it.
    void Start(const capture::DropOptions& options = {});

    /// Puts frames into near0 from its host.
    void Send(const std::vector<support::Bytes>& frames) { m_injector->Send(frames); }
    /// So many UDP frames that near0's namespace drops, since they are for another host; each has its number.
    void SendForeign(std::size_t count, std::size_t size = 200);

    /// The counts of an interface; zeros if it had no drops.
    [[nodiscard]] capture::InterfaceDrops Read(std::uint32_t ifIndex) const;
    [[nodiscard]] std::uint64_t DropsAt(std::uint32_t ifIndex) const { return Read(ifIndex).counts.drops; }
    [[nodiscard]] std::uint64_t DropsFor(std::uint32_t ifIndex, std::string_view reason) const;
    /// All counts, for what a failure says.
    [[nodiscard]] std::string Everything() const;
    /// Waits until so many are counted there, and no more; then hands over what waits.
    void Await(std::uint32_t ifIndex, std::uint64_t drops);

    std::optional<support::Network> network;
    std::optional<support::Network::Host> host0, host1;
    std::uint32_t near0 = 0, near1 = 0;
    boost::asio::io_context loop;
    support::ManualTimers timers;
    KeepingDropSink sink;
    std::unique_ptr<capture::DropSource> source;

private:
    std::optional<support::Injector> m_injector;
};

/// Empty if nft can be used here, else why not: for GTEST_SKIP.
std::string WhyNoFirewall();

/// Writes a file of /proc/sys.
void SetKernel(const std::string& name, const std::string& value);

#endif
