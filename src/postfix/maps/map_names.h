// map_names - the indexed maps of Postfix that the tool keeps
//
// A map's name is "type:path". Without a colon the whole string is the path. The text source has
// that path, and postmap puts the indexed file beside it.
//
// The text form of a record is the key, one space, the value and a newline. A value may be a list;
// the tool writes ", " between its elements. Keys and values:
//
//   virtual_domains  <domain>: <domain>/
//   vmailbox         <mailname>@<domain>: <domain>/<mailname>/Maildir/, below the mailbox root
//   virtual          <mailname>@<domain>: itself, the mailbox
//                    <alias>@<domain>: <mailname>@<domain>
//                    <mailname or alias>@<alias domain>: <mailname>@<domain>
//                    <alias domain>: 1
//                    @<domain>: an address, or the bounce pipe as _orvek_bounce_<domain>@...
//                    <standard address>@<domain>: the same at localhost.localdomain
//   aliases          _orvek_bounce_<domain>: the bounce pipe
//   blacklists       <domain>: REJECT

#ifndef MAILVEK_POSTFIX_MAPS_MAP_NAMES_H
#define MAILVEK_POSTFIX_MAPS_MAP_NAMES_H

#include <string>

namespace orvek::mail::postfix {

inline constexpr char virtual_domains_map[] = "hash:/var/spool/postfix/orvek/virtual_domains";
inline constexpr char vmailbox_map[] = "hash:/var/spool/postfix/orvek/vmailbox";
inline constexpr char virtual_map[] = "hash:/var/spool/postfix/orvek/virtual";
inline constexpr char aliases_map[] = "hash:/var/spool/postfix/orvek/aliases";
inline constexpr char blacklists_map[] = "hash:/var/spool/postfix/orvek/blacklists";

inline std::string mapPath(std::string const& map)
{
    return map.substr(map.find(':') + 1); // npos + 1 is 0: the whole string
}

} // namespace orvek::mail::postfix

#endif
