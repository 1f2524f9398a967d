// temp_dir - a directory that lives as long as the test, and short forms for files in it

#ifndef MAILVEK_TESTS_SUPPORT_TEMP_DIR_H
#define MAILVEK_TESTS_SUPPORT_TEMP_DIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <sys/stat.h>

class TempDir
{
public:
    TempDir()
    {
        std::string name = std::filesystem::temp_directory_path() / "mailvek-test-XXXXXX";
        path_ = mkdtemp(name.data()) ? name : std::string();
    }
    ~TempDir() { std::filesystem::remove_all(path_); }
    TempDir(TempDir const&) = delete;
    TempDir& operator=(TempDir const&) = delete;

    std::string const& path() const { return path_; }
    std::string operator/(std::string const& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

inline void writeFile(std::string const& path, std::string const& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string readFile(std::string const& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

inline unsigned modeOf(std::string const& path)
{
    struct stat info = {};
    return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777U : 0;
}

#endif
