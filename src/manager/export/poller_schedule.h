// SPDX-License-Identifier: Apache-2.0
// What is due at which tick of a grid of time, so that all that falls due at about the same time is done
// together. It knows neither clocks nor what is done. Used by the poller.

#ifndef MANAGER_EXPORT_POLLER_SCHEDULE_H
#define MANAGER_EXPORT_POLLER_SCHEDULE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace manager {

class Schedule {
public:
    using Tick = std::int64_t;

    /// What can be due; derive from it. It must leave before it is destroyed.
    class Item {
    public:
        [[nodiscard]] bool Waiting() const { return m_waiting; }
        /// When it is due, or was the last time it waited.
        [[nodiscard]] Tick Due() const { return m_due; }

    private:
        friend class Schedule;
        Tick m_due = 0;
        std::size_t m_place = 0;  // among those of its tick
        bool m_waiting = false;
    };

    /// It must not be waiting.
    void Enter(Item& item, Tick due);
    /// Does nothing if it is not waiting.
    void Leave(Item& item);

    /// The first tick at which anything is due; empty if nothing is.
    [[nodiscard]] std::optional<Tick> Next() const;

    /// Appends all that is due at `now` or before; none of it is waiting any longer.
    void Take(Tick now, std::vector<Item*>& due);

    /// The first tick after `now` in the rhythm of `interval` ticks that `due` belongs to.
    [[nodiscard]] static Tick Following(Tick due, Tick interval, Tick now);

private:
    std::map<Tick, std::vector<Item*>> m_waiting;  // none empty
};

}  // namespace manager

#endif
