#include "mail/lib/quota/get_dir_size.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/listing.h"
#include "lib/beneath/tree.h"
#include "mail/lib/home/mail_tree.h"

#include <cerrno>
#include <cstddef>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

constexpr unsigned int block_shift = 9;
// No store of attachments has more. The limit ends the count if somebody keeps making entries.
constexpr std::size_t most_entries = 4'000'000;

sizequota_t in_bytes(sizequota_t size, int in_blocks)
{
    return in_blocks != 0 ? size << block_shift : size;
}

// Adds up the sizes of trees.
class Counter
{
public:
    explicit Counter(int in_blocks) : in_blocks(in_blocks) {}

    // 0, or -1 with errno set: EFBIG when there are too many entries. The count ends early, without
    // failing, when a directory was moved out of the tree.
    int add_tree(int dir, char const* name, TreeTrouble& trouble)
    {
        TreeSteps const steps = {
            [this](int at, char const* entry, mode_t) {
                struct stat info = {};
                return look_beneath(at, entry, info) == 0 ? add(info) : 0;
            },
            [this](int, char const*, int self) {
                struct stat info = {};
                return fstat(self, &info) == 0 ? add(info) : 0;
            },
            /*passes_over_unopened=*/true,
        };
        int const result = walk_tree(dir, name, steps, TreeTop::with, trouble);
        return trouble.where == TreeTrouble::go_back ? 0 : result;
    }

    sizequota_t sum() const { return total; }

private:
    int add(struct stat const& info)
    {
        if (++entries > most_entries) {
            errno = EFBIG;
            return -1;
        }
        add_size(&total, in_blocks != 0 ? info.st_blocks : info.st_size);
        return 0;
    }

    int const in_blocks;
    sizequota_t total = 0;
    std::size_t entries = 0;
};

} // namespace

sizequota_t get_dir_size(char const* path, int in_blocks)
{
    char const* name = nullptr;
    OpenDescriptor const dir = open_directory_of(path, &name);
    Counter counter(in_blocks);
    TreeTrouble trouble = {};
    if (dir.get() < 0 || counter.add_tree(dir.get(), name, trouble) != 0)
        return -1;
    return in_bytes(counter.sum(), in_blocks);
}

sizequota_t count_cur_dir(int in_blocks)
{
    Counter counter(in_blocks);
    int const counted = list_directory(AT_FDCWD, any_number, [&](ListedEntry const& entry) {
        TreeTrouble trouble = {};
        int const added = counter.add_tree(AT_FDCWD, entry.name, trouble);
        return trouble.where <= TreeTrouble::open ? 0 : added;
    });
    return counted == 0 ? counter.sum() : -1;
}
