// SPDX-License-Identifier: Apache-2.0
#include "netconf/plain_xml.h"

#include <algorithm>
#include <string_view>

#include "netconf/xml.h"

namespace netconf {
namespace {

constexpr std::string_view kCdata = "<![CDATA[";

/// Markup other than a tag, by how it begins and ends.
struct Section {
    std::string_view begin;
    std::string_view end;
};
constexpr Section kSections[] = {{"<!--", "-->"}, {kCdata, "]]>"}, {"<?", "?>"}};

const Section* SectionAt(std::string_view text)
{
    const auto* const found = std::find_if(std::begin(kSections), std::end(kSections),
                                           [text](const auto& each) { return text.starts_with(each.begin); });
    return found == std::end(kSections) ? nullptr : found;
}

}  // namespace

std::string PlainXml(std::string document)
{
    if (document.find("<!") == std::string::npos && document.find("<?") == std::string::npos) return document;
    std::string plain;
    plain.reserve(document.size());
    std::string lines;  // line breaks taken out and not yet written
    std::string_view rest = document;
    while (!rest.empty()) {
        // An attribute's value may hold ">", but no "<".
        const std::size_t open = std::min(rest.find('<'), rest.size());
        plain.append(rest.substr(0, open));
        rest.remove_prefix(open);
        const Section* const section = SectionAt(rest);
        if (section == nullptr) {
            const std::size_t name = std::min(rest.find_first_of(" \t\r\n/>", 2), rest.size());
            plain.append(rest.substr(0, name)).append(lines);
            rest.remove_prefix(name);
            lines.clear();
            continue;
        }
        rest.remove_prefix(section->begin.size());
        const std::string_view content = rest.substr(0, rest.find(section->end));
        if (section->begin == kCdata)
            AppendEscaped(plain, content);
        else
            lines.append(static_cast<std::size_t>(std::count(content.begin(), content.end(), '\n')), '\n');
        rest.remove_prefix(std::min(content.size() + section->end.size(), rest.size()));
    }
    return plain;
}

}  // namespace netconf
