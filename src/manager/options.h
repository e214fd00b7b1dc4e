// The command line of sflow-mgr.

#ifndef MANAGER_OPTIONS_H
#define MANAGER_OPTIONS_H

#include <stdexcept>
#include <string>

namespace manager {

struct Options {
    std::string journal;  // empty: none
    std::string user;     // empty: stay who we are
    bool requireSampling = false;
    bool help = false;
    bool version = false;
};

/// A command line that makes no sense; the text names the option.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Throws UsageError.
Options ParseOptions(int argc, char** argv);

std::string UsageText();
std::string VersionText();

}  // namespace manager

#endif
