#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "service/Document.h"
#include "service/DocumentSession.h"
#include "service/Folder.h"
#include "service/ItemFilter.h"
#include "service/PelData.h"
#include "service/Tag.h"

namespace Nimra {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

using Shares = std::map<unsigned long, std::vector<Ormek::ShareData>>;

const Shares SomeShares = {{31, {{1, 31, 2, 3}, {4, 31, 5, 6}}}, {32, {{7, 32, 8, 9}}}};

/// A record made in memory full of rubbish, where a forgotten initialisation shows.
template <class Record>
class OnRubbish {
  public:
    template <class... Arguments>
    explicit OnRubbish(Arguments&&... arguments) {
        std::memset(_memory, 0xA5, sizeof(_memory));
        _record = new (_memory) Record(std::forward<Arguments>(arguments)...);
    }
    ~OnRubbish() { _record->~Record(); }
    OnRubbish(const OnRubbish&) = delete;
    OnRubbish& operator=(const OnRubbish&) = delete;

    const Record* operator->() const { return _record; }

  private:
    alignas(Record) std::byte _memory[sizeof(Record)];
    Record* _record;
};

bool ascending(std::vector<const void*> addresses) {
    return std::is_sorted(addresses.begin(), addresses.end(), std::less<>());
}

// --- PelData -----------------------------------------------------------------------------------

TEST(PelDataTest, TheNameAndTheTypeAreWhatItIsMadeWith) {
    const OnRubbish<PelData> record("name", 9);
    EXPECT_EQ(record->name, "name");
    EXPECT_EQ(record->reference, "");
    EXPECT_EQ(record->type, 9);
    EXPECT_THAT(record->shares, IsEmpty());
}

TEST(PelDataTest, MadeWithATypeAloneItHasNoName) {
    const OnRubbish<PelData> record(8);
    EXPECT_EQ(record->name, "");
    EXPECT_EQ(record->reference, "");
    EXPECT_EQ(record->type, 8);
    EXPECT_THAT(record->shares, IsEmpty());
}

TEST(PelDataTest, ACopyHasAShareMapOfItsOwn) {
    PelData source("name", 4);
    source.shares = SomeShares;
    PelData copy = source;
    EXPECT_EQ(copy.shares, SomeShares);
    copy.shares[31].clear();
    copy.name = "other";
    EXPECT_EQ(source.shares, SomeShares);
    EXPECT_EQ(source.name, "name");
}

template <class Record>
struct Watched : Record {
    template <class... Arguments>
    explicit Watched(int& deaths, Arguments&&... arguments)
        : Record(std::forward<Arguments>(arguments)...), _deaths(deaths) {}
    ~Watched() override { ++_deaths; }
    int& _deaths;
};

TEST(PelDataTest, DeletionThroughTheBaseRunsTheDerivedDestructor) {
    int deaths = 0;
    std::unique_ptr<PelData>(new Watched<Folder>(deaths)).reset();
    std::unique_ptr<PelData>(new Watched<Document>(deaths, 1ul, 2ul, 3ul, "name")).reset();
    std::unique_ptr<PelData>(new Watched<Tag>(deaths)).reset();
    EXPECT_EQ(deaths, 3);
}

TEST(PelDataTest, TheMembersStandInTheirFixedOrder) {
    const PelData record(4);
    EXPECT_TRUE(ascending({&record.name, &record.reference, &record.type, &record.shares}));
    EXPECT_EQ(sizeof(record.type), 1u);
}

static_assert(!std::is_convertible_v<int, PelData>);
static_assert(std::is_base_of_v<PelData, Folder> && std::is_base_of_v<PelData, Document> &&
              std::is_base_of_v<PelData, Tag>);

// --- Document ----------------------------------------------------------------------------------

TEST(DocumentTest, ItsTypeIsFourItsStateOneAndItsKeyValuesEmpty) {
    const OnRubbish<Document> document(1ul, 2ul, 3ul, "name");
    EXPECT_EQ(document->type, 4);
    EXPECT_EQ(document->state, 1);
    EXPECT_THAT(document->keyValues(), IsEmpty());
}

TEST(DocumentTest, TheConstructorTakesIdParentOwnerAndName) {
    const Document document(1, 2, 3, "name");
    EXPECT_EQ(document.id, 1u);
    EXPECT_EQ(document.parentId, 2u);
    EXPECT_EQ(document.ownerId, 3u);
    EXPECT_EQ(document.name, "name");
    EXPECT_EQ(document.nameCopy, "name");
}

TEST(DocumentTest, EverythingElseStartsEmptyOrZero) {
    const OnRubbish<Document> document(1ul, 2ul, 3ul, "name");
    EXPECT_EQ(document->reference, "");
    EXPECT_THAT(document->shares, IsEmpty());
    EXPECT_EQ(document->oldParentId, 0u);
    EXPECT_EQ(document->reservedId, 0u);
    EXPECT_EQ(document->contentUrl, "");
    EXPECT_EQ(document->thumbnailUrl, "");
    EXPECT_EQ(document->etag, "");
    EXPECT_EQ(document->mimeType, "");
    EXPECT_EQ(document->created, 0u);
    EXPECT_EQ(document->updated, 0u);
    EXPECT_EQ(document->deleted, 0u);
    EXPECT_FALSE(document->locked);
    EXPECT_EQ(document->description, "");
    EXPECT_EQ(document->language, "");
    EXPECT_EQ(document->aclMode, 0);
    EXPECT_EQ(document->reserved, 0u);
    EXPECT_EQ(document->length, 0u);
    EXPECT_EQ(document->checksum, "");
    EXPECT_EQ(document->comment, "");
}

TEST(DocumentTest, ACopyWithEmptyMapsHasEmptyMaps) {
    const Document source(1, 2, 3, "name");
    const Document copy = source;
    EXPECT_THAT(copy.keyValues(), IsEmpty());
    EXPECT_THAT(copy.shares, IsEmpty());
}

TEST(DocumentTest, ACopyKeepsTheOrderAndTheValuesOfItsMaps) {
    Document source(1, 2, 3, "name");
    source.setKeyValue("b", {"second", false});
    source.setKeyValue("a", {"first", true});
    source.shares = SomeShares;
    const Document copy = source;
    EXPECT_THAT(copy.keyValues(),
                ElementsAre(Pair("a", Pair("first", true)), Pair("b", Pair("second", false))));
    EXPECT_EQ(copy.shares, SomeShares);
}

TEST(DocumentTest, ACopyTakesEveryMember) {
    Document source(1, 2, 3, "name");
    source.reference = "reference";
    source.type = 7;
    source.oldParentId = 4;
    source.reservedId = 5;
    source.contentUrl = "content";
    source.thumbnailUrl = "thumbnail";
    source.etag = "etag";
    source.mimeType = "mime";
    source.created = 6;
    source.updated = 7;
    source.deleted = 8;
    source.locked = true;
    source.description = "description";
    source.language = "language";
    source.aclMode = 9;
    source.state = 10;
    source.reserved = 11;
    source.length = 12;
    source.checksum = "checksum";
    source.nameCopy = "former name";
    source.comment = "comment";

    const Document copy = source;
    EXPECT_EQ(copy.name, "name");
    EXPECT_EQ(copy.reference, "reference");
    EXPECT_EQ(copy.type, 7);
    EXPECT_EQ(copy.id, 1u);
    EXPECT_EQ(copy.parentId, 2u);
    EXPECT_EQ(copy.oldParentId, 4u);
    EXPECT_EQ(copy.ownerId, 3u);
    EXPECT_EQ(copy.reservedId, 5u);
    EXPECT_EQ(copy.contentUrl, "content");
    EXPECT_EQ(copy.thumbnailUrl, "thumbnail");
    EXPECT_EQ(copy.etag, "etag");
    EXPECT_EQ(copy.mimeType, "mime");
    EXPECT_EQ(copy.created, 6u);
    EXPECT_EQ(copy.updated, 7u);
    EXPECT_EQ(copy.deleted, 8u);
    EXPECT_TRUE(copy.locked);
    EXPECT_EQ(copy.description, "description");
    EXPECT_EQ(copy.language, "language");
    EXPECT_EQ(copy.aclMode, 9);
    EXPECT_EQ(copy.state, 10);
    EXPECT_EQ(copy.reserved, 11u);
    EXPECT_EQ(copy.length, 12u);
    EXPECT_EQ(copy.checksum, "checksum");
    EXPECT_EQ(copy.nameCopy, "former name");
    EXPECT_EQ(copy.comment, "comment");
}

TEST(DocumentTest, ACopyIsIndependentOfItsSource) {
    Document source(1, 2, 3, "name");
    source.setKeyValue("a", {"first", true});
    Document copy = source;
    copy.setKeyValue("a", {"changed", false});
    copy.name = "other";
    EXPECT_THAT(source.keyValues(), ElementsAre(Pair("a", Pair("first", true))));
    EXPECT_EQ(source.name, "name");
}

TEST(DocumentTest, KeyValuesHandsOutACopy) {
    Document document(1, 2, 3, "name");
    document.setKeyValue("a", {"first", true});
    document.keyValues().clear();
    EXPECT_THAT(document.keyValues(), ElementsAre(Pair("a", Pair("first", true))));
}

TEST(DocumentTest, AddKeyValueKeepsAPairThatIsPresent) {
    Document document(1, 2, 3, "name");
    document.addKeyValue("a", {"first", true});
    document.addKeyValue("a", {"second", false});
    EXPECT_THAT(document.keyValues(), ElementsAre(Pair("a", Pair("first", true))));
}

TEST(DocumentTest, SetKeyValueOverwritesAPairThatIsPresent) {
    Document document(1, 2, 3, "name");
    document.setKeyValue("a", {"first", true});
    document.setKeyValue("a", {"second", false});
    EXPECT_THAT(document.keyValues(), ElementsAre(Pair("a", Pair("second", false))));
}

TEST(DocumentTest, EscapedNameEscapesAsXmlDoes) {
    EXPECT_EQ(Document(1, 2, 3, "a&b<c>d\"e'f").escapedName(), "a&amp;b&lt;c&gt;d&quot;e&apos;f");
}

TEST(DocumentTest, EscapedNameEscapesAnEscapeAgain) {
    EXPECT_EQ(Document(1, 2, 3, "&amp;").escapedName(), "&amp;amp;");
}

TEST(DocumentTest, EscapedNameLeavesEverythingElse) {
    const std::string name = "plain \xC3\xBC name.txt";
    EXPECT_EQ(Document(1, 2, 3, name).escapedName(), name);
    EXPECT_EQ(Document(1, 2, 3, "").escapedName(), "");
}

TEST(DocumentTest, EscapedNameFollowsTheName) {
    Document document(1, 2, 3, "before");
    document.name = "<after>";
    EXPECT_EQ(document.escapedName(), "&lt;after&gt;");
    EXPECT_EQ(document.name, "<after>");
}

TEST(DocumentTest, TheMembersStandInTheirFixedOrder) {
    const Document d(1, 2, 3, "name");
    EXPECT_TRUE(
        ascending({&d.shares,     &d.id,         &d.parentId,     &d.oldParentId, &d.ownerId,
                   &d.reservedId, &d.contentUrl, &d.thumbnailUrl, &d.etag,        &d.mimeType,
                   &d.created,    &d.updated,    &d.deleted,      &d.locked,      &d.description,
                   &d.language,   &d.aclMode,    &d.state,        &d.reserved,    &d.length,
                   &d.checksum,   &d.nameCopy,   &d.comment,      &d._keyValues}));
    EXPECT_EQ(sizeof(d.aclMode), 4u);
    EXPECT_EQ(sizeof(d.state), 4u);
}

// --- DocumentSession ---------------------------------------------------------------------------

TEST(DocumentSessionTest, ADefaultMadeOneIsForNothing) {
    const OnRubbish<DocumentSession> session;
    EXPECT_EQ(session->folderId, 0u);
    EXPECT_EQ(session->documentId, 0u);
    EXPECT_EQ(session->userId, 0u);
    EXPECT_EQ(session->token, "");
}

// --- Folder ------------------------------------------------------------------------------------

void expectBlankBehindTheIds(const Folder& folder) {
    EXPECT_EQ(folder.type, 8);
    EXPECT_EQ(folder.reference, "");
    EXPECT_THAT(folder.shares, IsEmpty());
    EXPECT_EQ(folder.firstLeading, "");
    EXPECT_EQ(folder.secondLeading, "");
    EXPECT_EQ(folder.accessLevel, 0);
    EXPECT_EQ(folder.oldParentId, 0u);
    EXPECT_EQ(folder.driveId, 0u);
    EXPECT_EQ(folder.firstTrailing, "");
    EXPECT_EQ(folder.secondTrailing, "");
    EXPECT_EQ(folder.thirdTrailing, "");
    EXPECT_EQ(folder.fourthTrailing, "");
    EXPECT_EQ(folder.created, 0u);
    EXPECT_EQ(folder.updated, 0u);
    EXPECT_EQ(folder.deleted, 0u);
    EXPECT_THAT(folder.children, IsEmpty());
}

TEST(FolderTest, ADefaultMadeOneHasTypeEightAndNothingElse) {
    const OnRubbish<Folder> folder;
    EXPECT_EQ(folder->name, "");
    EXPECT_EQ(folder->id, 0u);
    EXPECT_EQ(folder->parentId, 0u);
    EXPECT_EQ(folder->ownerId, 0u);
    expectBlankBehindTheIds(*folder.operator->());
}

TEST(FolderTest, TheConvenientConstructorTakesIdParentOwnerAndName) {
    const OnRubbish<Folder> folder(1ul, 2ul, 3ul, "name");
    EXPECT_EQ(folder->id, 1u);
    EXPECT_EQ(folder->parentId, 2u);
    EXPECT_EQ(folder->ownerId, 3u);
    EXPECT_EQ(folder->name, "name");
    expectBlankBehindTheIds(*folder.operator->());
}

TEST(FolderTest, ACopyHasTheWholeSubtree) {
    Folder root(1, 0, 9, "root");
    root.children.emplace_back(2, 1, 9, "branch");
    root.children.emplace_back(3, 1, 9, "other branch");
    root.children[0].children.emplace_back(4, 2, 9, "leaf");
    root.children[0].children[0].shares = SomeShares;

    const Folder copy = root;
    root.children[0].children[0].name = "changed";
    root.children.clear();

    ASSERT_EQ(copy.children.size(), 2u);
    EXPECT_EQ(copy.children[0].name, "branch");
    EXPECT_EQ(copy.children[1].id, 3u);
    ASSERT_EQ(copy.children[0].children.size(), 1u);
    EXPECT_EQ(copy.children[0].children[0].name, "leaf");
    EXPECT_EQ(copy.children[0].children[0].shares, SomeShares);
}

TEST(FolderTest, ACopyTakesEveryMember) {
    Folder source(1, 2, 3, "name");
    source.reference = "reference";
    source.type = 9;
    source.shares = SomeShares;
    source.firstLeading = "first leading";
    source.secondLeading = "second leading";
    source.accessLevel = 4;
    source.oldParentId = 5;
    source.driveId = 6;
    source.firstTrailing = "first";
    source.secondTrailing = "second";
    source.thirdTrailing = "third";
    source.fourthTrailing = "fourth";
    source.created = 7;
    source.updated = 8;
    source.deleted = 9;

    const Folder copy = source;
    EXPECT_EQ(copy.name, "name");
    EXPECT_EQ(copy.reference, "reference");
    EXPECT_EQ(copy.type, 9);
    EXPECT_EQ(copy.shares, SomeShares);
    EXPECT_EQ(copy.firstLeading, "first leading");
    EXPECT_EQ(copy.secondLeading, "second leading");
    EXPECT_EQ(copy.accessLevel, 4);
    EXPECT_EQ(copy.id, 1u);
    EXPECT_EQ(copy.parentId, 2u);
    EXPECT_EQ(copy.oldParentId, 5u);
    EXPECT_EQ(copy.ownerId, 3u);
    EXPECT_EQ(copy.driveId, 6u);
    EXPECT_EQ(copy.firstTrailing, "first");
    EXPECT_EQ(copy.secondTrailing, "second");
    EXPECT_EQ(copy.thirdTrailing, "third");
    EXPECT_EQ(copy.fourthTrailing, "fourth");
    EXPECT_EQ(copy.created, 7u);
    EXPECT_EQ(copy.updated, 8u);
    EXPECT_EQ(copy.deleted, 9u);
}

TEST(FolderTest, TheMembersStandInTheirFixedOrder) {
    const Folder f;
    EXPECT_TRUE(ascending({&f.shares, &f.firstLeading, &f.secondLeading, &f.accessLevel, &f.id,
                           &f.parentId, &f.oldParentId, &f.ownerId, &f.driveId, &f.firstTrailing,
                           &f.secondTrailing, &f.thirdTrailing, &f.fourthTrailing, &f.created,
                           &f.updated, &f.deleted, &f.children}));
    EXPECT_EQ(sizeof(f.accessLevel), 4u);
}

// --- Tag ---------------------------------------------------------------------------------------

TEST(TagTest, ADefaultMadeOneHasTypeSixteenAndNothingElse) {
    const OnRubbish<Tag> tag;
    EXPECT_EQ(tag->type, 16);
    EXPECT_EQ(tag->name, "");
    EXPECT_EQ(tag->reference, "");
    EXPECT_THAT(tag->shares, IsEmpty());
    EXPECT_EQ(tag->id, 0u);
    EXPECT_EQ(tag->parentId, 0u);
    EXPECT_EQ(tag->ownerId, 0u);
    EXPECT_EQ(tag->tagKey, "");
    EXPECT_EQ(tag->label, "");
    EXPECT_EQ(tag->group, "");
    EXPECT_EQ(tag->path, "");
    EXPECT_EQ(tag->created, 0u);
    EXPECT_EQ(tag->updated, 0u);
    EXPECT_EQ(tag->deleted, 0u);
    EXPECT_EQ(tag->reservedFirst, 0u);
    EXPECT_EQ(tag->reservedSecond, 0u);
    EXPECT_EQ(tag->mimeType, "");
    EXPECT_THAT(tag->keyValues(), IsEmpty());
    EXPECT_EQ(tag->url, "");
    EXPECT_EQ(tag->etag, "");
}

TEST(TagTest, KeyValuesHandsOutACopy) {
    Tag tag;
    tag.setKeyValue("a", {"first", true});
    tag.keyValues().clear();
    EXPECT_THAT(tag.keyValues(), ElementsAre(Pair("a", Pair("first", true))));
}

TEST(TagTest, AddKeyValueKeepsAPairThatIsPresent) {
    Tag tag;
    tag.addKeyValue("a", {"first", true});
    tag.addKeyValue("a", {"second", false});
    EXPECT_THAT(tag.keyValues(), ElementsAre(Pair("a", Pair("first", true))));
}

TEST(TagTest, SetKeyValueOverwritesAPairThatIsPresent) {
    Tag tag;
    tag.setKeyValue("a", {"first", true});
    tag.setKeyValue("a", {"second", false});
    EXPECT_THAT(tag.keyValues(), ElementsAre(Pair("a", Pair("second", false))));
}

TEST(TagTest, ACopyIsDeep) {
    Tag source;
    source.name = "name";
    source.tagKey = "key";
    source.shares = SomeShares;
    source.setKeyValue("a", {"first", true});
    Tag copy = source;
    EXPECT_EQ(copy.name, "name");
    EXPECT_EQ(copy.tagKey, "key");
    EXPECT_EQ(copy.shares, SomeShares);
    copy.setKeyValue("a", {"changed", false});
    copy.shares.clear();
    EXPECT_THAT(source.keyValues(), ElementsAre(Pair("a", Pair("first", true))));
    EXPECT_EQ(source.shares, SomeShares);
}

TEST(TagTest, TheMembersStandInTheirFixedOrder) {
    const Tag t;
    EXPECT_TRUE(ascending({&t.shares, &t.id, &t.parentId, &t.ownerId, &t.tagKey, &t.label, &t.group,
                           &t.path, &t.created, &t.updated, &t.deleted, &t.reservedFirst,
                           &t.reservedSecond, &t.mimeType, &t._keyValues, &t.url, &t.etag}));
}

// --- ItemFilter --------------------------------------------------------------------------------

TEST(ItemFilterTest, NothingIsLeftUninitialised) {
    const OnRubbish<ItemFilter> filter;
    EXPECT_EQ(filter->userId, 0u);
    EXPECT_EQ(filter->dataType, 0);
    EXPECT_THAT(filter->dataId, IsEmpty());
    EXPECT_THAT(filter->tagLabels, IsEmpty());
    EXPECT_FALSE(filter->serviceFlag);
    EXPECT_FALSE(filter->deleted);
    EXPECT_TRUE(filter->ascending);
    EXPECT_TRUE(filter->containerFirst);
    EXPECT_EQ(filter->offset, 0u);
    EXPECT_EQ(filter->count, 0u);
    EXPECT_EQ(filter->order(), "");
}

TEST(ItemFilterTest, OrderHandsOutACopy) {
    ItemFilter filter;
    filter._order = "kept";
    std::string order = filter.order();
    order = "changed";
    EXPECT_EQ(filter.order(), "kept");
    static_assert(std::is_same_v<decltype(filter.order()), std::string>);
}

TEST(ItemFilterTest, ACopyIsDeep) {
    ItemFilter source;
    source.dataId = {1, 2};
    source.tagLabels = {{"key", "label"}};
    source.query = "text";
    ItemFilter copy = source;
    copy.dataId.clear();
    copy.tagLabels.clear();
    copy.query.clear();
    EXPECT_THAT(source.dataId, ElementsAre(1, 2));
    EXPECT_THAT(source.tagLabels, ElementsAre(Pair("key", "label")));
    EXPECT_EQ(source.query, "text");
}

TEST(ItemFilterTest, TheMembersStandInTheirFixedOrder) {
    const ItemFilter f;
    EXPECT_TRUE(ascending({&f.userId, &f.dataType, &f.dataId, &f.tagLabels, &f.path, &f.url,
                           &f.query, &f.group, &f.ascending, &f.deleted, &f.containerFirst,
                           &f.serviceFlag, &f.offset, &f.count, &f._order, &f.cursor}));
}

}  // namespace
}  // namespace Nimra
