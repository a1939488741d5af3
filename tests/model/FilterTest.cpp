#include <gmock/gmock.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "model/ContainerInternal.h"
#include "model/FilterInternal.h"
#include "model/ObjectInternal.h"

namespace Ormek {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

const std::map<FilterOrder, std::string> SomeOrder = {{FilterOrder::Name, "asc"},
                                                      {FilterOrder::Updated, "desc"}};

/// Every field has a value of its own, and none its default.
FilterInternal filledFilter() {
    FilterInternal filter;
    filter.setOffset(10);
    filter.setCount(20);
    filter.setDataType(4);
    filter.setQuery("text");
    filter.setAscending(false);
    filter.setContainerFirst(false);
    filter.setDeleted(true);
    filter.setByPassCache(true);
    filter.setOrder(SomeOrder);
    filter.setDataId({7, 5});
    filter.setUserId(30);
    filter.setGroup("group");
    filter.setPath("path");
    filter.setUrl("url");
    filter.setTagLabels({{"key", "label"}, {"other", "label too"}});
    filter.setDataTypes({8, 4});
    filter.serviceFlag = true;
    filter.contextId = 40;
    return filter;
}

void expectFilled(FilterInternal filter) {
    EXPECT_EQ(filter.getOffset(), 10u);
    EXPECT_EQ(filter.getCount(), 20u);
    EXPECT_EQ(filter.getDataType(), 4);
    EXPECT_EQ(filter.getQuery(), "text");
    EXPECT_FALSE(filter.getAscending());
    EXPECT_FALSE(filter.getContainerFirst());
    EXPECT_TRUE(filter.getDeleted());
    EXPECT_TRUE(filter.getByPassCache());
    EXPECT_EQ(filter.order(), FilterInternal(filledFilter()).order());
    EXPECT_THAT(filter.getDataId(), ElementsAre(7, 5));
    EXPECT_EQ(filter.getUserId(), 30u);
    EXPECT_EQ(filter.getGroup(), "group");
    EXPECT_EQ(filter.getPath(), "path");
    EXPECT_EQ(filter.getUrl(), "url");
    EXPECT_THAT(filter.getTagLabels(),
                ElementsAre(Pair("key", "label"), Pair("other", "label too")));
    EXPECT_THAT(filter.getDataTypes(), ElementsAre(4, 8));
    EXPECT_TRUE(filter.serviceFlag);
    EXPECT_EQ(filter.contextId, 40u);
}

TEST(FilterTest, AFreshFilterAsksForNothingInParticular) {
    FilterInternal filter;
    EXPECT_EQ(filter.getOffset(), 0u);
    EXPECT_EQ(filter.getCount(), 0u);
    EXPECT_EQ(filter.getDataType(), 0);
    EXPECT_EQ(filter.getQuery(), "");
    EXPECT_TRUE(filter.getAscending());
    EXPECT_TRUE(filter.getContainerFirst());
    EXPECT_FALSE(filter.getDeleted());
    EXPECT_FALSE(filter.getByPassCache());
    EXPECT_EQ(filter.order(), "");
    EXPECT_THAT(filter.getDataId(), IsEmpty());
    EXPECT_EQ(filter.getUserId(), 0u);
    EXPECT_EQ(filter.getGroup(), "");
    EXPECT_EQ(filter.getPath(), "");
    EXPECT_EQ(filter.getUrl(), "");
    EXPECT_THAT(filter.getTagLabels(), IsEmpty());
    EXPECT_THAT(filter.getDataTypes(), IsEmpty());
    EXPECT_FALSE(filter.serviceFlag);
    EXPECT_EQ(filter.contextId, 0u);
}

TEST(FilterTest, EverySetterStoresWhatItsGetterReturns) { expectFilled(filledFilter()); }

TEST(FilterTest, TheFlagsAreIndependent) {
    Filter filter;
    filter.setAscending(false);
    EXPECT_TRUE(filter.getContainerFirst());
    EXPECT_FALSE(filter.getDeleted());
    filter.setDeleted(true);
    EXPECT_FALSE(filter.getAscending());
    EXPECT_TRUE(filter.getContainerFirst());
    filter.setContainerFirst(false);
    filter.setAscending(true);
    EXPECT_TRUE(filter.getDeleted());
    EXPECT_FALSE(filter.getContainerFirst());
    filter.setDeleted(false);
    EXPECT_TRUE(filter.getAscending());
    EXPECT_FALSE(filter.getDeleted());
}

TEST(FilterTest, ACopyIsIndependentOfItsSource) {
    const FilterInternal source = filledFilter();
    FilterInternal copy = source;
    copy.setQuery("other");
    copy.setOrder({});
    copy.setDataId({});
    copy.setTagLabels({});
    copy.setGroup("");
    copy.setPath("");
    copy.setUrl("");
    copy.setDataTypes({});
    expectFilled(source);
}

TEST(FilterTest, ACopyOutlivesItsSource) {
    auto source = std::make_unique<FilterInternal>(filledFilter());
    const FilterInternal copy = *source;
    source.reset();
    expectFilled(copy);
}

TEST(FilterTest, AnAssignedFilterIsAWholeCopy) {
    FilterInternal filter;
    filter = filledFilter();
    expectFilled(filter);
}

TEST(FilterTest, AFilterInternalTakesOverAPublicFilter) {
    const FilterInternal source = filledFilter();
    const Filter& publicPart = source;
    const FilterInternal filter(publicPart);
    EXPECT_EQ(filter.getOffset(), 10u);
    EXPECT_EQ(filter.getCount(), 20u);
    EXPECT_EQ(filter.getDataType(), 4);
    EXPECT_EQ(filter.getQuery(), "text");
    EXPECT_FALSE(filter.getAscending());
    EXPECT_EQ(filter.order(), source.order());
    EXPECT_THAT(filter.getDataId(), IsEmpty());
    EXPECT_EQ(filter.getUserId(), 0u);
}

// A folder id and a filter must not be confused where either is taken.
static_assert(!std::is_convertible_v<int, Filter>);
static_assert(!std::is_convertible_v<int, FilterInternal>);
static_assert(!std::is_convertible_v<unsigned long, FilterInternal>);
static_assert(!std::is_convertible_v<std::vector<unsigned long>, FilterInternal>);
static_assert(!std::is_convertible_v<std::string, FilterInternal>);
static_assert(!std::is_convertible_v<const char*, FilterInternal>);
static_assert(!std::is_convertible_v<Filter, FilterInternal>);
static_assert(std::is_constructible_v<FilterInternal, Filter>);

static_assert(!std::is_polymorphic_v<Filter> && !std::is_polymorphic_v<FilterInternal>);
static_assert(std::is_base_of_v<Filter, FilterInternal>);
static_assert(std::is_convertible_v<FilterInternal*, Filter*>, "derives publicly");

static_assert(std::is_same_v<decltype(std::declval<const Filter&>().getOffset()), std::uint32_t>);
static_assert(std::is_same_v<decltype(std::declval<const Filter&>().getCount()), std::uint32_t>);
static_assert(std::is_same_v<decltype(std::declval<const Filter&>().getDataType()), std::int32_t>);
static_assert(std::is_same_v<decltype(std::declval<const Filter&>().getQuery()), std::string>);
static_assert(std::is_same_v<decltype(std::declval<FilterInternal&>().getDataTypes()),
                             std::vector<std::int32_t>>);
static_assert(sizeof(FilterOrder) == 4);

// --- Order -------------------------------------------------------------------------------------

std::string key(FilterOrder order) { return std::to_string(static_cast<std::int32_t>(order)); }

TEST(FilterTest, OrderRendersOnePairAsKeyAndValue) {
    FilterInternal filter;
    filter.setOrder({{FilterOrder::Length, "desc"}});
    EXPECT_EQ(filter.order(), key(FilterOrder::Length) + ":desc");
}

TEST(FilterTest, OrderJoinsThePairsInKeyOrderByCommas) {
    FilterInternal filter;
    filter.setOrder(
        {{FilterOrder::Updated, "c"}, {FilterOrder::Name, "a"}, {FilterOrder::Type, "b"}});
    EXPECT_EQ(filter.order(), key(FilterOrder::Name) + ":a," + key(FilterOrder::Type) + ":b," +
                                  key(FilterOrder::Updated) + ":c");
}

TEST(FilterTest, OrderKeepsEmptyValues) {
    FilterInternal filter;
    filter.setOrder({{FilterOrder::Name, ""}, {FilterOrder::Type, ""}});
    EXPECT_EQ(filter.order(), key(FilterOrder::Name) + ":," + key(FilterOrder::Type) + ":");
}

// --- Data types --------------------------------------------------------------------------------

TEST(FilterTest, DataTypesAreListedAscendingAndOnce) {
    FilterInternal filter;
    filter.setDataTypes({16, 0, 31, 4, 16});
    EXPECT_THAT(filter.getDataTypes(), ElementsAre(0, 4, 16, 31));
}

TEST(FilterTest, SettingDataTypesReplacesTheFormerOnes) {
    FilterInternal filter;
    filter.setDataTypes({1, 2});
    filter.setDataTypes({3});
    EXPECT_THAT(filter.getDataTypes(), ElementsAre(3));
}

TEST(FilterTest, ADataTypeOutOfRangeAmongSeveralIsRefusedAndChangesNothing) {
    FilterInternal filter;
    filter.setDataTypes({4});
    EXPECT_THROW(filter.setDataTypes({8, 32}), std::invalid_argument);
    EXPECT_THROW(filter.setDataTypes({-1, 8}), std::invalid_argument);
    EXPECT_THAT(filter.getDataTypes(), ElementsAre(4));
}

TEST(FilterTest, ADataTypeOutOfRangeIsRefusedAndChangesNothing) {
    Filter filter;
    filter.setDataType(16);
    EXPECT_THROW(filter.setDataType(32), std::invalid_argument);
    EXPECT_THROW(filter.setDataType(-1), std::invalid_argument);
    EXPECT_EQ(filter.getDataType(), 16);
}

TEST(FilterTest, TheErrorSaysWhichDataTypeIsOutOfRange) {
    Filter filter;
    try {
        filter.setDataType(-12);
        FAIL();
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "Filter: data type -12 is not between 0 and 31");
    }
}

TEST(FilterTest, TheDataTypesAtTheEdgesAreTaken) {
    Filter filter;
    filter.setDataType(31);
    EXPECT_EQ(filter.getDataType(), 31);
    filter.setDataType(0);
    EXPECT_EQ(filter.getDataType(), 0);
}

// --- equals ------------------------------------------------------------------------------------

struct Change {
    const char* name;
    std::function<void(FilterInternal&)> apply;
};

std::string changeName(const ::testing::TestParamInfo<Change>& info) { return info.param.name; }

class FilterFieldOfTheListing : public ::testing::TestWithParam<Change> {};

TEST_P(FilterFieldOfTheListing, DistinguishesTwoListings) {
    const FilterInternal filter = filledFilter();
    FilterInternal changed = filter;
    GetParam().apply(changed);
    EXPECT_FALSE(filter.equals(changed));
    EXPECT_FALSE(changed.equals(filter));
    EXPECT_FALSE(filter.sameListing(changed));
}

INSTANTIATE_TEST_SUITE_P(
    Changed, FilterFieldOfTheListing,
    ::testing::Values(Change{"DataType", [](FilterInternal& f) { f.setDataType(8); }},
                      Change{"Query", [](FilterInternal& f) { f.setQuery("Text"); }},
                      Change{"Ascending", [](FilterInternal& f) { f.setAscending(true); }},
                      Change{"ContainerFirst",
                             [](FilterInternal& f) { f.setContainerFirst(true); }},
                      Change{"Deleted", [](FilterInternal& f) { f.setDeleted(false); }},
                      Change{"OrderValue",
                             [](FilterInternal& f) {
                                 f.setOrder({{FilterOrder::Name, "asc"}});
                             }},
                      Change{"OrderGone", [](FilterInternal& f) { f.setOrder({}); }},
                      Change{"DataId",
                             [](FilterInternal& f) {
                                 f.setDataId({7, 6});
                             }},
                      Change{"FewerDataIds", [](FilterInternal& f) { f.setDataId({7}); }},
                      Change{"User", [](FilterInternal& f) { f.setUserId(31); }},
                      Change{"Group", [](FilterInternal& f) { f.setGroup("other"); }},
                      Change{"Path", [](FilterInternal& f) { f.setPath("other"); }},
                      Change{"Url", [](FilterInternal& f) { f.setUrl("other"); }},
                      Change{"TagLabels",
                             [](FilterInternal& f) {
                                 f.setTagLabels({{"key", "label"}});
                             }},
                      Change{"DataTypes", [](FilterInternal& f) { f.setDataTypes({4}); }},
                      Change{"ServiceFlag", [](FilterInternal& f) { f.serviceFlag = false; }}),
    changeName);

class FilterFieldOfTheRequest : public ::testing::TestWithParam<Change> {};

TEST_P(FilterFieldOfTheRequest, LeavesTheListingTheSame) {
    const FilterInternal filter = filledFilter();
    FilterInternal changed = filter;
    GetParam().apply(changed);
    EXPECT_TRUE(filter.equals(changed));
    EXPECT_TRUE(changed.equals(filter));
    EXPECT_TRUE(filter.sameListing(changed));
}

INSTANTIATE_TEST_SUITE_P(
    Changed, FilterFieldOfTheRequest,
    ::testing::Values(Change{"Offset", [](FilterInternal& f) { f.setOffset(11); }},
                      Change{"Count", [](FilterInternal& f) { f.setCount(21); }},
                      Change{"ByPassCache", [](FilterInternal& f) { f.setByPassCache(false); }},
                      Change{"ContextId", [](FilterInternal& f) { f.contextId = 0; }}),
    changeName);

TEST(FilterTest, AFilterEqualsItsCopy) {
    const FilterInternal filter = filledFilter();
    EXPECT_TRUE(filter.equals(filter));
    EXPECT_TRUE(FilterInternal().equals(FilterInternal()));
}

// --- What belongs to a listing -----------------------------------------------------------------

TEST(FilterTest, MatchesDataIdAsksWhetherTheIdIsAmongTheDataIds) {
    FilterInternal filter;
    EXPECT_FALSE(filter.matchesDataId(0));
    filter.setDataId({7, 5});
    EXPECT_TRUE(filter.matchesDataId(7));
    EXPECT_TRUE(filter.matchesDataId(5));
    EXPECT_FALSE(filter.matchesDataId(6));
    EXPECT_FALSE(filter.matchesDataId(0));
}

class FilterMatch : public ::testing::Test {
  protected:
    FilterMatch() {
        filter.setDataId({7, 5});
        for (ItemInternal* item :
             {static_cast<ItemInternal*>(&object), static_cast<ItemInternal*>(&container)}) {
            item->id(100);
            item->parentId(5);
            item->name("Holiday list");
        }
        object.type(4);
        container.type(8);
    }
    bool matchesBoth() const {
        return filter.matchesQuery(object) && filter.matchesQuery(container);
    }
    bool matchesEither() const {
        return filter.matchesQuery(object) || filter.matchesQuery(container);
    }

    FilterInternal filter;
    ObjectInternal object{nullptr};
    ContainerInternal container{Container(), nullptr};
};

TEST_F(FilterMatch, AnEntryOfAListedFolderBelongsToTheListing) {
    EXPECT_TRUE(matchesBoth());
    object.parentId(7);
    container.parentId(7);
    EXPECT_TRUE(matchesBoth());
}

TEST_F(FilterMatch, AnEntryOfAnotherFolderDoesNotBelong) {
    object.parentId(6);
    container.parentId(0);
    EXPECT_FALSE(matchesEither());
}

TEST_F(FilterMatch, TheListedFolderItselfDoesNotBelong) {
    object.id(5);
    object.parentId(1);
    EXPECT_FALSE(filter.matchesQuery(object));
}

TEST_F(FilterMatch, AFilterWithoutDataIdsMatchesNothing) {
    filter.setDataId({});
    EXPECT_FALSE(matchesEither());
}

TEST_F(FilterMatch, DataTypeFourTakesDocumentsAlone) {
    filter.setDataType(4);
    EXPECT_TRUE(filter.matchesQuery(object));
    EXPECT_FALSE(filter.matchesQuery(container));
}

TEST_F(FilterMatch, DataTypeEightTakesFoldersAlone) {
    filter.setDataType(8);
    EXPECT_FALSE(filter.matchesQuery(object));
    EXPECT_TRUE(filter.matchesQuery(container));
}

TEST_F(FilterMatch, DataTypeSixteenTakesKeyValueEntriesAlone) {
    filter.setDataType(16);
    EXPECT_FALSE(matchesEither());
    object.type(16);
    EXPECT_TRUE(filter.matchesQuery(object));
}

TEST_F(FilterMatch, NoDataTypeTakesKeyValueEntriesToo) {
    object.type(16);
    EXPECT_TRUE(filter.matchesQuery(object));
}

TEST_F(FilterMatch, TheSetOfDataTypesRestrictsToo) {
    filter.setDataTypes({8});
    EXPECT_FALSE(filter.matchesQuery(object));
    EXPECT_TRUE(filter.matchesQuery(container));
    filter.setDataTypes({4, 8});
    EXPECT_TRUE(matchesBoth());
}

TEST_F(FilterMatch, OtherDataTypesDoNotRestrict) {
    filter.setDataType(5);
    EXPECT_TRUE(matchesBoth());
    filter.setDataTypes({0, 1, 31});
    EXPECT_TRUE(matchesBoth());
}

TEST_F(FilterMatch, AnEntryOfAnotherTypeFitsOnlyWhereNothingRestricts) {
    object.type(5);
    EXPECT_TRUE(filter.matchesQuery(object));
    filter.setDataType(4);
    EXPECT_FALSE(filter.matchesQuery(object));
    for (const int type : {-1, 32, 1 << 20, 4 + 32, 4 - 32}) {  // The last two as bits are 4 again.
        object.type(type);
        EXPECT_FALSE(filter.matchesQuery(object)) << type;
    }
}

TEST_F(FilterMatch, AnEntryOfNoTypeIsJudgedByItsKind) {
    object.type(0);
    container.type(0);
    filter.setDataType(4);
    EXPECT_TRUE(filter.matchesQuery(object));
    EXPECT_FALSE(filter.matchesQuery(container));
    filter.setDataType(8);
    EXPECT_FALSE(filter.matchesQuery(object));
    EXPECT_TRUE(filter.matchesQuery(container));
}

TEST_F(FilterMatch, APlainValueOfNoTypeIsJudgedByItsKind) {
    object.type(0);
    container.type(0);
    filter.setDataType(8);
    EXPECT_FALSE(filter.matchesQuery(Object(object)));
    EXPECT_TRUE(filter.matchesQuery(Container(container)));
}

TEST_F(FilterMatch, DeletedEntriesBelongOnlyWhenAskedFor) {
    object.deleted(1);
    container.deleted(1);
    EXPECT_FALSE(matchesEither());
    filter.setDeleted(true);
    EXPECT_TRUE(matchesBoth());
}

TEST_F(FilterMatch, LivingEntriesBelongAlsoWhenDeletedOnesAreAskedFor) {
    filter.setDeleted(true);
    EXPECT_TRUE(matchesBoth());
}

TEST_F(FilterMatch, TheNameMustContainTheSearchText) {
    filter.setQuery("day l");
    EXPECT_TRUE(matchesBoth());
    filter.setQuery("Holiday list");
    EXPECT_TRUE(matchesBoth());
    filter.setQuery("Holiday list ");
    EXPECT_FALSE(matchesEither());
    filter.setQuery("holiday");
    EXPECT_FALSE(matchesEither());
}

TEST_F(FilterMatch, AFilterByPathMatchesNothing) {
    filter.setPath("/");
    EXPECT_FALSE(matchesEither());
}

TEST_F(FilterMatch, AFilterByUrlMatchesNothing) {
    filter.setUrl("u");
    EXPECT_FALSE(matchesEither());
}

TEST_F(FilterMatch, AFilterByGroupMatchesNothing) {
    filter.setGroup("g");
    EXPECT_FALSE(matchesEither());
}

TEST_F(FilterMatch, AFilterByTagLabelsMatchesNothing) {
    filter.setTagLabels({{"", ""}});
    EXPECT_FALSE(matchesEither());
}

TEST_F(FilterMatch, WhatSaysNothingAboutTheEntryPlaysNoPart) {
    filter.setUserId(1);
    filter.setOffset(9);
    filter.setCount(9);
    filter.setOrder(SomeOrder);
    filter.setAscending(false);
    filter.setContainerFirst(false);
    filter.setByPassCache(true);
    filter.serviceFlag = true;
    filter.contextId = 3;
    EXPECT_TRUE(matchesBoth());
}

TEST_F(FilterMatch, APlainValueIsJudgedLikeItsSource) {
    EXPECT_TRUE(filter.matchesQuery(Object(object)));
    EXPECT_TRUE(filter.matchesQuery(Container(container)));
    EXPECT_FALSE(filter.matchesQuery(Object()));
}

}  // namespace
}  // namespace Ormek
