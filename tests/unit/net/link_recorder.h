// SPDX-License-Identifier: Apache-2.0
// Writes down what a table of links tells.

#ifndef TESTS_UNIT_NET_LINK_RECORDER_H
#define TESTS_UNIT_NET_LINK_RECORDER_H

#include <string>
#include <utility>
#include <vector>

#include "net/links/links.h"

namespace net {

class LinkRecorder final : public LinkObserver {
public:
    void LinkChanged(const Link& link) override { Write("changed", link); }
    void LinkRemoved(const Link& link) override { Write("removed", link); }

    /// What was told since the last time, in order: "changed 3 eth0".
    std::vector<std::string> Taken() { return std::exchange(m_lines, {}); }
    [[nodiscard]] std::size_t Count() const { return m_lines.size(); }

private:
    void Write(const char* what, const Link& link)
    {
        m_lines.push_back(what + (" " + std::to_string(link.index)) + " " + link.name);
    }
    std::vector<std::string> m_lines;
};

}  // namespace net

#endif
