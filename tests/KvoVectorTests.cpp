// Vector's growth, its 6.0 GB guard and failure translation, and ScopedPointer's ownership.

#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "KvoTestUtilities.h"
#include "core/KvoScopedPointer.h"
#include "math/KvoVector.h"

namespace kvo
{
namespace
{

using testing::MessageOf;

TEST(VectorGrowth, GrowsByHalfAndKeepsElementsIncludingItsOwn)
{
    Vector<std::string> strings;
    std::vector<uint64_t> capacities;
    for (int i = 0; i < 13; ++i)
    {
        strings.PushBack(std::string(20, char('a' + i)));
        if (capacities.empty() || capacities.back() != strings.GetCapacity())
            capacities.push_back(strings.GetCapacity());
    }
    EXPECT_EQ(capacities, (std::vector<uint64_t>{1, 2, 3, 4, 6, 9, 13}));
    strings.PushBack(strings[0]); // while full: the source lives in the storage that moves
    EXPECT_EQ(strings[13], std::string(20, 'a'));
    EXPECT_EQ(strings[12], std::string(20, 'm'));

    Vector<int> numbers;
    numbers.Reserve(8);
    numbers.Resize(9);
    EXPECT_EQ(numbers.GetCapacity(), 12u); // the larger of half again and what is required
    numbers.Resize(100);
    EXPECT_EQ(numbers.GetCapacity(), 100u);
}

TEST(VectorResize, ShrinkKeepsCapacityAndRegrowthZeroFills)
{
    Vector<int> vector;
    for (int i = 1; i <= 8; ++i)
        vector.PushBack(i);
    const int* data = vector.GetData();
    vector.Resize(3);
    vector.Resize(8);
    EXPECT_EQ(vector.GetData(), data);
    EXPECT_EQ((std::vector<int>(vector.begin(), vector.end())), (std::vector<int>{1, 2, 3, 0, 0, 0, 0, 0}));

    vector.Insert(99, 9); // past the end appends
    vector.Insert(0, vector[1]);
    vector.Erase(1);
    EXPECT_EQ((std::vector<int>(vector.begin(), vector.end())), (std::vector<int>{2, 2, 3, 0, 0, 0, 0, 0, 9}));
}

TEST(VectorResize, CeilingIsSixDecimalGigabytes)
{
    EXPECT_TRUE(Vector<float>::IsReasonableAllocation(1500000000));
    EXPECT_FALSE(Vector<float>::IsReasonableAllocation(1500000001));
    EXPECT_TRUE(Vector<unsigned char>::IsReasonableAllocation(6000000000));
    EXPECT_FALSE(Vector<unsigned char>::IsReasonableAllocation(6000000001));
    // Counts whose byte size would wrap around 64 bits are still refused.
    EXPECT_FALSE(Vector<float>::IsReasonableAllocation(uint64_t(1) << 62));

    EXPECT_EQ(MessageOf([] { Vector<int>().Resize(2000000000); }),
              "Overly large array allocation (2000000000 elements). This would require more than 8.0 GB.");
    EXPECT_EQ(MessageOf([] { Vector<double>().Resize(std::numeric_limits<uint64_t>::max()); }),
              "Overly large array allocation (18446744073709551615 elements). This would require more than 1.47574e+11 GB.");
}

TEST(VectorResize, OversizedResizeFailsAndLeavesTheVectorAlone)
{
    Vector<float> vector;
    vector.PushBack(1.5f);
    vector.PushBack(2.5f);
    const float* data = vector.GetData();
    const uint64_t capacity = vector.GetCapacity();
    try
    {
        vector.Resize(1500000001);
        FAIL() << "no exception";
    }
    catch (const Exception& e)
    {
        EXPECT_EQ(e.GetMessage(), "Overly large array allocation (1500000001 elements). This would require more than 6.0 GB.");
        EXPECT_EQ(e.GetSourceFile(), "math/KvoVectorImplementation.h");
    }
    EXPECT_EQ(vector.GetSize(), 2u);
    EXPECT_EQ(vector.GetCapacity(), capacity);
    EXPECT_EQ(vector.GetData(), data);

    EXPECT_EQ(MessageOf([&] { vector.Reserve(std::numeric_limits<uint64_t>::max() / 2); }),
              "exception allocation overflow. occurred");
    EXPECT_EQ(vector[1], 2.5f);
}

TEST(VectorFailures, GrowthFailuresBecomeLibraryExceptions)
{
    const CodeLocation here("math/KvoVectorImplementation.h", 7, "void f()");
    EXPECT_EQ(MessageOf([&] { details::translateAllocationFailures(here, [] { throw std::bad_alloc(); }); }),
              "out of memory");
    EXPECT_EQ(MessageOf([&] { details::translateAllocationFailures(here, [] { throw std::runtime_error("boom"); }); }),
              "exception boom occurred");
    EXPECT_THROW(details::translateAllocationFailures(here, [] { throw 42; }), exceptions::Unknown);
    try
    {
        details::translateAllocationFailures(here, [] { throw Exception("inner", CodeLocation("inner", 99, "g()")); });
    }
    catch (const Exception& e)
    {
        EXPECT_EQ(e.GetLineNumber(), 99u); // passed through unwrapped
    }
}

struct Counted
{
    explicit Counted(int& deletions) : deletions(deletions) {}
    virtual ~Counted() { ++deletions; }
    int& deletions;
};

struct DerivedCounted : Counted
{
    DerivedCounted(int& deletions, int& derivedDeletions) : Counted(deletions), derivedDeletions(derivedDeletions) {}
    ~DerivedCounted() override { ++derivedDeletions; }
    int& derivedDeletions;
};

TEST(ScopedPointer, OwnershipMovesReleasesAndDeletesThroughTheBase)
{
    int deletions = 0, derivedDeletions = 0;
    {
        ScopedPointer<Counted> a = ScopedPointer<DerivedCounted>(new DerivedCounted(deletions, derivedDeletions));
        Counted* raw = a.get();
        ScopedPointer<Counted> b(std::move(a));
        EXPECT_EQ(a.get(), nullptr);
        b = std::move(b);
        EXPECT_EQ(b.get(), raw);
        EXPECT_EQ(deletions, 0);
        b = ScopedPointer<Counted>(new Counted(deletions));
        EXPECT_EQ(derivedDeletions, 1);
        Counted* released = b.release();
        EXPECT_EQ(deletions, 1);
        b.reset(released);
    }
    EXPECT_EQ(deletions, 2);
}

static_assert(!std::is_copy_constructible_v<ScopedPointer<Counted>>);
static_assert(!std::is_convertible_v<ScopedPointer<Counted>, bool>);
static_assert(!std::is_constructible_v<ScopedPointer<DerivedCounted>, ScopedPointer<Counted>&&>);

} // namespace
} // namespace kvo
