// SPDX-License-Identifier: Apache-2.0
// What stands behind '|': the form of a command's output, and filters of its lines.

#ifndef CLI_SHELL_PIPES_H
#define CLI_SHELL_PIPES_H

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "cli/data/schema_choices.h"
#include "cli/data/words.h"

namespace cli {

/// One filter of lines.
struct LineFilter {
    enum class Kind { kMatch, kExcept, kBegin, kCount, kSave };
    Kind kind = Kind::kMatch;
    std::string argument;  // a POSIX extended regular expression, or a file
};

struct Pipes {
    std::vector<Word> command;  // with the form of its output, if one is given
    std::vector<LineFilter> filters;
    bool paged = true;
};

/// Takes the filters from the words. Throws Error for one that is not known, and for a form behind a filter.
Pipes TakePipes(const std::vector<Word>& words);

/// The filters as usage texts show them.
std::string FiltersHelp();

/// Their names, with what each does.
std::vector<Choice> FilterChoices();

/// Writes what is put into Stream() to `out`, line by line, through the filters. A command that writes as it
/// goes is filtered as it goes.
class FilteredOutput {
public:
    /// Throws Error for an expression that is none, and for a file that can't be written.
    FilteredOutput(const std::vector<LineFilter>& filters, std::ostream& out, std::ostream& err);
    ~FilteredOutput();
    FilteredOutput(const FilteredOutput&) = delete;
    FilteredOutput& operator=(const FilteredOutput&) = delete;

    std::ostream& Stream();

    /// To be called when the command has ended well: writes the last line, counts, and puts saved files in
    /// their places. Without it a file stays as it was. Throws Error for a file that can't be written.
    void Finish();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace cli

#endif
