#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "core/KvoScopedPointer.h"
#include "math/KvoVector.h"

namespace kvo
{
namespace
{

/** Runs action, expects a kvo::Exception and returns its message. */
template <typename Action>
std::string MessageOf(Action&& action)
{
    try
    {
        action();
    }
    catch (const Exception& e)
    {
        return e.GetMessage().GetStdString();
    }
    ADD_FAILURE() << "no kvo::Exception was thrown";
    return {};
}

template <typename T>
std::vector<uint64_t> CapacitiesWhilePushing(int numPushes)
{
    Vector<T> vector;
    std::vector<uint64_t> capacities;
    for (int i = 0; i < numPushes; ++i)
    {
        vector.PushBack(T());
        if (capacities.empty() || capacities.back() != vector.GetCapacity())
            capacities.push_back(vector.GetCapacity());
    }
    return capacities;
}

// ---------------------------------------------------------------------------------------
// Growth

TEST(VectorGrowth, PushBackFromEmptyGrowsByHalf)
{
    const std::vector<uint64_t> expected { 1, 2, 3, 4, 6, 9, 13 };
    EXPECT_EQ(CapacitiesWhilePushing<float>(13), expected);
    EXPECT_EQ(CapacitiesWhilePushing<std::string>(13), expected);
}

TEST(VectorGrowth, ResizeTakesTheLargerOfHalfAndRequired)
{
    Vector<int> vector;
    vector.Reserve(8);
    vector.Resize(9);
    EXPECT_EQ(vector.GetCapacity(), 12u);
    vector.Resize(100);
    EXPECT_EQ(vector.GetCapacity(), 100u);
}

TEST(VectorGrowth, ElementsSurviveReallocation)
{
    Vector<std::string> strings;
    Vector<int> numbers;
    for (int i = 0; i < 50; ++i)
    {
        strings.EmplaceBack(std::string(20, char('a' + i % 26)) + std::to_string(i));
        numbers.PushBack(i * 7);
    }
    ASSERT_EQ(strings.GetSize(), 50u);
    for (int i = 0; i < 50; ++i)
    {
        EXPECT_EQ(strings[i], std::string(20, char('a' + i % 26)) + std::to_string(i));
        EXPECT_EQ(numbers[i], i * 7);
    }
}

TEST(VectorGrowth, PushBackOfOwnElementWhileFull)
{
    Vector<std::string> strings;
    strings.PushBack(std::string(40, 'x'));
    ASSERT_EQ(strings.GetSize(), strings.GetCapacity());
    strings.PushBack(strings[0]); // the source lives in the storage that moves
    EXPECT_EQ(strings[1], std::string(40, 'x'));

    Vector<int> numbers;
    numbers.PushBack(5);
    numbers.PushBack(numbers[0]);
    numbers.PushBack(numbers[1]);
    EXPECT_EQ(numbers[2], 5);
}

// ---------------------------------------------------------------------------------------
// Resize and its ceiling

TEST(VectorResize, ShrinkKeepsCapacityAndRegrowthZeroFills)
{
    Vector<int> vector;
    for (int i = 1; i <= 8; ++i)
        vector.PushBack(i);
    const int* data = vector.GetData();
    const uint64_t capacity = vector.GetCapacity();

    vector.Resize(3);
    EXPECT_EQ(vector.GetSize(), 3u);
    EXPECT_EQ(vector.GetCapacity(), capacity);
    vector.Resize(8);
    EXPECT_EQ(vector.GetData(), data);
    EXPECT_EQ((std::vector<int>(vector.begin(), vector.end())), (std::vector<int> { 1, 2, 3, 0, 0, 0, 0, 0 }));
}

TEST(VectorResize, EmptyStaysUnallocated)
{
    Vector<float> vector;
    vector.Resize(0);
    EXPECT_EQ(vector.GetData(), nullptr);
    EXPECT_TRUE(vector.IsEmpty());

    vector.Resize(4);
    vector.Clear();
    EXPECT_TRUE(vector.IsEmpty());
    EXPECT_EQ(vector.GetCapacity(), 4u);
}

TEST(VectorResize, ClassElementsAreDefaultBuiltAndDestroyed)
{
    Vector<std::string> strings;
    strings.Resize(3);
    strings[1] = std::string(64, 'q');
    strings.Resize(1);
    strings.Resize(3);
    EXPECT_EQ(strings[1], "");
}

TEST(VectorResize, CeilingIsSixDecimalGigabytes)
{
    EXPECT_TRUE(Vector<float>::IsReasonableAllocation(1500000000));
    EXPECT_FALSE(Vector<float>::IsReasonableAllocation(1500000001));
    EXPECT_TRUE(Vector<unsigned char>::IsReasonableAllocation(6000000000));
    EXPECT_FALSE(Vector<unsigned char>::IsReasonableAllocation(6000000001));
    EXPECT_TRUE(Vector<float*>::IsReasonableAllocation(750000000));
    EXPECT_FALSE(Vector<float*>::IsReasonableAllocation(750000001));
    // Counts whose byte size would wrap around 64 bits are still refused.
    EXPECT_FALSE(Vector<float>::IsReasonableAllocation(uint64_t(1) << 62));
    EXPECT_FALSE(Vector<double>::IsReasonableAllocation(std::numeric_limits<uint64_t>::max()));
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
    EXPECT_EQ(vector[1], 2.5f);
}

TEST(VectorResize, OversizedMessagesForOtherWidths)
{
    EXPECT_EQ(MessageOf([] { Vector<unsigned char>().Resize(6000000001); }),
              "Overly large array allocation (6000000001 elements). This would require more than 6.0 GB.");
    EXPECT_EQ(MessageOf([] { Vector<int>().Resize(2000000000); }),
              "Overly large array allocation (2000000000 elements). This would require more than 8.0 GB.");
    EXPECT_EQ(MessageOf([] { Vector<double>().Resize(std::numeric_limits<uint64_t>::max()); }),
              "Overly large array allocation (18446744073709551615 elements). This would require more than 1.47574e+11 GB.");
}

// ---------------------------------------------------------------------------------------
// Failure translation

TEST(VectorFailures, GrowthFailuresBecomeLibraryExceptions)
{
    const CodeLocation here("math/KvoVectorImplementation.h", 7, "void f()");
    EXPECT_EQ(MessageOf([&] { details::translateAllocationFailures(here, [] { throw std::bad_alloc(); }); }),
              "out of memory");
    EXPECT_EQ(MessageOf([&] { details::translateAllocationFailures(here, [] { throw std::runtime_error("boom"); }); }),
              "exception boom occurred");

    try
    {
        details::translateAllocationFailures(here, [] { throw 42; });
        FAIL() << "no exception";
    }
    catch (const exceptions::Unknown& e)
    {
        EXPECT_EQ(e.GetMessage(), "Unknown exception");
        EXPECT_EQ(e.GetLineNumber(), 7u);
    }
}

TEST(VectorFailures, LibraryExceptionPassesThroughUnwrapped)
{
    const CodeLocation outer("outer", 1, "outer()");
    try
    {
        details::translateAllocationFailures(outer, [] { throw Exception("inner", CodeLocation("inner", 99, "inner()")); });
        FAIL() << "no exception";
    }
    catch (const Exception& e)
    {
        EXPECT_EQ(e.GetMessage(), "inner");
        EXPECT_EQ(e.GetLineNumber(), 99u);
    }
}

TEST(VectorFailures, CountBeyondTheAddressSpaceIsAnAllocationOverflow)
{
    Vector<float> vector;
    vector.PushBack(3.0f);
    EXPECT_EQ(MessageOf([&] { vector.Reserve(std::numeric_limits<uint64_t>::max() / 2); }),
              "exception allocation overflow. occurred");
    EXPECT_EQ(vector.GetSize(), 1u);
    EXPECT_EQ(vector[0], 3.0f);
}

// ---------------------------------------------------------------------------------------
// Insert, Erase, copies

TEST(VectorEditing, InsertBeforeIndexAndErase)
{
    Vector<std::string> v;
    v.Insert(0, "c");
    v.Insert(0, "a");
    v.Insert(1, "b");
    v.Insert(99, "d"); // past the end appends
    v.Insert(2, v[0]); // an own element as the value
    EXPECT_EQ((std::vector<std::string>(v.begin(), v.end())), (std::vector<std::string> { "a", "b", "a", "c", "d" }));

    v.Erase(0);
    v.Erase(3);
    EXPECT_EQ((std::vector<std::string>(v.begin(), v.end())), (std::vector<std::string> { "b", "a", "c" }));
}

TEST(VectorEditing, CopiesAreDeepAndMovesEmptyTheSource)
{
    Vector<int> a;
    for (int i = 0; i < 5; ++i)
        a.PushBack(i);
    Vector<int> b(a);
    b[0] = 100;
    EXPECT_EQ(a[0], 0);
    EXPECT_NE(a.GetData(), b.GetData());

    b = Vector<int>();
    EXPECT_TRUE(b.IsEmpty());
    b = a;
    b = b;
    EXPECT_EQ((std::vector<int>(b.begin(), b.end())), (std::vector<int> { 0, 1, 2, 3, 4 }));

    Vector<std::string> s;
    s.PushBack("one");
    Vector<std::string> t;
    t = s;
    Vector<std::string> u(std::move(s));
    EXPECT_EQ(s.GetData(), nullptr);
    EXPECT_EQ(t[0], "one");
    EXPECT_EQ(u[0], "one");
}

// ---------------------------------------------------------------------------------------
// ScopedPointer

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

ScopedPointer<Counted> MakeDerived(int& deletions, int& derivedDeletions)
{
    return ScopedPointer<DerivedCounted>(new DerivedCounted(deletions, derivedDeletions));
}

TEST(ScopedPointer, DeletesThroughTheVirtualDestructor)
{
    int deletions = 0, derivedDeletions = 0;
    {
        ScopedPointer<Counted> pointer = MakeDerived(deletions, derivedDeletions);
        EXPECT_TRUE(pointer);
        EXPECT_EQ(&pointer->deletions, &deletions);
        EXPECT_EQ(&(*pointer).deletions, &deletions);
    }
    EXPECT_EQ(deletions, 1);
    EXPECT_EQ(derivedDeletions, 1);
}

TEST(ScopedPointer, NullIsLegal)
{
    ScopedPointer<Counted> a;
    ScopedPointer<Counted> b = nullptr;
    EXPECT_FALSE(a);
    EXPECT_TRUE(b == nullptr);
    EXPECT_EQ(a.get(), nullptr);
    a.reset();
    EXPECT_EQ(a.release(), nullptr);
}

TEST(ScopedPointer, OwnershipMovesReleasesAndResets)
{
    int deletions = 0;
    ScopedPointer<Counted> a(new Counted(deletions));
    Counted* raw = a.get();

    ScopedPointer<Counted> b(std::move(a));
    EXPECT_EQ(a.get(), nullptr);
    EXPECT_EQ(b.get(), raw);

    b = std::move(b);
    EXPECT_EQ(b.get(), raw);
    EXPECT_EQ(deletions, 0);

    b = ScopedPointer<Counted>(new Counted(deletions)); // deletes the first object
    EXPECT_EQ(deletions, 1);

    Counted* released = b.release();
    EXPECT_FALSE(b);
    EXPECT_EQ(deletions, 1);

    b.reset(released);
    b.reset(new Counted(deletions));
    EXPECT_EQ(deletions, 2);
    b.reset();
    EXPECT_EQ(deletions, 3);
}

static_assert(!std::is_copy_constructible_v<ScopedPointer<Counted>>);
static_assert(!std::is_copy_assignable_v<ScopedPointer<Counted>>);
static_assert(std::is_nothrow_move_constructible_v<ScopedPointer<Counted>>);
static_assert(!std::is_convertible_v<ScopedPointer<Counted>, bool>);
static_assert(!std::is_constructible_v<ScopedPointer<DerivedCounted>, ScopedPointer<Counted>&&>);

} // namespace
} // namespace kvo
