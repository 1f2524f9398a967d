// Reads a parameter of main.cf several times: bench_read_parameter NAME TIMES

#include "postfix/main_cf/main_cf_manager.h"

#include <string>

using orvek::mail::postfix::MainCfManager;

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;
    MainCfManager const& manager = MainCfManager::getInstance();
    for (int i = std::stoi(argv[2]); i > 0; --i)
        if (manager.getStringValue(argv[1], false).empty())
            return 1;
}
