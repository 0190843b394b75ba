// The component server's lifetime: class objects, server locks and live objects deciding
// DllCanUnloadNow, and the references ComPtr adds and releases.
#include <gtest/gtest.h>

#include "TestWidget.h"
#include "platform/ComPtr.h"

namespace tessaly::test {
namespace {

class ModuleTest : public WidgetTest {
protected:
    void SetUp() override {
        WidgetTest::SetUp();
        // Every test before this one ended with nothing alive.
        ASSERT_EQ(liveAtStart_, 0);
        ASSERT_EQ(DllCanUnloadNow(), S_OK);
    }
};

TEST_F(ModuleTest, LiveObjectsAndServerLocksKeepTheServerLoaded) {
    EXPECT_EQ(::LiveObjectCount(), Module::LiveObjectCount());
    Ref<IClassFactory> factory;
    ASSERT_EQ(DllGetClassObject(CLSID_TestWidget, IClassFactory::iid, factory.void_out()), S_OK);
    EXPECT_EQ(::LiveObjectCount(), 1);
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);

    Ref<ITestWidget> widget;
    ASSERT_EQ(factory->CreateInstance(nullptr, ITestWidget::iid, widget.void_out()), S_OK);
    EXPECT_EQ(RefCount(widget.get()), 1u);
    EXPECT_EQ(::LiveObjectCount(), 2);

    // Aggregation is refused and makes nothing; so is an interface the class lacks.
    void* object = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(factory->CreateInstance(widget.get(), IUnknown::iid, &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(object, nullptr);
    object = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(factory->CreateInstance(nullptr, IClassFactory::iid, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(factory->CreateInstance(nullptr, IUnknown::iid, nullptr), E_POINTER);
    EXPECT_EQ(::LiveObjectCount(), 2);
    EXPECT_EQ(RefCount(widget.get()), 1u);  // the refused outer got no lasting reference

    // Two locks, taken through one class object and given back through another.
    EXPECT_EQ(factory->LockServer(1), S_OK);
    EXPECT_EQ(factory->LockServer(1), S_OK);
    factory.Reset();
    widget.Reset();
    EXPECT_EQ(::LiveObjectCount(), 0);
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);

    ASSERT_EQ(DllGetClassObject(CLSID_TestWidget, IClassFactory::iid, factory.void_out()), S_OK);
    EXPECT_EQ(factory->LockServer(0), S_OK);
    factory.Reset();
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);  // one lock is still held
    ASSERT_EQ(DllGetClassObject(CLSID_TestWidget, IClassFactory::iid, factory.void_out()), S_OK);
    EXPECT_EQ(factory->LockServer(0), S_OK);
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);  // the class object itself is alive
    factory.Reset();
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

TEST_F(ModuleTest, DllGetClassObjectRefusesWhatItCannotServe) {
    for (const CLSID& clsid : {CLSID_TestSealed, GUID_NULL}) {
        void* none = reinterpret_cast<void*>(0x1);
        EXPECT_EQ(DllGetClassObject(clsid, IClassFactory::iid, &none), CLASS_E_CLASSNOTAVAILABLE);
        EXPECT_EQ(none, nullptr);
    }
    void* none = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(DllGetClassObject(CLSID_TestGadget, ITestGadget::iid, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(DllGetClassObject(CLSID_TestGadget, IClassFactory::iid, nullptr), E_POINTER);
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

TEST_F(ModuleTest, ComPtrAddsAndReleasesExactlyItsOwnReferences) {
    TestGadget* raw = TestGadget::Create();  // one reference, ours
    IUnknown* identity = raw->GetUnknown();
    {
        ComPtr<ITestGadget> first(raw);
        EXPECT_EQ(RefCount(identity), 2u);
        ComPtr<ITestGadget> copy(first);
        EXPECT_EQ(RefCount(identity), 3u);
        ComPtr<ITestGadget> moved(std::move(copy));
        EXPECT_EQ(RefCount(identity), 3u);
        EXPECT_FALSE(copy);
        EXPECT_TRUE(moved == first);

        ComPtr<ITestGadget> assigned;
        assigned = first;
        EXPECT_EQ(RefCount(identity), 4u);
        const ComPtr<ITestGadget>& self = assigned;
        assigned = self;  // self-assignment neither adds nor drops
        EXPECT_EQ(RefCount(identity), 4u);
        assigned = std::move(moved);
        EXPECT_EQ(RefCount(identity), 3u);
        assigned.Reset();
        EXPECT_EQ(RefCount(identity), 2u);
        EXPECT_TRUE(assigned == nullptr);

        // Detach hands our reference out untouched; Attach takes one over without adding.
        ITestGadget* detached = first.Detach();
        EXPECT_EQ(detached, static_cast<ITestGadget*>(raw));
        EXPECT_EQ(RefCount(identity), 2u);
        ComPtr<ITestGadget> attached = ComPtr<ITestGadget>::Attach(detached);
        EXPECT_EQ(RefCount(identity), 2u);

        // Out releases what the pointer held before giving the slot.
        ComPtr<ITestGadget> slot(raw);
        EXPECT_EQ(RefCount(identity), 3u);
        ASSERT_EQ(raw->QueryInterface(ITestGadget::iid, slot.OutVoid()), S_OK);
        EXPECT_EQ(RefCount(identity), 3u);

        // As: a reference for an interface the object has, null for one it lacks.
        ComPtr<IDispatch> dispatch = attached.As<IDispatch>();
        EXPECT_TRUE(dispatch);
        EXPECT_EQ(RefCount(identity), 4u);
        EXPECT_FALSE(attached.As<ITestWidget>());
        EXPECT_FALSE(ComPtr<ITestGadget>().As<IDispatch>());
        EXPECT_EQ(RefCount(identity), 4u);
    }
    EXPECT_EQ(RefCount(identity), 1u);
    EXPECT_EQ(Module::LiveObjectCount(), 1);
    EXPECT_EQ(raw->Release(), 0u);
}

}  // namespace
}  // namespace tessaly::test
