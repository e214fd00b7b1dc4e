// SPDX-License-Identifier: Apache-2.0
#include "capture/ebpf/libbpf_log.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include <bpf/libbpf.h>

#include "log/log.h"

namespace capture {
namespace {

int Log(libbpf_print_level, const char* format, va_list arguments)
{
    if (!slog::Enabled(static_cast<int>(slog::Level::kDebug))) return 0;
    std::array<char, 512> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    std::string_view line = text.data();
    while (line.ends_with('\n')) line.remove_suffix(1);
    slog::Debug("{}", line);
    return 0;
}

}  // namespace

void LogWhatLibbpfSays() { libbpf_set_print(Log); }

}  // namespace capture
