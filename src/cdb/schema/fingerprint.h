// SPDX-License-Identifier: Apache-2.0
// A hash over the text of all YANG modules of a context. Used by schema.cpp.

#ifndef CDB_SCHEMA_FINGERPRINT_H
#define CDB_SCHEMA_FINGERPRINT_H

#include <string>

struct ly_ctx;

namespace cdb {

/// Independent of the order in which the modules were loaded. Throws FatalError if a module's file can't be
/// read any more.
std::string FingerprintOf(const ly_ctx* context);

}  // namespace cdb

#endif
