// replay_main - runs a fuzz target over the files of a directory, without a fuzzer
//
// For the ordinary tests and the ordinary compiler. The target ends the process when it finds a
// fault. An unreadable directory and one without files are failures too.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

int main(int argc, char** argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    int count = 0;
    for (auto const& entry : std::filesystem::directory_iterator(argv[1])) {
        printf("%s\n", entry.path().c_str());
        fflush(stdout);
        std::ifstream file(entry.path(), std::ios::binary);
        std::vector<char> const text{std::istreambuf_iterator<char>(file), {}};
        std::vector<std::uint8_t> const bytes(text.begin(), text.end());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++count;
    }
    printf("%d files\n", count);
    return count > 0 ? 0 : 1;
}
