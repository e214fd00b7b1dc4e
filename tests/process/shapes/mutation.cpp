// SPDX-License-Identifier: Apache-2.0
#include "shapes/mutation.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace shapes {

namespace {

Element& At(const Found& at) { return at.parent->children.at(at.index); }

using Position = std::vector<Element>::difference_type;

// Each of these changes the element at `at`, most with the help of another one, random too. Copies are made
// first: the two may stand in each other.

void TakeName(const Found& at, const Element& other, Dice&) { At(at).name = other.name; }

void MisspellName(const Found& at, const Element&, Dice& dice)
{
    std::string& name = At(at).name;
    if (dice.OneIn(2))
        name += "x";
    else
        name.insert(0, dice.OneIn(2) ? "nc:" : "undeclared:");
}

void Double(const Found& at, const Element&, Dice&)
{
    Element copy = At(at);
    at.parent->children.insert(at.parent->children.begin() + static_cast<Position>(at.index),
                               std::move(copy));
}

// With one value for another.
void DoubleDifferently(const Found& at, const Element& other, Dice& dice)
{
    Double(at, other, dice);
    At(at).text += other.text;
}

void Drop(const Found& at, const Element&, Dice&)
{
    at.parent->children.erase(at.parent->children.begin() + static_cast<Position>(at.index));
}

void Swap(const Found& at, const Element&, Dice& dice)
{
    std::swap(At(at), at.parent->children.at(dice.Draw(at.parent->children.size())));
}

void StripNamespace(const Found& at, const Element&, Dice& dice)
{
    auto& attributes = At(at).attributes;
    std::erase_if(attributes, [](const auto& attribute) { return attribute.first == "xmlns"; });
    if (dice.OneIn(2)) attributes.emplace_back("xmlns", "");
}

void TakeNamespace(const Found& at, const Element&, Dice& dice)
{
    static constexpr std::array kSpaces{"urn:ietf:params:xml:ns:netconf:base:1.0",
                                        "urn:switch:yang:switch-config", "urn:switch:yang:switch-oam-sflow",
                                        "urn:switch:yang:switch-interfaces",
                                        "urn:ietf:params:xml:ns:yang:ietf-netconf-with-defaults"};
    StripNamespace(at, {}, dice);
    At(at).attributes.emplace_back("xmlns", kSpaces.at(dice.Draw(kSpaces.size())));
}

void TakeAttributes(const Found& at, const Element& other, Dice&)
{
    auto& attributes = At(at).attributes;
    attributes.insert(attributes.end(), other.attributes.begin(), other.attributes.end());
}

void LoseAttribute(const Found& at, const Element&, Dice& dice)
{
    auto& attributes = At(at).attributes;
    if (!attributes.empty()) attributes.erase(attributes.begin() + dice.Draw(attributes.size()));
}

void TakeText(const Found& at, const Element& other, Dice& dice)
{
    std::string& text = At(at).text;
    text.insert(dice.Draw(text.size() + 1), other.text);
}

void TakeContent(const Found& at, const Element& other, Dice&) { At(at).children.push_back(other); }

struct Mutation {
    const char* name;
    void (*change)(const Found& at, const Element& other, Dice& dice);
};

constexpr auto kMutations = std::to_array<Mutation>({
    {"another's name", TakeName},
    {"a wrong name", MisspellName},
    {"a twin", Double},
    {"another twin", DoubleDifferently},
    {"dropped", Drop},
    {"swapped", Swap},
    {"no namespace", StripNamespace},
    {"another namespace", TakeNamespace},
    {"another's attributes", TakeAttributes},
    {"an attribute less", LoseAttribute},
    {"another's text", TakeText},
    {"another one inside", TakeContent},
});

}  // namespace

std::string Mutate(Element& rpc, Dice& dice)
{
    const Found at = DrawElement(rpc, dice);
    if (at.parent == nullptr) return "nothing";
    const Found from = DrawElement(rpc, dice);
    const Element other = At(from);
    const Mutation& mutation = kMutations.at(dice.Draw(kMutations.size()));
    std::string what = std::string(mutation.name) + " at " + At(at).name.substr(0, 30);
    mutation.change(at, other, dice);
    return what;
}

void Scratch(std::string& text, Dice& dice)
{
    static constexpr std::string_view kBytes{"<>&/'\"= ]!-?\0\x01\x7F\xC3\xFF", 17};
    for (unsigned count = dice.Draw(4) + 1; count > 0 && !text.empty(); --count) {
        const std::size_t at = dice.Draw(text.size());
        const std::size_t length = dice.Draw(40) + 1;
        switch (dice.Draw(3)) {
        case 0:
            text[at] = kBytes.at(dice.Draw(kBytes.size()));
            break;
        case 1:
            text.erase(at, length);
            break;
        default:
            text.insert(dice.Draw(text.size() + 1), text.substr(at, length));
        }
    }
}

}  // namespace shapes
