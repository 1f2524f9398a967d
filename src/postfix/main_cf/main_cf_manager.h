// main_cf_manager - the only door to Postfix's main.cf
//
// Each read is one run of postconf -h and each write is one run of postconf -e. The tool neither
// parses nor writes main.cf itself. No value is kept, so a read sees what was just written. The
// lock of main.cf's path serialises the writes of the tool's processes. Reading, changing and
// writing a list are three steps: when two processes change one parameter at once, one of them may
// lose its change. parameter_lists.h tells the two kinds of lists.
//
// Deliberate: every read of "mynetworks" is bent towards the loopback network and the host's
// first address wherever it still holds Postfix's default, see getStringValue.
//
// Failures: PostfixConfigurationError with what postconf said on its standard error, or "unknown
// error" when it failed in silence; what Pipe::run raises when postconf cannot be started; what
// MKLock raises when it cannot take the lock. Nothing is logged.

#ifndef MAILVEK_POSTFIX_MAIN_CF_MAIN_CF_MANAGER_H
#define MAILVEK_POSTFIX_MAIN_CF_MAIN_CF_MANAGER_H

#include <string>
#include <vector>

namespace orvek::mail::postfix {

class MainCfManager
{
public:
    // The one instance, made at first use. Raises PostfixConfigurationError when postconf names
    // no configuration directory; the next call tries again.
    static MainCfManager& getInstance();

    MainCfManager(MainCfManager const&) = delete;
    MainCfManager& operator=(MainCfManager const&) = delete;

    // The value, or with defaults Postfix's default, without white space at its ends. A parameter
    // that postconf does not know and only warns about is empty.
    //
    // "mynetworks" reads as "127.0.0.0/8, ADDRESS/32" when it is the default or shorter than it.
    // ADDRESS is the host's first address. It is empty on a host without one, and the second
    // element is missing when the interfaces cannot be listed. A longer value that contains the
    // default reads as the same text, followed by what comes after the default.
    std::string getStringValue(std::string const& name, bool defaults) const;

    // The values of these parameters with their references expanded, a blank between each two.
    static std::string getExpandedValues(std::vector<std::string> const& names);

    // The value may hold references to other parameters, so it must be the tool's own or one that
    // main.cf held before. Raises PostfixConfigurationError for a newline.
    void replaceStringValue(std::string const& name, std::string const& value) const;

    // Both additions refuse a "$" in what they add, see parameter_values.h.
    //
    // Adds a word to a simple list unless it is there. The existing text stays as it is.
    // Deliberate: when "mynetworks" holds the word already, its bent value is stored.
    void appendStringValue(std::string const& name, std::string const& value) const;

    // Adds the clause "key value" to a compound list unless it is there. An addition writes the
    // whole list in its usual form.
    void appendCompoundStringValue(std::string const& name, std::string const& key,
                                   std::string const& value) const;

    // Removes every occurrence of a word from a simple list. Writes nothing if there is none.
    void removeListElement(std::string const& name, std::string const& element) const;

private:
    MainCfManager();

    std::string mainCfPath;
};

} // namespace orvek::mail::postfix

#endif
