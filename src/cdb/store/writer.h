// SPDX-License-Identifier: Apache-2.0
// Applies writes to the store, one at a time, and makes room for them if it is full. Used by the store.

#ifndef CDB_STORE_WRITER_H
#define CDB_STORE_WRITER_H

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "cdb/store/history.h"
#include "cdb/store/store_options.h"
#include "cdb/store/transaction.h"

namespace cdb {

/// Taken while a write is under way, so that a second one is refused. For any thread.
class WriteSlot {
public:
    /// Returns false if it is taken.
    bool Take() { return !m_taken.exchange(true); }
    void GiveBack() { m_taken = false; }

    /// Gives back the taken slot when it is destroyed.
    class Hold {
    public:
        explicit Hold(WriteSlot& slot) : m_slot(slot) {}
        ~Hold() { m_slot.GiveBack(); }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        WriteSlot& m_slot;
    };

private:
    std::atomic<bool> m_taken{false};
};

/// The error of a write that finds the slot taken.
Error SlotTaken(const std::string& what);

/// Applies changes durably. The caller takes the slot.
class StoreWriter {
public:
    using Apply = std::function<void(WriteTransaction& write)>;

    StoreWriter(std::shared_ptr<Environment> environment, const StoreOptions& options);

    /// `apply` makes the changes; it is called again after room was made for them.
    [[nodiscard]] std::optional<Error> Do(const std::string& what, const Apply& apply);

    [[nodiscard]] Environment& Used() const { return *m_environment; }
    [[nodiscard]] const history::Limits& Limits() const { return m_limits; }
    WriteSlot& Slot() { return m_slot; }

private:
    /// Drops half of the history's bytes. Returns false if there was nothing to drop, or it failed.
    bool MakeRoom();

    std::shared_ptr<Environment> m_environment;
    history::Limits m_limits;
    WriteSlot m_slot;
};

}  // namespace cdb

#endif
