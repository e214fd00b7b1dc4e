// SPDX-License-Identifier: Apache-2.0
// What the tests of the export begin with: a network of their own, an exporter, and time that stands still
// until a test moves it.

#ifndef TESTS_UNIT_MANAGER_EXPORT_WORLD_H
#define TESTS_UNIT_MANAGER_EXPORT_WORLD_H

#include <chrono>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

#include "manager/export/collector.h"
#include "manager/export/exporter.h"
#include "support/network.h"

namespace exporter_test {

using manager::Exporter;
using manager::Stream;
using manager::StreamStatus;
using Kind = Stream::Sample;
using std::chrono::milliseconds;

inline std::error_code Code(int error) { return {error, std::generic_category()}; }

class ExporterTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (const std::string why = support::Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
        MakeExporter(0);
    }

    void MakeExporter(std::uint32_t mark)
    {
        m_exporter = std::make_unique<Exporter>([this] { return m_time; }, [this] { return m_uptime; }, mark);
    }
    Exporter& Export() { return *m_exporter; }

    /// Puts samples of that size, numbered on from the last, and does not flush.
    void Put(Stream& stream, std::size_t samples, std::size_t size, Kind kind = Kind::kFlow)
    {
        for (; samples > 0; --samples) {
            m_put.push_back({static_cast<std::uint32_t>(m_put.size()), kind});
            stream.Put(MakeSample(m_put.back(), size), kind);
        }
    }
    /// One datagram with one sample.
    void SendOne(Stream& stream)
    {
        Put(stream, 1, 100);
        Export().Flush();
    }
    void Advance(milliseconds by)
    {
        m_uptime += by;
        m_time += by;
    }
    [[nodiscard]] std::vector<Numbered> Last(std::size_t samples) const
    {
        return {m_put.end() - static_cast<std::ptrdiff_t>(samples), m_put.end()};
    }

    std::optional<support::Network> m_network;
    milliseconds m_uptime{1000};
    std::chrono::system_clock::time_point m_time{std::chrono::hours(500'000)};
    std::unique_ptr<Exporter> m_exporter;
    std::vector<Numbered> m_put;  // all samples so far
};

/// first, first + 1, … up to last.
inline std::vector<std::uint32_t> FromTo(std::uint32_t first, std::uint32_t last)
{
    std::vector<std::uint32_t> numbers(last + 1 - first);
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

}  // namespace exporter_test

#endif
