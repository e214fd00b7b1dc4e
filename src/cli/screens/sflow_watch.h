// SPDX-License-Identifier: Apache-2.0
// What flows, from one look at the state to the next: rates made of counts, and how they were in the last
// minute. Knows no terminal, no session and no clock. Used by the command "monitor sflow".

#ifndef CLI_SCREENS_SFLOW_WATCH_H
#define CLI_SCREENS_SFLOW_WATCH_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cli/screens/rate_history.h"
#include "cli/screens/sflow_problems.h"

struct lyd_node;

namespace cli {

/// In a second, since the look before; nullopt of an entry that is new or counts anew.
struct Rates {
    std::optional<std::uint64_t> packets;  // seen at an interface; datagrams sent to a collector
    std::optional<std::uint64_t> samples;
    /// Of an interface: packets of the mean length of the last samples; nullopt without any.
    std::optional<std::uint64_t> bits;
    friend bool operator==(const Rates&, const Rates&) = default;
};

struct WatchedEntry {
    std::string name;
    Rates rates;
    std::string problem;               // the reason of the first; empty: none
    std::optional<Severity> severity;  // of the worst
    friend bool operator==(const WatchedEntry&, const WatchedEntry&) = default;
};

struct OfAll {
    std::size_t of = 0, all = 0;
};

/// A collector of the one interface that is looked at.
struct WatchedCollector {
    std::string name;
    bool receives = false;
    std::string problem;  // the reason of the first; empty: none
};

/// One look.
struct Watched {
    bool isKnown = false;                              // whether the manager has answered
    std::string samplesPerSecond, datagramsPerSecond;  // to all collectors
    std::vector<WatchedEntry> entries;                 // in natural order
    std::vector<std::string> broken;  // "interface NAME", "collector NAME", "agent", each once
    std::vector<Cause> causes;        // of what is asked for, broken ones first
    OfAll sampling, receiving;        // interfaces; collectors
    std::string name;                 // the one entry that was asked for; empty: all
    // Of the one interface:
    std::string samplingRate;
    std::vector<WatchedCollector> collectors;
    std::optional<std::uint64_t> speed;  // bits per second
};

class SflowWatch {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// `list`: "interface" or "collector"; `name`: one entry of it, or empty for all.
    SflowWatch(std::string list, std::string name) : m_list(std::move(list)), m_name(std::move(name)) {}

    /// Looks at that entry from now on, or at all. What is known of the others stays.
    void Turn(std::string name);
    [[nodiscard]] const std::string& List() const { return m_list; }
    [[nodiscard]] const std::string& Name() const { return m_name; }

    /// What is needed of the state, as the content of a filter's container `sflow`.
    [[nodiscard]] std::string Filter() const;
    /// `state`: the container, or null. Times must not go back.
    Watched Look(const lyd_node* state, Time now);

    /// Packets a second in the 60 s before `now`, the oldest first.
    [[nodiscard]] std::vector<RateHistory::Rate> HistoryOf(const std::string& name, Time now) const;

    /// One line of at most `width` characters, without its end. `time` is for people.
    [[nodiscard]] std::string Text(const Watched& watched, std::string_view time, std::size_t width) const;
    [[nodiscard]] std::string Json(const Watched& watched, std::string_view time) const;

private:
    struct Counts {
        std::uint64_t packets = 0, samples = 0;
        std::optional<std::uint64_t> bytes;  // of the samples
    };
    struct Known {
        Counts counts;
        Time at;
        std::deque<std::pair<std::uint64_t, std::uint64_t>> sampled;  // samples and their bytes, look by look
        RateHistory history;
    };

    [[nodiscard]] Counts CountsOf(const Children& entry) const;
    [[nodiscard]] static Rates RatesOf(Known& known, const Counts& counts, Time now);
    WatchedEntry LookAt(const Children& entry, Time now);
    void LookAtOne(const Children& sflow, Watched& watched);
    [[nodiscard]] std::int64_t Second(Time time) const;
    [[nodiscard]] std::string TextOfAll(const Watched& watched, std::string_view time,
                                        std::size_t width) const;

    std::string m_list, m_name;
    std::string m_kernelName;  // of the one interface
    std::map<std::string, Known> m_known;
    std::optional<Time> m_begin;  // of seconds
};

/// The line of a look that failed.
std::string FailedText(const std::string& why, std::string_view time, std::size_t width);
std::string FailedJson(const std::string& why, std::string_view time);

}  // namespace cli

#endif
