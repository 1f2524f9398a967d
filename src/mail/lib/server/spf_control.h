// spf_control - the parameters of the sender policy
//
// Each is a file in /etc/orv-spf that holds the value and no newline: spfbehavior, spfrules,
// spfguess, spfexp. The mail filter reads them.

#ifndef MAILVEK_MAIL_LIB_SERVER_SPF_CONTROL_H
#define MAILVEK_MAIL_LIB_SERVER_SPF_CONTROL_H

// Replaces the content of each file whose value is not null, in this order. The directory must
// exist; a new file has mode 0644, whatever the umask. 0, or -1 at the first failure, reported
// through messlog2; the files before it are changed.
int update_spf(char const* SpfBehavior, char const* SpfRules, char const* SpfGuess,
               char const* SpfExp);

#endif
