// SPDX-License-Identifier: Apache-2.0
// What flows, from one look at the state to the next: rates made of counts. Knows no terminal, no session and
// no clock. Used by the command "monitor sflow".

#ifndef CLI_SCREENS_SFLOW_WATCH_H
#define CLI_SCREENS_SFLOW_WATCH_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct lyd_node;

namespace cli {

/// In a second, since the look before; nullopt of an entry that is new or counts anew.
struct Rates {
    std::optional<std::uint64_t> packets;  // seen at an interface; datagrams sent to a collector
    std::optional<std::uint64_t> samples;
    friend bool operator==(const Rates&, const Rates&) = default;
};

struct WatchedEntry {
    std::string name;
    Rates rates;
    std::string problem;  // the first; empty: none
    friend bool operator==(const WatchedEntry&, const WatchedEntry&) = default;
};

/// One look.
struct Watched {
    bool isKnown = false;                              // whether the manager has answered
    std::string samplesPerSecond, datagramsPerSecond;  // to all collectors
    std::vector<WatchedEntry> entries;                 // in natural order
    std::vector<std::string> broken;  // "interface NAME", "collector NAME", "agent", each once
};

class SflowWatch {
public:
    /// `list`: "interface" or "collector"; `name`: one entry of it, or empty for all.
    SflowWatch(std::string list, std::string name) : m_list(std::move(list)), m_name(std::move(name)) {}

    /// What is needed of the state, as the content of a filter's container `sflow`.
    [[nodiscard]] std::string Filter() const;
    /// `state`: the container, or null. Times must not go back.
    Watched Look(const lyd_node* state, std::chrono::steady_clock::time_point now);

    /// One line without its end. `time` is for people.
    [[nodiscard]] std::string Text(const Watched& watched, std::string_view time) const;
    [[nodiscard]] std::string Json(const Watched& watched, std::string_view time) const;

private:
    struct Counts {
        std::uint64_t packets = 0, samples = 0;
    };

    std::string m_list, m_name;
    std::map<std::string, Counts> m_last;
    std::chrono::steady_clock::time_point m_lastTime;
};

/// The line of a look that failed.
std::string FailedText(const std::string& why, std::string_view time);
std::string FailedJson(const std::string& why, std::string_view time);

}  // namespace cli

#endif
