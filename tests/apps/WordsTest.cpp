#include "apps/Words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

#include "apps/CommandError.h"
#include "apps/Escape.h"

namespace App {
namespace {

using namespace std::string_literals;

struct Case {
    std::string line;
    std::vector<std::string> words;
};

void PrintTo(const Case& tried, std::ostream* out) { *out << escaped(tried.line); }

class SplitWords : public testing::TestWithParam<Case> {};

TEST_P(SplitWords, AsAShellDoes) {
    EXPECT_EQ(splitWords(GetParam().line), GetParam().words) << GetParam().line;
}

INSTANTIATE_TEST_SUITE_P(
    Lines, SplitWords,
    testing::Values(
        Case{"", {}}, Case{" \t ", {}}, Case{"ls", {"ls"}},
        Case{"  ls \t -1  a ", {"ls", "-1", "a"}}, Case{"ls\r", {"ls"}}, Case{"a\\ b", {"a b"}},
        Case{"\\a\\\\\\'\\\"", {"a\\'\""}}, Case{"'a b' c", {"a b", "c"}}, Case{"''", {""}},
        Case{"\"\" ''", {"", ""}}, Case{"a'b c'd\"e f\"g", {"ab cde fg"}},
        Case{R"('a\n"b')", {R"(a\n"b)"}}, Case{R"("it's")", {"it's"}},
        Case{R"("a\"b\\c\$d\`e")", {R"(a"b\c$d`e)"}}, Case{R"("a\nb\'")", {R"(a\nb\')"}},
        Case{"$a $", {"$a", "$"}}, Case{"*?[a]{b}~#;|>&", {"*?[a]{b}~#;|>&"}},
        Case{R"($'a\nb\tc\\d\'e\"')", {"a\nb\tc\\d'e\""}}, Case{R"($'\a\b\v\f\r')", {"\a\b\v\f\r"}},
        Case{R"($'\033\0331\xe9\x9z\1')", {"\033\0331\xe9\x9z\1"}}, Case{R"("$'a'")", {"$'a'"}},
        Case{"\xff\xfe \xc3\xa9", {"\xff\xfe", "\xc3\xa9"}}, Case{"a\0b"s, {"a\0b"s}}));

class UnfinishedLine : public testing::TestWithParam<const char*> {};

TEST_P(UnfinishedLine, IsRefused) {
    EXPECT_THROW(splitWords(GetParam()), CommandError) << GetParam();
}

INSTANTIATE_TEST_SUITE_P(Lines, UnfinishedLine,
                         testing::Values("'", "\"", "a 'b", "a \"b", R"("a\")", "a\\", "$'",
                                         R"($'a\')", R"($'\x')", R"($'\xg')"));

TEST(SplitWords, ReadsEveryEscapedNameBack) {
    for (unsigned first = 1; first < 0x100; ++first) {
        for (unsigned second = 1; second < 0x100; ++second) {
            const std::string name{static_cast<char>(first), static_cast<char>(second), '1'};
            if (name.find('\'') == std::string::npos) {
                ASSERT_THAT(splitWords("$'" + escaped(name) + "'"), testing::ElementsAre(name));
            }
        }
    }
}

}  // namespace
}  // namespace App
