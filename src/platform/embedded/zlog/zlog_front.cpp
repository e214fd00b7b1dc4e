// SPDX-License-Identifier: Apache-2.0
// The two functions of zlog, over the platform's log.

#include "zlog.h"

#include <cstdarg>
#include <cstdio>
#include <string>
#include <string_view>

#include "log/forward.h"
#include "log/log.h"
#include "zlog_front.h"

struct zlog_category_s {};

namespace {

constexpr std::size_t kUsualLength = 1024;

zlog_category_t theCategory;

std::string Formatted(const char* format, std::va_list arguments)
{
    std::string text(kUsualLength, '\0');
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    if (length < 0) {
        text = "(text that can't be formatted)";
    } else {
        const bool cut = static_cast<std::size_t>(length) > text.size();
        text.resize(static_cast<std::size_t>(length));
        if (cut) std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void zlog(zlog_category_t* category, const char* file, size_t filelen,
                                                 const char* func, size_t funclen, long line, int level,
                                                 const char* format, ...)
{
    if (zlog_level_enabled(category, level) == 0) return;
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text = Formatted(format, arguments);
    va_end(arguments);
    slog::Line(level, std::string_view(file, filelen), std::string_view(func, funclen), line, text);
}

__attribute__((visibility("default"))) int zlog_level_enabled(zlog_category_t* category, const int level)
{
    return category != nullptr && slog::Enabled(level) ? 1 : 0;
}

__attribute__((visibility("default"))) zlog_category_t* zlog_front_open(const char* process)
{
    slog::Open(process);
    slog::ForwardToDatabase();
    return &theCategory;
}
}
