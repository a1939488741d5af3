#include "apps/Escape.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>

namespace App {
namespace {

// A second, independent reading of UTF-8: decode by the bit patterns, then ask whether the
// shortest form of the result is what was there.
std::string encoded(unsigned long point) {
    const auto byte = [](unsigned long value) { return static_cast<char>(value); };
    if (point < 0x80) {
        return {byte(point)};
    }
    if (point < 0x800) {
        return {byte(0xC0 | point >> 6), byte(0x80 | (point & 0x3F))};
    }
    if (point < 0x10000) {
        return {byte(0xE0 | point >> 12), byte(0x80 | (point >> 6 & 0x3F)),
                byte(0x80 | (point & 0x3F))};
    }
    return {byte(0xF0 | point >> 18), byte(0x80 | (point >> 12 & 0x3F)),
            byte(0x80 | (point >> 6 & 0x3F)), byte(0x80 | (point & 0x3F))};
}

TEST(Utf8Length, IsThatOfEveryCharacterThereIs) {
    for (unsigned long point = 0; point <= 0x10FFFF; ++point) {
        const std::string text = encoded(point);
        const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
        ASSERT_EQ(utf8Length(text), surrogate ? 0 : text.size()) << std::hex << point;
        ASSERT_EQ(utf8Length(text + "\x80"), surrogate ? 0 : text.size()) << std::hex << point;
        for (std::size_t cut = 1; cut < text.size(); ++cut) {
            ASSERT_EQ(utf8Length(text.substr(0, cut)), 0) << std::hex << point;
        }
    }
}

TEST(Utf8Length, IsNothingForAnyOtherTwoOrThreeBytes) {
    const auto isCharacter = [](const std::string& text, unsigned long point) {
        return encoded(point) == text && (point < 0xD800 || point > 0xDFFF);
    };
    for (unsigned first = 0x80; first < 0x100; ++first) {
        for (unsigned second = 0; second < 0x100; ++second) {
            const std::string two{static_cast<char>(first), static_cast<char>(second)};
            const bool isTwo = isCharacter(two, (first & 0x1FUL) << 6 | (second & 0x3FUL));
            ASSERT_EQ(utf8Length(two), isTwo ? 2 : 0) << std::hex << first << ' ' << second;
            if (isTwo) {
                continue;
            }
            for (unsigned third = 0; third < 0x100; ++third) {
                const std::string three = two + static_cast<char>(third);
                const bool isThree = isCharacter(
                    three, (first & 0xFUL) << 12 | (second & 0x3FUL) << 6 | (third & 0x3FUL));
                ASSERT_EQ(utf8Length(three), isThree ? 3 : 0)
                    << std::hex << first << ' ' << second << ' ' << third;
            }
        }
    }
}

TEST(Utf8Length, IsNothingBeyondTheLastCharacterOrForOverlongForms) {
    EXPECT_EQ(utf8Length(""), 0);
    EXPECT_EQ(utf8Length("\xF4\x8F\xBF\xBF"), 4);
    EXPECT_EQ(utf8Length("\xF4\x90\x80\x80"), 0);
    EXPECT_EQ(utf8Length("\xF5\x80\x80\x80"), 0);
    EXPECT_EQ(utf8Length("\xF0\x8F\xBF\xBF"), 0);
    EXPECT_EQ(utf8Length("\xF0\x90\x80\x80"), 4);
    EXPECT_EQ(utf8Length("\xF0\x90\x80\x7F"), 0);
    EXPECT_EQ(utf8Length("\xF8\x88\x80\x80\x80"), 0);
}

struct Case {
    std::string name;
    std::string shown;
};

void PrintTo(const Case& tried, std::ostream* out) { *out << tried.shown; }

class EscapedName : public testing::TestWithParam<Case> {};

TEST_P(EscapedName, IsShownOnOneLine) { EXPECT_EQ(escaped(GetParam().name), GetParam().shown); }

using namespace std::string_literals;

INSTANTIATE_TEST_SUITE_P(
    Names, EscapedName,
    testing::Values(Case{"", ""}, Case{"plain name.txt", "plain name.txt"},
                    Case{"it's \"so\"", "it's \"so\""}, Case{"a\nb", R"(a\nb)"},
                    Case{"\a\b\t\n\v\f\r", R"(\a\b\t\n\v\f\r)"}, Case{"a\\b", R"(a\\b)"},
                    Case{R"(\n)", R"(\\n)"}, Case{"\0z"s, R"(\000z)"},
                    Case{"\033[31m1", R"(\033[31m1)"}, Case{"\1771", R"(\1771)"},
                    Case{"caf\xE9", R"(caf\351)"}, Case{"caf\xC3\xA9", "caf\xC3\xA9"},
                    Case{"\xC2\x80\xC2\x9F\xC2\xA0", "\\302\\200\\302\\237\xC2\xA0"},
                    Case{"\xF0\x9F\x90\x99", "\xF0\x9F\x90\x99"},
                    Case{"\xED\xA0\x80", R"(\355\240\200)"}, Case{"\xC0\xAF", R"(\300\257)"},
                    Case{"\xE2\x82", R"(\342\202)"},
                    Case{"\xE2\x82\xE2\x82\xAC", "\\342\\202\xE2\x82\xAC"}));

// Reads escapes back, as a C compiler would.
std::string unescaped(std::string_view text) {
    constexpr std::string_view Letters = "abtnvfr";
    std::string name;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            name += text[i];
        } else if (const auto letter = Letters.find(text[i + 1]); letter != text.npos) {
            name += static_cast<char>('\a' + static_cast<int>(letter));
            i += 1;
        } else if (text[i + 1] == '\\') {
            name += '\\';
            i += 1;
        } else {
            name += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 3)), nullptr, 8));
            i += 3;
        }
    }
    return name;
}

TEST(Escaped, SaysEveryByteWhateverItsNeighbours) {
    for (unsigned first = 0; first < 0x100; ++first) {
        for (unsigned second = 0; second < 0x100; ++second) {
            const std::string name{'7', static_cast<char>(first), static_cast<char>(second), '7'};
            const std::string shown = escaped(name);
            ASSERT_EQ(unescaped(shown), name);
            for (const char character : shown) {
                const auto byte = static_cast<unsigned char>(character);
                ASSERT_TRUE(byte >= 0x20 && byte != 0x7F);
            }
            for (std::string_view rest = shown; !rest.empty();) {
                ASSERT_NE(utf8Length(rest), 0);
                rest.remove_prefix(utf8Length(rest));
            }
        }
    }
}

TEST(Quoted, IsTheEscapedNameBetweenQuotes) {
    EXPECT_EQ(quoted("it's\n\\"), "'it's\\n\\\\'");
    EXPECT_EQ(quoted(""), "''");
}

TEST(Printable, LeavesEscapesThatAreThereAlready) {
    EXPECT_EQ(printable("no \"a\\nb\"\n\xFF"), R"(no "a\nb"\n\377)");
}

}  // namespace
}  // namespace App
