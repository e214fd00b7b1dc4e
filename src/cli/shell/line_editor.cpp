// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/line_editor.h"

#include <fcntl.h>
#include <histedit.h>
#include <sys/stat.h>
#include <unistd.h>

#include <langinfo.h>
#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <utility>

namespace cli {
namespace {

constexpr int kMostLines = 1'000;       // of history
constexpr std::size_t kMostShown = 40;  // choices

struct EndEditor {
    void operator()(EditLine* editor) const { el_end(editor); }
};
struct EndHistory {
    void operator()(History* lines) const { history_end(lines); }
};

/// libedit counts characters by the locale; names and comments are UTF-8 whatever it is.
void UseUtf8()
{
    std::setlocale(LC_CTYPE, "");
    if (std::strcmp(::nl_langinfo(CODESET), "UTF-8") != 0) std::setlocale(LC_CTYPE, "C.UTF-8");
}

/// Makes the file, if it is not there, readable for its owner alone.
void MakePrivate(const std::string& path)
{
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (file >= 0) ::close(file);
}

bool HasWord(std::string_view line) { return line.find_first_not_of(" \t\r\n") != std::string_view::npos; }

bool IsQuoted(std::string_view line)
{
    bool open = false;
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (open && line[at] == '\\')
            ++at;
        else if (line[at] == '"')
            open = !open;
    }
    return open;
}

}  // namespace

class LineEditor::Impl {
public:
    Impl(Completer completer, std::function<std::size_t()> width, std::string historyFile)
        : m_completer(std::move(completer)), m_width(std::move(width)), m_historyFile(std::move(historyFile))
    {
        UseUtf8();
        m_editor.reset(el_init("swcli", stdin, stdout, stderr));
        m_history.reset(history_init());
        if (!m_editor || !m_history) throw std::runtime_error("there is no memory for the line editor");
        EditLine* editor = m_editor.get();
        el_set(editor, EL_CLIENTDATA, this);
        el_set(editor, EL_PROMPT, &Prompt);
        el_set(editor, EL_EDITOR, "emacs");
        el_set(editor, EL_SIGNAL, 1);
        BindKeys();
        // Ctrl-C is a key here, which drops the line, and no signal.
        el_set(editor, EL_SETTY, "-d", "-isig", nullptr);
        HistEvent event{};
        history(m_history.get(), &event, H_SETSIZE, kMostLines);
        history(m_history.get(), &event, H_SETUNIQUE, 1);
        el_set(editor, EL_HIST, &history, m_history.get());
        if (!m_historyFile.empty()) history(m_history.get(), &event, H_LOAD, m_historyFile.c_str());
    }

    ~Impl()
    {
        if (m_historyFile.empty()) return;
        MakePrivate(m_historyFile);
        HistEvent event{};
        history(m_history.get(), &event, H_SAVE, m_historyFile.c_str());
    }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    std::optional<std::string> Read(const std::string& prompt)
    {
        m_prompt = prompt;
        int count = 0;
        const char* text = el_gets(m_editor.get(), &count);
        if (text == nullptr || count <= 0) return std::nullopt;
        std::string line(text, static_cast<std::size_t>(count));
        line.erase(line.find_last_not_of("\r\n") + 1);
        HistEvent event{};
        if (HasWord(line)) history(m_history.get(), &event, H_ENTER, line.c_str());
        return line;
    }

private:
    static Impl& Of(EditLine* editor)
    {
        Impl* self = nullptr;
        el_get(editor, EL_CLIENTDATA, &self);
        return *self;
    }

    static char* Prompt(EditLine* editor) { return Of(editor).m_prompt.data(); }

    void BindKeys()
    {
        EditLine* editor = m_editor.get();
        el_set(editor, EL_ADDFN, "swcli-complete", "Completes the word", &OnTab);
        el_set(editor, EL_ADDFN, "swcli-help", "Shows what may come next", &OnHelp);
        el_set(editor, EL_ADDFN, "swcli-drop", "Drops the line", &OnDrop);
        const char* const keys[][2] = {
            {"^I", "swcli-complete"},
            {"?", "swcli-help"},
            {"^C", "swcli-drop"},
            {"^R", "em-inc-search-prev"},
            {"\\e[3~", "ed-delete-next-char"},
            {"\\e[H", "ed-move-to-beg"},
            {"\\e[F", "ed-move-to-end"},
            {"\\eOH", "ed-move-to-beg"},
            {"\\eOF", "ed-move-to-end"},
            {"\\e[1~", "ed-move-to-beg"},
            {"\\e[4~", "ed-move-to-end"},
            {"\\e[1;5D", "ed-prev-word"},
            {"\\e[1;5C", "em-next-word"},
            {"^W", "ed-delete-prev-word"},
        };
        for (const auto& [key, function] : keys) el_set(editor, EL_BIND, key, function, nullptr);
    }

    std::string BeforeCursor()
    {
        const LineInfo* line = el_line(m_editor.get());
        return {line->buffer, line->cursor};
    }

    void Show(const Completion& completion)
    {
        const std::string text = completion.Text(m_width ? m_width() : 79, kMostShown);
        std::fputc('\n', stdout);
        std::fputs(text.empty() ? "  nothing more is expected here\n" : text.c_str(), stdout);
        std::fflush(stdout);
    }

    static unsigned char OnTab(EditLine* editor, int /*key*/)
    {
        Impl& self = Of(editor);
        const Completion completion = self.m_completer(self.BeforeCursor());
        const std::string insertion = completion.Insertion();
        if (!insertion.empty()) return el_insertstr(editor, insertion.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
        if (completion.choices.empty()) return CC_REFRESH_BEEP;
        self.Show(completion);
        return CC_REDISPLAY;
    }

    static unsigned char OnHelp(EditLine* editor, int /*key*/)
    {
        Impl& self = Of(editor);
        const std::string line = self.BeforeCursor();
        if (IsQuoted(line)) return el_insertstr(editor, "?") == 0 ? CC_REFRESH : CC_ERROR;
        self.Show(self.m_completer(line));
        return CC_REDISPLAY;
    }

    static unsigned char OnDrop(EditLine* editor, int /*key*/)
    {
        const LineInfo* line = el_line(editor);
        el_cursor(editor, static_cast<int>(line->lastchar - line->cursor));
        el_set(editor, EL_REFRESH);
        std::fputs("^C\n", stdout);
        line = el_line(editor);
        el_deletestr(editor, static_cast<int>(line->lastchar - line->buffer));
        // A line without its end would be the end of the input.
        return el_insertstr(editor, "\n") == 0 ? CC_NEWLINE : CC_ERROR;
    }

    Completer m_completer;
    std::function<std::size_t()> m_width;
    std::string m_historyFile;
    std::string m_prompt;
    std::unique_ptr<EditLine, EndEditor> m_editor;
    std::unique_ptr<History, EndHistory> m_history;
};

LineEditor::LineEditor(Completer completer, std::function<std::size_t()> width, std::string historyFile)
    : m_impl(std::make_unique<Impl>(std::move(completer), std::move(width), std::move(historyFile)))
{
}

LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::Read(const std::string& prompt) { return m_impl->Read(prompt); }

}  // namespace cli
