// main - runs one command in surroundings of its own; the exit status is its result

#include "commands/do_main.h"
#include "lib/programs/surroundings.h"
#include "util/report_exception.h"

int main(int argc, char** argv)
{
    reset_surroundings();
    try {
        return do_main(argc, argv);
    } catch (std::exception const& e) {
        orvek::reportException<std::exception>(e);
        return 1;
    } catch (...) {
        orvek::reportUntypedException();
        return 2;
    }
}
