// The trace when nobody reads it, and when it breaks off.

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <streambuf>
#include <string>

#include "cache/Trace.h"
#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"

namespace Ormek::Testing {
namespace {

/// Takes so many writes and no more.
class ShortBuffer : public std::streambuf {
  public:
    explicit ShortBuffer(int writes) : _left(writes), _previous(std::cout.rdbuf(this)) {}
    ShortBuffer(const ShortBuffer&) = delete;
    ShortBuffer& operator=(const ShortBuffer&) = delete;
    ~ShortBuffer() override { std::cout.rdbuf(_previous); }

  private:
    std::streamsize xsputn(const char*, std::streamsize size) override {
        return _left-- > 0 ? size : 0;
    }
    int _left;
    std::streambuf* _previous;
};

/// Everything that looks whether somebody reads, before it asks an entry what to print.
class SilentCacheTest : public ::testing::Test {
  protected:
    SilentCacheTest() {
        wired.probe.directories().push_back(directory);
        directory->addItems(0, {makeObject(1, 2, "one"), makeObject(3, 2, "three")});
        wired.probe.items()[1] = makeObject(1, 2, "one");
    }

    TraceCapture trace;
    WiredCache wired;
    DirectoryCache& cache = wired.cache;
    std::shared_ptr<QueryResultInternal> directory =
        std::make_shared<QueryResultInternal>(folderFilter(2));
};

TEST_F(SilentCacheTest, FoldersAreAddedWithoutAWord) {
    std::cout.setstate(std::ios_base::failbit);
    EXPECT_NE(cache.addContainer(*makeContainer(8, 2, "folder")), nullptr);
    EXPECT_NE(cache.addContainerPtr(makeContainer(9, 2, "folder"), true), nullptr);
    EXPECT_EQ(directory->count(), 4U);
    std::cout.clear();
    EXPECT_EQ(trace.text(), "");
}

TEST_F(SilentCacheTest, DocumentsAreAddedAndUpdatedWithoutAWord) {
    std::cout.setstate(std::ios_base::badbit);
    EXPECT_NE(cache.addObjectPtr(makeObject(8, 2, "document"), false), nullptr);
    EXPECT_NE(cache.addOrReplaceObjectPtr(makeObject(9, 2, "document"), false), nullptr);
    EXPECT_EQ(directory->count(), 3U);
    cache.updateItemId(1, 10);
    EXPECT_EQ(wired.probe.items().at(10)->id(), 10U);
    cache.printAllItems();
    std::cout.clear();
    EXPECT_EQ(trace.text(), "");
}

TEST_F(SilentCacheTest, ActionsLeaveWithoutAWord) {
    std::cout.setstate(std::ios_base::failbit);
    EXPECT_NE(cache.renameObject(2, 1, 7, "renamed", nullptr), 0U);
    EXPECT_EQ(wired.probe.items().at(1)->name(), "renamed");
    wired.probe.items()[2] = makeContainer(2, 0, "folder");
    EXPECT_NE(cache.createObject(makeObject(8, 2, "new"), {}, 7, nullptr), 0U);
    EXPECT_EQ(wired.parked.size(), 2U);
    std::cout.clear();
    EXPECT_EQ(trace.text(), "");
}

// The count, the entries twice, and what was found are a write each; then nobody reads any more.
TEST_F(SilentCacheTest, LookUpGoesOnWhenTheTraceBreaksOffAmongTheEntries) {
    for (int writes = 0; writes < 4; ++writes) {
        const ShortBuffer buffer(writes);
        std::cout.clear();
        EXPECT_EQ(cache.getDirectory(folderFilter(2)), directory);
        EXPECT_TRUE(std::cout.fail()) << writes;
        std::cout.clear();
    }
}

TEST_F(SilentCacheTest, LookUpWritesEveryLineWhenAllAreTaken) {
    const ShortBuffer buffer(4);
    EXPECT_EQ(cache.getDirectory(folderFilter(2)), directory);
    EXPECT_TRUE(std::cout.good());
}

TEST(TraceLineTest, TextThatIsLongerThanTheLineGoesOutAtOnceAndOnce) {
    const TraceCapture trace;
    const std::string text(2000, 't');
    TraceLine line;
    line.add(text);
    EXPECT_EQ(trace.text(), text);
    line.write();
    EXPECT_EQ(trace.text(), text);
}

TEST(TraceLineTest, LineThatIsJustFullIsWrittenAtItsEnd) {
    const TraceCapture trace;
    const std::string half(256, 'h');
    TraceLine line;
    line.add(half);
    line.add(half);
    EXPECT_EQ(trace.text(), "");
    line.add("");
    EXPECT_EQ(trace.text(), "");
    line.add("x");
    EXPECT_EQ(trace.text(), half + half);
    line.write();
    EXPECT_EQ(trace.text(), half + half + "x");
}

TEST(TraceLineTest, TextThatJustFillsALineIsKept) {
    const TraceCapture trace;
    const std::string whole(512, 'w');
    TraceLine line;
    line.add(whole);
    EXPECT_EQ(trace.text(), "");
    line.write();
    EXPECT_EQ(trace.text(), whole);
}

}  // namespace
}  // namespace Ormek::Testing
