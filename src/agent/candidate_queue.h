// Work on the datastores, one piece after the other: an edit may wait for a callpoint, a commit for
// its subscribers, and whoever comes next waits until they are done. Reading needs no turn.

#ifndef AGENT_CANDIDATE_QUEUE_H
#define AGENT_CANDIDATE_QUEUE_H

#include <functional>
#include <memory>

#include <boost/asio/io_context.hpp>

namespace agent {

class CandidateQueue {
public:
    explicit CandidateQueue(boost::asio::io_context& loop);
    /// Drops what waits.
    ~CandidateQueue();
    CandidateQueue(const CandidateQueue&) = delete;
    CandidateQueue& operator=(const CandidateQueue&) = delete;

    /// Ends when the last reference to it goes; then the next job gets its turn.
    class Turn;
    using TurnPtr = std::shared_ptr<Turn>;
    using Job = std::function<void(const TurnPtr& turn)>;

    /// Runs the job, at once where nothing is before it.
    void Push(Job job);

private:
    struct State;
    static void RunNext(const std::shared_ptr<State>& state);
    std::shared_ptr<State> m_state;
};

}  // namespace agent

#endif
