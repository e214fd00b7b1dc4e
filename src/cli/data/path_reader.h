// SPDX-License-Identifier: Apache-2.0
// Walks the schema along the words of a path. For what reads paths; commands use schema_words.h.

#ifndef CLI_DATA_PATH_READER_H
#define CLI_DATA_PATH_READER_H

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cli/data/place.h"

namespace cli {

bool IsLeaf(const lysc_node* node);  // or a leaf-list
bool IsKey(const lysc_node* node);

/// Calls `visit` with each configuration node that may stand below `parent` (null: at the top of a path,
/// where the nodes of the root container come first) until it returns true; keys are left out.
const lysc_node* FindChild(const ly_ctx* yang, const lysc_node* parent,
                           const std::function<bool(const lysc_node*)>& visit);

/// What the nodes below are called, in schema order: "agent, collector, interface".
std::string PossibleBelow(const ly_ctx* yang, const lysc_node* parent);

/// Reads words one after the other into a place. A node's name may be cut where it stays the only one. Each
/// throws Error that says what is possible.
class PathReader {
public:
    PathReader(const ly_ctx* yang, std::span<const std::string> words) : m_yang(yang), m_words(words) {}

    /// Takes words as far as they lead: to their end or to a leaf.
    void Walk();
    [[nodiscard]] bool AtEnd() const { return m_used == m_words.size(); }
    [[nodiscard]] const std::string& Next() const { return m_words[m_used]; }
    const std::string& Take() { return m_words[m_used++]; }
    [[nodiscard]] const lysc_node* Last() const
    {
        return place.steps.empty() ? nullptr : place.steps.back().schema;
    }
    [[nodiscard]] bool LacksKeys() const;
    /// The place of a key with a range, at which the reading has ended; the words have to be read once for
    /// each of its names.
    [[nodiscard]] std::optional<std::size_t> RangeAt() const { return m_rangeAt; }
    /// Takes the value of the leaf at the end.
    void TakeValue();
    /// Behind a leaf with its value: back to what the leaf stands in.
    void LeaveLeaf();
    void RefuseRest() const;
    void RefuseMissingKeys() const;

    Place place;

private:
    void Enter(const std::string& word);
    void TakeKeys();
    [[noreturn]] void RefuseWord(const std::string& word) const;

    const ly_ctx* m_yang;
    std::span<const std::string> m_words;
    std::size_t m_used = 0;
    std::optional<std::size_t> m_rangeAt;
};

}  // namespace cli

#endif
