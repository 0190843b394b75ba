// The class table: finding classes by CLSID and by name, and CreateObject's failures with
// the error info that comes with each.
#include <gtest/gtest.h>

#include <string>

#include "TestShapes.h"
#include "TestWidget.h"
#include "platform/ClassTable.h"
#include "platform/ErrorInfo.h"

namespace tessaly::test {
namespace {

// Classes entered by this file only, to see what the table does with a factory's failure.
HRESULT FailWithErrorInfo(REFIID, void** ppv) noexcept {
    *ppv = nullptr;
    return tessaly::SetErrorInfo(E_ACCESSDENIED, "The probe is switched off", "ProbeFactory", GUID_NULL);
}
HRESULT FailSilently(REFIID, void** ppv) noexcept {
    *ppv = nullptr;
    return E_ABORT;
}

constexpr CoClassInfo kProbe{"TestProbe", MakeGuid("6B0E81E4-2F1B-4C35-9E0D-7A4D3C2B1A09"), "", true,
                             "Tessaly.TestProbe.1", "Tessaly.TestProbe", nullptr, 0};
constexpr CoClassInfo kMute{"TestMute", MakeGuid("6B0E81E4-2F1B-4C35-9E0D-7A4D3C2B1A0A"), "", true, "Tessaly.TestMute.3",
                            "Tessaly.TestMute", nullptr, 0};

class ClassTableTest : public WidgetTest {
protected:
    static void SetUpTestSuite() {
        ClassTable::Register(kProbe, &FailWithErrorInfo);
        ClassTable::Register(kProbe, &FailSilently);
        ClassTable::Register(kMute, &FailSilently);
    }

    // The thread's error info as "source: description", or "none"; the slot is emptied.
    static std::string TakeError() {
        IErrorInfo* info = nullptr;
        if (::GetErrorInfo(0, &info) != S_OK || !info) return "none";
        BSTR source = nullptr;
        BSTR description = nullptr;
        EXPECT_EQ(info->GetSource(&source), S_OK);
        EXPECT_EQ(info->GetDescription(&description), S_OK);
        std::string text = Text(source) + ": " + Text(description);
        SysFreeString(source);
        SysFreeString(description);
        info->Release();
        return text;
    }
};

TEST_F(ClassTableTest, FindsAClassByCLSIDAndByEveryFormOfItsName) {
    const ClassEntry* widget = ClassTable::Find(CLSID_TestWidget);
    ASSERT_NE(widget, nullptr);
    EXPECT_EQ(widget->coclass, &TestWidget::CoClass());
    EXPECT_NE(widget->create, nullptr);
    for (const char* name : {"Tessaly.TestWidget.1", "Tessaly.TestWidget", "tessaly.testwidget", "TESSALY.TESTWIDGET.1",
                             "{B454DE99-5186-4764-983E-A4676A70251B}", "{b454de99-5186-4764-983e-a4676a70251b}"})
        EXPECT_EQ(ClassTable::Find(std::string_view(name)), widget) << name;
    EXPECT_EQ(ClassTable::Find(std::string_view("Tessaly.TestGadget")), ClassTable::Find(CLSID_TestGadget));

    // Near misses find nothing: another version, a prefix, a CLSID without braces or with one missing.
    for (const char* name : {"Tessaly.TestWidget.2", "Tessaly.TestWidge", "Tessaly.TestWidget.", "TestWidget", "",
                             "B454DE99-5186-4764-983E-A4676A70251B", "{B454DE99-5186-4764-983E-A4676A70251B",
                             "{B454DE99-5186-4764-983E-A4676A70251C}"})
        EXPECT_EQ(ClassTable::Find(std::string_view(name)), nullptr) << name;
    EXPECT_EQ(ClassTable::Find(GUID_NULL), nullptr);

    // The first registration of a CLSID stands; a noncreatable class keeps no factory.
    ASSERT_NE(ClassTable::Find(kProbe.clsid), nullptr);
    EXPECT_EQ(ClassTable::Find(kProbe.clsid)->create, &FailWithErrorInfo);
    ASSERT_NE(ClassTable::Find(CLSID_TestSealed), nullptr);
    EXPECT_EQ(ClassTable::Find(CLSID_TestSealed)->create, nullptr);
    int widgets = 0;
    for (const ClassEntry& entry : ClassTable::Entries()) widgets += entry.coclass->clsid == CLSID_TestWidget;
    EXPECT_EQ(widgets, 1);
}

TEST_F(ClassTableTest, CreateObjectMakesAnObjectByEveryFormOfName) {
    for (const char* name : {"Tessaly.TestWidget.1", "tessaly.TESTWIDGET", "{B454DE99-5186-4764-983E-A4676A70251B}"}) {
        Ref<ITestWidget> widget;
        ASSERT_EQ(CreateObject(name, ITestWidget::iid, widget.void_out()), S_OK) << name;
        ASSERT_TRUE(widget);
        EXPECT_EQ(RefCount(widget.get()), 1u);
        EXPECT_EQ(Module::LiveObjectCount(), liveAtStart_ + 1);
    }
    Ref<ITestGadget> gadget;
    ASSERT_EQ(CreateObject(CLSID_TestGadget, ITestGadget::iid, gadget.void_out()), S_OK);

    // An interface the class lacks: nothing comes back and nothing stays alive.
    void* none = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(CreateObject("Tessaly.TestGadget", ITestWidget::iid, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(Module::LiveObjectCount(), liveAtStart_ + 1);
    EXPECT_EQ(CreateObject("Tessaly.TestGadget", ITestGadget::iid, nullptr), E_POINTER);
}

TEST_F(ClassTableTest, CreateObjectTellsMalformedNamesFromUnknownOnes) {
    const std::string longest = "A" + std::string(38, 'b');
    struct Case {
        std::string name;
        HRESULT expected;
        const char* described;
    };
    const Case cases[] = {
        {"", CO_E_CLASSSTRING, "'' is neither a ProgID nor a class ID in braces"},
        {"1Tessaly.TestWidget", CO_E_CLASSSTRING, "'1Tessaly.TestWidget' is neither"},
        {"Tessaly Test Widget", CO_E_CLASSSTRING, "'Tessaly Test Widget' is neither"},
        {"{B454DE99-5186-4764-983E-A4676A70251B", CO_E_CLASSSTRING, "is neither"},
        {"{B454DE99-5186-4764-983E-A4676A70251G}", CO_E_CLASSSTRING, "is neither"},
        {"B454DE99-5186-4764-983E-A4676A70251B", CO_E_CLASSSTRING, "is neither"},
        {longest + "c", CO_E_CLASSSTRING, "is neither"},
        {longest, REGDB_E_CLASSNOTREG, "No class is registered as 'Abbbb"},
        {"Tessaly.NoSuchThing.1", REGDB_E_CLASSNOTREG, "No class is registered as 'Tessaly.NoSuchThing.1'"},
        {"{00000000-0000-0000-0000-000000000001}", REGDB_E_CLASSNOTREG,
         "No class is registered as '{00000000-0000-0000-0000-000000000001}'"},
        {"Tessaly.TestSealed", CLASS_E_CLASSNOTAVAILABLE,
         "The class TestSealed ('Tessaly.TestSealed') cannot be created by clients"},
        {"{ed83e2e6-4a48-4aee-acc6-4f45bd9fe7c3}", CLASS_E_CLASSNOTAVAILABLE, "The class TestSealed ('{ed83e2e6"},
    };
    for (const Case& c : cases) {
        void* object = reinterpret_cast<void*>(0x1);
        EXPECT_EQ(CreateObject(c.name, IUnknown::iid, &object), c.expected) << c.name;
        EXPECT_EQ(object, nullptr) << c.name;
        const std::string error = TakeError();
        EXPECT_EQ(error.rfind("CreateObject: ", 0), 0u) << error;
        EXPECT_NE(error.find(c.described), std::string::npos) << c.name << " -> " << error;
    }

    // The CLSID form says the same.
    void* object = nullptr;
    EXPECT_EQ(CreateObject(CLSID_TestSealed, IUnknown::iid, &object), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(TakeError(),
              "CreateObject: The class TestSealed ('{ED83E2E6-4A48-4AEE-ACC6-4F45BD9FE7C3}') cannot be created by clients");
    EXPECT_EQ(CreateObject(GUID_NULL, IUnknown::iid, &object), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(TakeError(), "CreateObject: No class is registered as '{00000000-0000-0000-0000-000000000000}'");
    EXPECT_EQ(object, nullptr);
}

TEST_F(ClassTableTest, AFactorysOwnErrorInfoReachesTheCallerAndNoStaleErrorIsLeft) {
    void* object = nullptr;
    EXPECT_EQ(CreateObject("Tessaly.TestProbe", IUnknown::iid, &object), E_ACCESSDENIED);
    EXPECT_EQ(TakeError(), "ProbeFactory: The probe is switched off");

    // A factory failing without error info must not leave the previous failure's text behind.
    EXPECT_EQ(CreateObject("Tessaly.NoSuchThing", IUnknown::iid, &object), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(CreateObject("Tessaly.TestMute.3", IUnknown::iid, &object), E_ABORT);
    EXPECT_EQ(TakeError(), "none");

    // Nor does a success.
    EXPECT_EQ(CreateObject("Tessaly.NoSuchThing", IUnknown::iid, &object), REGDB_E_CLASSNOTREG);
    Ref<IUnknown> gadget;
    ASSERT_EQ(CreateObject("Tessaly.TestGadget", IUnknown::iid, gadget.void_out()), S_OK);
    EXPECT_EQ(TakeError(), "none");
}

}  // namespace
}  // namespace tessaly::test
