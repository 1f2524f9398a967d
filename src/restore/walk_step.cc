#include "restore/walk_step.h"

#include "lib/report/visible.h"

#include <cstdlib>
#include <cstring>
#include <iostream>

namespace orvek::mail::restore {

namespace {

bool progressIsTold()
{
    char const* const debug = getenv("ORVEK_INSTALLER_DEBUG");
    return debug && strcmp(debug, "0") != 0;
}

} // namespace

void tellProgress(std::string const& line)
{
    if (progressIsTold())
        std::clog << visible(line) << std::endl;
}

WalkStep::WalkStep(char const* name, std::string const& item) : told(progressIsTold())
{
    if (told)
        std::clog << name << visible(item) << "..." << std::flush;
}

WalkStep::~WalkStep()
{
    if (told)
        std::clog << (failed ? "" : " done") << std::endl;
}

void WalkStep::fail(char const* text)
{
    failed = true;
    if (told)
        std::clog << " failed (" << visible(text) << "), ignored" << std::flush;
}

} // namespace orvek::mail::restore
