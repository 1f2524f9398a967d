#include "lib/beneath/tree.h"

#include "lib/beneath/listing.h"
#include "lib/beneath/opened_file.h"
#include "lib/beneath/place.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t most_levels = 100'000;
constexpr std::size_t most_entries = std::size_t{1} << 27;
constexpr int most_repetitions = 3;
// The outermost directories stay open. A deeper one is closed while the walk is beneath it, and
// opened again through "..".
constexpr std::size_t kept_open = 32;

struct Level
{
    std::string name;
    dev_t device;
    ino_t inode;
    OpenDir stream;    // none while it is closed
    long position = 0; // of the stream that was closed
    int repetitions = 0;
};

class TreeWalk
{
public:
    TreeWalk(Place const& place, TreeSteps const& steps, TreeTop top, TreeTrouble& trouble)
        : place(place), steps(steps), top(top), trouble(trouble)
    {
    }

    // Precondition: the argument exists and is a directory.
    int run()
    {
        int result = enter(place.dir(), place.name());
        while (result == 0 && !levels.empty())
            result = proceed();
        return result;
    }

private:
    // Handles the next entry of the current directory, or leaves the directory after the last one.
    int proceed()
    {
        ListedEntry entry = {};
        int const told = next_listed(levels.back().stream, entry);
        if (told < 0 || (told > 0 && ++entries > most_entries)) {
            if (told > 0)
                errno = EFBIG;
            return stop(TreeTrouble::read, levels.size() == 1, levels.back().name);
        }
        if (told == 0)
            return leave();
        if (S_ISDIR(entry.kind))
            return enter(here(), entry.name);
        return steps.entry(here(), entry.name, entry.kind) == 0
                   ? 0
                   : stop(TreeTrouble::entry, /*argument=*/false, entry.name);
    }

    int enter(int dir, char const* name)
    {
        int const before = errno;
        OpenDescriptor opened = open_directory_beneath(dir, name);
        bool const may_pass = !levels.empty() && (errno == ENOENT || steps.passes_over_unopened);
        if (opened.get() < 0 && may_pass) {
            errno = before;
            return 0;
        }
        struct stat info = {};
        if (opened.get() < 0 || fstat(opened.get(), &info) != 0)
            return stop(TreeTrouble::open, levels.empty(), name);
        if (levels.size() == most_levels) {
            errno = ENAMETOOLONG;
            return stop(TreeTrouble::open, levels.empty(), name);
        }
        Level level = {name, info.st_dev, info.st_ino, stream_on(opened)};
        if (!level.stream)
            return stop(TreeTrouble::open, levels.empty(), name);
        if (levels.size() > kept_open)
            close_for_now(levels.back());
        levels.push_back(std::move(level));
        return 0;
    }

    int leave()
    {
        if (levels.size() > 1 && !levels[levels.size() - 2].stream && !open_again())
            return stop(TreeTrouble::go_back, /*argument=*/false, levels.back().name);
        Level& left = levels.back();
        bool const is_top = levels.size() == 1;
        int const above = is_top ? place.dir() : dirfd(levels[levels.size() - 2].stream.get());
        int const result = is_top && top == TreeTop::without
                               ? 0
                               : steps.directory(above, left.name.c_str(), here());
        if (result == again && left.repetitions < most_repetitions) {
            ++left.repetitions;
            rewinddir(left.stream.get());
            return 0;
        }
        if (result != 0)
            return stop(TreeTrouble::directory, is_top, left.name);
        levels.pop_back();
        return 0;
    }

    int here() const { return dirfd(levels.back().stream.get()); }

    static OpenDir stream_on(OpenDescriptor& opened)
    {
        OpenDir stream(fdopendir(opened.get()));
        if (stream)
            static_cast<void>(opened.release());
        return stream;
    }

    static void close_for_now(Level& level)
    {
        level.position = telldir(level.stream.get());
        level.stream.reset();
    }

    // Opens the level above the last one. If somebody has moved the last one, ".." leads elsewhere:
    // ESTALE.
    bool open_again()
    {
        Level& above = levels[levels.size() - 2];
        OpenDescriptor opened(openat(here(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        struct stat info = {};
        if (opened.get() < 0 || fstat(opened.get(), &info) != 0)
            return false;
        if (info.st_dev != above.device || info.st_ino != above.inode) {
            errno = ESTALE;
            return false;
        }
        above.stream = stream_on(opened);
        if (above.stream)
            seekdir(above.stream.get(), above.position);
        return above.stream != nullptr;
    }

    int stop(TreeTrouble::Where where, bool argument, std::string const& name)
    {
        trouble = {where, argument, name};
        return -1;
    }

    Place const& place;
    TreeSteps const& steps;
    TreeTop const top;
    TreeTrouble& trouble;
    std::vector<Level> levels;
    std::size_t entries = 0;
};

bool vanished()
{
    return errno == ENOENT;
}

int remove_entry(int dir, char const* name)
{
    return unlinkat(dir, name, 0) == 0 || vanished() ? 0 : -1;
}

int remove_emptied(int dir, char const* name)
{
    if (unlinkat(dir, name, AT_REMOVEDIR) == 0 || vanished())
        return 0;
    return errno == ENOTEMPTY ? again : -1;
}

int set_entry_rights(int dir, char const* name, Rights const& rights)
{
    int const before = errno;
    OpenDescriptor const taken = take_file_beneath(dir, name, any_size);
    if (taken.get() >= 0)
        return set_rights(taken.get(), rights);
    // The file has gone, has been replaced by another kind, or has further names: leave it.
    bool const passed =
        errno == ENOENT || errno == EMLINK || errno == ELOOP || errno == EISDIR || errno == EINVAL;
    if (!passed)
        return -1;
    errno = before;
    return 0;
}

} // namespace

TreeSteps removal()
{
    return {
        [](int at, char const* name, mode_t) { return remove_entry(at, name); },
        [](int at, char const* name, int) { return remove_emptied(at, name); },
    };
}

TreeSteps change_of_rights(Rights const& files, Rights const& directories)
{
    return {
        [=](int at, char const* name, mode_t kind) {
            return S_ISREG(kind) ? set_entry_rights(at, name, files) : 0;
        },
        [=](int, char const*, int self) { return set_rights(self, directories); },
    };
}

int walk_tree(int dir, char const* name, TreeSteps const& steps, TreeTop top, TreeTrouble& trouble)
{
    Place const place(dir, name);
    struct stat info = {};
    trouble = {.where = TreeTrouble::look, .argument = true, .name = name};
    if (!place.found() || fstatat(place.dir(), place.name(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        return -1;
    trouble = {.where = TreeTrouble::entry, .argument = true, .name = name};
    if (!S_ISDIR(info.st_mode))
        return steps.entry(place.dir(), place.name(), info.st_mode & S_IFMT);
    return TreeWalk(place, steps, top, trouble).run();
}

int remove_tree_beneath(int dir, char const* path, TreeTop top)
{
    int const before = errno;
    TreeTrouble trouble = {};
    int const result = walk_tree(dir, path, removal(), top, trouble);
    bool const is_missing =
        result != 0 && trouble.where <= TreeTrouble::open && trouble.name == path && vanished();
    if (result != 0 && !is_missing)
        return -1;
    errno = before;
    return 0;
}

int set_tree_rights_beneath(int dir, char const* path, Rights const& files,
                            Rights const& directories, TreeTop top)
{
    TreeTrouble trouble = {};
    return walk_tree(dir, path, change_of_rights(files, directories), top, trouble);
}
