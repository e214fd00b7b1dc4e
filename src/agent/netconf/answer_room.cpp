// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/answer_room.h"

#include <list>
#include <map>
#include <string>
#include <utility>

#include <boost/asio/post.hpp>

#include "agent/data/errors.h"
#include "log/log.h"

namespace agent {
namespace {

/// An answer that is being made counts as one of so many parts of the room.
constexpr std::size_t kParts = 4;

}  // namespace

struct AnswerRoom::State : std::enable_shared_from_this<State> {
    struct Waiting {
        RequestPtr request;
        std::function<void()> begin;
        std::chrono::steady_clock::time_point until;
    };
    class Place;

    State(boost::asio::io_context& ioLoop, base::Timers& allTimers, const Options& roomOptions)
        : loop(ioLoop), timers(allTimers), options(roomOptions)
    {
    }

    [[nodiscard]] bool HasRoom(std::uint32_t uid) const;
    void Begin(const Waiting& waiting);
    void Admit();
    void AwaitFirst();
    void Expire();
    void GiveBack(std::uint32_t uid, std::size_t bytes);

    boost::asio::io_context& loop;
    base::Timers& timers;
    const Options options;
    std::shared_ptr<void> timer;  // for the first that waits
    std::list<Waiting> waiting;
    std::size_t taken = 0;
    std::map<std::uint32_t, std::size_t> takenBy;  // by user
    bool isAdmitting = false;
};

class AnswerRoom::State::Place final : public AnswerPlace {
public:
    Place(const std::shared_ptr<State>& room, std::uint32_t uid, std::size_t bytes)
        : m_room(room), m_uid(uid), m_bytes(bytes)
    {
        Add(bytes);
    }
    ~Place() override
    {
        if (const auto room = m_room.lock()) room->GiveBack(m_uid, m_bytes);
    }

    void SetSize(std::size_t bytes) override
    {
        const auto room = m_room.lock();
        if (!room) return;
        Add(bytes);
        room->GiveBack(m_uid, std::exchange(m_bytes, bytes));
    }

private:
    void Add(std::size_t bytes)
    {
        const auto room = m_room.lock();
        room->taken += bytes;
        room->takenBy[m_uid] += bytes;
    }

    const std::weak_ptr<State> m_room;
    const std::uint32_t m_uid;
    std::size_t m_bytes;
};

bool AnswerRoom::State::HasRoom(std::uint32_t uid) const
{
    const std::size_t needed = options.bytes / kParts;
    const auto fits = [needed](std::size_t used, std::size_t most) {
        return used == 0 || used + needed <= most;
    };
    const auto own = takenBy.find(uid);
    const bool fitsUser = uid == 0 || own == takenBy.end() || fits(own->second, options.bytes / 2);
    return fitsUser && fits(taken, options.bytes);
}

void AnswerRoom::State::Begin(const Waiting& next)
{
    const std::uint32_t uid = next.request->Who().uid;
    next.request->Occupy(std::make_shared<Place>(shared_from_this(), uid, options.bytes / kParts));
    next.begin();
}

/// Begins all requests that fit, in order of arrival; passes over users that have used up their share.
void AnswerRoom::State::Admit()
{
    if (std::exchange(isAdmitting, true)) return;  // a request that ends at once may bring the next one here
    for (auto at = waiting.begin(); at != waiting.end();) {
        const bool isWanted = at->request->Wanted();
        if (isWanted && !HasRoom(at->request->Who().uid)) {
            ++at;
            continue;
        }
        const Waiting next = std::move(*at);
        at = waiting.erase(at);
        if (isWanted) Begin(next);
    }
    isAdmitting = false;
    AwaitFirst();
}

void AnswerRoom::State::AwaitFirst()
{
    timer.reset();
    if (waiting.empty()) return;
    timer = timers.At(waiting.front().until, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->Expire();
    });
}

void AnswerRoom::State::Expire()
{
    const auto now = timers.Now();
    while (!waiting.empty() && waiting.front().until <= now) {
        const RequestPtr request = std::move(waiting.front().request);
        waiting.pop_front();
        if (!request->Wanted()) continue;
        const std::string reason =
            "no room for a long answer: clients have not read answers of " + std::to_string(taken) + " of " +
            std::to_string(options.bytes) +
            " bytes; read and close other sessions, ask for less at once, or raise cdbd's --max-unread";
        slog::Notice("session {} ({}): {}", request->Who().id, request->Who().user, reason);
        request->Refuse(MakeError(Layer::kProtocol, cdb::ErrorTag::kResourceDenied, reason));
    }
    AwaitFirst();
}

void AnswerRoom::State::GiveBack(std::uint32_t uid, std::size_t bytes)
{
    taken -= bytes;
    const auto own = takenBy.find(uid);
    own->second -= bytes;
    if (own->second == 0) takenBy.erase(own);
    if (waiting.empty()) return;
    // Posted, because the caller may be in the middle of something.
    boost::asio::post(loop, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->Admit();
    });
}

AnswerRoom::AnswerRoom(boost::asio::io_context& loop, base::Timers& timers, const Options& options)
    : m_state(std::make_shared<State>(loop, timers, options))
{
}

AnswerRoom::~AnswerRoom()
{
    m_state->timer.reset();
    const auto given = std::exchange(m_state->waiting, {});
}

void AnswerRoom::Enter(const RequestPtr& request, std::function<void()> begin)
{
    m_state->waiting.push_back({request, std::move(begin), m_state->timers.Now() + m_state->options.wait});
    m_state->Admit();
}

}  // namespace agent
