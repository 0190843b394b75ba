// Counted handles on one thread: holders and lifetime, null handles, read-only handles,
// handles along class derivation, comparison, and copy on write.
#include <gtest/gtest.h>

#include <concepts>
#include <map>
#include <type_traits>

#include "TestValues.h"
#include "xnl/std/base/ccPtrHandle.h"
#include "xnl/std/base/ccPtrHandle_const.h"

namespace tessaly::test {
namespace {

// Read-only stays read-only; a base never converts to a derived class; only values that
// are copied on write can be made unique.
static_assert(std::is_convertible_v<ccPtrHandle<SharedPixels>, ccPtrHandle_const<SharedPixels>>);
static_assert(!std::is_convertible_v<ccPtrHandle_const<SharedPixels>, ccPtrHandle<SharedPixels>>);
static_assert(!std::is_constructible_v<ccPtrHandle<SharedPixels>, ccPtrHandle_const<SharedPixels>>);
static_assert(std::is_same_v<decltype(std::declval<ccPtrHandle_const<ShapeValue>&>().operator->()), const ShapeValue*>);
static_assert(std::is_same_v<decltype(std::declval<const ccPtrHandle<ShapeValue>&>().operator->()), ShapeValue*>);
static_assert(std::is_convertible_v<ccPtrHandle<SquareValue>, ccPtrHandle<ShapeValue>>);
static_assert(std::is_convertible_v<ccPtrHandle<SquareValue>, ccPtrHandle_const<ShapeValue>>);
static_assert(!std::is_constructible_v<ccPtrHandle<SquareValue>, ccPtrHandle<ShapeValue>>);
static_assert(!std::is_constructible_v<ccPtrHandle<SharedPixels>, ccPtrHandle<ShapeValue>>);
static_assert(!std::is_convertible_v<SharedPixels*, ccPtrHandle<SharedPixels>>, "adopting a raw pointer is explicit");
template <class Handle>
concept CanMakeUnique = requires(Handle& handle) { handle.MakeUnique(); };
static_assert(CanMakeUnique<ccPtrHandle<ShapeValue>>);
static_assert(!CanMakeUnique<ccPtrHandle<SharedPixels>>);
static_assert(!CanMakeUnique<ccPtrHandle_const<ShapeValue>>);
static_assert(sizeof(ccPtrHandle<ShapeValue>) == sizeof(void*));

class PtrHandleTest : public ::testing::Test {
protected:
    void SetUp() override {
        pixelsLive_ = SharedPixels::live;
        shapesLive_ = ShapeValue::live;
    }
    void TearDown() override {
        EXPECT_EQ(SharedPixels::live, pixelsLive_) << "values left alive";
        EXPECT_EQ(ShapeValue::live, shapesLive_) << "values left alive";
    }

private:
    int pixelsLive_ = 0;
    int shapesLive_ = 0;
};

TEST_F(PtrHandleTest, HoldersShareOneValueThatDiesWithTheLastOfThem) {
    const int destroyedBefore = SharedPixels::destroyed;
    ccPtrHandle<SharedPixels> first(new SharedPixels);
    EXPECT_EQ(first.RefCount(), 1u);
    EXPECT_TRUE(first.Unique());
    {
        ccPtrHandle<SharedPixels> second = first;
        EXPECT_EQ(first.RefCount(), 2u);
        EXPECT_FALSE(first.Unique());
        second->pixel = 7;  // shared deliberately: every holder sees the write
        EXPECT_EQ(first->pixel, 7);
        EXPECT_EQ(second, first);

        // A handle made from the raw pointer joins the same count.
        ccPtrHandle<SharedPixels> third(first.Get());
        EXPECT_EQ(first.RefCount(), 3u);
    }
    EXPECT_EQ(first.RefCount(), 1u);

    // Moving hands the holder over: no count changes, the source is left null.
    ccPtrHandle<SharedPixels> moved = std::move(first);
    EXPECT_TRUE(first.IsNull());
    EXPECT_EQ(moved.RefCount(), 1u);
    // Assigning a handle its own value, by copy or by move, keeps the value alive.
    ccPtrHandle<SharedPixels>& alias = moved;
    moved = alias;
    EXPECT_EQ(moved.RefCount(), 1u);
    moved = std::move(alias);
    ASSERT_FALSE(moved.IsNull());
    EXPECT_EQ(moved->pixel, 7);
    EXPECT_EQ(SharedPixels::destroyed, destroyedBefore);

    // Replacing the value drops the old one at once.
    moved = ccPtrHandle<SharedPixels>(new SharedPixels);
    EXPECT_EQ(SharedPixels::destroyed, destroyedBefore + 1);
    moved = nullptr;
    EXPECT_EQ(SharedPixels::destroyed, destroyedBefore + 2);
}

TEST_F(PtrHandleTest, NullHandlesHoldNothingAndCompareEqual) {
    ccPtrHandle<SharedPixels> empty;
    ccPtrHandle<SharedPixels> fromNull = nullptr;
    ccPtrHandle_const<SharedPixels> readOnly(static_cast<const SharedPixels*>(nullptr));
    EXPECT_FALSE(empty);
    EXPECT_TRUE(empty.IsNull());
    EXPECT_EQ(empty.RefCount(), 0u);
    EXPECT_FALSE(empty.Unique()) << "nothing is held, so nothing is held alone";
    EXPECT_EQ(empty, nullptr);
    EXPECT_EQ(empty, fromNull);
    EXPECT_EQ(readOnly, empty);
    ccPtrHandle<SharedPixels> copied = empty;
    EXPECT_TRUE(copied.IsNull());
    empty.Reset();
    EXPECT_TRUE(empty.IsNull());

    ccPtrHandle<ShapeValue> noShape;
    const int clonesBefore = ShapeValue::clones;
    EXPECT_EQ(noShape.MakeUnique(), nullptr) << "a null handle stays null";
    EXPECT_EQ(ShapeValue::clones, clonesBefore);
}

TEST_F(PtrHandleTest, ReadOnlyAndBaseHandlesJoinTheCountAndCompareByIdentity) {
    ccPtrHandle<SquareValue> square(new SquareValue(2.0));
    ccPtrHandle_const<SquareValue> view = square;
    EXPECT_EQ(square.RefCount(), 2u);
    EXPECT_EQ(view->Corners(), 4);
    EXPECT_EQ(view, square);

    // A handle to the derived class is a handle to its base, to the same value.
    ccPtrHandle<ShapeValue> shape = square;
    ccPtrHandle_const<ShapeValue> shapeView = view;
    EXPECT_EQ(square.RefCount(), 4u);
    EXPECT_EQ(shape, square);
    EXPECT_EQ(shapeView, shape);
    EXPECT_EQ(shape->Corners(), 4);

    // Moving into a read-only or base handle takes the holder over without counting.
    ccPtrHandle_const<ShapeValue> taken = std::move(shape);
    EXPECT_TRUE(shape.IsNull());
    EXPECT_EQ(square.RefCount(), 4u);

    // Different values: unequal, and ordered as their addresses are, either way round.
    ccPtrHandle<ShapeValue> other(new ShapeValue(2.0));
    EXPECT_NE(other, taken);
    EXPECT_NE(other, nullptr);
    const bool lower = other.Get() < taken.Get();
    EXPECT_EQ(other < taken, lower);
    EXPECT_EQ(taken < other, !lower);
    EXPECT_TRUE(taken <= view && view <= taken) << "the same value, seen as base and as derived";

    // Ordered containers keyed by handles find a value by any handle to it.
    std::map<ccPtrHandle_const<ShapeValue>, int> names;
    names[taken] = 1;
    names[other] = 2;
    EXPECT_EQ(names.at(ccPtrHandle_const<ShapeValue>(square)), 1);
}

TEST_F(PtrHandleTest, MakeUniqueCopiesOnlyASharedValueAndLeavesTheOthersAlone) {
    ccPtrHandle<ShapeValue> original(new ShapeValue(3.0));
    const int clonesBefore = ShapeValue::clones;
    const ShapeValue* before = original.Get();
    EXPECT_EQ(original.MakeUnique(), before) << "a value held once is changed in place";
    EXPECT_EQ(ShapeValue::clones, clonesBefore);

    ccPtrHandle<ShapeValue> copy = original;
    ccPtrHandle_const<ShapeValue> reader = original;
    ShapeValue* own = copy.MakeUnique();
    EXPECT_EQ(ShapeValue::clones, clonesBefore + 1);
    ASSERT_NE(own, before);
    own->size = 5.0;
    EXPECT_EQ(original->size, 3.0) << "the other holders keep the value they had";
    EXPECT_EQ(reader->size, 3.0);
    EXPECT_EQ(copy.RefCount(), 1u);
    EXPECT_EQ(original.RefCount(), 2u);
    EXPECT_EQ(copy.MakeUnique(), own) << "unique already: no second copy";

    // A clone that fails leaves the handle sharing what it held.
    ccPtrHandle<ShapeValue> failing = original;
    ShapeValue::failNextClone = true;
    EXPECT_THROW(failing.MakeUnique(), std::bad_alloc);
    EXPECT_EQ(failing, original);
    EXPECT_EQ(original.RefCount(), 3u);

    // Through a base handle the copy is of the derived class.
    ccPtrHandle<ShapeValue> square(new SquareValue(1.0));
    ccPtrHandle<ShapeValue> second = square;
    second.MakeUnique();
    EXPECT_NE(second, square);
    EXPECT_EQ(second->Corners(), 4);
}

// A value whose destructor hands itself to code that holds it for a moment.
class SelfHolding : public ccRefCounted {
public:
    explicit SelfHolding(int& destructions) : destructions_(destructions) {}

private:
    ~SelfHolding() override {
        ++destructions_;
        ccPtrHandle<SelfHolding> moment(this);
        moment.Reset();
    }
    int& destructions_;
};

TEST_F(PtrHandleTest, ADestructorThatHoldsItsOwnValueDoesNotDestroyItTwice) {
    int destructions = 0;
    {
        ccPtrHandle<SelfHolding> value(new SelfHolding(destructions));
    }
    EXPECT_EQ(destructions, 1);
}

TEST_F(PtrHandleTest, CopyingAValueGivesANewValueWithoutHolders) {
    ccPtrHandle<ShapeValue> original(new ShapeValue(1.0));
    ccPtrHandle<ShapeValue> held = original;
    ccPtrHandle<ShapeValue> clone(original->Clone());
    EXPECT_EQ(clone.RefCount(), 1u) << "the copy's count starts afresh";
    *clone = *original;  // assigning state leaves both counts as they are
    EXPECT_EQ(clone.RefCount(), 1u);
    EXPECT_EQ(original.RefCount(), 2u);
}

}  // namespace
}  // namespace tessaly::test
