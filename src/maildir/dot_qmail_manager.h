// dot_qmail_manager - a mailname's delivery file, with failures raised
//
// mailname_delivery and mailname_forward do the work and report where they fail. This class
// raises such a failure as SystemError: "unable to modify ", the path, and the errno that it
// left.

#ifndef MAILVEK_MAILDIR_DOT_QMAIL_MANAGER_H
#define MAILVEK_MAILDIR_DOT_QMAIL_MANAGER_H

#include <string>

namespace orvek::mail {

class DotQMailManager
{
public:
    // Where the caller wants a redirect. Deliberate: it always lands at the end.
    enum Position
    {
        atBegin = 0,
        inTheMiddle = 1,
        atEnd = 2,
    };

    explicit DotQMailManager(std::string const& path) : path(path) {}

    void addRedirect(std::string const& address, Position position) const;
    void removeRedirect(std::string const& address) const;
    void enableDelivery() const;
    void disableDelivery() const;
    void reset() const;

private:
    void check(int result) const;

    std::string path;
};

} // namespace orvek::mail

#endif
