// SPDX-License-Identifier: Apache-2.0
// How the texts of state read its data tree. Used by the files that make text of state.

#ifndef CLI_DATA_STATE_NODE_H
#define CLI_DATA_STATE_NODE_H

#include <libyang/libyang.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/number.h"

namespace cli {

/// Children of one parent by name; the state's names are unique among siblings.
class Children {
public:
    explicit Children(const lyd_node* parent) : m_parent(parent) {}

    [[nodiscard]] const lyd_node* First(std::string_view name) const
    {
        for (const lyd_node* child = Begin(); child; child = child->next)
            if (name == LYD_NAME(child)) return child;
        return nullptr;
    }

    [[nodiscard]] Children Of(std::string_view name) const { return Children(First(name)); }
    [[nodiscard]] bool None() const { return !Begin(); }

    /// The leaf's value; "-" without one.
    [[nodiscard]] std::string Value(std::string_view name) const
    {
        const lyd_node* leaf = First(name);
        return leaf ? lyd_get_value(leaf) : "-";
    }

    /// The leaf as a number; nullopt without one.
    [[nodiscard]] std::optional<std::uint64_t> Figure(std::string_view name) const
    {
        const lyd_node* leaf = First(name);
        return leaf ? base::ToNumber<std::uint64_t>(lyd_get_value(leaf)) : std::nullopt;
    }

    /// A time without the fraction of its second, "Z" for UTC.
    [[nodiscard]] std::string Time(std::string_view name) const
    {
        std::string time = Value(name);
        const std::size_t point = time.find('.');
        if (point != std::string::npos) time.erase(point, time.find_first_of("Z+-", point) - point);
        constexpr std::string_view kUtc = "+00:00";
        if (time.ends_with(kUtc)) time.replace(time.size() - kUtc.size(), kUtc.size(), "Z");
        return time;
    }

    /// The values of a leaf-list, with blanks between; "-" for none.
    [[nodiscard]] std::string Values(std::string_view name) const
    {
        std::string text;
        ForEach(name, [&](const lyd_node* node) {
            text += (text.empty() ? "" : " ") + std::string(lyd_get_value(node));
        });
        return text.empty() ? "-" : text;
    }

    template <typename Visit>
    void ForEach(std::string_view name, Visit visit) const
    {
        for (const lyd_node* child = Begin(); child; child = child->next)
            if (name == LYD_NAME(child)) visit(child);
    }

private:
    [[nodiscard]] const lyd_node* Begin() const { return m_parent ? lyd_child(m_parent) : nullptr; }

    const lyd_node* m_parent;
};

}  // namespace cli

#endif
