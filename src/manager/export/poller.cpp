// SPDX-License-Identifier: Apache-2.0
#include "manager/export/poller.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <span>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "base/timers.h"
#include "base/worker.h"
#include "log/log.h"
#include "manager/export/exporter.h"
#include "manager/export/poller_sample.h"
#include "net/counters/counters.h"
#include "net/links/links.h"
#include "wire/encode.h"

namespace manager {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Samples are due on ticks of this length: intervals are whole seconds, so they are spaced exactly, and
/// one wake-up and one reading serve all that falls due within a second.
constexpr milliseconds kTick{1000};

/// One reading of counters: what is asked for, and what the kernel answers. It is done beside the loop, and
/// all that it touches is its own meanwhile.
struct Reading {
    explicit Reading(std::shared_ptr<net::CounterReader> from) : reader(std::move(from)) {}

    /// Reads all that is asked for, in place of what was found before. Errors of the kernel do not throw:
    /// they are in `error`.
    void Do();

    const std::shared_ptr<net::CounterReader> reader;

    // What is asked for.
    std::vector<std::uint32_t> indexes;    // ascending
    std::vector<std::uint32_t> members;    // of these, the members of bonds and teams
    std::vector<std::uint32_t> forgotten;  // before: these are gone for good

    // What was found.
    template <typename Counters>
    struct Of {
        std::uint32_t ifIndex = 0;
        Counters counters;
    };
    std::span<const net::LinkCounters> links;  // in any order
    // In the same order:
    std::vector<Of<net::EthernetCounters>> ethernet;     // if the driver counts
    std::vector<Of<net::AggregateMember>> aggregations;  // of members
    std::string error;                                   // why nothing was found; empty: no error
};

void Reading::Do()
{
    links = {};
    ethernet.clear();
    aggregations.clear();
    error.clear();
    for (const std::uint32_t ifIndex : forgotten) reader->Forget(ifIndex);
    try {
        links = reader->Read(indexes);
    } catch (const std::system_error& failed) {
        error = failed.what();
    }
    for (const net::LinkCounters& each : links) {
        if (const auto counters = reader->ReadEthernet(each.ifIndex))
            ethernet.push_back({each.ifIndex, *counters});
        if (!std::ranges::binary_search(members, each.ifIndex)) continue;
        if (const auto member = reader->ReadMember(each.ifIndex))
            aggregations.push_back({each.ifIndex, *member});
    }
}

/// What is due at which tick of a grid of time, so that all that falls due at about the same time is done
/// together. It knows neither clocks nor what is done.
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
    void Enter(Item& item, Tick due)
    {
        auto& items = m_waiting[due];
        item.m_due = due;
        item.m_place = items.size();
        item.m_waiting = true;
        items.push_back(&item);
    }

    /// Does nothing if it is not waiting.
    void Leave(Item& item)
    {
        if (!item.m_waiting) return;
        item.m_waiting = false;
        const auto found = m_waiting.find(item.m_due);
        auto& items = found->second;
        items[item.m_place] = items.back();
        items[item.m_place]->m_place = item.m_place;
        items.pop_back();
        if (items.empty()) m_waiting.erase(found);
    }

    /// The first tick at which anything is due; empty if nothing is.
    [[nodiscard]] std::optional<Tick> Next() const
    {
        if (m_waiting.empty()) return std::nullopt;
        return m_waiting.begin()->first;
    }

    /// Appends all that is due at `now` or before; none of it is waiting any longer.
    void Take(Tick now, std::vector<Item*>& due)
    {
        while (!m_waiting.empty() && m_waiting.begin()->first <= now) {
            for (Item* item : m_waiting.begin()->second) {
                item->m_waiting = false;
                due.push_back(item);
            }
            m_waiting.erase(m_waiting.begin());
        }
    }

    /// The first tick after `now` in the rhythm of `interval` ticks that `due` belongs to.
    [[nodiscard]] static Tick Following(Tick due, Tick interval, Tick now)
    {
        return due > now ? due : due + interval * ((now - due) / interval + 1);
    }

private:
    std::map<Tick, std::vector<Item*>> m_waiting;  // none empty
};

struct Polled : Schedule::Item {
    const std::string* name = nullptr;  // its key
    Poller::Target target;
    bool begun = false;  // it has a rhythm
    std::uint64_t sent = 0;
    std::optional<WallTime> last;
};

}  // namespace

class Poller::Impl {
public:
    Impl(base::Timers& timers, base::Worker& worker, std::shared_ptr<net::CounterReader> reader,
         const net::Links& links, Flush flush, Clock clock, WallClock wallClock, Random random)
        : m_timers(timers),
          m_worker(worker),
          m_reading(std::make_shared<Reading>(std::move(reader))),
          m_links(links),
          m_flush(std::move(flush)),
          m_clock(std::move(clock)),
          m_wallClock(std::move(wallClock)),
          m_random(std::move(random)),
          m_start(m_clock())
    {
    }

    void Set(const std::string& key, const Target& target)
    {
        const auto at = m_polled.try_emplace(key).first;
        Polled& polled = at->second;
        polled.name = &at->first;
        if (polled.target.interval != target.interval) {
            m_schedule.Leave(polled);
            polled.begun = false;
        }
        polled.target = target;
        if (polled.target.interval == 0 || polled.target.streams->empty())
            m_schedule.Leave(polled);
        else if (!polled.Waiting())
            Begin(polled);
        Arm();
    }

    void Remove(const std::string& key)
    {
        const auto found = m_polled.find(key);
        if (found == m_polled.end()) return;
        m_schedule.Leave(found->second);
        std::erase_if(m_due, [&](const Due& due) { return due.polled == &found->second; });
        m_polled.erase(found);
        Arm();
    }

    void Forget(std::uint32_t ifIndex)
    {
        if (m_sequences.erase(ifIndex) != 0) m_forgotten.push_back(ifIndex);
    }

    void Restart(wire::Encoding encoding)
    {
        for (auto& [ifIndex, sequence] : m_sequences) sequence = 0;
        m_encoding = encoding;
    }

    void Fill(const std::string& key, InterfaceStatus& status) const
    {
        const auto found = m_polled.find(key);
        status.countersSent = found == m_polled.end() ? 0 : found->second.sent;
        status.lastCounters = found == m_polled.end() ? std::nullopt : found->second.last;
    }

private:
    struct Due {
        std::uint32_t ifIndex = 0;  // that is asked for; the target may have another by then
        Polled* polled = nullptr;
    };

    /// Waits for a random tick of the first interval, or for the next one of the rhythm that it had.
    void Begin(Polled& polled)
    {
        const std::uint32_t interval = polled.target.interval;
        const Schedule::Tick now = Now();
        if (polled.begun) return m_schedule.Enter(polled, Schedule::Following(polled.Due(), interval, now));
        polled.begun = true;
        const auto length = static_cast<std::uint32_t>(kTick.count());
        m_schedule.Enter(polled, now + 1 + m_random(interval * length) / length);
    }

    [[nodiscard]] Schedule::Tick Now() const { return (m_clock() - m_start) / kTick; }

    /// One timer, for the next tick at which anything is due; none while a reading is under way.
    void Arm()
    {
        if (m_asked != nullptr) return;
        const auto next = m_schedule.Next();
        if (next == m_armed) return;
        m_armed = next;
        m_timer.reset();
        if (!next) return;
        const auto delay = std::chrono::ceil<milliseconds>(m_start + *next * kTick - m_clock());
        m_timer = m_timers.After(std::max(delay, milliseconds(0)), [this] { OnTick(); });
    }

    /// However much time has passed, each that is due is polled once, and keeps its rhythm.
    void OnTick()
    {
        m_armed.reset();
        const Schedule::Tick now = Now();
        m_items.clear();
        m_schedule.Take(now, m_items);
        m_due.clear();
        for (Schedule::Item* item : m_items) {
            auto& polled = static_cast<Polled&>(*item);
            m_due.push_back({polled.target.ifIndex, &polled});
            m_schedule.Enter(polled, Schedule::Following(polled.Due(), polled.target.interval, now));
        }
        if (!m_due.empty()) Ask();
        Arm();
    }

    void Ask()
    {
        std::ranges::sort(m_due, {}, &Due::ifIndex);
        m_reading->indexes.clear();
        m_reading->members.clear();
        for (const Due& due : m_due) {
            if (!m_reading->indexes.empty() && m_reading->indexes.back() == due.ifIndex) continue;
            m_reading->indexes.push_back(due.ifIndex);
            m_sequences.try_emplace(due.ifIndex, 0);
            const net::Link* link = m_links.Find(due.ifIndex);
            if (link != nullptr && link->aggregate != 0) m_reading->members.push_back(due.ifIndex);
        }
        m_reading->forgotten = std::exchange(m_forgotten, {});
        m_asked = m_worker.Do([reading = m_reading] { reading->Do(); },
                              [this] {
                                  m_asked.reset();
                                  Take();
                                  Arm();
                              });
    }

    void Take()
    {
        if (!m_reading->error.empty() && !std::exchange(m_failing, true))
            slog::Error("the kernel's interface counters can't be read: {}", m_reading->error);
        if (m_reading->error.empty()) m_failing = false;
        const WallTime time = m_wallClock();
        auto ethernet = m_reading->ethernet.begin();
        auto aggregation = m_reading->aggregations.begin();
        for (const net::LinkCounters& counters : m_reading->links) {
            const auto* ofEthernet = IfOf(counters.ifIndex, ethernet, m_reading->ethernet.end());
            const auto* ofMember = IfOf(counters.ifIndex, aggregation, m_reading->aggregations.end());
            const net::Link* link = m_links.Find(counters.ifIndex);
            if (link == nullptr) continue;
            wire::CountersSample sample;
            sample.generic = MakeGenericCounters(*link, counters);
            if (ofEthernet != nullptr) sample.ethernet = MakeEthernetCounters(*ofEthernet);
            if (ofMember != nullptr) sample.lag = MakeLagCounters(*ofMember);
            for (const Due& due : std::ranges::equal_range(m_due, link->index, {}, &Due::ifIndex))
                if (due.polled->Waiting() && due.polled->target.ifIndex == link->index)
                    Send(*due.polled, link->index, sample, time);
        }
        m_due.clear();
        m_flush();
    }

    /// The counters of the iterator, which it then leaves behind, if they are those of this interface.
    template <typename Iterator>
    static auto IfOf(std::uint32_t ifIndex, Iterator& at, Iterator end) -> decltype(&at->counters)
    {
        return at != end && at->ifIndex == ifIndex ? &(at++)->counters : nullptr;
    }

    void Send(Polled& polled, std::uint32_t ifIndex, wire::CountersSample& sample, WallTime time)
    {
        sample.sequence = ++m_sequences[ifIndex];
        sample.source = ifIndex;
        sample.portName = *polled.name;

        const std::size_t size = wire::Encode(sample, m_encoding, m_whole);
        for (Stream* stream : *polled.target.streams) {
            std::span<const std::byte> bytes(m_whole.data(), size);
            if (const std::size_t room = stream->Room(); room < size)
                bytes = {m_cut.data(), wire::Encode(sample, m_encoding, std::span(m_cut).first(room))};
            if (!bytes.empty()) stream->Put(bytes, Stream::Sample::kCounters);
        }
        ++polled.sent;
        polled.last = time;
    }

    base::Timers& m_timers;
    base::Worker& m_worker;
    const std::shared_ptr<Reading> m_reading;  // the worker's while m_asked
    const net::Links& m_links;
    Flush m_flush;
    Clock m_clock;
    WallClock m_wallClock;
    Random m_random;
    steady_clock::time_point m_start;  // of tick 0
    wire::Encoding m_encoding = wire::Encoding::kCompact;

    std::unordered_map<std::string, Polled> m_polled;  // by name in the configuration
    /// The last sequence number of each kernel interface that was asked for.
    std::unordered_map<std::uint32_t, std::uint32_t> m_sequences;
    std::vector<std::uint32_t> m_forgotten;  // since the last reading
    Schedule m_schedule;
    std::optional<Schedule::Tick> m_armed;
    std::shared_ptr<void> m_timer;

    std::shared_ptr<void> m_asked;  // while the reading is under way
    std::vector<Due> m_due;         // and what it is for; by interface
    bool m_failing = false;         // one line of the log for a row of failures

    // Of one tick, kept for their memory.
    std::vector<Schedule::Item*> m_items;
    std::array<std::byte, wire::kMaxCountersSample> m_whole{}, m_cut{};
};

Poller::Poller(base::Timers& timers, base::Worker& worker, std::shared_ptr<net::CounterReader> reader,
               const net::Links& links, Flush flush, Clock clock, WallClock wallClock, Random random)
    : m_impl(std::make_unique<Impl>(timers, worker, std::move(reader), links, std::move(flush),
                                    std::move(clock), std::move(wallClock), std::move(random)))
{
}

Poller::~Poller() = default;

void Poller::Set(const std::string& key, const Target& target) { m_impl->Set(key, target); }
void Poller::Remove(const std::string& key) { m_impl->Remove(key); }
void Poller::Forget(std::uint32_t ifIndex) { m_impl->Forget(ifIndex); }
void Poller::Restart(wire::Encoding encoding) { m_impl->Restart(encoding); }
void Poller::Fill(const std::string& key, InterfaceStatus& status) const { m_impl->Fill(key, status); }

}  // namespace manager
