// SPDX-License-Identifier: Apache-2.0
// A fault that a process has reported of itself.

#ifndef CDB_MODEL_FAULT_H
#define CDB_MODEL_FAULT_H

#include <cstdint>
#include <string>

namespace cdb {

struct Fault {
    std::uint64_t number = 0;  // assigned by the store
    std::int64_t timeUs = 0;
    std::string process;
    std::int64_t pid = 0;
    std::int32_t kind = 0;
    std::string function;
    std::string file;
    std::int32_t line = 0;
    std::string text;
};

}  // namespace cdb

#endif
