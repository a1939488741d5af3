// What an embedder may derive from: a derived entry or result says what its base was made from.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "model/Container.h"
#include "model/ContainerInternal.h"
#include "model/Object.h"
#include "model/ObjectInternal.h"
#include "model/QueryResultInternal.h"
#include "model/ShareData.h"
#include "service/Document.h"
#include "service/Folder.h"
#include "tests/support/Fakes.h"

namespace Ormek::Testing {
namespace {

/// Any of the entry classes, with something that is the embedder's own.
template <class Base>
struct Marked : Base {
    using Base::Base;
    int mark = 0;
};

template <class Value>
struct MarkedValue : Value {
    explicit MarkedValue(const Value& value) : Value(value) {}
    int mark = 0;
};

std::shared_ptr<ObjectInternal> filledObject() {
    auto object = makeObject(1, 2, "object");
    object->ownerId(3);
    object->created(4);
    object->updated(5);
    object->deleted(6);
    object->description("description");
    object->length(8);
    object->setMimeType("text/plain");
    object->setACLMap(3, 9);
    object->_shares = {{10, {{11, 10, 12, 13}}}};
    object->_state = 14;
    return object;
}

void expectFilled(const Item& item) {
    EXPECT_EQ(item.id(), 1U);
    EXPECT_EQ(item.parentId(), 2U);
    EXPECT_EQ(item.name(), "object");
    EXPECT_EQ(item.ownerId(), 3U);
    EXPECT_EQ(item.created(), 4U);
    EXPECT_EQ(item.updated(), 5U);
    EXPECT_EQ(item.deleted(), 6U);
    EXPECT_EQ(item.description(), "description");
    EXPECT_EQ(item.accessLevel(), 9);
    EXPECT_TRUE(item.isShared());
    EXPECT_TRUE(item.isDeleted());
    EXPECT_EQ(item.type(), 4);
}

TEST(DerivedEntryTest, CopyOfADerivedObjectValueSaysTheSame) {
    const MarkedValue<Object> value(*filledObject());
    const MarkedValue<Object> copy = value;
    expectFilled(copy);
    EXPECT_EQ(copy.length(), 8U);
    EXPECT_EQ(copy.mimeType(), "text/plain");
}

TEST(DerivedEntryTest, CopyOfADerivedContainerValueSaysTheSame) {
    const MarkedValue<Container> value(*makeContainer(1, 2, "folder"));
    const MarkedValue<Container> copy = value;
    EXPECT_EQ(copy.id(), 1U);
    EXPECT_EQ(copy.name(), "folder");
}

TEST(DerivedEntryTest, DerivedObjectTakesOverWhatItIsMadeFrom) {
    const auto source = filledObject();
    const Marked<ObjectInternal> copy(*source, nullptr);
    expectFilled(copy);
    EXPECT_EQ(copy._state, 14);
    const Marked<ObjectInternal> ofTheValue(Object(*source), nullptr);
    expectFilled(ofTheValue);
    EXPECT_EQ(ofTheValue._state, 14);
    const Marked<ObjectInternal> ofNothing(Object(), nullptr);
    EXPECT_EQ(ofNothing.name(), "");
    EXPECT_EQ(ofNothing._state, 0);
}

TEST(DerivedEntryTest, DerivedObjectTakesOverItsRecord) {
    Nimra::Document record(1, 2, 3, "object");
    record.created = 4;
    record.updated = 5;
    record.deleted = 6;
    record.description = "description";
    record.length = 8;
    record.mimeType = "text/plain";
    record.aclMode = 9;
    record.shares = {{10, {{11, 10, 12, 13}}}};
    const Marked<ObjectInternal> object(record, nullptr);
    expectFilled(object);
    EXPECT_EQ(object.length(), 8U);
}

TEST(DerivedEntryTest, DerivedContainerTakesOverWhatItIsMadeFrom) {
    const Marked<ContainerInternal> ofTheRecord(Nimra::Folder(1, 2, 3, "folder"), nullptr);
    EXPECT_EQ(ofTheRecord.name(), "folder");
    const Marked<ContainerInternal> copy(ofTheRecord, nullptr);
    EXPECT_EQ(copy.name(), "folder");
    EXPECT_EQ(copy.ownerId(), 3U);
}

TEST(DerivedEntryTest, WriteSideAloneIsAnEntryToo) {
    expectFilled(ItemInternal(*filledObject(), nullptr));
    EXPECT_EQ(ItemInternal(nullptr).id(), 0U);
}

/// The result is a virtual base, which whoever derives last makes.
struct MarkedResult : QueryResultInternal {
    explicit MarkedResult(QueryResult& other) : QueryResult(other), QueryResultInternal(other) {}
    int mark = 0;
};

TEST(DerivedEntryTest, DerivedResultIsAWholeCopy) {
    QueryResultInternal source(folderFilter(7, 0, 10));
    source.addItem(makeObject(1, 7, "object"), false);
    QueryResult plain(source);
    const MarkedResult ofThePlainOne(plain);
    EXPECT_EQ(ofThePlainOne.items(), source.items());
    EXPECT_TRUE(ofThePlainOne.filter().equals(source.filter()));
    const MarkedResult ofTheInternal(source);
    EXPECT_EQ(ofTheInternal.items(), source.items());
    EXPECT_TRUE(ofTheInternal.filter().equals(source.filter()));
    QueryResult empty;
    EXPECT_TRUE(MarkedResult(empty).filter().equals(FilterInternal()));
}

TEST(BlankEntryTest, IsNeitherSharedNorDeletedAndOpenToNobody) {
    for (const Item& item : {Item(), static_cast<Item>(Object()), static_cast<Item>(Container())}) {
        EXPECT_FALSE(item.isShared());
        EXPECT_FALSE(item.isDeleted());
        EXPECT_EQ(item.accessLevel(), 0);
    }
    const Object unshared(*makeObject(1, 2, "object"));
    EXPECT_FALSE(unshared.isShared());
    EXPECT_FALSE(unshared.isDeleted());
    EXPECT_FALSE(unshared.idLoaded());
    EXPECT_FALSE(unshared.dataLoaded());
}

TEST(ShareDataTest, EveryFieldDistinguishes) {
    const ShareData row{1, 2, 3, 4};
    EXPECT_TRUE(row == row);
    EXPECT_FALSE(row == (ShareData{9, 2, 3, 4}));
    EXPECT_FALSE(row == (ShareData{1, 9, 3, 4}));
    EXPECT_FALSE(row == (ShareData{1, 2, 9, 4}));
    EXPECT_FALSE(row == (ShareData{1, 2, 3, 9}));
}

TEST(ShareDataTest, FreshRowIsNobodys) { EXPECT_TRUE(ShareData() == (ShareData{0, 0, 0, 0})); }

}  // namespace
}  // namespace Ormek::Testing
