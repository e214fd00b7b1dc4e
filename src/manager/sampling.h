// Ties the state to the kernel: binds configured interfaces to kernel interfaces as these come and go,
// has packets drawn there, resolves where they go, encodes them once and hands them to the streams of
// the interface's collectors. Also tells the poller whose counters to send.

#ifndef MANAGER_SAMPLING_H
#define MANAGER_SAMPLING_H

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "manager/observer.h"
#include "manager/status.h"

namespace capture {
class PacketSource;
class SampleSink;
}
namespace net {
class Forwarding;
class Links;
}

namespace manager {

class Exporter;
class Poller;
class State;

class Sampling {
public:
    struct Parts {
        const State& state;
        net::Links& links;
        net::Forwarding& forwarding;
        Exporter& exporter;
        Poller& poller;
    };
    using WallClock = std::function<WallTime()>;

    /// `added` is a direction that is sampled besides the one each interface asks for. The parts must
    /// outlive it.
    Sampling(const Parts& parts, std::optional<Direction> added, WallClock clock);
    Sampling(const Sampling&) = delete;
    Sampling& operator=(const Sampling&) = delete;
    ~Sampling();

    /// Hears of the state's changes: add it to the state.
    [[nodiscard]] Observer& AsObserver();
    /// Takes drawn packets: give it to the source.
    [[nodiscard]] capture::SampleSink& AsSink();

    /// The source to draw with; none: nothing is sampled, counters are. Before the loop runs. It must
    /// outlive this, but for the last call to End.
    void SetSource(capture::PacketSource* source, SourceStatus status);
    /// Ends all sampling: the source may go.
    void End();

    [[nodiscard]] const SourceStatus& Source() const;
    /// What happens at an interface of the state. Reads the source's counts once for all interfaces and
    /// keeps them until the loop goes on.
    [[nodiscard]] InterfaceStatus Status(const std::string& interface);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace manager

#endif
