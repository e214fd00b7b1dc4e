// SPDX-License-Identifier: Apache-2.0
// All parts of the manager, wired together and to the kernel. Used by the program alone: everything
// else takes what it needs by constructor.

#ifndef MANAGER_PROCESS_ASSEMBLY_H
#define MANAGER_PROCESS_ASSEMBLY_H

#include <memory>
#include <string>

namespace boost::asio {
class io_context;
}

namespace manager {

struct Options;

class Assembly {
public:
    /// Opens everything that needs privileges, then gives them up. `directory` holds the sockets. Throws
    /// std::exception with a text for operators if the manager can't start. The loop must outlive it.
    Assembly(boost::asio::io_context& loop, const Options& options, const std::string& directory);
    Assembly(const Assembly&) = delete;
    Assembly& operator=(const Assembly&) = delete;

    /// Ends sampling, sends what waits, and leaves nothing in the kernel or in the directory.
    ~Assembly();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace manager

#endif
