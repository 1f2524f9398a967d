// set_aside - reserves a system path of the throw-away mail host for a test
//
// Moves an existing file aside. At the end it removes what the test has left there and moves the
// file back.

#ifndef MAILVEK_TESTS_SUPPORT_SET_ASIDE_H
#define MAILVEK_TESTS_SUPPORT_SET_ASIDE_H

#include <filesystem>
#include <string>
#include <utility>

class SetAside
{
public:
    explicit SetAside(std::string name) : path(std::move(name)), aside(path + ".before-test")
    {
        if (std::filesystem::exists(path))
            std::filesystem::rename(path, aside);
    }
    ~SetAside()
    {
        std::filesystem::remove_all(path);
        if (std::filesystem::exists(aside))
            std::filesystem::rename(aside, path);
    }
    SetAside(SetAside const&) = delete;
    SetAside& operator=(SetAside const&) = delete;

private:
    std::string const path;
    std::string const aside;
};

#endif
