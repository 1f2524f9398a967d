// handlers - one function per command
//
// argv[0] is the command's name, and its options follow. The result is the exit status. A
// failure is raised, or reported and returned as a status.

#ifndef MAILVEK_COMMANDS_HANDLERS_H
#define MAILVEK_COMMANDS_HANDLERS_H

namespace orvek::mail::postfix::mailvek_commands {

using CommandHandler = int (*)(int argc, char** argv);

int addHandler(int argc, char** argv);
int updateHandler(int argc, char** argv);
int removeHandler(int argc, char** argv);
int disableHandler(int argc, char** argv);
int enableHandler(int argc, char** argv);
int checkHandler(int argc, char** argv);
int printFeatures(int argc, char** argv);
int usageShortCmd(int argc, char** argv);
int usageCommandsCmd(int argc, char** argv);
int usageLegacyCmd(int argc, char** argv);

int addDomain(int argc, char** argv);
int removeDomain(int argc, char** argv);
int enableDomain(int argc, char** argv);
int disableDomain(int argc, char** argv);
int setDomainDiskQuota(int argc, char** argv);

int addMailname(int argc, char** argv);
int removeMailname(int argc, char** argv);
int renameMailname(int argc, char** argv);
int addMailbox(int argc, char** argv);
int removeMailbox(int argc, char** argv);
int getMailboxSize(int argc, char** argv);
int setPassword(int argc, char** argv);
int setMailboxDiskQuota(int argc, char** argv);

int addRedirect(int argc, char** argv);
int removeRedirect(int argc, char** argv);
int addAlias(int argc, char** argv);
int removeAlias(int argc, char** argv);
int addAutoresponder(int argc, char** argv);
int removeAutoresponder(int argc, char** argv);

int setBounce(int argc, char** argv);
int setCatchAll(int argc, char** argv);
int setReject(int argc, char** argv);
int removeReject(int argc, char** argv);
int addDomainAlias(int argc, char** argv);
int removeDomainAlias(int argc, char** argv);
int renameDomainAlias(int argc, char** argv);
int setDomainKey(int argc, char** argv);
int removeDomainKey(int argc, char** argv);
int listAttachments(int argc, char** argv);
int addAttachment(int argc, char** argv);
int removeAttachment(int argc, char** argv);

int setMailParams(int argc, char** argv);
int updateSPF(int argc, char** argv);
int setMaxLetterSize(int argc, char** argv);
int getMaxLetterSize(int argc, char** argv);
int getMailboxLimit(int argc, char** argv);
int setAccountsFormat(int argc, char** argv);
int addWhiteList(int argc, char** argv);
int removeWhiteList(int argc, char** argv);
int addBadMailFrom(int argc, char** argv);
int removeBadMailFrom(int argc, char** argv);
int setMapsProtection(int argc, char** argv);
int startService(int argc, char** argv);
int stopService(int argc, char** argv);
int restartService(int argc, char** argv);
int reloadService(int argc, char** argv);
int statusService(int argc, char** argv);
int startSMTPD(int argc, char** argv);
int stopSMTPD(int argc, char** argv);
int restartSMTPD(int argc, char** argv);
int statusMTA(int argc, char** argv);
int startMTA(int argc, char** argv);
int stopMTA(int argc, char** argv);
int startIMAP(int argc, char** argv);
int stopIMAP(int argc, char** argv);
int restartIMAP(int argc, char** argv);
int statusIMAP(int argc, char** argv);
int enableSubmission(int argc, char** argv);
int disableSubmission(int argc, char** argv);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
