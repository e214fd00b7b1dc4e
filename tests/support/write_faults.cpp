// SPDX-License-Identifier: Apache-2.0
// The test's side of write faults (see the header).

#include "support/write_faults.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <system_error>

namespace support {

WriteFaults::WriteFaults()
{
    const auto path = m_dir.Path() / "block";
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    void* mapped = MAP_FAILED;
    if (file >= 0 && ftruncate(file, sizeof(WriteFaultsBlock)) == 0)
        mapped = mmap(nullptr, sizeof(WriteFaultsBlock), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    const int error = errno;
    if (file >= 0) close(file);
    if (mapped == MAP_FAILED) throw std::system_error(error, std::generic_category(), path);
    m_block = new (mapped) WriteFaultsBlock{};
}

WriteFaults::~WriteFaults() { munmap(m_block, sizeof(WriteFaultsBlock)); }

std::map<std::string, std::string> WriteFaults::Environment() const
{
    return {{"LD_PRELOAD", SUPPORT_WRITE_FAULTS_LIBRARY},
            {kWriteFaultsVariable, m_dir.Path() / "block"},
            // The address sanitizer wants to be the first library; that the calls here are not its own harms
            // nothing.
            {"ASAN_OPTIONS", "verify_asan_link_order=0"}};
}

void WriteFaults::Watch(const std::filesystem::path& directory)
{
    const std::string path = std::filesystem::canonical(directory);
    if (path.size() >= m_block->directory.size()) throw std::runtime_error("too long a path: " + path);
    std::memcpy(m_block->directory.data(), path.c_str(), path.size() + 1);
}

void WriteFaults::Arm(const WriteFault& fault)
{
    m_block->armed = false;
    m_block->calls = 0;
    m_block->first = fault.call;
    m_block->lasting = fault.lasting;
    m_block->outcome = fault.outcome;
    m_block->error = fault.error;
    m_block->armed = true;
}

void WriteFaults::Disarm() { m_block->armed = false; }

}  // namespace support
