// SPDX-License-Identifier: Apache-2.0
// Reads a store in a child process and reports what is wrong with it.

#include "cdb/store/check.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "base/unique_fd.h"
#include "cdb/model/error.h"

namespace cdb {
namespace {

static_assert(std::is_trivially_copyable_v<StoreFigures>);

// The child's first words if the store is sound; other text is an error, and no text means that the child
// died.
constexpr std::string_view kSound = "sound\n";
constexpr rlim_t kLongestSeconds = 60;  // of processor time: damaged pages can form a ring

/// kSound and the bytes of the figures, or what is wrong.
std::string Verdict(const std::filesystem::path& directory, CheckDepth depth)
{
    try {
        const StoreFigures figures = ReadRecords(directory, depth);
        std::string verdict(kSound);
        return verdict.append(reinterpret_cast<const char*>(&figures), sizeof(figures));
    } catch (const FatalError& error) {
        return error.what();
    } catch (const DamagedRecord& damage) {
        return "the store in " + directory.string() + " is damaged: " + damage.what() +
               "; restore the directory from a copy, or move it away to begin with an empty one";
    } catch (const std::exception& error) {
        return "the store in " + directory.string() + " can't be checked: " + error.what();
    }
}

[[noreturn]] void RunChild(const std::filesystem::path& directory, CheckDepth depth, int output)
{
    for (const int signal : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL}) std::signal(signal, SIG_DFL);
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    const rlimit time{kLongestSeconds, kLongestSeconds};
    setrlimit(RLIMIT_CPU, &time);
    const std::string verdict = Verdict(directory, depth);
    std::string_view rest = verdict;
    while (!rest.empty()) {
        const ssize_t written = write(output, rest.data(), rest.size());
        if (written <= 0) _exit(1);
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    _exit(0);
}

std::string ReadAll(int input)
{
    std::string text;
    std::array<char, 1024> buffer{};
    for (;;) {
        const ssize_t count = read(input, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

StoreFigures CheckStore(const std::filesystem::path& directory, CheckDepth depth)
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        throw FatalError(std::string("checking the store failed: ") + std::strerror(errno));
    base::UniqueFd reader(ends[0]);
    base::UniqueFd writer(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        reader.Close();
        RunChild(directory, depth, writer.Get());
    }
    writer.Close();
    const std::string verdict = child > 0 ? ReadAll(reader.Get()) : std::string();
    if (child < 0) throw FatalError("checking the store failed: no process can be started");
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
    StoreFigures figures;
    if (verdict.starts_with(kSound) && verdict.size() == kSound.size() + sizeof(figures)) {
        std::memcpy(&figures, verdict.data() + kSound.size(), sizeof(figures));
        return figures;
    }
    if (!verdict.empty()) throw FatalError(verdict);
    throw FatalError(
        "the store in " + directory.string() +
        " is damaged: it can't be read to its end; restore the directory from a copy, or move it away "
        "to begin with an empty one");
}

}  // namespace cdb
