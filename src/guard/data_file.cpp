// SPDX-License-Identifier: Apache-2.0
#include "guard/data_file.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <vector>

#include "guard/walk.h"
#include "netconf/names.h"

namespace guard {
namespace {

/// The message, with the path if there is one.
std::string TextOf(const cdb::Error& error)
{
    return error.path.empty() ? error.message : error.message + " (" + error.path + ")";
}

constexpr std::string_view kOpen = "<data>";
constexpr std::string_view kClose = "</data>";

/// Checks what is inside <data>, which InOneElement puts around the file's elements, at depth 1.
class FileVisitor final : public netconf::XmlVisitor {
public:
    FileVisitor(const SchemaIndex& index, std::string_view text, const Limits& limits)
        : m_text(text), m_walk(index, index.Data(), limits.text)
    {
    }

    bool OnStart(const netconf::XmlElement& element) override
    {
        m_at = element.end;
        if (element.depth == 1) return true;
        const Node* child = m_walk.Find(element.ns, element.name);
        const bool known = child != nullptr && (child->Repeats() || m_walk.Mention(*child)) &&
                           m_walk.CheckAttributes(*child, element.attributes);
        if (known) m_walk.Enter(*child);
        return Goes(known, element.begin);
    }

    bool OnEnd(std::size_t depth, std::size_t begin) override
    {
        if (depth > 1 && !Goes(m_walk.Leave(), begin)) return false;
        // Behind the end tag; for an empty element `begin` is there already.
        m_at = m_text.substr(begin, 2) == "</" ? m_text.find('>', begin) + 1 : begin;
        return true;
    }

    bool OnText(std::size_t /*depth*/, std::string_view text) override
    {
        if (!Goes(m_walk.Text(text), m_at)) return false;
        m_at += text.size();
        return true;
    }

    [[nodiscard]] std::optional<FileProblem> Problem() const
    {
        if (!m_refused) return std::nullopt;
        return FileProblem{m_at, TextOf(m_walk.Problem())};
    }

private:
    bool Goes(bool on, std::size_t at)
    {
        if (on) return true;
        m_refused = true;
        m_at = at;
        return false;
    }

    std::string_view m_text;  // the whole document
    Walk m_walk;
    bool m_refused = false;
    std::size_t m_at = 0;  // byte offset of what comes next; in text an estimate, because of references
};

/// A file may hold the elements of several modules side by side, so one element is put around them.
/// Blanks replace the XML declaration, which is not allowed inside an element.
std::string InOneElement(std::string_view text)
{
    std::string whole(kOpen);
    whole.append(text);
    const std::size_t first = whole.find_first_not_of(netconf::kXmlBlanks, kOpen.size());
    const std::size_t end = whole.find("?>");
    if (whole.compare(first, 5, "<?xml") == 0 && end != std::string::npos)
        for (std::size_t at = first; at < end + 2; ++at)
            if (whole[at] != '\n') whole[at] = ' ';
    return whole.append(kClose);
}

/// Checks the syntax only, without the schema.
class NoVisitor final : public netconf::XmlVisitor {
public:
    bool OnStart(const netconf::XmlElement& /*element*/) override { return true; }
    bool OnEnd(std::size_t /*depth*/, std::size_t /*begin*/) override { return true; }
    bool OnText(std::size_t /*depth*/, std::string_view /*text*/) override { return true; }
};

std::optional<FileProblem> CheckXmlFile(const SchemaIndex& index, std::string_view text, const Limits& limits)
{
    const std::string whole = InOneElement(text);
    const auto inText = [&text](std::size_t offset) {
        return std::min(offset - std::min(offset, kOpen.size()), text.size());
    };
    netconf::XmlLimits xml = limits.xml;
    ++xml.depth;
    ++xml.elements;
    FileVisitor visitor(index, whole, limits);
    auto malformed = netconf::ReadXmlWithin(whole, visitor, xml);
    const auto refused = visitor.Problem();
    if (refused) {
        NoVisitor nothing;
        malformed = netconf::ReadXmlWithin(whole, nothing, xml);
    }
    if (malformed) return FileProblem{inText(malformed->offset), malformed->reason};
    if (refused) return FileProblem{inText(refused->offset), refused->text};
    return std::nullopt;
}

constexpr std::string_view kOperation = "ietf-netconf:operation";

/// Records how far the reader has come, which its events do not say.
class Position {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    Position(const char* at, const char** seen) : m_at(at), m_seen(seen) {}
    reference operator*() const { return *m_at; }
    Position& operator++()
    {
        *m_seen = m_at;
        ++m_at;
        return *this;
    }
    friend bool operator==(const Position& a, const Position& b) { return a.m_at == b.m_at; }

private:
    const char* m_at;
    const char** m_seen;
};

/// Finds syntax errors only.
class SyntaxReader : public nlohmann::json_sax<nlohmann::json> {
public:
    bool null() override { return OnScalar({}); }
    bool boolean(bool value) override { return OnScalar(value ? "true" : "false"); }
    bool number_integer(number_integer_t value) override { return OnScalar(std::to_string(value)); }
    bool number_unsigned(number_unsigned_t value) override { return OnScalar(std::to_string(value)); }
    bool number_float(number_float_t /*value*/, const string_t& text) override { return OnScalar(text); }
    bool string(string_t& value) override { return OnScalar(value); }
    bool binary(binary_t& /*value*/) override { return false; }  // JSON text has none
    bool start_object(std::size_t /*elements*/) override { return true; }
    bool key(string_t& /*name*/) override { return true; }
    bool end_object() override { return true; }
    bool start_array(std::size_t /*elements*/) override { return true; }
    bool end_array() override { return true; }

    bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                     const nlohmann::detail::exception& error) override
    {
        // "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error while ..."
        const std::string what = error.what();
        const std::size_t line = what.find("line ");
        const std::size_t colon = what.find(": ", line == std::string::npos ? 0 : line);
        m_malformed = colon == std::string::npos ? what : what.substr(colon + 2);
        return false;
    }

    [[nodiscard]] const std::string& Malformed() const { return m_malformed; }

protected:
    virtual bool OnScalar(const std::string& /*value*/) { return true; }

private:
    std::string m_malformed;
};

class FileReader final : public SyntaxReader {
public:
    FileReader(const SchemaIndex& index, const Limits& limits)
        : m_index(index), m_walk(index, index.Data(), limits.text), m_left(limits.xml.elements)
    {
    }

    bool null() override
    {
        if (m_open.empty() || m_open.back().kind != Kind::kNothing) return Shape("null");
        return true;
    }

    bool start_object(std::size_t /*elements*/) override
    {
        if (m_open.empty()) return Open(Kind::kMembers, nullptr);
        const Node* node = m_open.back().kind == Kind::kEntries ? m_open.back().node : m_member;
        if (m_operationOf != nullptr) return Open(Kind::kMetadata, m_operationOf);
        if (node == nullptr) return Shape("an object");
        const bool isEntry = m_open.back().kind == Kind::kEntries && node->kind == NodeKind::kList;
        const bool isContainer = m_open.back().kind == Kind::kMembers && node->kind == NodeKind::kContainer;
        if (!isEntry && !isContainer) return Shape("an object");
        if (isEntry && !Count()) return false;
        m_walk.Enter(*node);
        return Open(Kind::kMembers, node);
    }

    bool key(string_t& name) override
    {
        m_member = nullptr;
        if (!Count()) return false;
        if (m_open.back().kind == Kind::kMetadata) {
            if (name == kOperation) return true;
            return Walked(m_walk.UnknownAttribute(*m_open.back().node, name, "leave it out"));
        }
        if (!name.starts_with('@')) {
            m_member = FindMember(name);
            return Walked(m_member != nullptr && m_walk.Mention(*m_member));
        }
        if (++m_open.back().metadata > kMetadata)
            return Walked(m_walk.BadContent("has metadata more than once"));
        m_operationOf = name.size() == 1 ? &m_walk.Here() : FindMember(name.substr(1));
        if (m_operationOf == &m_index.Data())
            return Walked(m_walk.BadContent("has metadata, which only its elements can have"));
        return Walked(m_operationOf != nullptr);
    }

    bool end_object() override
    {
        const Level done = m_open.back();
        m_open.pop_back();
        return done.kind != Kind::kMembers || done.node == nullptr || Walked(m_walk.Leave());
    }

    bool start_array(std::size_t /*elements*/) override
    {
        if (m_member == nullptr || m_open.back().kind != Kind::kMembers) return Shape("an array");
        switch (m_member->kind) {
        case NodeKind::kList:
        case NodeKind::kLeafList:
            return Open(Kind::kEntries, m_member);
        case NodeKind::kLeaf:
            return Open(Kind::kNothing, m_member);  // [null] is the value of type empty
        default:
            return Shape("an array");
        }
    }

    bool end_array() override
    {
        m_open.pop_back();
        return true;
    }

    [[nodiscard]] std::optional<cdb::Error> Refusal() const { return m_refusal; }

protected:
    bool OnScalar(const std::string& value) override
    {
        if (m_open.empty()) return Shape("a value");
        const Level& level = m_open.back();
        if (level.kind == Kind::kMetadata) return Walked(m_walk.BadOperation(*level.node, value));
        const bool isLeaf =
            level.kind == Kind::kMembers && m_member != nullptr && m_member->kind == NodeKind::kLeaf;
        const bool isItem = level.kind == Kind::kEntries && level.node->kind == NodeKind::kLeafList;
        if (!isLeaf && !isItem) return Shape("a value");
        if (isItem && !Count()) return false;
        m_walk.Enter(isLeaf ? *m_member : *level.node);
        return Walked(m_walk.Text(value) && m_walk.Leave());
    }

private:
    enum class Kind { kMembers, kEntries, kMetadata, kNothing };
    struct Level {
        Kind kind = Kind::kMembers;
        const Node* node = nullptr;  // null for the members of the document
        std::size_t metadata = 0;    // how many members of an object are metadata
    };
    static constexpr std::size_t kMetadata = 64;  // in one object; a leaf has its own at most once

    bool Open(Kind kind, const Node* node)
    {
        m_open.push_back({kind, node, 0});
        m_member = nullptr;
        m_operationOf = nullptr;
        return true;
    }

    /// "MODULE:NAME", or "NAME" in the module of the object.
    const Node* FindMember(const std::string& name)
    {
        const std::size_t colon = name.find(':');
        if (colon == std::string::npos) return m_walk.Find(m_walk.Here().ns, name);
        const std::string module = name.substr(0, colon);
        const std::string_view ns = m_index.NamespaceOf(module);
        return m_walk.Find(ns.empty() ? std::string_view(module) : ns, name.substr(colon + 1));
    }

    bool Count()
    {
        if (m_left-- != 0) return true;
        m_refusal.emplace();
        m_refusal->tag = cdb::ErrorTag::kTooBig;
        m_refusal->message = "there are too many elements; load it in parts";
        return false;
    }

    bool Shape(const std::string& what)
    {
        const Node* node = m_member;
        if (node == nullptr && !m_open.empty()) node = m_open.back().node;
        const std::string name = node == nullptr ? "the document" : '"' + std::string(node->name) + '"';
        return Walked(m_walk.BadContent("has " + what + " where " + name + " can't have one"));
    }

    bool Walked(bool on)
    {
        if (!on) m_refusal = m_walk.Problem();
        return on;
    }

    const SchemaIndex& m_index;
    Walk m_walk;
    std::size_t m_left;
    std::vector<Level> m_open;
    const Node* m_member = nullptr;       // whose value comes next
    const Node* m_operationOf = nullptr;  // whose metadata come next
    std::optional<cdb::Error> m_refusal;
};

/// The offset at which the reader stopped early; nullopt if it read all.
std::optional<std::size_t> Read(std::string_view text, SyntaxReader& reader)
{
    const char* seen = text.data();
    const bool read = nlohmann::json::sax_parse(Position(text.data(), &seen),
                                                Position(text.data() + text.size(), &seen), &reader);
    if (read) return std::nullopt;
    return static_cast<std::size_t>(seen - text.data());
}

std::optional<FileProblem> CheckJsonFile(const SchemaIndex& index, std::string_view text,
                                         const Limits& limits)
{
    // The reader takes a zero byte for the end of the text.
    if (const std::size_t zero = text.find('\0'); zero != std::string_view::npos)
        return FileProblem{zero, "there is a zero byte, which is no text"};
    FileReader reader(index, limits);
    const auto stopped = Read(text, reader);
    if (!stopped) return std::nullopt;
    if (!reader.Malformed().empty()) return FileProblem{*stopped, reader.Malformed()};
    SyntaxReader syntax;
    if (const auto malformed = Read(text, syntax)) return FileProblem{*malformed, syntax.Malformed()};
    return FileProblem{*stopped, TextOf(reader.Refusal().value_or(cdb::Error{}))};
}

}  // namespace

std::optional<Format> FormatOf(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(netconf::kXmlBlanks);
    if (first == std::string_view::npos) return std::nullopt;
    if (text[first] == '{') return Format::kJson;
    if (text[first] == '<') return Format::kXml;
    return std::nullopt;
}

std::optional<FileProblem> CheckFile(const SchemaIndex& index, std::string_view text, Format format,
                                     const Limits& limits)
{
    return format == Format::kJson ? CheckJsonFile(index, text, limits) : CheckXmlFile(index, text, limits);
}

}  // namespace guard
