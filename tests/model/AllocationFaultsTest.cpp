#include "tests/support/AllocationFaults.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace Ormek::Testing {
namespace {

constexpr std::size_t Size = 100;
constexpr std::align_val_t Align{256};

/// One form of operator new, and how what it gives is given back.
struct Form {
    const char* name;
    bool throws;
    std::function<void*()> allocate;
    std::function<void(void*)> release;
};

void PrintTo(const Form& form, std::ostream* out) { *out << form.name; }

class AllocationFormTest : public testing::TestWithParam<Form> {};

TEST_P(AllocationFormTest, FailsOnceInItsTurn) {
    const Form& form = GetParam();
    const AllocationFaults faults(2);
    void* first = form.allocate();
    EXPECT_NE(first, nullptr);
    EXPECT_FALSE(faults.struck());

    if (form.throws) {
        EXPECT_THROW((void)form.allocate(), std::bad_alloc);
    } else {
        EXPECT_EQ(form.allocate(), nullptr);
    }
    EXPECT_TRUE(faults.struck());

    void* last = form.allocate();
    EXPECT_NE(last, nullptr);
    EXPECT_EQ(faults.allocations(), 3u);
    form.release(first);
    form.release(last);
}

TEST_P(AllocationFormTest, CountsOneBlockUntilItIsReleased) {
    const unsigned long before = AllocationFaults::liveBlocks();
    void* block = GetParam().allocate();
    const unsigned long between = AllocationFaults::liveBlocks();
    GetParam().release(block);
    EXPECT_EQ(between, before + 1);
    EXPECT_EQ(AllocationFaults::liveBlocks(), before);
}

TEST_P(AllocationFormTest, ReleasesNullWithoutCountingIt) {
    const unsigned long before = AllocationFaults::liveBlocks();
    GetParam().release(nullptr);
    EXPECT_EQ(AllocationFaults::liveBlocks(), before);
}

INSTANTIATE_TEST_SUITE_P(
    Of, AllocationFormTest,
    testing::Values(Form{"One", true, [] { return ::operator new(Size); },
                         [](void* block) { ::operator delete(block); }},
                    Form{"Many", true, [] { return ::operator new[](Size); },
                         [](void* block) { ::operator delete[](block); }},
                    Form{"OneOrNull", false, [] { return ::operator new(Size, std::nothrow); },
                         [](void* block) { ::operator delete(block, std::nothrow); }},
                    Form{"ManyOrNull", false, [] { return ::operator new[](Size, std::nothrow); },
                         [](void* block) { ::operator delete[](block, std::nothrow); }},
                    Form{"Aligned", true, [] { return ::operator new(Size, Align); },
                         [](void* block) { ::operator delete(block, Align); }},
                    Form{"ManyAligned", true, [] { return ::operator new[](Size, Align); },
                         [](void* block) { ::operator delete[](block, Align); }},
                    Form{"AlignedOrNull", false,
                         [] { return ::operator new(Size, Align, std::nothrow); },
                         [](void* block) { ::operator delete(block, Align, std::nothrow); }},
                    Form{"ManyAlignedOrNull", false,
                         [] { return ::operator new[](Size, Align, std::nothrow); },
                         [](void* block) { ::operator delete[](block, Align, std::nothrow); }}),
    [](const auto& form) { return form.param.name; });

TEST(AllocationFaultsTest, ContainersAndSharedPointersAreSeen) {
    const AllocationFaults faults(3);
    const std::vector<int> numbers(1000);
    const auto shared = std::make_shared<std::array<char, 1000>>();
    EXPECT_THROW(std::string(1000, 'x'), std::bad_alloc);
    EXPECT_TRUE(faults.struck());
}

TEST(AllocationFaultsTest, NothingFailsAfterwards) {
    {
        const AllocationFaults faults(1);
        EXPECT_FALSE(faults.struck());
    }
    EXPECT_NO_THROW(std::make_unique<std::string>(1000, 'x'));
}

TEST(AllocationFaultsTest, OtherThreadsAreSpared) {
    std::size_t length = 0;
    std::thread other;
    const auto allocate = [&length] { length = std::string(1000, 'x').size(); };
    const AllocationFaults faults(2);
    other = std::thread(allocate);  // The first one is the thread's own state.
    other.join();
    EXPECT_EQ(length, 1000u);
    EXPECT_FALSE(faults.struck());
    EXPECT_THROW(allocate(), std::bad_alloc);
}

TEST(AllocationFaultsTest, ABlockThatIsNeverReleasedShows) {
    const unsigned long before = AllocationFaults::liveBlocks();
    auto kept = std::make_unique<std::string>(1000, 'x');
    EXPECT_EQ(AllocationFaults::liveBlocks(), before + 2);
    kept.reset();
    EXPECT_EQ(AllocationFaults::liveBlocks(), before);
}

}  // namespace
}  // namespace Ormek::Testing
