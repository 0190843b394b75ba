// Reaching the library's own C++ object behind an interface pointer: found through every
// interface of the object, refused for a client's object implementing the same interface,
// for another class of ours (even one of the same coclass) and for null, and never adding
// a reference.
#include <gtest/gtest.h>

#include <atomic>

#include "TestWidget.h"
#include "com/core/CLuxArchive.h"
#include "com/core/CLuxCollection.h"
#include "platform/ClassTable.h"

namespace tessaly::test {
namespace {

using ImplementationOfTest = WidgetTest;

// A client's own gadget, written by hand as a client outside the library would.
class ForeignGadget final : public ITestGadget {
public:
    HRESULT QueryInterface(REFIID riid, void** ppv) override {
        if (!ppv) return E_POINTER;
        ++queries;
        if (riid == IUnknown::iid || riid == IDispatch::iid || riid == ITestBase::iid || riid == ITestGadget::iid) {
            *ppv = static_cast<ITestGadget*>(this);
            AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG AddRef() override { return ++refs; }
    ULONG Release() override { return --refs; }  // lives on the test's stack
    HRESULT GetTypeInfoCount(UINT* count) override {
        *count = 0;
        return S_OK;
    }
    HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    HRESULT Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override { return E_NOTIMPL; }
    HRESULT get_Kind(BSTR*) override { return E_NOTIMPL; }
    HRESULT get_Size(LONG* value) override {
        *value = 0;
        return S_OK;
    }
    HRESULT put_Size(LONG) override { return S_OK; }
    HRESULT Attach(ITestWidget*, LONG*) override { return E_NOTIMPL; }

    ULONG refs = 1;
    int queries = 0;
};

// A second class of ours over the gadget's coclass.
class TwinGadget final : public ComObject<TwinGadget, ITestGadget> {
public:
    static const CoClassInfo& CoClass() { return generated::CoClass_TestGadget; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_TestGadget;
    HRESULT get_Kind(BSTR*) override { return E_NOTIMPL; }
    HRESULT get_Size(LONG*) override { return E_NOTIMPL; }
    HRESULT put_Size(LONG) override { return E_NOTIMPL; }
    HRESULT Attach(ITestWidget*, LONG*) override { return E_NOTIMPL; }

private:
    ~TwinGadget() override = default;
};

// A class derived from one of ours: still one of that class's objects.
class TunedGadget final : public TestGadget {
private:
    ~TunedGadget() override = default;
};

TEST_F(ImplementationOfTest, OwnObjectIsFoundThroughEachOfItsInterfacesWithoutAReference) {
    TestWidget* widget = NewWidget();
    const ULONG references = RefCount(widget);
    EXPECT_EQ(TestWidget::ImplementationOf(widget->GetUnknown()), widget);
    EXPECT_EQ(TestWidget::ImplementationOf(static_cast<ITestWidget*>(widget)), widget);
    for (const IID& iid : {ITestGadget::iid, ITestBase::iid, IDispatch::iid, IConnectionPointContainer::iid,
                           IProvideClassInfo2::iid, ISupportErrorInfo::iid}) {
        Ref<IUnknown> through;
        ASSERT_EQ(widget->QueryInterface(iid, through.void_out()), S_OK);
        EXPECT_EQ(TestWidget::ImplementationOf(through.get()), widget) << FormatGuid(iid);
    }
    EXPECT_EQ(RefCount(widget), references) << "nothing handed out a reference";
    EXPECT_EQ(TestWidget::ImplementationOf(nullptr), nullptr);
}

TEST_F(ImplementationOfTest, OtherImplementationsAndOtherClassesAreRefused) {
    TestWidget* widget = NewWidget();
    Ref<ITestGadget> gadget(TestGadget::Create());
    ASSERT_TRUE(gadget);

    // A client's object answering the very same interfaces.
    ForeignGadget foreign;
    EXPECT_EQ(TestGadget::ImplementationOf(&foreign), nullptr);
    EXPECT_EQ(TestWidget::ImplementationOf(&foreign), nullptr);
    EXPECT_EQ(foreign.refs, 1u);
    EXPECT_GT(foreign.queries, 0) << "asked, and refused";

    // Classes of ours: the widget is no gadget and the gadget no widget, though both
    // answer ITestGadget; a class sharing the gadget's coclass is told apart too.
    EXPECT_EQ(TestGadget::ImplementationOf(widget->GetUnknown()), nullptr);
    EXPECT_EQ(TestWidget::ImplementationOf(gadget.get()), nullptr);
    EXPECT_EQ(TestGadget::ImplementationOf(gadget.get()), static_cast<TestGadget*>(gadget.get()));
    Ref<ITestGadget> twin(TwinGadget::Create());
    ASSERT_TRUE(twin);
    EXPECT_EQ(TestGadget::ImplementationOf(twin.get()), nullptr);
    EXPECT_EQ(TwinGadget::ImplementationOf(gadget.get()), nullptr);
    EXPECT_EQ(TwinGadget::ImplementationOf(twin.get()), static_cast<TwinGadget*>(twin.get()));

    // An object of a class derived from ours is one of ours.
    TunedGadget* tuned = new TunedGadget;
    tuned->AddRef();
    Ref<ITestGadget> tunedRef(tuned);
    EXPECT_EQ(TestGadget::ImplementationOf(tunedRef.get()), static_cast<TestGadget*>(tuned));
    EXPECT_EQ(TwinGadget::ImplementationOf(tunedRef.get()), nullptr);
    EXPECT_EQ(RefCount(gadget.get()), 1u);
    EXPECT_EQ(RefCount(twin.get()), 1u);
}

TEST_F(ImplementationOfTest, TheArchiveIsFoundBehindItsInterfaceAndNothingElseIs) {
    auto archive = core::CLuxArchive::ForLoading(0);
    Ref<IDispatch> dispatch;
    ASSERT_EQ(archive->QueryInterface(IDispatch::iid, dispatch.void_out()), S_OK);
    EXPECT_EQ(core::CLuxArchive::ImplementationOf(dispatch.get()), archive.get());
    Ref<IDispatch> collection;
    ASSERT_EQ(CreateObject("Tessaly.LuxCollection", IDispatch::iid, collection.void_out()), S_OK);
    EXPECT_EQ(core::CLuxArchive::ImplementationOf(collection.get()), nullptr);
}

}  // namespace
}  // namespace tessaly::test
