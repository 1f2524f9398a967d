// Adds the records of its standard input, in text form, to a map: bench_add_records MAP

#include "postfix/database_helper.h"

#include <iostream>
#include <string>
#include <utility>
#include <vector>

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    std::ios::sync_with_stdio(false);
    std::vector<std::pair<std::string, std::string>> records;
    for (std::string line; std::getline(std::cin, line);) {
        size_t const blank = line.find(' ');
        records.emplace_back(line.substr(0, blank), line.substr(blank + 1));
    }
    orvek::mail::postfix::DatabaseHelper::addRecords(argv[1], records.begin(), records.end());
}
