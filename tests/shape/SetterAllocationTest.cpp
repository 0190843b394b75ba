// A rectangle's setters called late-bound, as a client without sinks calls them, ask the heap
// for nothing: the guard, the lock, the comparison and the change bookkeeping stay on the
// stack until a sink is there to receive a value.
#include "shape/ShapeFixture.h"
#include "support/AllocationCounter.h"

namespace tessaly::test {
namespace {

class SetterAllocationTest : public ShapeFixture {};

HRESULT PutDouble(IDispatch* object, DISPID member, double value) {
    VARIANT argument{};
    argument.vt = VT_R8;
    argument.dblVal = value;
    DISPID named = DISPID_PROPERTYPUT;
    DISPPARAMS params{&argument, &named, 1, 1};
    return object->Invoke(member, GUID_NULL, 0, DISPATCH_PROPERTYPUT, &params, nullptr, nullptr, nullptr);
}

TEST_F(SetterAllocationTest, PutsThroughInvokeWithoutSinksAllocateNothing) {
    auto rectangle = NewRectangle();
    auto dispatch = As<IDispatch>(rectangle.get());
    ASSERT_EQ(PutDouble(dispatch.get(), luxRectangle_X, 1), S_OK);  // the dispatcher's tables are made once
    size_t bytes = 0;
    {
        const AllocationCounter counter;
        for (int i = 0; i < 100; ++i) {
            ASSERT_EQ(PutDouble(dispatch.get(), luxRectangle_X, 2 + i), S_OK);
            ASSERT_EQ(PutDouble(dispatch.get(), luxRectangle_Width, 1 + i), S_OK);
            ASSERT_EQ(PutDouble(dispatch.get(), luxRectangle_Width, 1 + i), S_OK);  // unchanged
        }
        bytes = counter.Bytes();
    }
    EXPECT_EQ(bytes, 0u);
    EXPECT_EQ(Params(rectangle.get()), (RectParams{101, 0, 100, 100}));
}

}  // namespace
}  // namespace tessaly::test
