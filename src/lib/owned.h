// owned - owners for what plain functions return
//
// CString frees a string from malloc, OpenDir closes a directory stream, OpenFile a stdio
// stream; their failures to close are not seen, so close by name where that matters.

#ifndef MAILVEK_LIB_OWNED_H
#define MAILVEK_LIB_OWNED_H

#include <cstdio>
#include <cstdlib>
#include <memory>

#include <dirent.h>

struct FreeMemory
{
    void operator()(void* memory) const { free(memory); }
};

struct CloseDir
{
    void operator()(DIR* dir) const { closedir(dir); }
};

struct CloseFile
{
    void operator()(FILE* file) const { fclose(file); }
};

using CString = std::unique_ptr<char, FreeMemory>;
using OpenDir = std::unique_ptr<DIR, CloseDir>;
using OpenFile = std::unique_ptr<FILE, CloseFile>;

#endif
