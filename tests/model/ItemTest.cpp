#include "model/Item.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "model/Container.h"
#include "model/ContainerInternal.h"
#include "model/Object.h"
#include "model/ObjectInternal.h"
#include "model/ObjectUpdater.h"
#include "model/OrmekCast.h"
#include "model/XmlNamespaces.h"
#include "service/Document.h"
#include "service/Folder.h"

namespace Ormek {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

using Shares = std::map<unsigned long, std::vector<ShareData>>;

const Shares SomeShares = {{31, {{1, 31, 2, 3}, {4, 31, 5, 6}}}, {32, {{7, 32, 8, 9}}}};
const KeyValueMap SomeKeyValues = {{"colour", {"red", true}}, {"size", {"big", false}}};

/// Every field of an entry has a value of its own.
void fill(ItemInternal& item) {
    item.shares(SomeShares);
    item.firstText("first");
    item.secondText("second");
    item.id(101);
    item.parentId(102);
    item.oldParentId(103);
    item.name("name");
    item.description("description");
    item.ownerId(104);
    item.driveId(105);
    item.thirdText("third");
    item.idLoaded(true);
    item.dataLoaded(true);
    item.created(106);
    item.updated(107);
    item.deleted(108);
    item.type(109);
    item.setACLMap(104, 3);
    item.setACLMap(200, 4);
}

void fill(ObjectInternal& object) {
    fill(static_cast<ItemInternal&>(object));
    object.length(110);
    object.setMimeType("text/plain");
    object.setKeyValues(SomeKeyValues);
    object._state = 111;
}

void expectFilled(const Item& item) {
    EXPECT_EQ(item.shares(), SomeShares);
    EXPECT_EQ(item.firstText(), "first");
    EXPECT_EQ(item.secondText(), "second");
    EXPECT_EQ(item.id(), 101u);
    EXPECT_EQ(item.parentId(), 102u);
    EXPECT_EQ(item.oldParentId(), 103u);
    EXPECT_EQ(item.name(), "name");
    EXPECT_EQ(item.description(), "description");
    EXPECT_EQ(item.ownerId(), 104u);
    EXPECT_EQ(item.driveId(), 105u);
    EXPECT_EQ(item.thirdText(), "third");
    EXPECT_TRUE(item.idLoaded());
    EXPECT_TRUE(item.dataLoaded());
    EXPECT_EQ(item.created(), 106u);
    EXPECT_EQ(item.updated(), 107u);
    EXPECT_EQ(item.deleted(), 108u);
    EXPECT_EQ(item.type(), 109);
    EXPECT_THAT(item.ACLMap(), ElementsAre(Pair(104, 3), Pair(200, 4)));
}

void expectFilled(const Object& object) {
    expectFilled(static_cast<const Item&>(object));
    EXPECT_EQ(object.length(), 110u);
    EXPECT_EQ(object.mimeType(), "text/plain");
    EXPECT_EQ(object.keyValues(), SomeKeyValues);
}

void expectBlank(const Item& item) {
    EXPECT_THAT(item.shares(), IsEmpty());
    EXPECT_EQ(item.firstText(), "");
    EXPECT_EQ(item.secondText(), "");
    EXPECT_EQ(item.id(), 0u);
    EXPECT_EQ(item.parentId(), 0u);
    EXPECT_EQ(item.oldParentId(), 0u);
    EXPECT_EQ(item.name(), "");
    EXPECT_EQ(item.description(), "");
    EXPECT_EQ(item.ownerId(), 0u);
    EXPECT_EQ(item.driveId(), 0u);
    EXPECT_EQ(item.thirdText(), "");
    EXPECT_FALSE(item.idLoaded());
    EXPECT_FALSE(item.dataLoaded());
    EXPECT_EQ(item.created(), 0u);
    EXPECT_EQ(item.updated(), 0u);
    EXPECT_EQ(item.deleted(), 0u);
    EXPECT_EQ(item.type(), 0);
    EXPECT_THAT(item.ACLMap(), IsEmpty());
}

void expectBlank(const Object& object) {
    expectBlank(static_cast<const Item&>(object));
    EXPECT_EQ(object.length(), 0u);
    EXPECT_EQ(object.mimeType(), "");
    EXPECT_THAT(object.keyValues(), IsEmpty());
}

class ItemTest : public ::testing::Test {
  protected:
    std::shared_ptr<ObjectInternal> filledObject() {
        auto object = std::make_shared<ObjectInternal>(&updater);
        fill(*object);
        return object;
    }
    std::shared_ptr<ContainerInternal> filledContainer() {
        auto container = std::make_shared<ContainerInternal>(Container(), &updater);
        fill(*container);
        return container;
    }

    ObjectUpdater updater;
    ObjectUpdater otherUpdater;
};

// --- Plain values ------------------------------------------------------------------------------

TEST_F(ItemTest, ADefaultMadeItemAnswersNothing) { expectBlank(Item()); }

TEST_F(ItemTest, ADefaultMadeObjectAnswersNothing) { expectBlank(Object()); }

TEST_F(ItemTest, ADefaultMadeContainerAnswersNothing) { expectBlank(Container()); }

TEST_F(ItemTest, ACopiedObjectAnswersWhatItsSourceAnswered) {
    const auto source = filledObject();
    const Object copy = *source;
    expectFilled(copy);
}

TEST_F(ItemTest, ACopiedContainerAnswersWhatItsSourceAnswered) {
    const auto source = filledContainer();
    const Container copy = *source;
    expectFilled(copy);
}

TEST_F(ItemTest, ACopiedObjectKeepsWhatItsSourceAnsweredAtThatMoment) {
    const auto source = filledObject();
    const Object copy = *source;
    source->id(1);
    source->name("renamed");
    source->setACLMap(104, 9);
    source->length(2);
    source->setKeyValues({});
    expectFilled(copy);
}

TEST_F(ItemTest, ACopiedContainerKeepsWhatItsSourceAnsweredAtThatMoment) {
    const auto source = filledContainer();
    const Container copy = *source;
    source->id(1);
    source->name("renamed");
    source->_shares.clear();
    source->setACLMap(201, 9);
    expectFilled(copy);
}

TEST_F(ItemTest, AnObjectValueOutlivesItsSource) {
    auto source = filledObject();
    const Object copy = *source;
    source.reset();
    expectFilled(copy);
}

TEST_F(ItemTest, AContainerValueOutlivesItsSource) {
    auto source = filledContainer();
    const Container copy = *source;
    source.reset();
    expectFilled(copy);
}

TEST_F(ItemTest, AnAssignedObjectAnswersWhatItsSourceAnswered) {
    Object value;
    {
        const auto source = filledObject();
        value = *source;
        source->id(1);
    }
    expectFilled(value);
}

TEST_F(ItemTest, AnAssignedContainerAnswersWhatItsSourceAnswered) {
    Container value;
    {
        const auto source = filledContainer();
        value = *source;
        source->id(1);
    }
    expectFilled(value);
}

TEST_F(ItemTest, ACopyOfAnObjectValueIsAWholeCopy) {
    auto first = std::make_unique<Object>(*filledObject());
    const Object second = *first;
    first.reset();
    expectFilled(second);
}

TEST_F(ItemTest, ACopyOfAContainerValueIsAWholeCopy) {
    auto first = std::make_unique<Container>(*filledContainer());
    const Container second = *first;
    first.reset();
    expectFilled(second);
}

TEST_F(ItemTest, AssigningABlankObjectForgetsWhatWasThere) {
    Object value = *filledObject();
    value = Object();
    expectBlank(value);
}

TEST_F(ItemTest, AssigningABlankContainerForgetsWhatWasThere) {
    Container value = *filledContainer();
    value = Container();
    expectBlank(value);
}

TEST_F(ItemTest, AnObjectAssignedToItselfStaysWhatItWas) {
    Object value = *filledObject();
    const Object& same = value;
    value = same;
    expectFilled(value);
}

TEST_F(ItemTest, AContainerAssignedToItselfStaysWhatItWas) {
    Container value = *filledContainer();
    const Container& same = value;
    value = same;
    expectFilled(value);
}

TEST_F(ItemTest, ValuesInAVectorStayWholeWhenItGrows) {
    std::vector<Object> objects;
    std::vector<Container> containers;
    for (int i = 0; i < 5; ++i) {
        objects.push_back(*filledObject());
        containers.push_back(*filledContainer());
    }
    expectFilled(objects.front());
    expectFilled(containers.front());
}

TEST_F(ItemTest, AnInternalMadeFromAnObjectValueIsWhole) {
    const Object value = *filledObject();
    const ObjectInternal object(value, &otherUpdater);
    expectFilled(static_cast<const Object&>(object));
    EXPECT_EQ(object._state, 111);
    EXPECT_EQ(object.objectUpdater(), &otherUpdater);
}

TEST_F(ItemTest, AnInternalMadeFromAContainerValueIsWhole) {
    const Container value = *filledContainer();
    const ContainerInternal container(value, &otherUpdater);
    expectFilled(container);
    EXPECT_EQ(container.objectUpdater(), &otherUpdater);
}

TEST_F(ItemTest, AnInternalMadeFromABlankObjectIsBlank) {
    const ObjectInternal object(Object(), &updater);
    expectBlank(static_cast<const Object&>(object));
    EXPECT_EQ(object._state, 0);
}

TEST_F(ItemTest, AnInternalMadeFromABlankContainerIsBlank) {
    expectBlank(ContainerInternal(Container(), &updater));
}

// --- Internals ---------------------------------------------------------------------------------

TEST_F(ItemTest, AnEmptyObjectInternalAnswersNothingAndKeepsItsUpdater) {
    const ObjectInternal object(&updater);
    expectBlank(static_cast<const Object&>(object));
    EXPECT_EQ(object._state, 0);
    EXPECT_EQ(object.objectUpdater(), &updater);
}

TEST_F(ItemTest, EveryObjectSetterStoresWhatItsGetterReturns) {
    ObjectInternal object(nullptr);
    fill(object);
    expectFilled(static_cast<const Object&>(object));
}

TEST_F(ItemTest, EveryContainerSetterStoresWhatItsGetterReturns) {
    ContainerInternal container(Container(), nullptr);
    fill(container);
    expectFilled(container);
}

TEST_F(ItemTest, TheReadSideOfAnInternalAnswersWithItsData) {
    const std::shared_ptr<Object> object = filledObject();
    const std::shared_ptr<Container> container = filledContainer();
    expectFilled(*object);
    expectFilled(*container);
}

TEST_F(ItemTest, SetACLMapSetsOneRow) {
    ObjectInternal object(nullptr);
    object.setACLMap(1, 10);
    object.setACLMap(2, 20);
    object.setACLMap(1, 11);
    EXPECT_THAT(object.ACLMap(), ElementsAre(Pair(1, 11), Pair(2, 20)));
}

TEST_F(ItemTest, TheShareMapAndTheAccessMapAreApart) {
    ObjectInternal object(nullptr);
    object.setACLMap(1, 10);
    EXPECT_THAT(object.shares(), IsEmpty());
    object._shares = SomeShares;
    EXPECT_EQ(object.shares(), SomeShares);
    EXPECT_THAT(object.ACLMap(), ElementsAre(Pair(1, 10)));
}

TEST_F(ItemTest, TheMapsAreHandedOutAsCopies) {
    auto object = filledObject();
    object->shares().clear();
    object->ACLMap().clear();
    object->keyValues().clear();
    expectFilled(static_cast<const Object&>(*object));
}

TEST_F(ItemTest, SetKeyValuesReplacesTheWholeMap) {
    auto object = filledObject();
    object->setKeyValues({{"only", {"one", true}}});
    EXPECT_THAT(object->keyValues(), ElementsAre(Pair("only", Pair("one", true))));
}

TEST_F(ItemTest, AnEntryIsSharedOnceItHasShares) {
    ObjectInternal object(nullptr);
    EXPECT_FALSE(object.isShared());
    object._shares = SomeShares;
    EXPECT_TRUE(object.isShared());
    EXPECT_TRUE(Object(object).isShared());
}

TEST_F(ItemTest, TheAccessLevelIsTheOwnersRow) {
    ContainerInternal container(Container(), nullptr);
    container.ownerId(5);
    container.setACLMap(6, 60);
    EXPECT_EQ(container.accessLevel(), 0);
    container.setACLMap(5, 50);
    EXPECT_EQ(container.accessLevel(), 50);
    EXPECT_EQ(Container(container).accessLevel(), 50);
}

TEST_F(ItemTest, AnEntryWithADeletionStampIsDeleted) {
    ObjectInternal object(nullptr);
    EXPECT_FALSE(object.isDeleted());
    object.deleted(1);
    EXPECT_TRUE(object.isDeleted());
    EXPECT_TRUE(Object(object).isDeleted());
}

TEST_F(ItemTest, AnInternalCopyHoldsEverythingOfAnInternal) {
    const ObjectInternal object(*filledObject(), &otherUpdater);
    expectFilled(static_cast<const Object&>(object));
    EXPECT_EQ(object._state, 111);
    EXPECT_EQ(object.objectUpdater(), &otherUpdater);

    const ContainerInternal container(*filledContainer(), &otherUpdater);
    expectFilled(container);
    EXPECT_EQ(container.objectUpdater(), &otherUpdater);
}

TEST_F(ItemTest, AnInternalCopyIsIndependentOfItsSource) {
    const auto source = filledObject();
    ObjectInternal copy(*source, nullptr);
    copy.name("other");
    copy._shares.clear();
    copy.setACLMap(104, 77);
    copy.setKeyValues({});
    expectFilled(static_cast<const Object&>(*source));
}

// --- From records ------------------------------------------------------------------------------

Nimra::Document filledDocument() {
    Nimra::Document document(201, 202, 203, "paper");
    document.oldParentId = 204;
    document.mimeType = "image/png";
    document.created = 205;
    document.updated = 206;
    document.deleted = 207;
    document.description = "about";
    document.aclMode = 208;
    document.state = 209;
    document.length = 210;
    document.setKeyValue("colour", {"red", true});
    document.setKeyValue("size", {"big", false});
    document.shares = SomeShares;
    return document;
}

TEST_F(ItemTest, AnObjectFromARecordTakesEveryFieldThatHasACounterpart) {
    const ObjectInternal object(filledDocument(), &updater);
    EXPECT_EQ(object.id(), 201u);
    EXPECT_EQ(object.parentId(), 202u);
    EXPECT_EQ(object.oldParentId(), 204u);
    EXPECT_EQ(object.ownerId(), 203u);
    EXPECT_EQ(object.name(), "paper");
    EXPECT_EQ(object.mimeType(), "image/png");
    EXPECT_EQ(object.created(), 205u);
    EXPECT_EQ(object.updated(), 206u);
    EXPECT_EQ(object.deleted(), 207u);
    EXPECT_EQ(object.description(), "about");
    EXPECT_EQ(object._state, 209);
    EXPECT_EQ(object.length(), 210u);
    EXPECT_EQ(object.keyValues(), SomeKeyValues);
    EXPECT_EQ(object.shares(), SomeShares);
    EXPECT_EQ(object.type(), 4);
    EXPECT_THAT(object.ACLMap(), ElementsAre(Pair(203, 208)));
    EXPECT_EQ(object.objectUpdater(), &updater);
}

TEST_F(ItemTest, AnObjectFromARecordHasNothingThatTheRecordLacks) {
    const ObjectInternal object(filledDocument(), &updater);
    EXPECT_EQ(object.driveId(), 0u);
    EXPECT_EQ(object.firstText(), "");
    EXPECT_EQ(object.secondText(), "");
    EXPECT_EQ(object.thirdText(), "");
}

TEST_F(ItemTest, AnObjectFromARecordStartsUnloaded) {
    const ObjectInternal object(filledDocument(), &updater);
    EXPECT_FALSE(object.dataLoaded());
    EXPECT_FALSE(object.idLoaded());
}

TEST_F(ItemTest, AnObjectTakesTheTypeOfItsRecord) {
    Nimra::Document document = filledDocument();
    document.type = 7;
    EXPECT_EQ(ObjectInternal(document, &updater).type(), 7);
}

Nimra::Folder filledFolder() {
    Nimra::Folder folder(301, 302, 303, "box");
    folder.firstLeading = "first leading";
    folder.secondLeading = "second leading";
    folder.accessLevel = 304;
    folder.oldParentId = 305;
    folder.driveId = 306;
    folder.firstTrailing = "first trailing";
    folder.secondTrailing = "second trailing";
    folder.thirdTrailing = "third trailing";
    folder.fourthTrailing = "fourth trailing";
    folder.created = 307;
    folder.updated = 308;
    folder.deleted = 309;
    folder.shares = SomeShares;
    return folder;
}

TEST_F(ItemTest, AContainerFromARecordTakesEveryFieldThatHasACounterpart) {
    const ContainerInternal container(filledFolder(), &updater);
    EXPECT_EQ(container.id(), 301u);
    EXPECT_EQ(container.parentId(), 302u);
    EXPECT_EQ(container.ownerId(), 303u);
    EXPECT_EQ(container.name(), "box");
    EXPECT_EQ(container.oldParentId(), 305u);
    EXPECT_EQ(container.driveId(), 306u);
    EXPECT_EQ(container.created(), 307u);
    EXPECT_EQ(container.updated(), 308u);
    EXPECT_EQ(container.deleted(), 309u);
    EXPECT_EQ(container.shares(), SomeShares);
    EXPECT_EQ(container.type(), 8);
    EXPECT_THAT(container.ACLMap(), ElementsAre(Pair(303, 304)));
    EXPECT_EQ(container.objectUpdater(), &updater);
}

TEST_F(ItemTest, TheLeadingTextsOfAFolderArriveCrossed) {
    const ContainerInternal container(filledFolder(), &updater);
    EXPECT_EQ(container.firstText(), "second leading");
    EXPECT_EQ(container.secondText(), "first leading");
}

TEST_F(ItemTest, TheThirdTextOfAContainerIsTheFoldersLastTrailingOne) {
    EXPECT_EQ(ContainerInternal(filledFolder(), &updater).thirdText(), "fourth trailing");
}

TEST_F(ItemTest, AContainerFromARecordStartsUnloaded) {
    const ContainerInternal container(filledFolder(), &updater);
    EXPECT_FALSE(container.dataLoaded());
    EXPECT_FALSE(container.idLoaded());
}

// --- Kinds and casts ---------------------------------------------------------------------------

TEST_F(ItemTest, AContainerConvertedToAnObjectIsEmpty) {
    const std::shared_ptr<Item> item = filledContainer();
    EXPECT_EQ(std::dynamic_pointer_cast<Object>(item), nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<Container>(item), nullptr);
}

TEST_F(ItemTest, AnObjectConvertedToAContainerIsEmpty) {
    const std::shared_ptr<Item> item = filledObject();
    EXPECT_EQ(std::dynamic_pointer_cast<Container>(item), nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<Object>(item), nullptr);
}

TEST_F(ItemTest, CastItemInternalReachesTheWriteSideOfEitherKind) {
    const auto object = filledObject();
    const auto container = filledContainer();
    OrmekCast::castItemInternal(object)->name("written");
    OrmekCast::castItemInternal(container)->name("written too");
    EXPECT_EQ(object->name(), "written");
    EXPECT_EQ(container->name(), "written too");
}

TEST_F(ItemTest, CastObjectInternalReachesTheWriteSideOfAnObject) {
    const auto object = filledObject();
    EXPECT_EQ(OrmekCast::castObjectInternal(object), object);
}

TEST_F(ItemTest, TheCastsReachTheWriteSideOfWhatDerivesFromIt) {
    class Derived : public ObjectInternal {
      public:
        using ObjectInternal::ObjectInternal;
    };
    const auto derived = std::make_shared<Derived>(&updater);
    EXPECT_EQ(OrmekCast::castItemInternal(derived), derived);
    EXPECT_EQ(OrmekCast::castObjectInternal(derived), derived);
}

TEST_F(ItemTest, TheCastsShareOwnershipWithTheirArgument) {
    auto object = filledObject();
    const auto asItem = OrmekCast::castItemInternal(object);
    EXPECT_EQ(object.use_count(), 2);
    const auto asObject = OrmekCast::castObjectInternal(object);
    EXPECT_EQ(object.use_count(), 3);
    object.reset();
    EXPECT_EQ(asItem->id(), 101u);
    EXPECT_EQ(asObject->id(), 101u);
}

TEST_F(ItemTest, TheCastsTakeAnEmptyPointer) {
    EXPECT_EQ(OrmekCast::castItemInternal(nullptr), nullptr);
    EXPECT_EQ(OrmekCast::castObjectInternal(nullptr), nullptr);
}

TEST_F(ItemTest, APlainValueHasNoWriteSide) {
    EXPECT_EQ(OrmekCast::castItemInternal(std::make_shared<Object>()), nullptr);
    EXPECT_EQ(OrmekCast::castItemInternal(std::make_shared<Container>()), nullptr);
    EXPECT_EQ(OrmekCast::castItemInternal(std::make_shared<Object>(*filledObject())), nullptr);
    EXPECT_EQ(OrmekCast::castObjectInternal(std::make_shared<Object>()), nullptr);
    EXPECT_EQ(OrmekCast::castObjectInternal(std::make_shared<Object>(*filledObject())), nullptr);
}

// --- Lifetime and shape ------------------------------------------------------------------------

struct WatchedObject : ObjectInternal {
    explicit WatchedObject(int& deaths) : ObjectInternal(nullptr), _deaths(deaths) {}
    ~WatchedObject() override { ++_deaths; }
    int& _deaths;
};

struct WatchedContainer : ContainerInternal {
    explicit WatchedContainer(int& deaths)
        : ContainerInternal(Container(), nullptr), _deaths(deaths) {}
    ~WatchedContainer() override { ++_deaths; }
    int& _deaths;
};

TEST_F(ItemTest, DeletionThroughAnyBaseRunsTheDerivedDestructor) {
    int deaths = 0;
    std::unique_ptr<Item>(new WatchedObject(deaths)).reset();
    std::unique_ptr<Object>(new WatchedObject(deaths)).reset();
    std::unique_ptr<ItemInternal>(new WatchedObject(deaths)).reset();
    EXPECT_EQ(deaths, 3);
    std::unique_ptr<Item>(new WatchedContainer(deaths)).reset();
    std::unique_ptr<Container>(new WatchedContainer(deaths)).reset();
    std::unique_ptr<ItemInternal>(new WatchedContainer(deaths)).reset();
    EXPECT_EQ(deaths, 6);
}

TEST_F(ItemTest, TheReadSideAndTheWriteSideShareOneItem) {
    const auto object = filledObject();
    EXPECT_EQ(static_cast<Item*>(static_cast<Object*>(object.get())),
              static_cast<Item*>(static_cast<ItemInternal*>(object.get())));
    const auto container = filledContainer();
    EXPECT_EQ(static_cast<Item*>(static_cast<Container*>(container.get())),
              static_cast<Item*>(static_cast<ItemInternal*>(container.get())));
}

TEST_F(ItemTest, TheReadSideComesFirstInAnInternal) {
    const auto object = filledObject();
    EXPECT_EQ(static_cast<void*>(static_cast<Object*>(object.get())),
              static_cast<void*>(object.get()));
    const auto container = filledContainer();
    EXPECT_EQ(static_cast<void*>(static_cast<Container*>(container.get())),
              static_cast<void*>(container.get()));
}

TEST_F(ItemTest, AnItemHoldsNoData) { EXPECT_EQ(sizeof(Item), sizeof(void*)); }

TEST_F(ItemTest, AContainerInternalAddsNoMembers) {
    struct NothingAdded : Container, ItemInternal {};
    EXPECT_EQ(sizeof(ContainerInternal), sizeof(NothingAdded));
}

static_assert(std::is_copy_constructible_v<Object> && std::is_copy_assignable_v<Object>);
static_assert(std::is_copy_constructible_v<Container> && std::is_copy_assignable_v<Container>);
static_assert(std::has_virtual_destructor_v<Item>);
static_assert(!std::is_convertible_v<ObjectUpdater*, ObjectInternal>);

#if defined(__x86_64__) && defined(__GXX_ABI_VERSION)

/// The place of a virtual operation in its class's table, counted from 1.
template <class Operation>
std::ptrdiff_t slot(Operation operation) {
    struct {
        std::ptrdiff_t offsetPlusOne;
        std::ptrdiff_t adjustment;
    } parts;
    static_assert(sizeof(parts) == sizeof(operation));
    std::memcpy(&parts, &operation, sizeof(parts));
    return (parts.offsetPlusOne - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)) + 1;
}

TEST_F(ItemTest, TheVirtualOperationsStandInTheirFixedOrder) {
    EXPECT_EQ(slot(&Item::shares), 1);
    EXPECT_EQ(slot(&Item::firstText), 4);
    EXPECT_EQ(slot(&Item::secondText), 5);
    EXPECT_EQ(slot(&Item::id), 6);
    EXPECT_EQ(slot(&Item::parentId), 7);
    EXPECT_EQ(slot(&Item::oldParentId), 8);
    EXPECT_EQ(slot(&Item::name), 9);
    EXPECT_EQ(slot(&Item::description), 10);
    EXPECT_EQ(slot(&Item::ownerId), 11);
    EXPECT_EQ(slot(&Item::driveId), 12);
    EXPECT_EQ(slot(&Item::thirdText), 13);
    EXPECT_EQ(slot(&Item::idLoaded), 14);
    EXPECT_EQ(slot(&Item::dataLoaded), 15);
    EXPECT_EQ(slot(&Item::created), 16);
    EXPECT_EQ(slot(&Item::updated), 17);
    EXPECT_EQ(slot(&Item::deleted), 18);
    EXPECT_EQ(slot(&Item::type), 19);
    EXPECT_EQ(slot(&Item::isDeleted), 20);
}

TEST_F(ItemTest, WhatAnObjectAddsStandsBehindTheDestructor) {
    // The destructor takes the two places after the twenty operations.
    EXPECT_EQ(slot(&Object::length), 23);
    EXPECT_EQ(slot(&Object::mimeType), 24);
    EXPECT_EQ(slot(&Object::keyValues), 25);
}

#endif

TEST(XmlNamespacesTest, AtomAndOpenSearchHaveTheirWellKnownNames) {
    EXPECT_EQ(XmlNamespaces::ATOM, "http://www.w3.org/2005/Atom");
    EXPECT_EQ(XmlNamespaces::OS, "http://a9.com/-/spec/opensearch/1.1/");
}

TEST(XmlNamespacesTest, TheServicesOwnNamespacesHaveTheirNames) {
    EXPECT_EQ(XmlNamespaces::DC, "urn:ormek:directory");
    EXPECT_EQ(XmlNamespaces::NI, "urn:ormek:no-index");
}

}  // namespace
}  // namespace Ormek
