// SPDX-License-Identifier: Apache-2.0
// Collectors of other people's as processes of a test, in the network namespace that the test is in: started,
// waited for until they have taken what was sent to them, ended, and asked what they have stored. They judge
// nothing. Used by the tests here and by those of tests/process/system.

#ifndef SAMPLES_PEER_H
#define SAMPLES_PEER_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/process.h"

namespace samples_tests {

class Peer {
public:
    /// Where it listens, at 127.0.0.1.
    static constexpr std::uint16_t kPort = 6343;

    /// Empty if the program is on this machine, else why the test can't run: for GTEST_SKIP.
    static std::string WhyNot(const std::string& program);

    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// Waits until it has taken what has come so far: its socket holds nothing. Throws TimedOut.
    static void AwaitTaken();
    /// It takes what has come and ends, by which it stores everything. Returns how many datagrams its socket
    /// has lost, which must be 0 for anything that is said about what is missing.
    [[nodiscard]] std::uint64_t End();

    [[nodiscard]] std::string Log() const;

protected:
    /// Options may name files in Dir(). `endBy`: the signal at which it ends in order.
    explicit Peer(int endBy) : m_endBy(endBy) {}
    ~Peer() = default;
    /// Returns when it listens. Throws std::runtime_error with its log if it ends instead.
    void Start(const std::vector<std::string>& argv);
    [[nodiscard]] const std::filesystem::path& Dir() const { return m_dir.Path(); }

private:
    const int m_endBy;
    support::TempDir m_dir;
    std::unique_ptr<support::Process> m_process;
};

/// nfdump's collector; what it has stored is printed by nfdump. Needs nfdump-sflow.
class Sfcapd : public Peer {
public:
    static constexpr const char* kProgram = "sfcapd";
    Sfcapd();
    /// A line for each flow, once it has ended. `fields` as in nfdump's fmt: "%dp %pkt".
    [[nodiscard]] std::string Flows(const std::string& fields) const;
};

/// pmacct's collector, which adds flows up. Needs pmacct.
class Sfacctd : public Peer {
public:
    static constexpr const char* kProgram = "sfacctd";
    /// `aggregate`: the fields by which flows are told apart. Counts are those of the samples times the rate.
    explicit Sfacctd(const std::string& aggregate);
    /// One object for each aggregate, once it has ended.
    [[nodiscard]] std::vector<nlohmann::json> Totals() const;
};

}  // namespace samples_tests

#endif
