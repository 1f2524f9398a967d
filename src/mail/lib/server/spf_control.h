// spf_control - the parameters of the sender policy
//
// Each is a file of /etc/orv-spf whose whole content is the value, without a newline behind it:
// spfbehavior, spfrules, spfguess, spfexp. The mail filter reads them there.

#ifndef MAILVEK_MAIL_LIB_SERVER_SPF_CONTROL_H
#define MAILVEK_MAIL_LIB_SERVER_SPF_CONTROL_H

// Writes each value that is not null over its file, in this order; an empty one empties it.
// The directory must exist. 0, or -1 at the first failure, reported through messlog2, with the
// files before it already changed.
int update_spf(char const* SpfBehavior, char const* SpfRules, char const* SpfGuess,
               char const* SpfExp);

#endif
