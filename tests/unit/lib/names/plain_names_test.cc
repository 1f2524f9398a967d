#include "lib/names/plain_names.h"

#include <gtest/gtest.h>

#include <string>

TEST(PlainDomain, HasLettersDigitsHyphensUnderscoresAndDots)
{
    for (char const* const name : {"example.com", "EXAMPLE.com", "xn--mller-kva.test", "a", "4.de",
                                   "_dmarc.example.com", "a-b.c"})
        EXPECT_TRUE(is_plain_domain(name)) << name;
    EXPECT_TRUE(is_plain_domain(std::string(255, 'a')));
}

TEST(PlainDomain, HasNoByteThatAnotherLanguageReads)
{
    std::string const others = " !\"#$%&'()*+,/:;<=>?@[\\]^`{|}~\n\t\r\x01\x7f\xc3";
    for (char const c : others)
        EXPECT_FALSE(is_plain_domain(std::string("a") + c + "b.com")) << c;
    EXPECT_FALSE(is_plain_domain(std::string_view("a\0b", 3)));
}

TEST(PlainDomain, IsNeitherEmptyTooLongAnOptionNorAPath)
{
    for (char const* const name : {"", ".", "..", ".com", "com.", "a..b", "-example.com"})
        EXPECT_FALSE(is_plain_domain(name)) << name;
    EXPECT_FALSE(is_plain_domain(std::string(256, 'a')));
}

TEST(PlainLocalPart, HasWhatHonestAddressesHave)
{
    for (char const* const name : {"jo", "john.doe", "a..b", "o'brien", "jo+tag", "a=b", "a&b",
                                   "x_y-z", "{a}", "!a", "a%b", "$1", "a#b", "Ännie", "1", "-a"})
        EXPECT_TRUE(is_plain_local_part(name)) << name;
}

TEST(PlainLocalPart, HasNoByteThatAnotherLanguageReads)
{
    std::string const others = "@,/\"\\|`<>()[]:; \n\r\t\v\f\x01\x1f\x7f";
    for (char const c : others) {
        EXPECT_FALSE(is_plain_local_part(std::string("a") + c + "b")) << c;
        EXPECT_FALSE(is_plain_local_part(std::string(1, c))) << c;
    }
    EXPECT_FALSE(is_plain_local_part(std::string_view("a\0b", 3)));
}

TEST(PlainLocalPart, IsNeitherEmptyNorADirectoryNorAComment)
{
    for (char const* const name : {"", ".", "..", "#", "#jo"})
        EXPECT_FALSE(is_plain_local_part(name)) << name;
}

TEST(PlainAddress, IsALocalPartInADomain)
{
    for (char const* const address : {"jo@example.com", "o'brien@a.test", "-a@b"})
        EXPECT_TRUE(is_plain_address(address)) << address;
    for (char const* const address :
         {"", "@", "jo", "jo@", "@example.com", "a@b@c", "|prog@example.com", "a b@c.de",
          "jo@exa mple.com", "jo@example.com\n|true", "\n|true@example.com", "a,b@c.de",
          "#jo@example.com", ":include:/x@a.de", "jo@-example.com"})
        EXPECT_FALSE(is_plain_address(address)) << address;
}
