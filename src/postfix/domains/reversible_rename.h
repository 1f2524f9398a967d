// reversible_rename - a rename in several steps that is either whole or taken back
//
// Each step is one function that renames something from its first argument to its second, and
// that takes itself back when it is called with the two swapped. step() carries it out. When it
// raises, the steps that were finished before it are taken back, the last one first, and the
// exception goes on to the caller.
//
// A step that cannot be taken back is reported on orvek::uerr with its title between
// doubleErrorHead and doubleErrorTail; nothing is raised for it, and the step before it still
// gets its turn.

#ifndef MAILVEK_POSTFIX_DOMAINS_REVERSIBLE_RENAME_H
#define MAILVEK_POSTFIX_DOMAINS_REVERSIBLE_RENAME_H

#include <functional>
#include <string>
#include <vector>

namespace orvek::mail::postfix {

class ReversibleRename
{
public:
    using Step = std::function<void(std::string const& from, std::string const& to)>;

    ReversibleRename(std::string from_, std::string to_);

    // title: what the report names if this step cannot be taken back; it must outlive the object.
    void step(char const* title, Step const& rename);

    // The step behind which nothing can fail any more.
    void lastStep(Step const& rename);

private:
    struct FinishedStep
    {
        char const* title;
        Step rename;
    };

    void takeBack() noexcept;

    std::string from;
    std::string to;
    std::vector<FinishedStep> finished;
};

} // namespace orvek::mail::postfix

#endif
