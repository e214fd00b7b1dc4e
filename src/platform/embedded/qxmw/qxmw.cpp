// SPDX-License-Identifier: Apache-2.0
// The middleware functions: traces, faults and backtraces.

#include <qxmw/qxmw.h>

#include <execinfo.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include <fmt/format.h>
#include <qxos/context.h>

#include "base/directories.h"
#include "ipc/cdb.pb.h"
#include "ipc/frame.h"
#include "log/forward.h"
#include "log/log.h"
#include "platform/embedded/qxmw/category.h"
#include "platform/embedded/runtime.h"

namespace {

constexpr int kErrorLevel = static_cast<int>(slog::Level::kError);
constexpr std::chrono::milliseconds kReportTime{1000};
constexpr int kMaxFrames = 64;

const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }

std::string ProcessName()
{
    return qxos::the_context != nullptr ? embedded::TheRuntime().process : program_invocation_short_name;
}

}  // namespace

extern "C" {

zlog_category_t* qxmw_trace_init(qxmw_t*, const char* name)
{
    slog::Open(name);
    slog::ForwardToDatabase();
    return embedded::MakeCategory(name);
}

void qxmw_gen_fault(int kind, const char* function, const char* file, int line, const char* text)
{
    slog::Line(kErrorLevel, OrEmpty(file), OrEmpty(function), line,
               fmt::format("fault of kind {}: {}", kind, OrEmpty(text)));

    ipc::cdb::ClientMessage message;
    auto& report = *message.mutable_fault_report();
    report.set_process(ProcessName());
    report.set_pid(::getpid());
    report.set_kind(kind);
    report.set_function(OrEmpty(function));
    report.set_file(OrEmpty(file));
    report.set_line(line);
    report.set_text(OrEmpty(text));
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    report.set_time_us(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
    // If cdbd can't be reached, the log line above is the only report.
    static_cast<void>(ipc::SendBlocking(base::RunDirectory() + "/cdb.sock", message, kReportTime));
}

void qxmw_print_backtrace(void)
{
    void* frames[kMaxFrames];
    const int count = ::backtrace(frames, kMaxFrames);
    const std::unique_ptr<char*, decltype(&std::free)> names(::backtrace_symbols(frames, count), &std::free);
    for (int i = 0; i < count; ++i)
        slog::Error("backtrace #{}: {}", i, names != nullptr ? names.get()[i] : "(no name)");
}
}
