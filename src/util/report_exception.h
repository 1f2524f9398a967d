// report_exception - the last word on an exception that nobody caught
//
// Both write one report on orvek::uerr and neither fails. The type in the report is the
// dynamic one, demangled where that is possible; an exception that also is a Traceback has
// its stack printed behind the report.

#ifndef MAILVEK_UTIL_REPORT_EXCEPTION_H
#define MAILVEK_UTIL_REPORT_EXCEPTION_H

#include "util/traceback.h"

#include <exception>
#include <typeinfo>

namespace orvek {

namespace detail {

void reportFatalError(char const* mangled_type, char const* text, Traceback const* traceback);

} // namespace detail

// "Fatal error: ", the type, and what() in brackets.
template<class Exception>
void reportException(Exception const& e)
{
    detail::reportFatalError(typeid(e).name(), e.what(), dynamic_cast<Traceback const*>(&e));
}

// For what is no std::exception.
void reportUntypedException();

} // namespace orvek

#endif
