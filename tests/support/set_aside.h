// set_aside - a system path of the throw-away mail host that a test has for itself
//
// What is there is moved aside; at the end what the test has left there is removed and what was
// there comes back.

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
