// Type information handed out by objects: IDispatch::GetTypeInfo, IProvideClassInfo2,
// ISupportErrorInfo, and the immortal ITypeInfo objects over the generated tables.
#include <gtest/gtest.h>

#include "TestWidget.h"
#include "platform/TypeInfoObject.h"

namespace tessaly::test {
namespace {

using ClassInfoTest = WidgetTest;

std::string NameOf(ITypeInfo* info) {
    BSTR name = nullptr;
    EXPECT_EQ(info->GetName(&name), S_OK);
    std::string result = Text(name);
    SysFreeString(name);
    return result;
}

TEST_F(ClassInfoTest, GetTypeInfoDescribesTheDefaultInterface) {
    TestWidget* widget = NewWidget();
    UINT count = 0;
    ASSERT_EQ(widget->GetTypeInfoCount(&count), S_OK);
    EXPECT_EQ(count, 1u);
    ITypeInfo* info = nullptr;
    ASSERT_EQ(widget->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info), S_OK);
    TYPEKIND kind = TKIND_ENUM;
    ASSERT_EQ(info->GetTypeKind(&kind), S_OK);
    EXPECT_EQ(kind, TKIND_DISPATCH);
    EXPECT_EQ(NameOf(info), "ITestWidget");
    GUID guid{};
    ASSERT_EQ(info->GetGuid(&guid), S_OK);
    EXPECT_EQ(guid, ITestWidget::iid);
    const InterfaceInfo* table = nullptr;
    ASSERT_EQ(info->GetInterfaceInfo(&table), S_OK);
    EXPECT_EQ(table, TestWidget::ClassDispatcher()->DefaultInterface());
    const CoClassInfo* coclass = reinterpret_cast<const CoClassInfo*>(0x1);
    EXPECT_EQ(info->GetCoClassInfo(&coclass), TYPE_E_ELEMENTNOTFOUND);
    EXPECT_EQ(coclass, nullptr);
    const EnumInfo* enumeration = nullptr;
    EXPECT_EQ(info->GetEnumInfo(&enumeration), TYPE_E_ELEMENTNOTFOUND);
    info->Release();

    // The same object through the other interface's IDispatch slots.
    Ref<ITestGadget> gadget;
    ASSERT_EQ(widget->QueryInterface(ITestGadget::iid, gadget.void_out()), S_OK);
    ITypeInfo* again = nullptr;
    ASSERT_EQ(gadget->GetTypeInfo(0, LOCALE_USER_DEFAULT, &again), S_OK);
    EXPECT_EQ(again, info);

    ITypeInfo* none = reinterpret_cast<ITypeInfo*>(0x1);
    EXPECT_EQ(widget->GetTypeInfo(1, LOCALE_USER_DEFAULT, &none), DISP_E_BADINDEX);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(widget->GetTypeInfoCount(nullptr), E_POINTER);
}

TEST_F(ClassInfoTest, ProvideClassInfo2DescribesTheCoClassAndItsEvents) {
    TestWidget* widget = NewWidget();
    Ref<IProvideClassInfo2> provider;
    ASSERT_EQ(widget->QueryInterface(IProvideClassInfo2::iid, provider.void_out()), S_OK);
    Ref<IProvideClassInfo> base;
    ASSERT_EQ(widget->QueryInterface(IProvideClassInfo::iid, base.void_out()), S_OK);
    EXPECT_EQ(static_cast<void*>(base.get()), static_cast<void*>(provider.get()));

    ITypeInfo* classInfo = nullptr;
    ASSERT_EQ(provider->GetClassInfo(&classInfo), S_OK);
    TYPEKIND kind = TKIND_ENUM;
    classInfo->GetTypeKind(&kind);
    EXPECT_EQ(kind, TKIND_COCLASS);
    EXPECT_EQ(NameOf(classInfo), "TestWidget");
    GUID clsid{};
    classInfo->GetGuid(&clsid);
    EXPECT_EQ(clsid, TestWidget::CoClass().clsid);
    const CoClassInfo* table = nullptr;
    ASSERT_EQ(classInfo->GetCoClassInfo(&table), S_OK);
    EXPECT_EQ(table, &TestWidget::CoClass());

    GUID source{};
    ASSERT_EQ(provider->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &source), S_OK);
    EXPECT_EQ(source, ITestWidgetEvents::iid);
    GUID other = ITestWidget::iid;
    EXPECT_EQ(provider->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID + 1, &other), E_INVALIDARG);
    EXPECT_EQ(other, GUID_NULL);
    EXPECT_EQ(provider->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, nullptr), E_POINTER);

    // A class without events has no default source interface.
    Ref<ITestGadget> gadget(TestGadget::Create());
    Ref<IProvideClassInfo2> gadgetProvider;
    ASSERT_EQ(gadget->QueryInterface(IProvideClassInfo2::iid, gadgetProvider.void_out()), S_OK);
    GUID none = ITestWidget::iid;
    EXPECT_EQ(gadgetProvider->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &none), E_NOINTERFACE);
    EXPECT_EQ(none, GUID_NULL);
}

TEST_F(ClassInfoTest, ErrorInfoIsSupportedOnTheClassInterfacesOnly) {
    TestWidget* widget = NewWidget();
    Ref<ISupportErrorInfo> support;
    ASSERT_EQ(widget->QueryInterface(ISupportErrorInfo::iid, support.void_out()), S_OK);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(ITestWidget::iid), S_OK);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(ITestGadget::iid), S_OK);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(ITestBase::iid), S_OK);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(ITestWidgetEvents::iid), S_FALSE);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(IStream::iid), S_FALSE);
}

TEST_F(ClassInfoTest, TypeInfoObjectsAreImmortalAndOnePerTable) {
    const CoClassInfo& coclass = TestWidget::CoClass();
    ITypeInfo* info = TypeInfoObject::For(coclass);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info, TypeInfoObject::For(coclass));
    EXPECT_NE(info, TypeInfoObject::For(*coclass.interfaces[0].iface));
    EXPECT_EQ(info->AddRef(), 1u);
    EXPECT_EQ(info->Release(), 1u);
    EXPECT_EQ(info->Release(), 1u) << "an extra Release does not destroy it";
    ITypeInfo* same = nullptr;
    ASSERT_EQ(info->QueryInterface(ITypeInfo::iid, reinterpret_cast<void**>(&same)), S_OK);
    EXPECT_EQ(same, info);
    void* other = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(info->QueryInterface(IDispatch::iid, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);

    // The source interface is a dispinterface.
    const InterfaceInfo* events = TestWidget::ClassDispatcher()->DefaultSourceInterface();
    ASSERT_NE(events, nullptr);
    TYPEKIND kind = TKIND_ENUM;
    ASSERT_EQ(TypeInfoObject::For(*events)->GetTypeKind(&kind), S_OK);
    EXPECT_EQ(kind, TKIND_DISPATCH);
    EXPECT_EQ(NameOf(TypeInfoObject::For(*events)), "ITestWidgetEvents");

    static const EnumMemberInfo members[] = {{"colorRed", 1, "Red"}, {"colorBlue", 2, "Blue"}};
    static const EnumInfo colors{"Colors", "Colors", members, 2};
    ITypeInfo* enumInfo = TypeInfoObject::For(colors);
    ASSERT_EQ(enumInfo->GetTypeKind(&kind), S_OK);
    EXPECT_EQ(kind, TKIND_ENUM);
    EXPECT_EQ(NameOf(enumInfo), "Colors");
    GUID guid = ITestWidget::iid;
    ASSERT_EQ(enumInfo->GetGuid(&guid), S_OK);
    EXPECT_EQ(guid, GUID_NULL);
    const EnumInfo* table = nullptr;
    ASSERT_EQ(enumInfo->GetEnumInfo(&table), S_OK);
    EXPECT_EQ(table, &colors);
    const InterfaceInfo* notInterface = nullptr;
    EXPECT_EQ(enumInfo->GetInterfaceInfo(&notInterface), TYPE_E_ELEMENTNOTFOUND);
}

}  // namespace
}  // namespace tessaly::test
