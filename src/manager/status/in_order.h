// SPDX-License-Identifier: Apache-2.0
// Look-up in a map of names that come in ascending order.

#ifndef MANAGER_STATUS_IN_ORDER_H
#define MANAGER_STATUS_IN_ORDER_H

#include <string>

namespace manager {

/// To find the element behind the last one costs no search. The map must outlive it and not change.
template <typename Map>
class InOrder {
public:
    explicit InOrder(const Map& map) : m_map(map), m_next(map.begin()) {}

    /// Null if there is none of that name.
    const typename Map::value_type* Find(const std::string& name)
    {
        if (m_next == m_map.end() || m_next->first != name) m_next = m_map.lower_bound(name);
        if (m_next == m_map.end() || m_next->first != name) return nullptr;
        return &*m_next++;
    }

private:
    const Map& m_map;
    typename Map::const_iterator m_next;
};

}  // namespace manager

#endif
