// SPDX-License-Identifier: Apache-2.0
// The log: every line is recorded. Apart from the rest of the fake platform, because a process that
// is linked with a real zlog takes that.

#include <qxmw/qxmw.h>
#include <zlog.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "fakes/fake_platform.h"

struct zlog_category_s {};

using fakes::Platform;

extern "C" {

void zlog(zlog_category_t* category, const char* file, size_t filelen, const char* func, size_t funclen,
          long line, int level, const char* format, ...)
{
    if (zlog_level_enabled(category, level) == 0) return;
    char text[16384];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    fakes::Recorder& recorder = Platform::Get().recorder;
    recorder.logs.push_back({level, std::string(func, funclen), text, std::string(file, filelen)});
    recorder.logLineNumbers.push_back(line);
    recorder.Note("log " + std::to_string(level) + " " + std::string(func, funclen) + ": " + text);
}

int zlog_level_enabled(zlog_category_t* category, const int level)
{
    return category != nullptr && level >= Platform::Get().recorder.lowestLevel ? 1 : 0;
}

zlog_category_t* qxmw_trace_init(qxmw_t* qxmw, const char* name)
{
    static zlog_category_t category;
    Platform& platform = Platform::Get();
    platform.recorder.Note(std::string("trace init ") + (qxmw != nullptr ? name : "without middleware"));
    platform.category = &category;
    return platform.category;
}
}
