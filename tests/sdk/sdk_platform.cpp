// SPDX-License-Identifier: Apache-2.0
// What makes the fake platform a library that a process can be run on: its log is the zlog that the
// process was built with, and its loop plays the scenario named in SDK_SCENARIO.
//
//   load   the sFlow manager is found over the configuration SDK_CONFIG; the service's calls are
//          written to standard output
//   throw  an exception leaves the loop
//   (none) the loop ends at once

#include <qxmw/qxmw.h>
#include <zlog_front.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "fakes/fake_platform.h"

namespace {

std::string Environment(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

int PlayScenario()
{
    fakes::Platform& platform = fakes::Platform::Get();
    const std::string scenario = Environment("SDK_SCENARIO");
    if (scenario == "throw") throw std::runtime_error("the loop broke");
    if (scenario == "load") {
        std::ifstream file(Environment("SDK_CONFIG"));
        platform.cdb.Load({std::istreambuf_iterator<char>(file), {}});
        platform.ManagerFound();
        for (const fakes::ServiceCall& call : platform.recorder.calls) std::cout << ToText(call) << "\n";
    }
    return 0;
}

const bool kInstalled = [] {
    fakes::Platform::Get().loop = PlayScenario;
    return true;
}();

}  // namespace

extern "C" zlog_category_t* qxmw_trace_init(qxmw_t* /*qxmw*/, const char* name)
{
    return zlog_front_open(name);
}
