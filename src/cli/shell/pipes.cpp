// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/pipes.h"

#include <regex.h>

#include <array>
#include <cstdint>
#include <iterator>
#include <ostream>
#include <streambuf>
#include <string_view>
#include <utility>

#include "cli/data/error.h"
#include "cli/data/saved_file.h"
#include "cli/screens/counted.h"

namespace cli {
namespace {

using Kind = LineFilter::Kind;

struct Known {
    std::string_view name;
    Kind kind;
    std::string_view argument;  // empty: it has none
    std::string_view help;
};
constexpr std::array kKnown = {
    Known{"match", Kind::kMatch, "REGEX", "Lines that match a POSIX extended regular expression."},
    Known{"except", Kind::kExcept, "REGEX", "Lines that do not match it."},
    Known{"begin", Kind::kBegin, "REGEX", "Lines from the first one that matches on."},
    Known{"count", Kind::kCount, "", "The number of lines."},
    Known{"save", Kind::kSave, "FILE", "Writes the lines into a file."},
};
constexpr std::string_view kNoMore = "no-more";

bool IsForm(std::string_view word) { return word == "json" || word == "display"; }

LineFilter FilterOf(const std::vector<Word>& words)
{
    const std::string& name = words.front().text;
    for (const Known& known : kKnown) {
        if (known.name != name) continue;
        const std::size_t wanted = known.argument.empty() ? 1 : 2;
        if (words.size() < wanted) throw Error(std::string(known.argument) + " is missing behind " + name);
        if (words.size() > wanted)
            throw Error("\"" + words[wanted].text + "\" is one word too many behind " + name +
                        "; put a text with blanks in double quotes");
        return {known.kind, wanted == 2 ? words[1].text : std::string()};
    }
    throw Error("\"" + name + "\" is no form of output and no filter; possible: json, display, " +
                FiltersHelp());
}

/// Takes lines, and passes on what it keeps.
class Stage {
public:
    explicit Stage(Stage* next) : m_next(next) {}
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    virtual ~Stage() = default;
    virtual void Take(const std::string& line) = 0;
    virtual void End() {}

protected:
    void Pass(const std::string& line) const { m_next->Take(line); }

private:
    Stage* m_next;  // null of the last one
};

class Output : public Stage {
public:
    explicit Output(std::ostream& out) : Stage(nullptr), m_out(out) {}
    void Take(const std::string& line) override { m_out << line << '\n' << std::flush; }

private:
    std::ostream& m_out;
};

class Matching : public Stage {
public:
    Matching(const LineFilter& filter, Stage* next) : Stage(next), m_kind(filter.kind)
    {
        const int error = ::regcomp(&m_regex, filter.argument.c_str(), REG_EXTENDED | REG_NOSUB);
        if (error == 0) return;
        char text[128];
        ::regerror(error, &m_regex, text, sizeof text);
        throw Error("\"" + filter.argument + "\" is no regular expression: " + text);
    }
    ~Matching() override { ::regfree(&m_regex); }

    void Take(const std::string& line) override
    {
        const bool matches = m_begun || ::regexec(&m_regex, line.c_str(), 0, nullptr, 0) == 0;
        m_begun = matches && m_kind == Kind::kBegin;
        if (matches != (m_kind == Kind::kExcept)) Pass(line);
    }

private:
    Kind m_kind;
    regex_t m_regex{};
    bool m_begun = false;
};

class Counting : public Stage {
public:
    explicit Counting(Stage* next) : Stage(next) {}
    void Take(const std::string& /*line*/) override { ++m_count; }
    void End() override { Pass(std::to_string(m_count)); }

private:
    std::uint64_t m_count = 0;
};

class Saving : public Stage {
public:
    Saving(const std::string& path, std::ostream& err)
        : Stage(nullptr), m_path(path), m_file(path), m_err(err)
    {
    }

    void Take(const std::string& line) override
    {
        m_file.Write(line + '\n');
        ++m_count;
    }

    void End() override
    {
        m_file.Place();
        m_err << Counted(m_count, "line") << " saved in " << m_path << '\n';
    }

private:
    std::string m_path;
    SavedFile m_file;
    std::ostream& m_err;
    std::uint64_t m_count = 0;
};

/// Cuts what is written into lines.
class LineBuffer : public std::streambuf {
public:
    explicit LineBuffer(Stage& first) : m_first(first) {}

    void End()
    {
        if (!m_line.empty()) Flush();
    }

protected:
    int_type overflow(int_type c) override
    {
        if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
        if (c == '\n')
            Flush();
        else
            m_line += traits_type::to_char_type(c);
        return c;
    }

private:
    void Flush() { m_first.Take(std::exchange(m_line, {})); }

    Stage& m_first;
    std::string m_line;
};

}  // namespace

std::string FiltersHelp()
{
    std::string text;
    for (const Known& known : kKnown) {
        text.append(known.name);
        if (!known.argument.empty()) text.append(" ").append(known.argument);
        text += ", ";
    }
    return text.append(kNoMore);
}

std::vector<Choice> FilterChoices()
{
    std::vector<Choice> choices;
    choices.reserve(std::size(kKnown) + 1);
    for (const Known& known : kKnown) choices.push_back({std::string(known.name), std::string(known.help)});
    choices.push_back({std::string(kNoMore), "All at once, not a screen at a time."});
    return choices;
}

Pipes TakePipes(const std::vector<Word>& words)
{
    Pipes pipes;
    std::vector<std::vector<Word>> parts(1);
    for (const Word& word : words) {
        if (word.IsPipe())
            parts.emplace_back();
        else
            parts.back().push_back(word);
    }
    pipes.command = parts.front();
    bool hasForm = false;
    for (auto part = parts.begin() + 1; part != parts.end(); ++part) {
        if (part->empty()) throw Error("a form of output or a filter is missing behind |");
        const std::string& name = part->front().text;
        if (name == kNoMore && part->size() == 1) {
            pipes.paged = false;
        } else if (IsForm(name)) {
            if (hasForm || !pipes.filters.empty())
                throw Error("the form of the output stands once, before all filters");
            hasForm = true;
            pipes.command.push_back({"|", false});
            pipes.command.insert(pipes.command.end(), part->begin(), part->end());
        } else {
            if (!pipes.filters.empty() && pipes.filters.back().kind == Kind::kSave)
                throw Error("nothing comes out of save; put it last");
            pipes.filters.push_back(FilterOf(*part));
        }
    }
    return pipes;
}

class FilteredOutput::Impl {
public:
    Impl(const std::vector<LineFilter>& filters, std::ostream& out, std::ostream& err)
    {
        m_stages.push_back(std::make_unique<Output>(out));
        for (auto filter = filters.rbegin(); filter != filters.rend(); ++filter) {
            Stage* const next = m_stages.back().get();
            if (filter->kind == Kind::kCount)
                m_stages.push_back(std::make_unique<Counting>(next));
            else if (filter->kind == Kind::kSave)
                m_stages.push_back(std::make_unique<Saving>(filter->argument, err));
            else
                m_stages.push_back(std::make_unique<Matching>(*filter, next));
        }
        m_buffer = std::make_unique<LineBuffer>(*m_stages.back());
        m_stream = std::make_unique<std::ostream>(m_buffer.get());
    }

    std::ostream& Stream() { return *m_stream; }

    void Finish()
    {
        m_buffer->End();
        for (auto stage = m_stages.rbegin(); stage != m_stages.rend(); ++stage) (*stage)->End();
    }

private:
    std::vector<std::unique_ptr<Stage>> m_stages;  // the last one takes first
    std::unique_ptr<LineBuffer> m_buffer;
    std::unique_ptr<std::ostream> m_stream;
};

FilteredOutput::FilteredOutput(const std::vector<LineFilter>& filters, std::ostream& out, std::ostream& err)
    : m_impl(std::make_unique<Impl>(filters, out, err))
{
}

FilteredOutput::~FilteredOutput() = default;

std::ostream& FilteredOutput::Stream() { return m_impl->Stream(); }

void FilteredOutput::Finish() { m_impl->Finish(); }

}  // namespace cli
