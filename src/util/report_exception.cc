#include "util/report_exception.h"

#include "lib/report/owned.h"
#include "util/uerr.h"

#include <cxxabi.h>

namespace orvek {

namespace {

// A null text sets the stream's bad bit, so nothing more is printed.
void printText(detail::ReportedText const& reported)
{
    if (reported.text && reported.has_lines)
        uerr << OwnLines{reported.text};
    else
        uerr << reported.text;
}

} // namespace

void detail::reportFatalError(char const* mangled_type, ReportedText text,
                              Traceback const* traceback)
{
    // A leading "*" in type_info::name() marks a type that is local to one object file. It is not
    // part of the name.
    if (mangled_type && *mangled_type == '*')
        ++mangled_type;
    int status = -1;
    CString const demangled(
        mangled_type ? abi::__cxa_demangle(mangled_type, nullptr, nullptr, &status) : nullptr);
    char const* const type = demangled && status == 0 ? demangled.get() : mangled_type;

    uerr << "Fatal error: " << type << "(";
    printText(text);
    uerr << ")" << std::endl;
    if (traceback)
        uerr << *traceback;
}

void reportUntypedException()
{
    uerr << "UNSPECIFIED ERROR OCCURED" << std::endl;
}

} // namespace orvek
