// SPDX-License-Identifier: Apache-2.0
// Makes a process's writing to the files of one directory fail, or ends the process, at the n-th call: the
// commits of a database are tried at each of their steps. What counts is write, pwrite, writev, pwritev,
// fsync, fdatasync, msync and ftruncate.

#ifndef SUPPORT_WRITE_FAULTS_H
#define SUPPORT_WRITE_FAULTS_H

#include <filesystem>
#include <map>
#include <string>

#include "support/process.h"
#include "support/write_faults_block.h"

namespace support {

struct WriteFault {
    WriteOutcome outcome = WriteOutcome::kDone;
    unsigned call = 1;     // which, from Arm on
    int error = 0;         // of the outcomes that fail
    bool lasting = false;  // from that call on
};

class WriteFaults {
public:
    WriteFaults();
    ~WriteFaults();
    WriteFaults(const WriteFaults&) = delete;
    WriteFaults& operator=(const WriteFaults&) = delete;

    /// What a process that is to be harmed is started with.
    [[nodiscard]] std::map<std::string, std::string> Environment() const;

    /// Whose files it is about.
    void Watch(const std::filesystem::path& directory);

    /// From now on calls count, anew.
    void Arm(const WriteFault& fault);
    void Disarm();

    /// How many there were since Arm.
    [[nodiscard]] unsigned Calls() const { return m_block->calls; }

private:
    TempDir m_dir;
    WriteFaultsBlock* m_block = nullptr;
};

}  // namespace support

#endif
