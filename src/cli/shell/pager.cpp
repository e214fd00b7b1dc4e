// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/pager.h"

#include <sys/wait.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "base/environment.h"

namespace cli {

bool Page(const std::string& text)
{
    constexpr int kNoSuchProgram = 127;  // as a shell says it
    const std::string program = base::Variable("PAGER").value_or("less -FRX");
    ::setenv("LESSSECURE", "1", 1);
    ::setenv("LESS", "FRX", 0);  // if PAGER is less: it passes colours on
    // A pager that ends early closes the pipe.
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    std::fflush(stdout);
    std::FILE* pipe = ::popen(program.c_str(), "we");
    if (pipe == nullptr) return false;
    std::fwrite(text.data(), 1, text.size(), pipe);
    const int status = ::pclose(pipe);
    std::signal(SIGPIPE, before);
    return !(WIFEXITED(status) && WEXITSTATUS(status) == kNoSuchProgram);
}

}  // namespace cli
