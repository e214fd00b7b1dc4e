// SPDX-License-Identifier: Apache-2.0
// What commands send and receive: data trees of libyang, read from replies and files and printed, and the XML
// of edits and filters.

#ifndef CLI_DATA_DATA_TREE_H
#define CLI_DATA_DATA_TREE_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cdb/schema/libyang_owner.h"

namespace netconf {
struct Reply;
}

namespace cli {

struct Place;

/// All top-level siblings; null is a tree without data.
using Tree = cdb::TreePtr;

/// The data of a reply, as it stands in <data>. Throws Error if the YANG modules here do not know it.
Tree ParseReply(const ly_ctx* yang, const std::string& xml);

/// ParseReply for data whose defaults have the attribute wd:default (RFC 6243, section 6): they get
/// LYD_DEFAULT.
Tree ParseTagged(const ly_ctx* yang, std::string xml);

/// The output of an operation of the module switch-system: the operation's node, with the leaves of the
/// reply. Throws Error as ParseReply.
Tree ParseOutput(const ly_ctx* yang, const netconf::Reply& reply, const std::string& operation);

/// Whether a file's name means standard input: "-" or "terminal". Such a file is reached as "./terminal".
bool IsStandardInput(std::string_view path);

/// What messages call it: "standard input", or the file's name.
std::string NameOfInput(const std::string& path);

/// The content of a file or of standard input. Throws Error that names the file: it is missing, or larger
/// than a message may be.
std::string FileContent(const std::string& path);

/// A configuration's file: RFC 7951 JSON, XML, blocks or set lines, whichever its content is. Throws Error
/// that names the file and, for what is wrong inside it, line and column: the file is missing or larger than
/// a message may be, is malformed, has what the YANG modules do not know or values that they refuse, or has
/// state.
Tree ReadConfigFile(const ly_ctx* yang, const std::string& path);

/// The same for a text; `name` stands for the file in messages.
Tree ParseConfigText(const ly_ctx* yang, const std::string& text, std::string_view name);

/// The instances of the place's last node, in the tree's order; empty for a place without steps.
std::vector<const lyd_node*> NodesAt(const lyd_node* tree, const Place& place);

/// The leaves and the values of leaf-lists in the tree, the keys of lists among them.
std::size_t ValueCount(const lyd_node* tree);

/// Leaves of the tree what is a default, with what is around it, as values that are printed in each form.
void KeepDefaults(lyd_node* tree);

/// RFC 7951, one document, with line ends.
std::string ToJson(const lyd_node* tree);
std::string ToXml(const lyd_node* tree);
/// For requests: without blanks between the elements.
std::string ToCompactXml(const lyd_node* tree);

/// What stands inside <config> to replace the root container, and each other top-level container that
/// the tree has, by what the tree has. Marks the tree's nodes.
std::string ReplaceXml(const ly_ctx* yang, lyd_node* tree);

}  // namespace cli

#endif
