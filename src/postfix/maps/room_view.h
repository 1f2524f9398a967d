// room_view - a mount namespace in which one directory is seen in the place of another
//
// The first child that enters the view makes the namespace and hands it over, through a socket.
// Later children enter the same one. So the kernel unmounts it once, when the view and all children
// have ended: it waits for a grace period of RCU then, which takes milliseconds on a busy machine.
//
// prepare() is called in the tool before each child, enter() in the child. Nothing is reported.

#ifndef MAILVEK_POSTFIX_MAPS_ROOM_VIEW_H
#define MAILVEK_POSTFIX_MAPS_ROOM_VIEW_H

#include "lib/report/owned.h"

#include <optional>
#include <string>

#include <sys/stat.h>

namespace orvek::mail::postfix {

class RoomView
{
public:
    // Shows the directory at shown, which has this identity, at the path place.
    RoomView(std::string shown, std::string place, struct stat const& identity);

    void prepare();
    // Raises SystemError: for isRefusal() where the kernel refuses a namespace, with ESTALE when
    // there is another directory at shown.
    void enter() const;
    static bool isRefusal(char const* message);

private:
    void make() const;
    void handOver() const;

    std::string const shown;
    std::string const place;
    dev_t const device;
    ino_t const number;
    std::optional<OpenDescriptor> sender;
    std::optional<OpenDescriptor> receiver;
    std::optional<OpenDescriptor> space; // the namespace
    std::optional<OpenDescriptor> root;  // the root directory in it
};

} // namespace orvek::mail::postfix

#endif
