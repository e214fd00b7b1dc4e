// SPDX-License-Identifier: Apache-2.0
// The category from a zlog that is not our front, initialised with this platform's levels, line format and
// destination. Not tested in this tree, which has no such library to build against.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/environment.h"
#include "base/unique_fd.h"
#include "platform/embedded/qxmw/category.h"

namespace embedded {
namespace {

constexpr int kDefaultLevel = 12;

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "cannot open the log: %s; check SFLOW_LOG and SFLOW_LOG_LEVEL\n", what);
    std::exit(EXIT_FAILURE);
}

int LowestLevel()
{
    const std::string text = base::Variable("SFLOW_LOG_LEVEL").value_or("");
    int level = kDefaultLevel;
    std::from_chars(text.data(), text.data() + text.size(), level);
    return std::clamp(level, 10, 13);
}

std::string Configuration(const std::string& process)
{
    static constexpr const char* kNames[] = {"STEP", "DETAIL", "LIFE", "FAULT"};
    const auto file = base::LogFile();
    std::string text = "[levels]\n";
    for (int level = 10; level <= 13; ++level)
        text += std::string(kNames[level - 10]) + " = " + std::to_string(level) + "\n";
    text += "[formats]\nline = \"%d(%Y-%m-%dT%H:%M:%S).%usZ " + process + " %v %F:%U:%L %m%n\"\n";
    text += "[rules]\n*." + std::string(kNames[LowestLevel() - 10]) + " ";
    text += file ? "\"" + *file + "\"" : ">stderr";
    return text + "; line\n";
}

}  // namespace

zlog_category_t* MakeCategory(const char* process)
{
    const std::string text = Configuration(process);
    const base::UniqueFd file(::memfd_create("zlog.conf", MFD_CLOEXEC));
    if (!file || ::write(file.Get(), text.data(), text.size()) < 0) Fail(std::strerror(errno));
    const std::string path = "/proc/self/fd/" + std::to_string(file.Get());
    ::setenv("TZ", "UTC", 1);
    if (zlog_init(path.c_str()) != 0) Fail("zlog refuses its configuration");
    zlog_category_t* category = zlog_get_category(process);
    if (category == nullptr) Fail("zlog has no category");
    return category;
}

}  // namespace embedded
