// Loads a master.cf and stores it again: bench_load_store_master_cf PATH

#include "postfix/master_cf/module_manager.h"

using namespace orvek::mail::postfix;

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    MasterCfContent content;
    ModuleManager::loadMasterCf(argv[1], content);
    ModuleManager::storeMasterCf(argv[1], content);
}
