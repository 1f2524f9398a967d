#include "postfix/master_cf/master_cf_parser.h"

#include "build_paths.h"
#include "support/host_test.h"
#include "support/temp_dir.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/erase.hpp>
#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/split.hpp>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

using namespace orvek::mail::postfix;

namespace {

// Files like those of real hosts, each for one form, and the files of two distributions.
std::set<std::filesystem::path> forms()
{
    std::set<std::filesystem::path> paths;
    for (auto const& entry : std::filesystem::directory_iterator(MASTER_CF_FORMS))
        paths.insert(entry.path());
    return paths;
}

bool parse(MasterCfContent& content, std::string const& text)
{
    return MasterCfParser(content).parse(text.data(), text.data() + text.size());
}

using Services = std::map<std::string, std::string>;

// The five other columns and the command. The command is without blanks and braces, which postconf
// prints in its own way.
std::string columnsOf(std::vector<std::string> const& words)
{
    std::vector<std::string> const columns(words.begin() + 2, words.begin() + 7);
    std::vector<std::string> const command(words.begin() + 7, words.end());
    return boost::algorithm::join(columns, " ") + " " +
           boost::algorithm::erase_all_copy(
               boost::algorithm::erase_all_copy(boost::algorithm::join(command, ""), "{"), "}");
}

std::string answer(boost::tribool value)
{
    return boost::indeterminate(value) ? "-" : value ? "y" : "n";
}

std::string number(std::int32_t value)
{
    return value == -1 ? "-" : std::to_string(value);
}

// The services of a file, each parsed alone, so that no record inherits from another.
Services parsed(std::string const& text)
{
    MasterCfContent whole;
    EXPECT_TRUE(parse(whole, text)) << text;
    Services services;
    for (auto const& [key, position] : whole.positions) {
        MasterCfContent single;
        EXPECT_TRUE(parse(single, *position)) << *position;
        ModuleInfo const& info = single.modules.at(key);
        std::vector<std::string> words = {info.name,
                                          std::string(typeText(info.type)),
                                          answer(info.privateService),
                                          answer(info.unprivileged),
                                          answer(info.chroot),
                                          number(info.wakeupTime) + (info.wakeupIfUsed ? "?" : ""),
                                          number(info.maxProcesses)};
        words.insert(words.end(), info.command.begin(), info.command.end());
        services[words[0] + " " + words[1]] = columnsOf(words);
    }
    return services;
}

// The same services as postconf reads them.
Services asPostfixReads(std::string const& text)
{
    TempDir const dir;
    writeFile(dir / "main.cf", "compatibility_level = 3\n");
    writeFile(dir / "master.cf", text);
    Services services;
    FILE* const pipe = popen(("postconf -M -c " + dir.path() + " 2>/dev/null").c_str(), "r");
    std::string line;
    for (int c = getc(pipe); c != EOF; c = getc(pipe)) {
        if (c != '\n') {
            line += static_cast<char>(c);
            continue;
        }
        std::vector<std::string> words;
        boost::algorithm::split(words, line, boost::algorithm::is_space(),
                                boost::algorithm::token_compress_on);
        // A cleared record says "n" for a "-" in this column.
        if (words.size() > 7 && words[4] == "-")
            words[4] = "n";
        if (words.size() > 7)
            services[words[0] + " " + words[1]] = columnsOf(words);
        else
            ADD_FAILURE() << line;
        line.clear();
    }
    pclose(pipe);
    return services;
}

class MasterCfFormsOnHost : public HostTest
{
};

} // namespace

TEST(MasterCfForms, AreFiftyAtLeast)
{
    EXPECT_GE(forms().size(), 50U);
}

TEST(MasterCfForms, ComeBackByteForByte)
{
    for (auto const& path : forms()) {
        std::string const text = readFile(path);
        MasterCfContent content;
        ASSERT_TRUE(parse(content, text)) << path;
        EXPECT_EQ(boost::algorithm::join(content.lines, "\n"), text) << path;
        EXPECT_FALSE(content.modules.empty()) << path;
    }
}

TEST_F(MasterCfFormsOnHost, ReadAsPostfixReadsThem)
{
    for (auto const& path : forms())
        EXPECT_EQ(parsed(readFile(path)), asPostfixReads(readFile(path))) << path;
}

TEST_F(MasterCfFormsOnHost, IncludeTheFileOfThisHostsPackage)
{
    std::string const stock = readFile("/usr/share/postfix/master.cf.dist");

    EXPECT_EQ(parsed(stock), asPostfixReads(stock));
    EXPECT_TRUE(parsed(stock).contains("postlog unix-dgram"));
}
