#include "mail/lib/home/mail_tree.h"

#include "lib/beneath/place.h"
#include "lib/conf/autoprepend.h"

#include <cstring>
#include <string>

namespace {

char const* mail_root()
{
    return orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX);
}

// The part of the path beneath the mail root. Null when the path lies elsewhere.
char const* part_beneath_root(char const* path)
{
    char const* const root = mail_root();
    std::size_t length = strlen(root);
    while (length > 0 && root[length - 1] == '/')
        --length;
    if (strncmp(path, root, length) != 0 || path[length] != '/')
        return nullptr;
    return path + length + strspn(path + length, "/");
}

} // namespace

OpenDescriptor open_mail_root()
{
    return open_root(mail_root());
}

OpenDescriptor open_mail_directory(char const* path)
{
    char const* const beneath = part_beneath_root(path);
    char const* name = beneath;
    OpenDescriptor const above = beneath ? open_mail_root() : open_parent(path, name);
    return above.get() < 0 ? OpenDescriptor(-1) : open_directory_beneath(above.get(), name);
}

OpenDescriptor open_directory_of(char const* file, char const** name)
{
    char const* const beneath = part_beneath_root(file);
    char const* const slash = beneath ? strrchr(beneath, '/') : nullptr;
    if (!slash)
        return open_parent(file, *name);
    *name = slash + 1;
    return open_mail_directory(std::string(file, slash).c_str());
}
