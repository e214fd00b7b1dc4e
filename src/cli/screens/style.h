// SPDX-License-Identifier: Apache-2.0
// Colours, as few as help: the only place that knows which there are, and where they stand. Screens are made
// as plain texts, so that widths are those of characters; what is coloured in a text is found by the kind of
// its lines.

#ifndef CLI_SCREENS_STYLE_H
#define CLI_SCREENS_STYLE_H

#include <string>
#include <string_view>

namespace cli {

/// Where there are no colours, a full screen shows what is not plain bold.
enum class Tone { kPlain, kBroken, kWarning, kAdded, kRemoved };

/// Off: texts stay as they are.
class Style {
public:
    explicit Style(bool colours = false) : m_colours(colours) {}
    [[nodiscard]] bool HasColours() const { return m_colours; }

    /// The text in the tone's colour.
    [[nodiscard]] std::string Toned(Tone tone, std::string_view text) const;

    /// The line of a message: with "error:" or "warning:" coloured at its begin.
    [[nodiscard]] std::string Message(std::string_view line) const;
    /// What comes and what goes.
    [[nodiscard]] std::string Differences(const std::string& text) const;
    /// A screen about sFlow: what is broken.
    [[nodiscard]] std::string Causes(const std::string& text) const;

private:
    bool m_colours;
};

}  // namespace cli

#endif
