// The object template: QueryInterface identity and refusals, reference counting across
// threads, the live-object count, the class-table factory, and destruction exactly once.
#include <gtest/gtest.h>

#include <thread>

#include "TestShapes.h"
#include "TestWidget.h"

namespace tessaly::test {
namespace {

using ComObjectTest = WidgetTest;

// The identity (IUnknown) of an object is its first dual interface, wherever it is listed.
static_assert(std::is_same_v<detail::IdentityOf<ITestRaw, ITestShapes, ITestGadget>::type, ITestShapes>);
static_assert(std::is_same_v<detail::IdentityOf<ITestGadget, ITestRaw>::type, ITestGadget>);
static_assert(std::is_same_v<detail::IdentityOf<ITestRaw, IStream>::type, ITestRaw>);

TEST_F(ComObjectTest, QueryInterfaceKeepsIdentityAndAnswersBasesAndStandardInterfaces) {
    TestWidget* widget = NewWidget();
    Ref<IUnknown> fromWidget;
    Ref<ITestGadget> gadget;
    ASSERT_EQ(widget->QueryInterface(IUnknown::iid, fromWidget.void_out()), S_OK);
    ASSERT_EQ(widget->QueryInterface(ITestGadget::iid, gadget.void_out()), S_OK);
    Ref<IUnknown> fromGadget;
    ASSERT_EQ(gadget->QueryInterface(IUnknown::iid, fromGadget.void_out()), S_OK);
    EXPECT_EQ(fromWidget.get(), fromGadget.get()) << "one IUnknown whichever interface is asked";
    EXPECT_EQ(fromWidget.get(), widget->GetUnknown());

    // IDispatch is answered through the first dual interface.
    Ref<IDispatch> dispatch;
    ASSERT_EQ(gadget->QueryInterface(IDispatch::iid, dispatch.void_out()), S_OK);
    EXPECT_EQ(static_cast<void*>(dispatch.get()), static_cast<void*>(static_cast<ITestWidget*>(widget)));
    // A base interface of a generated interface is answered through the derived one.
    Ref<ITestBase> base;
    ASSERT_EQ(widget->QueryInterface(ITestBase::iid, base.void_out()), S_OK);
    EXPECT_EQ(static_cast<void*>(base.get()), static_cast<void*>(gadget.get()));

    const ULONG before = RefCount(widget);
    void* none = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(widget->QueryInterface(IStream::iid, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(widget->QueryInterface(ITestWidgetEvents::iid, &none), E_NOINTERFACE);
    EXPECT_EQ(widget->QueryInterface(IUnknown::iid, nullptr), E_POINTER);
    EXPECT_EQ(RefCount(widget), before) << "refusals add no reference";
    EXPECT_EQ(widget->FindInterface(ITestGadget::iid), static_cast<void*>(gadget.get()));
    EXPECT_EQ(RefCount(widget), before) << "FindInterface does not count";
}

TEST_F(ComObjectTest, ReferenceCountDecidesLifetimeAndLiveCount) {
    const LONG live = Module::LiveObjectCount();
    TestWidget* widget = TestWidget::Create();
    ASSERT_NE(widget, nullptr);
    EXPECT_EQ(Module::LiveObjectCount(), live + 1);
    EXPECT_EQ(widget->AddRef(), 2u);
    EXPECT_EQ(widget->Release(), 1u);

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([widget] {
            for (int i = 0; i < 20000; ++i) {
                widget->AddRef();
                widget->Release();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(RefCount(widget), 1u);
    EXPECT_EQ(widget->Release(), 0u);
    EXPECT_EQ(Module::LiveObjectCount(), live);
}

TEST_F(ComObjectTest, CreateInstanceAnswersTheAskedInterfaceOrCreatesNothing) {
    const LONG live = Module::LiveObjectCount();
    Ref<ITestGadget> gadget;
    ASSERT_EQ(TestWidget::CreateInstance(ITestGadget::iid, gadget.void_out()), S_OK);
    EXPECT_EQ(RefCount(gadget.get()), 1u);
    EXPECT_EQ(Module::LiveObjectCount(), live + 1);
    gadget.Reset();
    EXPECT_EQ(Module::LiveObjectCount(), live);

    void* none = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(TestWidget::CreateInstance(IStream::iid, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(TestWidget::CreateInstance(IUnknown::iid, nullptr), E_POINTER);
    EXPECT_EQ(Module::LiveObjectCount(), live);
}

// A class whose destructor hands itself out once more, as cleanup code sometimes does.
class SelfReferencingGadget : public ComObject<SelfReferencingGadget, ITestGadget> {
public:
    static const CoClassInfo& CoClass() { return TestGadget::CoClass(); }
    using CoClassInterfaceList = TestGadget::CoClassInterfaceList;
    HRESULT get_Kind(BSTR* value) override {
        *value = nullptr;
        return S_OK;
    }
    HRESULT get_Size(LONG* value) override {
        *value = 0;
        return S_OK;
    }
    HRESULT put_Size(LONG) override { return S_OK; }
    HRESULT Attach(ITestWidget*, LONG* value) override {
        *value = 0;
        return S_OK;
    }
    static inline int destroyed = 0;

protected:
    ~SelfReferencingGadget() override {
        AddRef();
        Release();
        ++destroyed;
    }
};

TEST_F(ComObjectTest, ReleaseDuringDestructionDoesNotDestroyTwice) {
    SelfReferencingGadget::destroyed = 0;
    SelfReferencingGadget* gadget = SelfReferencingGadget::Create();
    ASSERT_NE(gadget, nullptr);
    gadget->Release();
    EXPECT_EQ(SelfReferencingGadget::destroyed, 1);
}

}  // namespace
}  // namespace tessaly::test
