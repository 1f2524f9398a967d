#include "commands/command_values.h"
#include "commands/handlers.h"
#include "mail/lib/home/attachments.h"
#include "util/uerr.h"

#include <ostream>

namespace orvek::mail::postfix::mailvek_commands {

int listAttachments(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);

    short const inBlocks = isGiven(options, "in-blocks") ? 1 : 0;
    short const fullname = isGiven(options, "fullname") ? 1 : 0;
    std::string const domain = domainOf(options);
    bool const all = isGiven(options, "mail-all");
    bool const one = isGiven(options, "mailname");
    if (all && one) {
        uerr << "you should not use --mailname and --mail-all together" << std::endl;
        options.usage(1, uerr);
    }
    if (!all && !one) {
        uerr << "neither --mailname nor --mail-all are specified" << std::endl;
        options.usage(1, uerr);
    }
    int const status = all ? list_all_attachments(domain.c_str(), inBlocks, fullname)
                           : list_attachments(textOf(options, "mailname").c_str(), domain.c_str(),
                                              inBlocks, fullname);
    return status != 0 ? 1 : 0;
}

int addAttachment(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);

    std::string const mailname = textOf(options, "mailname");
    std::string const domain = domainOf(options);
    std::string const fileName = textOf(options, "file-name");
    std::string const attachmentFileName = textOf(options, "attachment-file-name");
    int const result = add_attachment(mailname.c_str(), domain.c_str(), fileName.c_str(),
                                      attachmentFileName.c_str());
    return result != 0 ? 1 : 0;
}

int removeAttachment(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);

    std::string const mailname = textOf(options, "mailname");
    std::string const domain = domainOf(options);
    std::string const attachmentFileName = textOf(options, "attachment-file-name");
    int const result =
        remove_attachment(mailname.c_str(), domain.c_str(), attachmentFileName.c_str());
    return result != 0 ? 1 : 0;
}

} // namespace orvek::mail::postfix::mailvek_commands
