// SPDX-License-Identifier: Apache-2.0
// Labels, and behind each a text that may need several lines.

#ifndef CLI_SCREENS_FACT_LIST_H
#define CLI_SCREENS_FACT_LIST_H

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cli {

class FactList {
public:
    /// Control characters are escaped.
    void Add(std::string_view label, std::string_view text);
    [[nodiscard]] bool Empty() const { return m_facts.empty(); }

    /// Every line begins with `indent` blanks; the texts stand in a column of their own, broken at blanks
    /// where a line would have more than `width` characters. What stands behind "; " begins a line where a
    /// text is broken, since it is a remedy. If long labels leave too little room, the texts stand below
    /// them.
    [[nodiscard]] std::string Text(std::size_t indent, std::size_t width) const;

private:
    std::vector<std::pair<std::string, std::string>> m_facts;
};

}  // namespace cli

#endif
