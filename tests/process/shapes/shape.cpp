// SPDX-License-Identifier: Apache-2.0
#include "shapes/shape.h"

#include <array>

#include "shapes/mutation.h"

namespace shapes {

namespace {

Element& At(Element& rpc, const Found& at)
{
    return at.parent == nullptr ? rpc : at.parent->children.at(at.index);
}

std::string Times(const std::string& piece, std::size_t bytes)
{
    std::string text;
    text.reserve(bytes + piece.size());
    while (text.size() < bytes) text += piece;
    return text;
}

// Pieces with a number in the place of "#".
std::string Numbered(const std::string& piece, std::size_t bytes)
{
    const auto at = piece.find('#');
    std::string text;
    for (std::size_t i = 0; text.size() < bytes; ++i)
        text.append(piece, 0, at).append(std::to_string(i)).append(piece, at + 1);
    return text;
}

// The start tag takes whatever stands in the last attribute's place.
void AddToTag(Element& element, const std::string& attributes) { element.name += attributes; }

template <bool kFirst>
void RepeatChild(Element& rpc, const Found& at, std::size_t bytes)
{
    Element& element = At(rpc, at);
    if (element.children.empty()) return;
    const std::string child = TextOf(kFirst ? element.children.front() : element.children.back());
    element.text += Times(child, bytes);
}

void RepeatItself(Element& rpc, const Found& at, std::size_t bytes)
{
    if (at.parent == nullptr) return;
    at.parent->text += Times(TextOf(At(rpc, at)), bytes);
}

void Nest(Element& rpc, const Found& at, std::size_t bytes)
{
    Element& element = At(rpc, at);
    const std::string name = element.name;
    const std::size_t depth = bytes / (2 * name.size() + 5);
    for (std::size_t i = 0; i < depth; ++i) element.text += "<" + name + ">";
    for (std::size_t i = 0; i < depth; ++i) element.text += "</" + name + ">";
}

// What is `at` before its children: pieces of that kind.
template <const char* kPiece>
void AddPieces(Element& rpc, const Found& at, std::size_t bytes)
{
    const std::string piece = kPiece;
    At(rpc, at).text += piece.find('#') == std::string::npos || piece.find("&#") != std::string::npos
                            ? Times(piece, bytes)
                            : Numbered(piece, bytes);
}

template <const char* kPiece>
void AddAttributes(Element& rpc, const Found& at, std::size_t bytes)
{
    AddToTag(At(rpc, at), Numbered(kPiece, bytes));
}

void LongAttribute(Element& rpc, const Found& at, std::size_t bytes)
{
    AddToTag(At(rpc, at), " a=\"" + std::string(bytes, 'x') + "\"");
}

void LongNamespace(Element& rpc, const Found& at, std::size_t bytes)
{
    AddToTag(At(rpc, at), " xmlns:long=\"" + std::string(bytes, 'x') + "\"");
}

void LongName(Element& rpc, const Found& at, std::size_t bytes)
{
    At(rpc, at).text += "<" + std::string(bytes, 'x') + "/>";
}

void TwiceAnAttribute(Element& rpc, const Found& at, std::size_t bytes)
{
    AddToTag(At(rpc, at), Times(" a=\"1\"", bytes));
}

void OperationByTwoNames(Element& rpc, const Found& at, std::size_t)
{
    AddToTag(At(rpc, at),
             " xmlns:o1=\"urn:ietf:params:xml:ns:netconf:base:1.0\""
             " xmlns:o2=\"urn:ietf:params:xml:ns:netconf:base:1.0\" o1:operation=\"merge\" "
             "o2:operation=\"delete\"");
}

// In the middle of its own value or of its first child's.
void CommentsInValues(Element& rpc, const Found& at, std::size_t bytes)
{
    Element& element = At(rpc, at);
    Element& value = element.children.empty() ? element : element.children.front();
    value.text.insert(value.text.size() / 2, Times("<!--c-->", bytes));
}

void Unclosed(Element& rpc, const Found& at, std::size_t bytes) { At(rpc, at).text += Times("<a>", bytes); }

void Entities(Element& rpc, const Found& at, std::size_t)
{
    std::string type = "<!DOCTYPE rpc [<!ENTITY e0 \"xxxxxxxxxx\">";
    for (int i = 1; i < 10; ++i) {
        const std::string before = "&e" + std::to_string(i - 1) + ";";
        type += "<!ENTITY e" + std::to_string(i) + " \"" + Times(before, before.size() * 10) + "\">";
    }
    At(rpc, at).text += type + "]>&e9;";
}

// Of the entry, each with a key of its own: data that is right, where the element is an entry.
template <const char* kEntry>
void Entries(Element& rpc, const Found& at, std::size_t bytes)
{
    if (at.parent == nullptr || At(rpc, at).name != "interface") return;
    at.parent->text += Numbered(kEntry, bytes);
}

// The pieces that the shapes are made of; "#" is a number.
constexpr char kUnknown[] = "<a/>";
constexpr char kUnknownNames[] = "<a#/>";
constexpr char kForeign[] = "<x:a xmlns:x=\"urn:x\"/>";
constexpr char kForeignSpaces[] = "<a xmlns=\"urn:x#\"/>";
constexpr char kNoSpace[] = "<a xmlns=\"\"/><a xmlns=\"urn:x\"/>";
constexpr char kText[] = "x";
constexpr char kBlanks[] = " \n";
constexpr char kComments[] = "<!---->";
constexpr char kInstructions[] = "<?a b?>";
constexpr char kSections[] = "<![CDATA[]]>";
constexpr char kReferences[] = "&#65;";
constexpr char kMixed[] = "x<a/>";
constexpr char kAttributes[] = " a#=\"\"";
constexpr char kPrefixed[] = " xml:a#=\"\"";
constexpr char kDeclarations[] = " xmlns:p#=\"u\"";
constexpr char kNew[] = "<interface><name>new#</name></interface>";
constexpr char kAbsent[] = "<interface nc:operation=\"delete\"><name>absent#</name></interface>";
constexpr char kDangling[] =
    "<interface><name>eth0</name><flow-sampling-collector><name>none#</name></flow-sampling-collector></"
    "interface>";

constexpr auto kShapes = std::to_array<Shape>({
    {"unknown elements of one name", AddPieces<kUnknown>},
    {"unknown elements of many names", AddPieces<kUnknownNames>},
    {"elements of a foreign namespace", AddPieces<kForeign>},
    {"elements of many namespaces", AddPieces<kForeignSpaces>},
    {"elements without a namespace", AddPieces<kNoSpace>},
    {"its first child again and again", RepeatChild<true>},
    {"its last child again and again", RepeatChild<false>},
    {"itself again and again", RepeatItself},
    {"itself in itself", Nest},
    {"attributes", AddAttributes<kAttributes>},
    {"prefixed attributes", AddAttributes<kPrefixed>},
    {"declarations of namespaces", AddAttributes<kDeclarations>},
    {"one attribute many times", TwiceAnAttribute},
    {"the operation by two prefixes", OperationByTwoNames},
    {"a long attribute", LongAttribute},
    {"a long namespace", LongNamespace},
    {"a long name", LongName},
    {"text", AddPieces<kText>},
    {"blanks", AddPieces<kBlanks>},
    {"comments", AddPieces<kComments>},
    {"comments in a value", CommentsInValues},
    {"processing instructions", AddPieces<kInstructions>},
    {"empty sections", AddPieces<kSections>},
    {"character references", AddPieces<kReferences>},
    {"text and elements in turn", AddPieces<kMixed>},
    {"elements that are not closed", Unclosed},
    {"entities of entities", Entities},
    {"new entries", Entries<kNew>, true},
    {"deleted entries that are not there", Entries<kAbsent>, true},
    {"references to nothing", Entries<kDangling>, true},
});

}  // namespace

std::span<const Shape> Shapes() { return kShapes; }

std::string DrawBent(Dice& dice, std::size_t bytes, std::string& what)
{
    Element rpc = DrawMessage(dice);
    what = rpc.children.at(0).name;
    // Small ones reach further into the code; each is as likely as large ones.
    for (unsigned count = dice.Draw(4); count > 0; --count) what += ", " + Mutate(rpc, dice);
    for (unsigned count = dice.Draw(4); count > 0; --count) {
        const Shape& shape = kShapes.at(dice.Draw(kShapes.size()));
        std::size_t size = bytes / count;
        for (unsigned halvings = dice.Draw(16); halvings > 0 && size > 16; --halvings) size /= 2;
        const Found at = DrawElement(rpc, dice);
        what += std::string(", ") + shape.name + " (" + std::to_string(size) + " bytes) at " +
                At(rpc, at).name.substr(0, 30);
        shape.bend(rpc, at, size);
    }
    std::string text = TextOf(rpc);
    if (text.size() > bytes) text.resize(bytes);
    if (dice.OneIn(6)) {
        Scratch(text, dice);
        what += ", scratched";
    }
    if (dice.OneIn(12) && !text.empty()) {
        text.resize(dice.Draw(text.size()) + 1);
        what += ", cut after " + std::to_string(text.size());
    }
    return text;
}

std::string Bent(Element rpc, const Shape& shape, Place place, std::size_t bytes)
{
    const std::string before = TextOf(rpc);
    shape.bend(rpc, Find(rpc, place), bytes - std::min(bytes, 2 * before.size()));
    std::string text = TextOf(rpc);
    return text == before ? std::string() : text;
}

}  // namespace shapes
