// SPDX-License-Identifier: Apache-2.0
#include "agent/data/data_writer.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include <boost/container/small_vector.hpp>

#include "netconf/xml.h"

namespace agent {
namespace {

using Handle = DataSource::Handle;
using Branch = FilterPlan::Branch;
using Inner = FilterPlan::Inner;

/// What is asked for below a node, mostly one of each.
using Branches = boost::container::small_vector<const Branch*, 4>;
using Inners = boost::container::small_vector<const Inner*, 4>;
using Keys = boost::container::small_vector<std::string_view, 4>;

/// At most this many entries of a list in another list's entry are looked up; for more the list is read.
constexpr std::size_t kLookedUpEach = 8;

/// The first `count` values, each with its NUL.
std::string_view FirstValues(std::string_view values, std::size_t count)
{
    std::size_t end = 0;
    for (; count > 0; --count) end = values.find('\0', end) + 1;
    return values.substr(0, end);
}

Keys SplitKeys(std::string_view values)
{
    Keys keys;
    while (!values.empty()) {
        const std::size_t end = values.find('\0');
        keys.push_back(values.substr(0, end));
        values.remove_prefix(end + 1);
    }
    return keys;
}

class Writer {
public:
    Writer(DataSource& source, const WriteOptions& options, std::string& out)
        : m_source(source), m_options(options), m_out(out)
    {
    }

    /// So many levels of all that is below the node, keys left out.
    void Whole(const DataNode& node, Handle at, std::size_t levels)
    {
        for (std::size_t i = node.keyCount; i < node.children.size(); ++i) {
            const DataNode* child = node.children[i];
            if (child->kind == DataKind::kList) {
                m_source.Entries(at, child->schema, [this, child, levels](Handle entry) {
                    Entry(*child, entry, [&] { WholeNode(*child, entry, levels); });
                    return true;
                });
            } else if (!Readable(*child)) {
                continue;
            } else if (child->IsTerm()) {
                m_source.Values(at, child->schema, [this, child](std::string_view text, bool isDefault) {
                    if (Visible(*child, text, isDefault) && IsAsked(*child, isDefault))
                        Term(*child, text, isDefault);
                });
            } else {
                m_source.Container(at, child->schema, [this, child, levels](Handle container) {
                    WholeNode(*child, container, levels);
                    return true;
                });
            }
        }
    }

    /// What the branches select below the node, keys left out.
    void Part(const DataNode& node, Handle at, const Branches& branches)
    {
        for (std::size_t i = node.keyCount; i < node.children.size(); ++i) {
            const DataNode& child = *node.children[i];
            if (child.IsTerm()) {
                PartLeaf(child, at, branches);
                continue;
            }
            Inners inners;
            for (const Branch* branch : branches)
                if (const Inner* inner = branch->FindInner(child)) inners.push_back(inner);
            if (inners.empty()) continue;
            if (child.kind == DataKind::kList) {
                PartList(child, at, inners);
            } else if (Readable(child)) {
                m_source.Container(at, child.schema, [&](Handle container) {
                    Select(child, container, inners);
                    return true;
                });
            }
        }
    }

private:
    /// `levels`: the node's own included.
    void WholeNode(const DataNode& node, Handle at, std::size_t levels)
    {
        const std::size_t before = m_out.size();
        Open(node);
        for (std::size_t i = 0; i < node.keyCount; ++i) {
            const DataNode& key = *node.children[i];
            m_source.Values(at, key.schema,
                            [this, &key](std::string_view text, bool) { Term(key, text, false); });
        }
        const std::size_t opened = m_out.size();
        if (levels > 1) Whole(node, at, levels - 1);
        // A plain container means nothing by itself, unless what it holds was not asked for.
        const bool isPlain = node.kind == DataKind::kContainer && levels > 1;
        if (m_out.size() == opened && (isPlain || !IsAsked(node, false)))
            m_out.resize(before);
        else
            m_out.append(node.close);
    }

    void Open(const DataNode& node)
    {
        m_out.append(node.open);
        // All below has the same, unless it says otherwise.
        if (m_options.origins.tagged && node.depth == 1 && IsConfiguration(node)) {
            m_out.pop_back();
            m_out.append(" or:origin=\"or:intended\">");
        }
    }

    void PartNode(const DataNode& node, Handle at, const Branches& branches)
    {
        const std::size_t before = m_out.size();
        Open(node);
        // An entry always shows its keys, but is not written for unasked keys alone.
        bool keyAsked = false;
        for (std::size_t i = 0; i < node.keyCount; ++i) {
            const DataNode& key = *node.children[i];
            m_source.Values(at, key.schema, [&](std::string_view text, bool) {
                Term(key, text, false);
                keyAsked |= IsAsked(key, false) &&
                            std::any_of(branches.begin(), branches.end(), [&](const Branch* branch) {
                                const FilterPlan::Leaf* leaf = branch->FindLeaf(key);
                                return leaf != nullptr && leaf->Has(text);
                            });
            });
        }
        const std::size_t opened = m_out.size();
        Part(node, at, branches);
        if (m_out.size() == opened && !keyAsked)
            m_out.resize(before);
        else
            m_out.append(node.close);
    }

    /// Writes what the inners select of the container or entry.
    void Select(const DataNode& node, Handle at, const Inners& inners)
    {
        Branches branches;
        for (const Inner* inner : inners)
            if (Active(*inner, at, branches)) return WholeNode(node, at, m_options.levels);
        if (!branches.empty()) PartNode(node, at, branches);
    }

    void PartLeaf(const DataNode& leaf, Handle at, const Branches& branches)
    {
        const auto asked = [&leaf](const Branch* branch) { return branch->FindLeaf(leaf) != nullptr; };
        if (std::none_of(branches.begin(), branches.end(), asked) || !Readable(leaf)) return;
        m_source.Values(at, leaf.schema, [&](std::string_view text, bool isDefault) {
            if (!Visible(leaf, text, isDefault) || !IsAsked(leaf, isDefault)) return;
            const bool selected = std::any_of(branches.begin(), branches.end(), [&](const Branch* branch) {
                const FilterPlan::Leaf* each = branch->FindLeaf(leaf);
                return each != nullptr && each->Has(text);
            });
            if (selected) Term(leaf, text, isDefault);
        });
    }

    void PartList(const DataNode& list, Handle at, const Inners& inners)
    {
        if (MayBeLookedUp(inners)) return Named(list, at, inners);
        ++m_passes;
        m_source.Entries(at, list.schema, [&](Handle entry) {
            Entry(list, entry, [&] { Select(list, entry, inners); });
            return true;
        });
        --m_passes;
    }

    void Named(const DataNode& list, Handle at, const Inners& inners)
    {
        boost::container::small_vector<std::string_view, kLookedUpEach> names;
        for (const Inner* inner : inners)
            for (const auto& matches : inner->matches)
                for (const auto& each : matches.byValues)
                    names.push_back(FirstValues(each.first, list.keyCount));
        // The alternatives of one kind are in order, and mostly there is one kind.
        if (!std::is_sorted(names.begin(), names.end())) std::sort(names.begin(), names.end());
        names.erase(std::unique(names.begin(), names.end()), names.end());
        for (const std::string_view name : names) {
            const Keys keys = SplitKeys(name);
            m_source.Entry(at, list.schema, {keys.data(), keys.size()}, [&](Handle entry) {
                Entry(list, entry, [&] { Select(list, entry, inners); });
                return true;
            });
        }
    }

    bool MayBeLookedUp(const Inners& inners) const
    {
        std::size_t named = 0;
        for (const Inner* inner : inners) {
            if (!inner->NamesEntries()) return false;
            for (const auto& matches : inner->matches) named += matches.byValues.size();
        }
        // Look-ups for each entry of another list add up.
        return m_passes == 0 || named <= kLookedUpEach;
    }

    /// Adds the branches that hold at the node. Returns true if one selects all of it.
    bool Active(const Inner& inner, Handle at, Branches& branches)
    {
        const auto add = [&branches](const Branch* branch) {
            branches.push_back(branch);
            return branch->whole;
        };
        if (inner.always != nullptr && add(inner.always)) return true;
        for (const auto& matches : inner.matches) {
            if (!Values(matches, at)) continue;
            const auto it = matches.byValues.find(m_values);
            if (it != matches.byValues.end() && add(it->second)) return true;
        }
        return std::any_of(inner.tests.begin(), inner.tests.end(),
                           [&](const FilterPlan::Test& test) { return Holds(test, at) && add(test.branch); });
    }

    /// Puts the leaves' values into m_values. Returns false if one of them has no visible value.
    bool Values(const FilterPlan::Matches& matches, Handle at)
    {
        m_values.clear();
        for (const DataNode* leaf : matches.leaves) {
            bool found = false;
            if (!Readable(*leaf)) return false;
            m_source.Values(at, leaf->schema, [&](std::string_view text, bool isDefault) {
                if (!Visible(*leaf, text, isDefault)) return;
                found = true;
                m_values.append(text).push_back('\0');
            });
            if (!found) return false;
        }
        return true;
    }

    bool Holds(const FilterPlan::Test& test, Handle at)
    {
        return std::all_of(test.values.begin(), test.values.end(), [&](const auto& wanted) {
            const DataNode& leaf = *wanted.first;
            bool found = false;
            if (!Readable(leaf)) return false;
            m_source.Values(at, leaf.schema, [&](std::string_view text, bool isDefault) {
                found |= text == wanted.second && Visible(leaf, text, isDefault);
            });
            return found;
        });
    }

    void Term(const DataNode& leaf, std::string_view text, bool isDefault)
    {
        m_out.append(leaf.open);
        if (isDefault && m_options.defaults == Defaults::kTagged) {
            m_out.pop_back();
            m_out.append(" wd:default=\"true\">");
        }
        if (isDefault && m_options.origins.tagged && IsConfiguration(leaf)) {
            m_out.pop_back();
            m_out.append(" or:origin=\"or:default\">");
        }
        if (leaf.mayNameIdentity) text = Identity(leaf, text);
        netconf::AppendEscaped(m_out, text);
        m_out.append(leaf.close);
    }

    /// The value without its module's name where that is the leaf's; else the name is declared as a prefix.
    std::string_view Identity(const DataNode& leaf, std::string_view text)
    {
        const std::size_t colon = text.find(':');
        if (colon == std::string_view::npos) return text;
        const std::string module(text.substr(0, colon));
        const lys_module* known = ly_ctx_get_module_implemented(leaf.schema->module->ctx, module.c_str());
        if (known == nullptr) return text;
        if (known == leaf.schema->module) return text.substr(colon + 1);
        m_out.pop_back();
        m_out.append(" xmlns:").append(module).append("=\"").append(known->ns).append("\">");
        return text;
    }

    bool Visible(const DataNode& leaf, std::string_view text, bool isDefault) const
    {
        switch (m_options.defaults) {
        case Defaults::kExplicit:
            return !isDefault;
        case Defaults::kTrim:
            return !isDefault && !leaf.IsDefault(text);
        case Defaults::kReportAll:
        case Defaults::kTagged:
            return true;
        }
        return true;
    }

    static bool IsConfiguration(const DataNode& node) { return node.id != cdb::kNoNode; }

    /// Whether nodes of that origin are asked for; such as are around these are written anyway.
    bool IsAsked(const DataNode& node, bool isDefault) const
    {
        if (!IsConfiguration(node)) return true;
        return isDefault ? m_options.origins.byDefault : m_options.origins.intended;
    }

    bool Readable(const DataNode& node) const
    {
        return !m_options.access || m_options.access(node.schema, m_keys);
    }

    /// Calls `write` if the entry may be read.
    template <typename Write>
    void Entry(const DataNode& list, Handle entry, const Write& write)
    {
        if (!m_options.access) return write();
        const std::size_t above = m_keys.size();
        for (std::size_t i = 0; i < list.keyCount; ++i)
            m_source.Values(entry, list.children[i]->schema,
                            [this](std::string_view text, bool) { m_keys.emplace_back(text); });
        const auto keys = std::span(list.children).first(list.keyCount);
        if (Readable(list) &&
            std::all_of(keys.begin(), keys.end(), [this](const DataNode* key) { return Readable(*key); }))
            write();
        m_keys.resize(above);
    }

    DataSource& m_source;
    const WriteOptions& m_options;
    std::string& m_out;
    std::string m_values;             // of the leaves that alternatives test
    std::vector<std::string> m_keys;  // for m_options.access
    std::size_t m_passes = 0;         // lists around this place that are read from end to end
};

}  // namespace

void WriteData(const DataSchema& schema, DataSource& source, const WriteOptions& options, std::string& out)
{
    Writer writer(source, options, out);
    if (options.filter == nullptr) return writer.Whole(schema.Root(), nullptr, options.levels);
    writer.Part(schema.Root(), nullptr, {&options.filter->Root()});
}

}  // namespace agent
