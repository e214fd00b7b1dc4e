// SPDX-License-Identifier: Apache-2.0
// Checks whether a text is a value of a leaf's type. Checks the usual types of state itself, because libyang
// takes a microsecond and more for each value, and asks libyang about the others. Used for what other
// processes send: their state and their events.

#ifndef AGENT_DATA_VALUE_CHECK_H
#define AGENT_DATA_VALUE_CHECK_H

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

struct ly_ctx;
struct lysc_node;
struct lysc_type;

namespace agent {

class ValueChecker {
public:
    explicit ValueChecker(const ly_ctx* context) : m_context(context) {}

    /// The value as it is shown, valid until the next call and while `text` is; nullopt if it is none of the
    /// leaf's type. Replaces characters that can't be shown (base/text.h).
    std::optional<std::string_view> Check(const lysc_node* leaf, std::string_view text);

private:
    std::optional<std::string_view> AskLibyang(const lysc_node* leaf, const lysc_type* type,
                                               std::string_view text);

    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };
    using Texts = std::unordered_set<std::string, TextHash, std::equal_to<>>;

    const ly_ctx* m_context;
    std::string m_text;       // the text with characters replaced
    std::string m_canonical;  // as libyang writes it
    /// Valid canonical values, because names occur again and again. Bounded.
    std::unordered_map<const lysc_type*, Texts> m_known;
    std::size_t m_knownCount = 0;
};

}  // namespace agent

#endif
