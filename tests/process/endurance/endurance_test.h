// SPDX-License-Identifier: Apache-2.0
// What the suites of this folder share: a switch with a manager that samples (sampling_world.h) for each
// test, its log shown where a test fails, and steady traffic.

#ifndef ENDURANCE_ENDURANCE_TEST_H
#define ENDURANCE_ENDURANCE_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "endurance/ledger.h"
#include "support/decoding_collector.h"
#include "support/sampling_world.h"
#include "support/traffic.h"

namespace endurance {

using support::Await;
using support::BackgroundTraffic;
using support::Becomes;
using support::Bytes;
using support::DecodingCollector;
using support::ManagerOptions;
using support::Network;
using support::Received;
using support::SamplingWorld;
using testing::HasSubstr;

inline constexpr const char* kTcx = "ebpf-tcx";
inline constexpr const char* kClsact = "ebpf-clsact";
inline constexpr const char* kPacketSocket = "packet-socket";

/// "EbpfTcx" and so on, for names of tests.
std::string TestName(const std::string& source);

/// The source for tests that need only one: eBPF where it is allowed, else packet sockets, which also an
/// ordinary user may have in a namespace of its own.
std::string AnySource();

/// The errno of a connection to the Unix socket by that user, in no group but that of its number; 0 if it
/// is admitted, kNotThatUser where the process can't become that user.
inline constexpr int kNotThatUser = 255;
int ConnectAs(unsigned user, const std::filesystem::path& socket);

class EnduranceTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /// The world, its manager sampling with this source; skips where that is not allowed. To be followed by
    /// a look at IsSkipped.
    void Start(const std::string& source, ManagerOptions options = {});

    /// How the source counts.
    [[nodiscard]] Pool CountsPool() const { return m_pool; }

    [[nodiscard]] SamplingWorld& World() { return *m_world; }
    [[nodiscard]] const SamplingWorld& World() const { return *m_world; }
    support::ServiceClient& Service() { return m_world->Service(); }

    /// Tells the open session the whole configuration: the interfaces sampled at 1:`rate` for a collector
    /// "a". Returns when that is in effect.
    void Configure(const DecodingCollector& collector, const std::vector<std::string>& interfaces,
                   std::uint32_t rate = 1);

    /// Waits until `more` further samples of the interface have come to the collector.
    static void AwaitSamples(DecodingCollector& collector, std::uint32_t ifIndex, std::uint32_t more);

    /// What /proc says of the manager: resident memory in KiB, and how many descriptors it has.
    [[nodiscard]] std::size_t ResidentKilobytes();
    /// Expects it to have no more resident than this; a sanitizer keeps what is freed, so nothing with one.
    void ExpectResidentAtMost(std::size_t kilobytes);
    [[nodiscard]] std::size_t Descriptors();

private:
    std::optional<SamplingWorld> m_world;
    Pool m_pool = Pool::kExact;
};

}  // namespace endurance

#endif
