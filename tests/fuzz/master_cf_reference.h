// master_cf_reference - the grammar of master.cf a second time, rule by rule
//
// Written with a parser library, one rule for each rule of the grammar, so that the two can be
// compared by eye. It compiles and runs far slower than the tool's parser. The two must agree on
// every text: whether it is a master.cf, its elements, and the content of the records.

#ifndef MAILVEK_TESTS_FUZZ_MASTER_CF_REFERENCE_H
#define MAILVEK_TESTS_FUZZ_MASTER_CF_REFERENCE_H

#include "postfix/master_cf/module_info.h"

#include <boost/spirit/include/classic.hpp>

#include <map>
#include <string>
#include <utility>
#include <vector>

class MasterCfReference
{
public:
    using Key = std::pair<std::string, orvek::mail::postfix::ModuleType>;

    // The columns of a service, and how many of the words of all services so far it has.
    struct Record
    {
        orvek::mail::postfix::ModuleInfo columns;
        size_t words = 0;
        size_t element = 0;
    };

    bool parse(char const* first, char const* last)
    {
        namespace sc = boost::spirit::classic;
        using sc::ch_p;
        using Rule = sc::rule<>;

        auto const raw = [this](char const* from, char const* to) {
            elements.emplace_back(from, to);
        };
        auto const name_found = [this](char const* from, char const* to) {
            now.name.assign(from, to);
        };
        auto const type_is = [this](orvek::mail::postfix::ModuleType type) {
            return [this, type](char const*, char const*) { now.type = type; };
        };
        auto const store = [](boost::tribool& field, bool value) {
            return [&field, value](char) { field = value; };
        };
        auto const number_to = [](std::int32_t& field) {
            return [&field](unsigned value) { field = static_cast<std::int32_t>(value); };
        };
        auto const marked = [this](char) { now.wakeupIfUsed = true; };
        auto const word_found = [this](char const* from, char const* to) {
            words.emplace_back(from, to);
        };
        auto const module_found = [this](char const* from, char const* to) { add({from, to}); };

        sc::chset<> const swsp("\t \r");
        sc::chset<> const word_set("/!@$%$^&*()-_=+\\|[]{}:;'\"<>.,?*~`");
        sc::uint_parser<unsigned, 10, 1, -1> const decimal;

        Rule empty_line = *swsp;
        Rule comments = ch_p('#') >> *(sc::anychar_p - ch_p('\n'));
        Rule comments_line = empty_line >> comments;
        Rule sep = empty_line >> !comments >>
                   !(ch_p('\n') >> *(empty_line >> !comments >> ch_p('\n')) >> +swsp);

        using orvek::mail::postfix::ModuleType;
        Rule name = (+sc::chset<>("-a-z0-9_:."))[name_found];
        Rule type = sc::str_p("inet")[type_is(ModuleType::inet)] |
                    sc::str_p("unix-dgram")[type_is(ModuleType::unix_dgram)] |
                    sc::str_p("unix")[type_is(ModuleType::unix)] |
                    sc::str_p("fifo")[type_is(ModuleType::fifo)] |
                    sc::str_p("pass")[type_is(ModuleType::pass)];
        auto const answer = [&](boost::tribool& field) {
            Rule rule = ch_p('y')[store(field, true)] | ch_p('n')[store(field, false)] | ch_p('-');
            return rule.copy();
        };
        Rule private_column = answer(now.privateService);
        Rule unprivileged = answer(now.unprivileged);
        Rule chroot = answer(now.chroot);
        Rule wakeup = ch_p('-') | (decimal[number_to(now.wakeupTime)] >> !ch_p('?')[marked]);
        Rule maxproc = ch_p('-') | decimal[number_to(now.maxProcesses)];
        Rule word = +(sc::alnum_p | word_set);
        Rule command = word[word_found] >> *(sep >> word[word_found]);
        Rule module = name >> sep >> type >> sep >> private_column >> sep >> unprivileged >> sep >>
                      chroot >> sep >> wakeup >> sep >> maxproc >> sep >> command >> *swsp;
        Rule line = module[module_found] | comments_line[raw] | empty_line[raw];
        Rule file = line >> *(ch_p('\n') >> line) >> !ch_p('\n');
        return sc::parse(first, last, file).full;
    }

    std::vector<std::string> elements;
    std::vector<std::string> words;
    std::map<Key, Record> records;
    bool repeated = false; // whether a service had a second entry

private:
    void add(std::string const& text)
    {
        Key const key(now.name, now.type);
        auto const known = records.find(key);
        repeated = repeated || known != records.end();
        size_t const element = known == records.end() ? elements.size() : known->second.element;
        if (element == elements.size())
            elements.push_back(text);
        else
            elements[element] = text;
        records.insert_or_assign(key, Record{now, words.size(), element});
    }

    orvek::mail::postfix::ModuleInfo now;
};

#endif
