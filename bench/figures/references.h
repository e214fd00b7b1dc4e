// SPDX-License-Identifier: Apache-2.0
// What the figures are compared with, measured beside them in the same run: one durable LMDB commit of
// one row, and libyang reading, validating and printing the same data.

#ifndef FIGURES_REFERENCES_H
#define FIGURES_REFERENCES_H

#include <filesystem>
#include <memory>
#include <string>

namespace figures {

/// An LMDB store of its own, in the library's default mode.
class OneRowStore {
public:
    explicit OneRowStore(const std::filesystem::path& directory);
    ~OneRowStore();
    OneRowStore(const OneRowStore&) = delete;
    OneRowStore& operator=(const OneRowStore&) = delete;

    /// Milliseconds of one transaction that writes one row of about 200 bytes, durably.
    double TimedCommit();

private:
    struct Environment;
    std::unique_ptr<Environment> m_environment;
};

/// libyang with the switch's modules.
class YangReference {
public:
    YangReference();
    ~YangReference();
    YangReference(const YangReference&) = delete;
    YangReference& operator=(const YangReference&) = delete;

    /// Milliseconds to parse the XML (elements of <config>) and to validate it. The tree is kept.
    double TimedParse(const std::string& xml);

    /// Milliseconds to print the kept tree as XML to memory, explicit values only.
    double TimedPrint();

private:
    struct Tree;
    std::unique_ptr<Tree> m_tree;
};

}  // namespace figures

#endif
