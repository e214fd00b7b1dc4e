// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/line_editor.h"

#include <histedit.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "cli/shell/history_file.h"

namespace cli {
namespace {

/// Choices that are listed at once.
constexpr std::size_t kMostListed = 40;

/// A paste that is longer is cut there.
constexpr std::size_t kLongestPaste = std::size_t{1} << 20;

/// What a terminal is told so that it marks what is pasted, and the marks.
constexpr const char* kMarkPastes = "\033[?2004h";
constexpr const char* kMarkNoPastes = "\033[?2004l";
constexpr const char* kPasteBegins = "\033[200~";
constexpr std::string_view kPasteEnds = "\033[201~";

void Print(std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

/// Stands before and behind what takes no room in a prompt.
constexpr char kUncounted = '\1';

/// The prompt with its colours marked.
std::string WithUncounted(std::string_view prompt)
{
    std::string out;
    bool inSequence = false;
    for (const char c : prompt) {
        if (c == '\033') out += kUncounted;
        inSequence = inSequence || c == '\033';
        out += c;
        if (!inSequence || c != 'm') continue;
        out += kUncounted;
        inSequence = false;
    }
    return out;
}

/// What the terminal sends up to the mark at the paste's end.
std::string ReadPaste()
{
    constexpr int kPatienceMs = 2'000;
    std::string text;
    while (!text.ends_with(kPasteEnds) && text.size() < kLongestPaste) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (::poll(&input, 1, kPatienceMs) <= 0) return text;
        char c = 0;
        if (::read(STDIN_FILENO, &c, 1) != 1) return text;
        text += c;
    }
    if (text.ends_with(kPasteEnds)) text.resize(text.size() - kPasteEnds.size());
    return text;
}

/// The keys that type the text: a tab is a blank, a question mark itself, other control characters are left
/// out.
std::string KeysFor(std::string_view text)
{
    constexpr char kLiterally = 'V' & 0x1f;
    std::string keys;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '?') keys += kLiterally;
        if (c == '\t')
            keys += ' ';
        else if (c == '\n' || c == '\r')
            keys += c == '\n' && i > 0 && text[i - 1] == '\r' ? "" : "\n";
        else if (static_cast<unsigned char>(c) >= ' ' && c != '\x7f')
            keys += c;
    }
    return keys;
}

bool IsInQuotes(std::string_view line)
{
    bool inQuotes = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (inQuotes && line[i] == '\\')
            ++i;
        else if (line[i] == '"')
            inQuotes = !inQuotes;
    }
    return inQuotes;
}

}  // namespace

class LineEditor::Impl {
public:
    Impl(Completer completer, std::function<std::size_t()> width, const std::string& historyFile)
        : m_completer(std::move(completer)), m_width(std::move(width)), m_file(historyFile)
    {
        // Characters of several bytes are one for the editor; data is UTF-8 whatever the locale is.
        if (std::setlocale(LC_CTYPE, "") == nullptr || MB_CUR_MAX == 1) std::setlocale(LC_CTYPE, "C.UTF-8");
        struct sigaction action {};
        action.sa_handler = [](int) {};
        action.sa_flags = SA_RESTART;
        ::sigaction(SIGINT, &action, nullptr);
        m_history = ::history_init();
        m_editor = ::el_init("swcli", stdin, stdout, stderr);
        if (m_editor == nullptr || m_history == nullptr)
            throw std::runtime_error("there is no memory for the line editor");
        HistEvent event;
        ::history(m_history, &event, H_SETSIZE, static_cast<int>(HistoryFile::kMostLines));
        ::history(m_history, &event, H_SETUNIQUE, 1);
        for (const std::string& line : m_file.Read()) ::history(m_history, &event, H_ENTER, line.c_str());
        SetUp();
    }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    ~Impl()
    {
        if (m_editor != nullptr) ::el_end(m_editor);
        if (m_history != nullptr) ::history_end(m_history);
    }

    std::optional<std::string> Read(const std::string& prompt)
    {
        m_prompt = WithUncounted(prompt);
        m_isDropped = false;
        if (m_marks) Print(kMarkPastes);
        int count = 0;
        errno = 0;
        const char* text = ::el_gets(m_editor, &count);
        const int error = errno;
        if (m_marks) Print(kMarkNoPastes);
        if (m_isDropped || (count < 0 && error == EINTR)) return std::string();
        if (text == nullptr || count <= 0) return std::nullopt;
        std::string line(text, static_cast<std::size_t>(count));
        if (line.ends_with('\n')) line.pop_back();
        Remember(line);
        return line;
    }

private:
    using Function = unsigned char (*)(EditLine*, int);

    static Impl& Of(EditLine* editor)
    {
        Impl* self = nullptr;
        ::el_get(editor, EL_CLIENTDATA, &self);
        return *self;
    }

    void SetUp()
    {
        const char* terminal = std::getenv("TERM");
        m_marks = terminal != nullptr && std::string_view(terminal) != "dumb";
        ::el_set(m_editor, EL_CLIENTDATA, this);
        ::el_set(m_editor, EL_PROMPT_ESC, static_cast<char* (*)(EditLine*)>([](EditLine* editor) {
                     return Of(editor).m_prompt.data();
                 }),
                 kUncounted);
        ::el_set(m_editor, EL_SIGNAL, 1);
        ::el_set(m_editor, EL_EDITOR, "emacs");
        ::el_set(m_editor, EL_HIST, ::history, m_history);
        // While a line is edited Ctrl-C is a key.
        ::el_set(m_editor, EL_SETTY, "-d", "-isig", nullptr);
        Bind("^C", "swcli-drop", "Drop the line", [](EditLine* e, int) { return Of(e).Drop(); });
        Bind("^I", "swcli-complete", "Complete", [](EditLine* e, int) { return Of(e).OnTab(); });
        Bind("?", "swcli-help", "Help", [](EditLine* e, int) { return Of(e).OnQuestion(); });
        Bind(kPasteBegins, "swcli-paste", "Paste", [](EditLine* e, int) { return Of(e).OnPaste(); });
        for (const auto& [keys, command] : kKeys) ::el_set(m_editor, EL_BIND, keys, command, nullptr);
    }

    void Bind(const char* keys, const char* name, const char* help, Function function)
    {
        ::el_set(m_editor, EL_ADDFN, name, help, function);
        ::el_set(m_editor, EL_BIND, keys, name, nullptr);
    }

    void Remember(const std::string& line)
    {
        if (line.find_first_not_of(" \t") == std::string::npos) return;
        HistEvent event;
        const bool isSame = ::history(m_history, &event, H_FIRST) >= 0 && event.str == line;
        ::history(m_history, &event, H_ENTER, line.c_str());
        if (!isSame) m_file.Add(line);
    }

    [[nodiscard]] std::string ToCursor() const
    {
        const LineInfo* info = ::el_line(m_editor);
        return {info->buffer, info->cursor};
    }

    unsigned char Drop()
    {
        m_isDropped = true;
        Print("^C\n");
        return CC_NEWLINE;
    }

    unsigned char OnTab()
    {
        const Completion completion = m_completer(ToCursor());
        const std::string insertion = completion.Insertion();
        if (!insertion.empty()) return Insert(insertion);
        return completion.choices.empty() ? CC_REFRESH_BEEP : List(completion);
    }

    unsigned char Insert(const std::string& text)
    {
        return ::el_insertstr(m_editor, text.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    }

    unsigned char OnQuestion()
    {
        const std::string line = ToCursor();
        return IsInQuotes(line) ? Insert("?") : List(m_completer(line));
    }

    /// Under the line, which is shown again below.
    unsigned char List(const Completion& completion)
    {
        const std::string text = completion.Text(m_width(), kMostListed);
        Print("\n" + (text.empty() ? "  " + completion.hint + "\n" : text));
        return CC_REDISPLAY;
    }

    /// Has what was pasted come as keys, so that each line is run in its turn.
    unsigned char OnPaste()
    {
        const std::string keys = KeysFor(ReadPaste());
        if (!keys.empty()) ::el_push(m_editor, keys.c_str());
        return CC_NORM;
    }

    static constexpr std::pair<const char*, const char*> kKeys[] = {
        {"^R", "em-inc-search-prev"},  {"\033[3~", "ed-delete-next-char"}, {"\033[H", "ed-move-to-beg"},
        {"\033OH", "ed-move-to-beg"},  {"\033[1~", "ed-move-to-beg"},      {"\033[7~", "ed-move-to-beg"},
        {"\033[F", "ed-move-to-end"},  {"\033OF", "ed-move-to-end"},       {"\033[4~", "ed-move-to-end"},
        {"\033[8~", "ed-move-to-end"}, {"\033[1;5D", "ed-prev-word"},      {"\033[1;5C", "em-next-word"},
        {"\033[A", "ed-prev-history"}, {"\033[B", "ed-next-history"},
    };

    Completer m_completer;
    std::function<std::size_t()> m_width;
    HistoryFile m_file;
    History* m_history = nullptr;
    EditLine* m_editor = nullptr;
    std::string m_prompt;
    bool m_isDropped = false;
    bool m_marks = false;  // the terminal is asked to mark pastes
};

LineEditor::LineEditor(Completer completer, std::function<std::size_t()> width,
                       const std::string& historyFile)
    : m_impl(std::make_unique<Impl>(std::move(completer), std::move(width), historyFile))
{
}

LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::Read(const std::string& prompt) { return m_impl->Read(prompt); }

}  // namespace cli
