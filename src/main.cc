// main - runs one command; its result is the exit status

#include "commands/do_main.h"
#include "util/report_exception.h"

int main(int argc, char** argv)
{
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
