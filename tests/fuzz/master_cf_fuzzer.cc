// master_cf_fuzzer - compares the parser of master.cf with the reference and its own promises
//
// Ends the process at the first text where they differ.

#include "fuzz_target.h"
#include "master_cf_reference.h"
#include "postfix/master_cf/master_cf_parser.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

using namespace orvek::mail::postfix;

namespace {

std::string stored(MasterCfContent const& content)
{
    std::string text;
    for (std::string const& line : content.lines)
        text.append(line).append("\n");
    return text;
}

bool same(boost::tribool a, boost::tribool b)
{
    return boost::indeterminate(a) ? boost::indeterminate(b) : bool(a == b);
}

bool sameRecord(ModuleInfo const& info, MasterCfReference const& reference,
                MasterCfReference::Record const& record)
{
    ModuleInfo const& columns = record.columns;
    return info.name == columns.name && info.type == columns.type &&
           same(info.privateService, columns.privateService) &&
           same(info.unprivileged, columns.unprivileged) && same(info.chroot, columns.chroot) &&
           info.wakeupTime == columns.wakeupTime && info.wakeupIfUsed == columns.wakeupIfUsed &&
           info.maxProcesses == columns.maxProcesses && info.command.size() == record.words &&
           std::equal(info.command.begin(), info.command.end(), reference.words.begin());
}

void compare(MasterCfContent const& content, MasterCfReference const& reference)
{
    require(std::ranges::equal(content.lines, reference.elements), "the elements differ");
    require(content.modules.size() == reference.records.size(), "the services differ");
    require(content.positions.size() == content.modules.size(), "the positions differ");
    for (auto const& [key, record] : reference.records) {
        require(content.hasModule(key.first, key.second), "a service is missing");
        auto const [info, text] = content.getModule(key.first, key.second);
        require(sameRecord(info, reference, record), "a record differs");
        require(text == reference.elements[record.element], "a position is wrong");
    }
}

// The text that is written back must be a master.cf with the same elements and an empty one.
void readBack(MasterCfContent const& content)
{
    std::string const text = stored(content);
    MasterCfContent again;
    require(MasterCfParser(again).parse(text.data(), text.data() + text.size()),
            "what is written back cannot be read");
    require(again.lines.size() == content.lines.size() + 1 && again.lines.back().empty(),
            "what is written back has not grown by one empty element");
    again.lines.pop_back();
    require(again.lines == content.lines, "what is written back reads differently");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::vector<char> const text(data, data + size); // its own block, to notice reads past the end
    MasterCfContent content;
    bool const accepted = MasterCfParser(content).parse(text.data(), text.data() + size);
    MasterCfReference reference;
    require(accepted == reference.parse(text.data(), text.data() + size), "one of the two accepts");
    if (!accepted)
        return 0;
    compare(content, reference);
    if (!reference.repeated)
        require(stored(content) == std::string(text.begin(), text.end()) + "\n",
                "not every byte is kept");
    readBack(content);
    return 0;
}
