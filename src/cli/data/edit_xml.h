// SPDX-License-Identifier: Apache-2.0
// The XML of edits and of subtree filters, from places.

#ifndef CLI_DATA_EDIT_XML_H
#define CLI_DATA_EDIT_XML_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "cli/data/place.h"

namespace cli {

/// RFC 6241, section 7.2.
enum class Operation : std::uint8_t { kMerge, kReplace, kDelete, kRemove };

/// What stands inside <config>, or inside a filter. Places that share steps share their elements. Of what is
/// said twice of a place the later holds; what is deleted and then set is replaced.
class EditXml {
public:
    EditXml();
    ~EditXml();
    EditXml(const EditXml&) = delete;
    EditXml& operator=(const EditXml&) = delete;

    void Set(const Place& place);
    void Delete(const Place& place);
    [[nodiscard]] std::string Text() const;

private:
    friend std::string OperationXml(const Place& place, Operation operation);
    struct Element;
    Element& At(const Place& place);

    std::unique_ptr<Element> m_top;
};

/// The place's element with the operation, inside those that lead to it.
std::string OperationXml(const Place& place, Operation operation);

/// To give each place its value, or to create it.
std::string SetXml(std::span<const Place> places);

/// To delete the places. The database refuses it if there is no such place.
std::string DeleteXml(std::span<const Place> places);

/// A subtree filter (RFC 6241, section 6) that selects the places and what is below them.
std::string FilterXml(std::span<const Place> places);

/// The same for the first keys of the entries of the list at the end of the place.
std::string KeysFilterXml(const Place& list);

}  // namespace cli

#endif
