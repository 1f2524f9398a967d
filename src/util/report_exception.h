// report_exception - the last word on an exception that nobody caught
//
// Both functions write one report on orvek::uerr and cannot fail. The report names the dynamic
// type, demangled where that is possible; a LibraryError has the name of the library's own class.
// The stack of an exception that also is a Traceback follows the report. Control bytes of the text
// are shown, for it may hold a stranger's name; a PostfixError keeps its newlines, for it may hold
// the output of a program.

#ifndef MAILVEK_UTIL_REPORT_EXCEPTION_H
#define MAILVEK_UTIL_REPORT_EXCEPTION_H

#include "util/errors.h"
#include "util/traceback.h"

#include <exception>
#include <typeinfo>

namespace orvek {

namespace detail {

struct ReportedText
{
    char const* text;
    bool has_lines; // its newlines are its own
};

void reportFatalError(char const* mangled_type, ReportedText text, Traceback const* traceback);

} // namespace detail

// "Fatal error: ", the type, and what() in brackets.
template<class Exception>
void reportException(Exception const& e)
{
    std::exception const* const base = &e;
    bool const has_lines = dynamic_cast<mail::postfix::PostfixError const*>(base) != nullptr;
    std::type_info const& type = typeid(e);
    bool const of_library = type == typeid(mail::LibraryError);
    detail::reportFatalError(
        (of_library ? typeid(boost::filesystem::filesystem_error) : type).name(),
        {e.what(), has_lines}, dynamic_cast<Traceback const*>(&e));
}

// For anything but a std::exception.
void reportUntypedException();

} // namespace orvek

#endif
