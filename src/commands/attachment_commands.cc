#include "commands/command_values.h"
#include "commands/handlers.h"
#include "mail/lib/home/attachments.h"
#include "util/uerr.h"

#include <ostream>

namespace orvek::mail::postfix::mailvek_commands {

namespace po = boost::program_options;

int listAttachments(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--list-attachments");
    declareDomain(helper);
    auto options = helper.addOptions();
    options("mailname", po::value<std::string>(), "mailname", false);
    options("mail-all", "report attachments for all mailnames (false by default)", false);
    options("in-blocks", "report in blocks rather than bytes (false by default)", false);
    options("fullname", "report full attachment paths (false by default)", false);
    standardOptionsParse(helper, argc, argv);

    short const inBlocks = isGiven(helper, "in-blocks") ? 1 : 0;
    short const fullname = isGiven(helper, "fullname") ? 1 : 0;
    std::string const domain = domainOf(helper);
    bool const all = isGiven(helper, "mail-all");
    bool const one = isGiven(helper, "mailname");
    if (all && one) {
        uerr << "you should not use --mailname and --mail-all together" << std::endl;
        helper.usage(1, uerr);
    }
    if (!all && !one) {
        uerr << "neither --mailname nor --mail-all are specified" << std::endl;
        helper.usage(1, uerr);
    }
    int const status = all ? list_all_attachments(domain.c_str(), inBlocks, fullname)
                           : list_attachments(textOf(helper, "mailname").c_str(), domain.c_str(),
                                              inBlocks, fullname);
    return status != 0 ? 1 : 0;
}

int addAttachment(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--add-attachment");
    declareMailname(helper);
    declareText(helper, "file-name", "uploaded file name");
    declareText(helper, "attachment-file-name", "attachment file name");
    standardOptionsParse(helper, argc, argv);

    std::string const mailname = textOf(helper, "mailname");
    std::string const domain = domainOf(helper);
    std::string const fileName = textOf(helper, "file-name");
    std::string const attachmentFileName = textOf(helper, "attachment-file-name");
    int const result = add_attachment(mailname.c_str(), domain.c_str(), fileName.c_str(),
                                      attachmentFileName.c_str());
    return result != 0 ? 1 : 0;
}

int removeAttachment(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--remove-attachment");
    declareMailname(helper);
    declareText(helper, "attachment-file-name", "attachment file name");
    standardOptionsParse(helper, argc, argv);

    std::string const mailname = textOf(helper, "mailname");
    std::string const domain = domainOf(helper);
    std::string const attachmentFileName = textOf(helper, "attachment-file-name");
    int const result =
        remove_attachment(mailname.c_str(), domain.c_str(), attachmentFileName.c_str());
    return result != 0 ? 1 : 0;
}

} // namespace orvek::mail::postfix::mailvek_commands
