// SPDX-License-Identifier: Apache-2.0
// Child processes of a test (see the header).

#include "support/process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>

namespace support {

namespace {

constexpr int kCannotExecute = 127;

[[noreturn]] void Fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

// In the child, between fork and exec: system calls only.
void Redirect(const char* path, int flags, int target)
{
    const int opened = open(path, flags | O_CLOEXEC, 0600);
    if (opened < 0 || dup2(opened, target) < 0) _exit(kCannotExecute);
}

// The environment in the form that exec takes: the test's own, with the additions in front, so that
// they win.
std::vector<std::string> EnvironmentText(const std::map<std::string, std::string>& additions)
{
    std::vector<std::string> text;
    for (const auto& [name, value] : additions) text.push_back(name + "=" + value);
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string line = *entry;
        if (!additions.contains(line.substr(0, line.find('=')))) text.push_back(line);
    }
    return text;
}

std::vector<char*> Pointers(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (auto& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

[[noreturn]] void Become(const Command& command, char* const* argv, char* const* environment, pid_t parent,
                         int report)
{
    // The kernel ends the child with its parent; the second line closes the gap before the first.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(kCannotExecute);
    const char* null = "/dev/null";
    Redirect(command.input.empty() ? null : command.input.c_str(), O_RDONLY, STDIN_FILENO);
    Redirect(command.output.empty() ? null : command.output.c_str(), O_WRONLY | O_CREAT | O_APPEND,
             STDOUT_FILENO);
    Redirect(command.errors.empty() ? null : command.errors.c_str(), O_WRONLY | O_CREAT | O_APPEND,
             STDERR_FILENO);
    execvpe(argv[0], argv, environment);
    const int error = errno;
    if (write(report, &error, sizeof error) != sizeof error) _exit(kCannotExecute);
    _exit(kCannotExecute);
}

}  // namespace

Process::Process(const Command& command) : m_name(std::filesystem::path(command.argv.at(0)).filename())
{
    auto arguments = command.argv;
    auto environment = EnvironmentText(command.environment);
    const auto argv = Pointers(arguments);
    const auto envp = Pointers(environment);
    std::array<int, 2> report{};
    if (pipe2(report.data(), O_CLOEXEC) != 0) Fail("pipe");
    const pid_t parent = getpid();
    m_pid = fork();
    if (m_pid < 0) Fail("fork");
    if (m_pid == 0) Become(command, argv.data(), envp.data(), parent, report[1]);
    close(report[1]);
    int error = 0;
    const ssize_t got = read(report[0], &error, sizeof error);
    close(report[0]);
    if (got == sizeof error) {
        waitpid(m_pid, nullptr, 0);
        errno = error;
        Fail(command.argv[0]);
    }
}

Process::~Process()
{
    if (!m_status && m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
}

bool Process::Running()
{
    if (m_status) return false;
    int status = 0;
    if (waitpid(m_pid, &status, WNOHANG) != m_pid) return true;
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return false;
}

void Process::Signal(int number)
{
    if (Running()) kill(m_pid, number);
}

void Process::Freeze()
{
    Signal(SIGSTOP);
    Await(m_name + " to stop", [this] {
        std::ifstream stat("/proc/" + std::to_string(m_pid) + "/stat");
        std::string line;
        std::getline(stat, line);
        const auto end = line.rfind(')');
        return end != std::string::npos && line.size() > end + 2 && line[end + 2] == 'T';
    });
}

void Process::Thaw() { Signal(SIGCONT); }

ExitStatus Process::Wait(std::chrono::milliseconds within)
{
    Await(
        m_name + " to end", [this] { return !Running(); }, within);
    return *m_status;
}

void Process::Kill()
{
    Signal(SIGKILL);
    Wait();
}

ExitStatus Process::Terminate()
{
    Signal(SIGTERM);
    return Wait();
}

RunResult Run(const std::filesystem::path& scratch, const std::vector<std::string>& argv,
              const std::map<std::string, std::string>& environment, const std::string& input)
{
    static std::atomic<unsigned> count{0};
    const auto stem = scratch / ("run-" + std::to_string(count++));
    const auto in = stem.string() + ".in";
    const auto out = stem.string() + ".out";
    const auto err = stem.string() + ".err";
    WriteFile(in, input);
    Process process({.argv = argv, .environment = environment, .output = out, .errors = err, .input = in});
    RunResult result;
    result.status = process.Wait();
    result.output = ReadFile(out);
    result.errors = ReadFile(err);
    for (const auto& file : {in, out, err}) std::filesystem::remove(file);
    return result;
}

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return std::move(text).str();
}

void WriteFile(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.flush();
    if (!file) throw std::runtime_error("can't write " + path.string());
}

TempDir::TempDir()
{
    const auto base = std::filesystem::temp_directory_path();
    auto pattern = (base / "sflow-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) Fail("mkdtemp " + pattern);
    m_path = pattern;
}

TempDir::~TempDir()
{
    std::error_code ignored;  // what can't be removed must not end the test run
    std::filesystem::remove_all(m_path, ignored);
}

}  // namespace support
