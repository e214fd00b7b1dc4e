// SPDX-License-Identifier: Apache-2.0
// Links that are made and deleted without a pause in another network namespace, thousands at once: the
// kernel's lock of links, which all namespaces share, is held most of the time, and long at a time.

#ifndef ENDURANCE_LINK_STORM_H
#define ENDURANCE_LINK_STORM_H

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "support/network.h"
#include "support/poll.h"

namespace endurance {

class LinkStorm {
public:
    /// Returns when links have been made and deleted once.
    LinkStorm()
    {
        constexpr unsigned kPrograms = 2;
        for (unsigned i = 1; i <= kPrograms; ++i)
            m_threads.emplace_back([this, i] { Run(std::to_string(i)); });
        support::Await("links to come and go", [this] { return m_rounds > 0; });
    }
    LinkStorm(const LinkStorm&) = delete;
    LinkStorm& operator=(const LinkStorm&) = delete;
    ~LinkStorm()
    {
        m_stop = true;
        for (std::thread& thread : m_threads) thread.join();
    }

    /// How often links have been made and deleted.
    [[nodiscard]] std::size_t Rounds() const { return m_rounds; }

private:
    // All links are one group, which the kernel deletes without letting the lock go.
    void Run(const std::string& group)
    {
        constexpr unsigned kPairs = 800;
        std::string lines;
        for (unsigned i = 0; i < kPairs; ++i) {
            const std::string name = "s" + group + "-" + std::to_string(i);
            lines += "link add name " + name + " group " + group + " type veth peer name " + name +
                     "p group " + group + "\n";
        }
        lines += "link del group " + group + "\n";
        try {
            m_elsewhere.Within([&] {
                while (!m_stop) {
                    support::Network::Ip(lines);
                    ++m_rounds;
                }
            });
        } catch (const std::exception&) {  // the rounds rise no more
        }
    }

    support::Network::Host m_elsewhere;
    std::atomic<bool> m_stop{false};
    std::atomic<std::size_t> m_rounds{0};
    std::vector<std::thread> m_threads;  // last: they use the others
};

}  // namespace endurance

#endif
