// SPDX-License-Identifier: Apache-2.0
// Earlier configurations, put together of what undoes the commits since. Used by the datastore.

#ifndef CDB_DATASTORE_PAST_H
#define CDB_DATASTORE_PAST_H

#include <cstdint>
#include <optional>

#include "base/expected.h"
#include "cdb/datastore/patched_view.h"
#include "cdb/model/error.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

namespace cdb {

/// Puts the rows as they were before the commit into `rows`, over those that are there. `rows` is unspecified
/// after an error, which names the commit and what to do: kDataMissing if what undoes it is not kept;
/// kOperationFailed if it is damaged, of an older version, or has what the schema does not have any more.
std::optional<Error> TakeBack(const Schema& schema, const Store& store, std::uint64_t commit, RowPatch& rows);

/// The rows that were others after `commit` than they are after `newest`, as they were. Costs what the
/// commits between the two have changed. Errors as of TakeBack; kInvalidValue if `commit` is newer.
base::expected<RowPatch, Error> RowsAfter(const Schema& schema, const Store& store, std::uint64_t commit,
                                          std::uint64_t newest);

}  // namespace cdb

#endif
