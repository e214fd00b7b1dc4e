// SPDX-License-Identifier: Apache-2.0
// A poller with nothing real around it: time that the tests advance, counters that they set, streams that
// record what is put into them.

#ifndef TESTS_UNIT_MANAGER_EXPORT_POLLER_WORLD_H
#define TESTS_UNIT_MANAGER_EXPORT_POLLER_WORLD_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "manager/export/exporter.h"
#include "manager/export/poller.h"
#include "manager/fake_worker.h"
#include "net/counters/counters.h"
#include "net/links/links.h"
#include "support/manual_timers.h"
#include "support/sflow_decoder.h"

/// One sample that a stream was given.
struct Taken {
    std::int64_t second = 0;  // at which it was given, since the start
    std::uint32_t ifIndex = 0;
    std::uint32_t sequence = 0;
    friend bool operator==(const Taken&, const Taken&) = default;
    friend void PrintTo(const Taken& taken, std::ostream* out)
    {
        *out << "{" << taken.second << ", " << taken.ifIndex << ", " << taken.sequence << "}";
    }
};

class RecordingStream : public manager::Stream {
public:
    explicit RecordingStream(const support::ManualTimers& timers) : m_timers(timers) {}

    [[nodiscard]] std::size_t Room() const override { return m_room; }
    void Put(std::span<const std::byte> sample, Sample kind) override
    {
        m_onlyCounters = m_onlyCounters && kind == Sample::kCounters;
        m_bytes.emplace_back(sample.begin(), sample.end());
        const auto counters = std::get<support::DecodedCounters>(support::DecodeSample(sample));
        m_samples.push_back(counters);
        m_taken.push_back({std::chrono::duration_cast<std::chrono::seconds>(m_timers.Elapsed()).count(),
                           counters.sourceIndex, counters.sequence});
    }
    [[nodiscard]] const manager::StreamStatus& Status() const override { return m_status; }

    std::size_t m_room = 1372;
    bool m_onlyCounters = true;
    std::vector<std::vector<std::byte>> m_bytes;
    std::vector<support::DecodedCounters> m_samples;
    std::vector<Taken> m_taken;

private:
    const support::ManualTimers& m_timers;
    manager::StreamStatus m_status;
};

class FakeReader : public net::CounterReader {
public:
    std::span<const net::LinkCounters> Read(std::span<const std::uint32_t> ifIndexes) override
    {
        m_reads.emplace_back(ifIndexes.begin(), ifIndexes.end());
        m_result.clear();
        // From the last one on: their order promises nothing.
        for (auto index = ifIndexes.rbegin(); index != ifIndexes.rend(); ++index)
            if (const auto found = m_counters.find(*index); found != m_counters.end())
                m_result.push_back(found->second);
        return m_result;
    }
    std::optional<net::EthernetCounters> ReadEthernet(std::uint32_t ifIndex) override
    {
        const auto found = m_ethernet.find(ifIndex);
        return found == m_ethernet.end() ? std::nullopt : std::optional(found->second);
    }
    std::optional<net::AggregateMember> ReadMember(std::uint32_t ifIndex) override
    {
        m_askedForMembers.push_back(ifIndex);
        const auto found = m_members.find(ifIndex);
        return found == m_members.end() ? std::nullopt : std::optional(found->second);
    }
    void Forget(std::uint32_t ifIndex) override { m_forgotten.push_back(ifIndex); }

    std::map<std::uint32_t, net::LinkCounters> m_counters;
    std::map<std::uint32_t, net::EthernetCounters> m_ethernet;
    std::map<std::uint32_t, net::AggregateMember> m_members;
    std::vector<std::uint32_t> m_askedForMembers;
    std::vector<std::vector<std::uint32_t>> m_reads;
    std::vector<std::uint32_t> m_forgotten;

private:
    std::vector<net::LinkCounters> m_result;
};

class PollerWorld {
public:
    PollerWorld()
        : m_one(m_timers),
          m_other(m_timers),
          m_poller(
              m_timers, m_worker, m_sharedReader, m_links, [this] { ++m_flushes; },
              [this] { return std::chrono::steady_clock::time_point(m_timers.Elapsed() + m_jump); },
              [this] { return manager::WallTime(std::chrono::seconds(1'000'000) + m_timers.Elapsed()); },
              [this](std::uint32_t below) {
                  m_asked.push_back(below);
                  return m_random;
              })
    {
        for (std::uint32_t index = 1; index <= 9; ++index) Appear(index);
    }

    /// There is a kernel interface of that index, with counters.
    void Appear(std::uint32_t index)
    {
        m_reader.m_counters[index] = {.ifIndex = index, .rxPackets = index * 100};
        net::Link link;
        link.index = index;
        link.name = "eth" + std::to_string(index);
        m_links.Put(link);
    }

    /// Polled for the first stream, its first sample `milliseconds` into what may be chosen at random.
    void Poll(const std::string& key, std::uint32_t index, std::uint16_t interval, std::uint32_t milliseconds)
    {
        m_random = milliseconds;
        m_poller.Set(key, Target(index, interval));
    }
    manager::Poller::Target Target(std::uint32_t index, std::uint16_t interval)
    {
        return {index, interval, &m_streams};
    }

    void Advance(int seconds) { m_timers.Advance(std::chrono::seconds(seconds)); }

    support::ManualTimers m_timers;
    std::chrono::milliseconds m_jump{0};  // by which the clock is before the timers
    FakeWorker m_worker{m_timers};
    net::Links m_links;
    std::shared_ptr<FakeReader> m_sharedReader = std::make_shared<FakeReader>();
    FakeReader& m_reader = *m_sharedReader;
    RecordingStream m_one, m_other;
    const std::vector<manager::Stream*> m_streams{&m_one}, m_otherStreams{&m_other}, m_both{&m_one, &m_other},
        m_none;
    int m_flushes = 0;
    std::uint32_t m_random = 0;
    std::vector<std::uint32_t> m_asked;  // below which a number was to be
    manager::Poller m_poller;
};

#endif
