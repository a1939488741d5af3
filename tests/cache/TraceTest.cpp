#include <gtest/gtest.h>

#include <functional>
#include <iomanip>
#include <iostream>
#include <locale>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

#include "cache/Trace.h"
#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"
#include "tests/support/WatchingFakes.h"

namespace Ormek::Testing {
namespace {

using Folders = std::vector<Nimra::Folder>;
using Documents = std::vector<Nimra::Document>;
using Tags = std::vector<Nimra::Tag>;

constexpr unsigned long Parent = 5000000;
constexpr std::size_t Long = 65536;

FilterInternal listing() {
    auto filter = folderFilter(Parent, 1000, 2000);
    filter.setDataTypes({4, 31});
    return filter;
}

Nimra::Folder folder(unsigned long id) { return Nimra::Folder(id, Parent, 3, "folder"); }

Nimra::Document document(unsigned long id) { return Nimra::Document(id, Parent, 3, "document"); }

Nimra::Tag tag(const std::string& key) {
    Nimra::Tag record;
    record.tagKey = key;
    return record;
}

/// A cache with a known and an unknown id for every kind of record, and everything that the
/// tests below do to it.
class TracedCache : public WiredCache {
  public:
    TracedCache() {
        probe.items()[1000001] = makeObject(1000001, Parent, "cached document");
        probe.items()[1000009] = makeContainer(1000009, Parent, "cached folder");
    }

    void query() { cache.get(listing(), directory, &listener); }
    void queryPastTheCache() {
        auto filter = listing();
        filter.setByPassCache(true);
        cache.get(filter, directory, &listener);
    }
    void queryTags() { cache.getKeyValues(listing(), tagDirectory, &listener); }
    void load() { cache.loadDirectory(listing(), directory, &listener); }
    void park() {
        auto filter = listing();
        filter.contextId = 0;
        cache.loadDirectory(filter, directory, &listener);
    }
    void look() { cache.getDirectory(listing()); }
    void lookForTags() { cache.getKeyValueDirectory(listing()); }
    void merge() {
        cache.addItems(listing(), directory, Folders{folder(1000009), folder(1000008)},
                       Documents{document(1000001), document(1000002)}, 1004);
    }
    void mergeFolders() {
        cache.addItems(listing(), directory, Folders{folder(1000009), folder(1000008)}, 1002);
    }
    void mergeDocuments() {
        cache.addItems(listing(), directory, Documents{document(1000001), document(1000002)}, 1002);
    }
    void mergeTags() {
        cache.addKeyValues(listing(), tagDirectory, Tags{tag("a"), tag("b")}, 1002);
    }
    void moveElsewhere() { cache.onRemoteObjectMoved(Parent + 1, 1000001); }

    Nimra::ItemEventProtocol listener;
    std::shared_ptr<QueryResult> directory = std::make_shared<QueryResultInternal>(listing());
    std::shared_ptr<QueryResult> tagDirectory = std::make_shared<QueryResultInternal>(listing());
};

/// All of it, so that every query is asked both before and after its page has arrived.
void everything(TracedCache& traced) {
    traced.query();
    traced.merge();
    traced.query();
    traced.queryPastTheCache();
    traced.queryTags();
    traced.mergeTags();
    traced.queryTags();
    traced.park();
    traced.mergeFolders();
    traced.mergeDocuments();
    traced.lookForTags();
    traced.moveElsewhere();
}

/// The same without any line that prints an address.
void everythingButAddresses(TracedCache& traced) {
    traced.load();
    traced.park();
    traced.look();
    traced.lookForTags();
    traced.mergeDocuments();
    traced.moveElsewhere();
}

/// Gives std::cout another buffer, and everything back at its end.
class WithBuffer {
  public:
    explicit WithBuffer(std::streambuf& buffer) : _previous(std::cout.rdbuf(&buffer)) {}
    WithBuffer(const WithBuffer&) = delete;
    WithBuffer& operator=(const WithBuffer&) = delete;
    ~WithBuffer() {
        std::cout.exceptions(std::ios_base::goodbit);
        std::cout.rdbuf(_previous);
    }

  private:
    std::streambuf* _previous;
};

/// Lets a test change the flags and the locale of std::cout.
class RestoredFormat {
  public:
    RestoredFormat() = default;
    RestoredFormat(const RestoredFormat&) = delete;
    RestoredFormat& operator=(const RestoredFormat&) = delete;
    ~RestoredFormat() {
        std::cout.flags(_flags);
        std::cout.fill(_fill);
        std::cout.imbue(_locale);
    }

  private:
    std::ios_base::fmtflags _flags = std::cout.flags();
    char _fill = std::cout.fill();
    std::locale _locale = std::cout.getloc();
};

/// 1'234'567.
class Grouping : public std::numpunct<char> {
  protected:
    char do_thousands_sep() const override { return '\''; }
    std::string do_grouping() const override { return "\3"; }
    std::string do_truename() const override { return "yes"; }
    std::string do_falsename() const override { return "no"; }
};

/// Keeps every write, and the text there was at every flush.
class CountingBuffer : public std::streambuf {
  public:
    std::string text() const {
        std::string all;
        for (const auto& write : writes) all += write;
        return all;
    }
    std::vector<std::string> writes;
    std::vector<std::string> flushed;

  private:
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        writes.emplace_back(text, static_cast<std::size_t>(size));
        return size;
    }
    int_type overflow(int_type character) override {
        writes.emplace_back(1, traits_type::to_char_type(character));
        return character;
    }
    int sync() override {
        flushed.push_back(text());
        return 0;
    }
};

/// Refuses the write after the first few.
class FailingBuffer : public std::streambuf {
  public:
    explicit FailingBuffer(int taken) : _left(taken) {}

  private:
    std::streamsize xsputn(const char*, std::streamsize size) override {
        return _left-- > 0 ? size : 0;
    }
    int_type overflow(int_type character) override {
        return _left-- > 0 ? character : traits_type::eof();
    }
    int _left;
};

// --- A stream that has failed ---------------------------------------------------------------

class FailedStreamTest : public testing::TestWithParam<std::ios_base::iostate> {
  protected:
    FailedStreamTest() { std::cout.setstate(GetParam()); }

    TraceCapture trace;  // Begins with a stream that works again.
    TracedCache traced;
};

TEST_P(FailedStreamTest, GetsNothing) {
    everything(traced);
    traced.look();
    traced.load();

    EXPECT_EQ(trace.text(), "");
    EXPECT_TRUE(std::cout.fail());
}

TEST_P(FailedStreamTest, IsNeitherWrittenToNorFlushed) {
    CountingBuffer buffer;
    const WithBuffer with(buffer);
    std::cout.setstate(GetParam());

    traced.query();
    traced.look();

    EXPECT_TRUE(buffer.writes.empty());
    EXPECT_TRUE(buffer.flushed.empty());
    EXPECT_EQ(std::cout.rdstate(), GetParam());
}

/// An object that counts how often its name is asked for.
class NamedObject : public ObjectInternal {
  public:
    NamedObject() : ObjectInternal(nullptr) {}
    std::string name() const override {
        ++asked;
        return ObjectInternal::name();
    }
    mutable int asked = 0;
};

TEST_P(FailedStreamTest, AsksNoEntryForWhatItWouldPrint) {
    const auto object = std::make_shared<NamedObject>();
    auto& directory = dynamic_cast<QueryResultInternal&>(*traced.directory);
    directory.addItems(0, {object});
    traced.probe.directories().push_back(traced.directory);
    object->asked = 0;

    EXPECT_EQ(traced.cache.getDirectory(listing()), traced.directory);

    EXPECT_EQ(object->asked, 0);
}

TEST_P(FailedStreamTest, LeavesQueriesAndMergesWorking) {
    EXPECT_NE(traced.cache.get(listing(), traced.directory, &traced.listener), 0u);
    traced.merge();

    EXPECT_EQ(traced.cache.get(listing(), traced.directory, &traced.listener), 0u);
    EXPECT_EQ(traced.cache.getDirectory(listing()), traced.directory);
    EXPECT_EQ(traced.directory->items().size(), 4u);
    EXPECT_EQ(traced.handler.operations().size(), 1u);
    EXPECT_EQ(traced.probe.items().size(), 4u);
}

TEST_P(FailedStreamTest, LeavesTagsWorking) {
    EXPECT_NE(traced.cache.getKeyValues(listing(), traced.tagDirectory, &traced.listener), 0u);
    traced.mergeTags();

    EXPECT_EQ(traced.cache.getKeyValues(listing(), traced.tagDirectory, &traced.listener), 0u);
    EXPECT_EQ(traced.tagDirectory->items().size(), 2u);
    EXPECT_EQ(traced.cache.keyValues().size(), 2u);
}

TEST_P(FailedStreamTest, LeavesMergesOfOneKindAndMovesWorking) {
    traced.mergeFolders();
    traced.mergeDocuments();

    EXPECT_EQ(traced.probe.items().size(), 4u);
    EXPECT_TRUE(traced.cache.onRemoteObjectMoved(Parent + 1, 1000001));
    EXPECT_EQ(traced.probe.items().at(1000001)->parentId(), Parent + 1);
}

INSTANTIATE_TEST_SUITE_P(Either, FailedStreamTest,
                         testing::Values(std::ios_base::failbit, std::ios_base::badbit),
                         [](const auto& state) {
                             return state.param == std::ios_base::failbit ? "Failed" : "Bad";
                         });

// --- Numbers, addresses, texts --------------------------------------------------------------

class TraceTest : public testing::Test {
  protected:
    static std::string normalTrace(void (*operations)(TracedCache&)) {
        TraceCapture trace;
        TracedCache traced;
        operations(traced);
        return trace.normalised();
    }
};

TEST_F(TraceTest, NumbersAreDecimalWhateverTheFlags) {
    const auto expected = normalTrace(everything);
    const RestoredFormat restored;

    for (const auto base : {std::ios_base::hex, std::ios_base::oct}) {
        std::cout.setf(base, std::ios_base::basefield);
        std::cout << std::showbase << std::showpos << std::boolalpha << std::uppercase;
        EXPECT_EQ(normalTrace(everything), expected);
    }
}

TEST_F(TraceTest, NumbersAreDecimalWhateverTheLocale) {
    const auto expected = normalTrace(everythingButAddresses);
    ASSERT_NE(expected.find("1000001"), std::string::npos);
    const RestoredFormat restored;

    std::cout.imbue(std::locale(std::locale::classic(), new Grouping));
    std::cout << std::boolalpha;

    EXPECT_EQ(normalTrace(everythingButAddresses), expected);
}

TEST_F(TraceTest, FlagsOfTheStreamStayAsTheyWere) {
    const RestoredFormat restored;
    TraceCapture trace;
    TracedCache traced;
    std::cout << std::hex << std::showbase << std::setfill('*');
    const auto flags = std::cout.flags();

    everything(traced);

    EXPECT_EQ(std::cout.flags(), flags);
    EXPECT_EQ(std::cout.fill(), '*');
    EXPECT_TRUE(std::cout.good());
}

TEST_F(TraceTest, NullPointersPrintAsZero) {
    WiredCache wired;
    wired.cache.setObjectUpdater(nullptr);
    wired.probe.items()[9] = nullptr;
    const std::shared_ptr<QueryResult> directory = std::make_shared<QueryResultInternal>(listing());
    TraceCapture trace;

    wired.cache.addItems(listing(), directory, Folders{folder(9)}, 1001);

    EXPECT_NE(trace.text().find("\n::DirectoryCache::getContainer() 0\n"), std::string::npos);
    EXPECT_NE(trace.text().find("\nOrmek::DirectoryCache::addItems 80\n"), std::string::npos);
}

TEST_F(TraceTest, AddressesArePrintedAsTheStreamDoes) {
    TracedCache traced;
    TraceCapture trace;

    traced.mergeFolders();

    EXPECT_NE(trace.text().find("::getContainer() " + address(&traced.updater) + "\n"),
              std::string::npos);
    EXPECT_NE(
        trace.text().find("::addItems 8" + address(traced.probe.items().at(1000009).get()) + "\n"),
        std::string::npos);
}

TEST_F(TraceTest, LongNamesAreWrittenWhole) {
    std::string name(Long, 'n');
    for (std::size_t i = 0; i < name.size(); i += 1000) name[i] = '\0';
    name.back() = '.';
    WiredCache wired;
    wired.probe.directories().push_back(std::make_shared<QueryResultInternal>(folderFilter(5)));
    const auto directory = wired.probe.directories().back();
    dynamic_cast<QueryResultInternal&>(*directory).addItems(0, {makeObject(7, 5, name)});
    TraceCapture trace;

    wired.cache.getDirectory(folderFilter(5));

    const std::string line = "item in directory: 7 name: " + name + "\n";
    EXPECT_TRUE(trace.text() == "\nOrmek::DirectoryCache::getDirectory count1\n" + line + line +
                                    "it: " + address(directory.get()) + "\n")
        << "the trace has " << trace.text().size() << " bytes";
}

TEST_F(TraceTest, LongTextsInTheMiddleOfALineAreWrittenWhole) {
    auto record = tag(std::string(5000, 'k') + '\0');
    record.addKeyValue("artist", {std::string(Long, '\0'), false});
    WiredCache wired;
    const std::shared_ptr<QueryResult> directory =
        std::make_shared<QueryResultInternal>(folderFilter(16));
    TraceCapture trace;

    wired.cache.addKeyValues(folderFilter(16), directory, Tags{record}, 1);

    EXPECT_TRUE(trace.text() == "Ormek::DirectoryCache::addTags 1\ngettag push back " +
                                    record.keyValues().at("artist").first + " " + record.tagKey +
                                    "\nitem vector original adress3 " +
                                    address(&wired.probe.keyValues().at(record.tagKey)) +
                                    "\n_keyValues items count 1\n")
        << "the trace has " << trace.text().size() << " bytes";
}

// --- Writes and flushes ---------------------------------------------------------------------

TEST_F(TraceTest, EveryShortLineIsOneWrite) {
    CountingBuffer buffer;
    TracedCache traced;
    {
        const WithBuffer with(buffer);
        everything(traced);
        traced.look();
    }

    ASSERT_FALSE(buffer.writes.empty());
    for (const auto& write : buffer.writes) {
        ASSERT_FALSE(write.empty());
        EXPECT_EQ(write.back(), '\n') << write;
    }
}

TEST_F(TraceTest, QueryFlushesItsFirstLine) {
    CountingBuffer buffer;
    TracedCache traced;
    {
        const WithBuffer with(buffer);
        traced.query();
    }

    EXPECT_EQ(buffer.flushed, std::vector<std::string>{"!filter.getbyPassCache = (true) 1\n"});
}

TEST_F(TraceTest, ByPassingQueryFlushesItsFirstLine) {
    CountingBuffer buffer;
    TracedCache traced;
    {
        const WithBuffer with(buffer);
        traced.queryPastTheCache();
    }

    EXPECT_EQ(buffer.flushed, std::vector<std::string>{"!filter.getbyPassCache = (true) 0\n"});
}

TEST_F(TraceTest, LookUpThatFindsItsDirectoryFlushesItsLastLine) {
    CountingBuffer buffer;
    TracedCache traced;
    traced.probe.directories().push_back(traced.directory);
    {
        const WithBuffer with(buffer);
        traced.look();
    }

    EXPECT_EQ(buffer.flushed,
              std::vector<std::string>{"\nOrmek::DirectoryCache::getDirectory count1\nit: " +
                                       address(traced.directory.get()) + "\n"});
}

TEST_F(TraceTest, NothingElseFlushes) {
    CountingBuffer buffer;
    TracedCache traced;
    {
        const WithBuffer with(buffer);
        traced.look();
        traced.lookForTags();
        traced.load();
        traced.park();
        traced.queryTags();
        traced.queryTags();
        traced.merge();
        traced.mergeFolders();
        traced.mergeDocuments();
        traced.mergeTags();
        traced.moveElsewhere();
    }

    EXPECT_FALSE(buffer.writes.empty());
    EXPECT_TRUE(buffer.flushed.empty());
}

// --- A stream that throws -------------------------------------------------------------------

struct Throwing {
    std::string name;
    std::function<void(TracedCache&)> prepare;
    std::function<void(TracedCache&)> operation;
};

void nothing(TracedCache&) {}

void PrintTo(const Throwing& operation, std::ostream* out) { *out << operation.name; }

class ThrowingStreamTest : public testing::TestWithParam<Throwing> {};

TEST_P(ThrowingStreamTest, ReachesTheCallerAndLeavesNoMutexHeld) {
    int thrown = 0;
    for (bool finished = false; !finished;) {
        TracedCache traced;
        {
            TraceCapture unheeded;
            GetParam().prepare(traced);
        }
        FailingBuffer buffer(thrown);
        {
            const WithBuffer with(buffer);
            std::cout.exceptions(std::ios_base::badbit);
            try {
                GetParam().operation(traced);
                finished = true;
            } catch (const std::ios_base::failure&) {
                ++thrown;
            }
        }
        EXPECT_FALSE(isHeld(traced.probe.itemsMutex())) << "after write " << thrown;
        EXPECT_FALSE(isHeld(traced.probe.mutex())) << "after write " << thrown;
    }
    EXPECT_GT(thrown, 0);
}

INSTANTIATE_TEST_SUITE_P(
    From, ThrowingStreamTest,
    testing::Values(
        Throwing{"Query", nothing, [](TracedCache& traced) { traced.query(); }},
        Throwing{"AnsweredQuery",
                 [](TracedCache& traced) {
                     traced.query();
                     traced.merge();
                 },
                 [](TracedCache& traced) { traced.query(); }},
        Throwing{"ByPassingQuery", nothing,
                 [](TracedCache& traced) { traced.queryPastTheCache(); }},
        Throwing{"TagQuery", nothing, [](TracedCache& traced) { traced.queryTags(); }},
        Throwing{"AnsweredTagQuery", [](TracedCache& traced) { traced.queryTags(); },
                 [](TracedCache& traced) { traced.queryTags(); }},
        Throwing{"ParkedLoad", nothing, [](TracedCache& traced) { traced.park(); }},
        Throwing{"Merge", nothing, [](TracedCache& traced) { traced.merge(); }},
        Throwing{"MergeOfFolders", nothing, [](TracedCache& traced) { traced.mergeFolders(); }},
        Throwing{"MergeOfDocuments", nothing, [](TracedCache& traced) { traced.mergeDocuments(); }},
        Throwing{"MergeOfTags", nothing, [](TracedCache& traced) { traced.mergeTags(); }},
        Throwing{"RemoteMove", nothing, [](TracedCache& traced) { traced.moveElsewhere(); }}),
    [](const auto& operation) { return operation.param.name; });

TEST_F(TraceTest, OperationWhoseTraceThrewCanBeRepeated) {
    TracedCache traced;
    FailingBuffer buffer(6);
    {
        const WithBuffer with(buffer);
        std::cout.exceptions(std::ios_base::badbit);
        EXPECT_THROW(traced.merge(), std::ios_base::failure);
    }
    TraceCapture unheeded;

    traced.merge();

    EXPECT_EQ(traced.directory->items().size(), 4u);
}

TEST(TraceLineTest, NumberAtTheEndOfTheLinesBufferIsWhole) {
    const TraceCapture capture;
    for (std::size_t before = 480; before <= 520; ++before) {
        trace(std::string(before, 'x'), 18446744073709551615UL, "\n");
    }
    std::string expected;
    for (std::size_t before = 480; before <= 520; ++before) {
        expected += std::string(before, 'x') + "18446744073709551615\n";
    }
    EXPECT_EQ(capture.text(), expected);
}

}  // namespace
}  // namespace Ormek::Testing
