// SPDX-License-Identifier: Apache-2.0
#include "cli/output.h"

#include <ostream>
#include <string>

#include "cli/config_text.h"
#include "cli/data.h"

namespace cli {
namespace {

class TextOutput : public Output {
public:
    explicit TextOutput(std::ostream& out) : m_out(out) {}
    void Show(const lyd_node* tree, const TextOf& text) override { m_out << text(tree); }

private:
    std::ostream& m_out;
};

/// Prints the data itself, not the command's text.
class DataOutput : public Output {
public:
    using Print = std::string (*)(const lyd_node* tree);
    DataOutput(Print print, std::ostream& out) : m_print(print), m_out(out) {}
    void Show(const lyd_node* tree, const TextOf&) override { m_out << m_print(tree); }

private:
    Print m_print;
    std::ostream& m_out;
};

}  // namespace

std::unique_ptr<Output> MakeOutput(Format format, std::ostream& out)
{
    switch (format) {
    case Format::kJson:
        return std::make_unique<DataOutput>(&ToJson, out);
    case Format::kXml:
        return std::make_unique<DataOutput>(&ToXml, out);
    case Format::kSet:
        return std::make_unique<DataOutput>(&ToSetLines, out);
    case Format::kText:
        break;
    }
    return std::make_unique<TextOutput>(out);
}

}  // namespace cli
