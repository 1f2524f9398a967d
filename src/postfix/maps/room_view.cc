#include "postfix/maps/room_view.h"

#include "util/errors.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orvek::mail::postfix {

namespace {

constexpr char refusal[] = "mount namespace";
constexpr size_t handed_over = 2; // the namespace and its root directory

// A message of one byte with two descriptors.
struct Message
{
    Message()
    {
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control;
        header.msg_controllen = sizeof control;
    }

    char byte = 0;
    iovec part = {&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(handed_over * sizeof(int))] = {};
    msghdr header = {};
};

[[noreturn]] void refuse()
{
    throw SystemError(refusal, errno);
}

} // namespace

RoomView::RoomView(std::string shown_, std::string place_, struct stat const& identity)
    : shown(std::move(shown_)), place(std::move(place_)), device(identity.st_dev),
      number(identity.st_ino)
{
}

// Takes what the child before has handed over. Without that the next child makes a namespace anew.
void RoomView::prepare()
{
    ErrnoKeeper const keeper;
    if (space)
        return;
    if (!receiver) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends) == 0) {
            sender.emplace(ends[0]);
            receiver.emplace(ends[1]);
        }
        return;
    }
    Message message;
    if (recvmsg(receiver->get(), &message.header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC) != 1)
        return;
    cmsghdr const* const sent = CMSG_FIRSTHDR(&message.header);
    if (!sent || sent->cmsg_len != CMSG_LEN(handed_over * sizeof(int)))
        return;
    int descriptors[handed_over];
    memcpy(descriptors, CMSG_DATA(sent), sizeof descriptors);
    space.emplace(descriptors[0]);
    root.emplace(descriptors[1]);
    sender.reset();
    receiver.reset();
}

// setns leads to the namespace's own root, which is not the tool's when the tool was started in a
// changed root directory.
void RoomView::enter() const
{
    if (!space)
        make();
    else if (setns(space->get(), CLONE_NEWNS) != 0 || fchdir(root->get()) != 0 || chroot(".") != 0)
        refuse();
    struct stat seen = {};
    if (stat(place.c_str(), &seen) != 0 || seen.st_dev != device || seen.st_ino != number)
        throw SystemError(place, ESTALE);
    if (!space)
        handOver();
}

void RoomView::make() const
{
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) != 0 ||
        mount(shown.c_str(), place.c_str(), nullptr, MS_BIND, nullptr) != 0)
        refuse();
}

void RoomView::handOver() const
{
    OpenDescriptor const opened[] = {
        OpenDescriptor(open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC)),
        OpenDescriptor(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC))};
    int const descriptors[handed_over] = {opened[0].get(), opened[1].get()};
    if (!sender || descriptors[0] < 0 || descriptors[1] < 0)
        return;
    Message message;
    cmsghdr* const sent = CMSG_FIRSTHDR(&message.header);
    sent->cmsg_level = SOL_SOCKET;
    sent->cmsg_type = SCM_RIGHTS;
    sent->cmsg_len = CMSG_LEN(sizeof descriptors);
    memcpy(CMSG_DATA(sent), descriptors, sizeof descriptors);
    (void)sendmsg(sender->get(), &message.header, MSG_DONTWAIT | MSG_NOSIGNAL);
}

bool RoomView::isRefusal(char const* message)
{
    return strncmp(message, refusal, sizeof refusal - 1) == 0;
}

} // namespace orvek::mail::postfix
