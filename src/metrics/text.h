// SPDX-License-Identifier: Apache-2.0
// Writes metrics in the text format of Prometheus, version 0.0.4: families of numbers, each number a line
// with its labels. Knows no metric.

#ifndef METRICS_TEXT_H
#define METRICS_TEXT_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace metrics {

inline constexpr const char* kCounter = "counter";
inline constexpr const char* kGauge = "gauge";

/// name="value". What would end the value is escaped; bytes that are no UTF-8 become U+FFFD.
std::string Label(std::string_view name, std::string_view value);

/// How often something took at most so long.
struct Histogram {
    /// Upper bounds in seconds, in ascending order.
    std::span<const double> bounds;
    /// As many as there are bounds, and one for what took longer; each counts its own range only.
    std::span<const std::uint64_t> counts;
    double sum = 0;  // seconds
};

class Text {
public:
    /// Begins a family: all its lines stand together. `name` must outlive them.
    void Family(std::string_view name, std::string_view type, std::string_view help);
    /// `labels`: as Label makes them, separated by commas; may be empty.
    void Line(std::string_view labels, std::uint64_t value);
    /// Seconds since the epoch, to the millisecond; no line if it has never been.
    void Line(std::string_view labels, const std::optional<std::chrono::system_clock::time_point>& time);
    /// A family of one number without labels.
    void One(std::string_view name, std::string_view type, std::string_view help, std::uint64_t value);
    /// A whole family.
    void Times(std::string_view name, std::string_view help, const Histogram& times);
    /// PREFIX_build_info with the version of the programs; always 1.
    void BuildInfo(const std::string& prefix);
    std::string Take() { return std::move(m_text); }

private:
    std::string_view m_name;
    std::string m_text;
};

}  // namespace metrics

#endif
