// The inputs that fuzzing has collected, and those that once broke something, run once each.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "fuzz/CacheOperations.h"
#include "fuzz/CommandLine.h"
#include "fuzz/FolderNames.h"
#include "fuzz/HostilePages.h"
#include "fuzz/Input.h"

namespace Ormek::Fuzzing {
namespace {

struct Target {
    const char* name;
    void (*run)(Input input);
};

std::ostream& operator<<(std::ostream& stream, const Target& target) {
    return stream << target.name;
}

std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class CorpusTest : public ::testing::TestWithParam<Target> {
  protected:
    static void run(const std::string& bytes) {
        GetParam().run(Input(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
    }
};

TEST_P(CorpusTest, EveryInputPasses) {
    const std::filesystem::path corpus(ORMEK_SOURCE_DIR "/fuzz/corpus");
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(corpus / GetParam().name)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    EXPECT_FALSE(files.empty());
    for (const auto& file : files) {
        EXPECT_NO_THROW(run(contentOf(file))) << file;
    }
}

TEST_P(CorpusTest, InputOfNothingAndOfOneByteEachPasses) {
    EXPECT_NO_THROW(run(""));
    for (int byte = 0; byte < 256; byte += 5) {
        EXPECT_NO_THROW(run(std::string(3, static_cast<char>(byte)))) << byte;
    }
}

INSTANTIATE_TEST_SUITE_P(Fuzz, CorpusTest,
                         ::testing::Values(Target{"cache_operations", cacheOperations},
                                           Target{"hostile_pages", hostilePages},
                                           Target{"command_line", commandLine},
                                           Target{"folder_names", folderNames}),
                         [](const auto& target) { return std::string(target.param.name); });

TEST(InputTest, EndsInZeros) {
    const std::string bytes{"\3ab"};
    Input input(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    EXPECT_EQ(input.text(10), "ab");
    EXPECT_TRUE(input.isEmpty());
    EXPECT_EQ(input.number(), 0U);
    EXPECT_EQ(input.text(10), "");
    EXPECT_EQ(input.rest(), "");
}

TEST(InputTest, BrokenRunSaysWhat) {
    EXPECT_NO_THROW(check(true, "right"));
    try {
        check(false, "wrong");
        FAIL() << "nothing was thrown";
    } catch (const Broken& broken) {
        EXPECT_STREQ(broken.what(), "wrong");
    }
}

}  // namespace
}  // namespace Ormek::Fuzzing
