#include "postfix/domains/reversible_rename.h"

#include "util/errors.h"
#include "util/uerr.h"

#include <ostream>
#include <utility>

namespace orvek::mail::postfix {

ReversibleRename::ReversibleRename(std::string from_, std::string to_)
    : from(std::move(from_)), to(std::move(to_))
{
}

void ReversibleRename::step(char const* title, Step const& rename)
{
    lastStep([&](std::string const& oldName, std::string const& newName) {
        FinishedStep done{title, rename};
        finished.reserve(finished.size() + 1); // push_back cannot fail after the step
        rename(oldName, newName);
        finished.push_back(std::move(done));
    });
}

void ReversibleRename::lastStep(Step const& rename)
{
    try {
        rename(from, to);
    } catch (...) {
        takeBack();
        throw;
    }
}

void ReversibleRename::takeBack() noexcept
{
    for (; !finished.empty(); finished.pop_back()) {
        try {
            finished.back().rename(to, from);
        } catch (...) {
            uerr << doubleErrorHead << finished.back().title << doubleErrorTail << std::endl;
        }
    }
}

} // namespace orvek::mail::postfix
