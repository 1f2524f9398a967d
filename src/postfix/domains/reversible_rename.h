// reversible_rename - a rename in steps that undoes itself when it fails
//
// A step takes the old and the new name. Calling it with the two swapped undoes it. step() carries
// it out. When a step raises, the earlier steps are undone, the last one first, and the exception
// goes on to the caller.
//
// A step that cannot be undone is reported on orvek::uerr: its title between doubleErrorHead and
// doubleErrorTail. Nothing is raised for it, and the step before it is still undone.

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

    // title: what the report names if this step cannot be undone. It must outlive the object.
    void step(char const* title, Step const& rename);

    // The step after which nothing can fail any more.
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
