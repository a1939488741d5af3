#include "apps/Arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "apps/CommandError.h"

namespace App {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Words = std::vector<std::string>;

Arguments read(const Words& words) {
    return {words,
            {{"-1", Arguments::Kind::Flag},
             {"-l", Arguments::Kind::Flag},
             {"--all", Arguments::Kind::Flag},
             {"--count", Arguments::Kind::Value}},
            {1, 2}};
}

std::string failureOf(const std::function<void()>& call) {
    try {
        call();
        return "";
    } catch (const CommandError& error) {
        return error.what();
    }
}

std::string refusalOf(const Words& words) {
    return failureOf([&] { read(words); });
}

TEST(ArgumentsTest, OptionsStandAnywhere) {
    const Arguments arguments = read({"--all", "a", "-1", "b", "--count", "5"});
    EXPECT_THAT(arguments.paths(), ElementsAre("a", "b"));
    EXPECT_TRUE(arguments.has("--all"));
    EXPECT_TRUE(arguments.has("-1"));
    EXPECT_FALSE(arguments.has("-l"));
    EXPECT_EQ(arguments.number("--count"), 5U);
}

TEST(ArgumentsTest, WhatIsNotGivenIsAbsent) {
    const Arguments arguments = read({"a"});
    EXPECT_FALSE(arguments.has("--count"));
    EXPECT_EQ(arguments.text("--count"), std::nullopt);
    EXPECT_EQ(arguments.number("--count"), std::nullopt);
    EXPECT_EQ(arguments.path(), "a");
}

TEST(ArgumentsTest, NothingIsAnOptionBehindTwoDashes) {
    EXPECT_THAT(read({"--", "-1", "--all"}).paths(), ElementsAre("-1", "--all"));
    EXPECT_THAT(read({"-", "--", "--"}).paths(), ElementsAre("-", "--"));
}

TEST(ArgumentsTest, LettersCanStandTogether) {
    const Arguments arguments = read({"-l1", "a"});
    EXPECT_TRUE(arguments.has("-l"));
    EXPECT_TRUE(arguments.has("-1"));
}

TEST(ArgumentsTest, ValuesAreWhateverFollows) {
    EXPECT_EQ(read({"a", "--count", "--all"}).text("--count"), "--all");
    EXPECT_EQ(read({"a", "--count=a=b"}).text("--count"), "a=b");
    EXPECT_EQ(read({"a", "--count="}).text("--count"), "");
    EXPECT_EQ(read({"a", "--count", "1", "--count", "2"}).text("--count"), "2");
}

TEST(ArgumentsTest, ErrorsSayWhatIsWrong) {
    EXPECT_THAT(refusalOf({}), HasSubstr("an argument is missing"));
    EXPECT_THAT(refusalOf({"a", "b", "c"}), HasSubstr("'c'"));
    EXPECT_THAT(refusalOf({"a", "--none"}), HasSubstr("unknown option '--none'"));
    EXPECT_THAT(refusalOf({"a", "-1x"}), HasSubstr("unknown option '-x'"));
    EXPECT_THAT(refusalOf({"a", "--al"}), HasSubstr("unknown option '--al'"));
    EXPECT_THAT(refusalOf({"a", "--all=1"}), HasSubstr("--all takes no value"));
    EXPECT_THAT(refusalOf({"a", "--count"}), HasSubstr("--count needs a value"));
}

TEST(ArgumentsTest, NumbersAreReadStrictly) {
    const auto number = [](const std::string& text) {
        return read({"a", "--count", text}).number("--count");
    };
    EXPECT_EQ(number("0"), 0U);
    EXPECT_EQ(number("007"), 7U);
    EXPECT_EQ(number("4294967295"), 4294967295U);
    for (const char* text : {"4294967296", "99999999999999999999999"}) {
        EXPECT_THAT(failureOf([&] { number(text); }), HasSubstr("is too large")) << text;
    }
    for (const char* text : {"", "-1", "-0", "+1", " 1", "1 ", "1x", "0x10", "1.0", "1e3", "ten"}) {
        EXPECT_THAT(failureOf([&] { number(text); }), HasSubstr("is not a whole number")) << text;
    }
}

}  // namespace
}  // namespace App
