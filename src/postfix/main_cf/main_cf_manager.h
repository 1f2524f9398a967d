// main_cf_manager - the only door to Postfix's main.cf
//
// Each read is one run of postconf -h and each write one of postconf -e; main.cf itself is
// neither parsed nor written here, and no value is kept, so a read sees what was just written.
// Writes are serialised between the tool's processes by the lock of main.cf's path. The read, the
// change and the write of a list are not one step: of two processes that change one parameter at
// once one may lose its change. parameter_lists.h tells the two kinds of lists.
//
// Deliberate: every read of "mynetworks" is bent towards the loopback network and the host's
// first address wherever it still holds Postfix's default, see getStringValue.
//
// Failures: PostfixConfigurationError with what postconf said on its standard error, or "unknown
// error" when it failed in silence; what Pipe::run raises when postconf cannot be started, and
// MKLock when the lock cannot be had. Nothing is logged.

#ifndef MAILVEK_POSTFIX_MAIN_CF_MAIN_CF_MANAGER_H
#define MAILVEK_POSTFIX_MAIN_CF_MAIN_CF_MANAGER_H

#include <string>

namespace orvek::mail::postfix {

class MainCfManager
{
public:
    // The one instance, made at first use. Raises PostfixConfigurationError when postconf names
    // no configuration directory; the next call tries again.
    static MainCfManager& getInstance();

    MainCfManager(MainCfManager const&) = delete;
    MainCfManager& operator=(MainCfManager const&) = delete;

    // The value, or Postfix's default with defaults, without white space at its ends. A parameter
    // of which postconf does not know, and of which it only warns, is empty.
    //
    // Where "mynetworks" is the default, or shorter than it, the result is "127.0.0.0/8, " and
    // the first address of the host with "/32" behind it, without the second element if the
    // interfaces cannot be listed, and with nothing in front of the "/32" if there is no
    // address. Where it contains the default it is that and what stands behind the default.
    std::string getStringValue(std::string const& name, bool defaults) const;

    void replaceStringValue(std::string const& name, std::string const& value) const;

    // Adds a word to a simple list unless it is there. The text in front of it stays as it is.
    // Deliberate: with a word that "mynetworks" holds already, its bent value is stored.
    void appendStringValue(std::string const& name, std::string const& value) const;

    // Adds the clause "key value" to a compound list unless it is there. The list is written
    // anew then, in its usual form.
    void appendCompoundStringValue(std::string const& name, std::string const& key,
                                   std::string const& value) const;

    // Removes every occurrence of a word from a simple list; without one, nothing is written.
    void removeListElement(std::string const& name, std::string const& element) const;

private:
    MainCfManager();

    std::string mainCfPath;
};

} // namespace orvek::mail::postfix

#endif
