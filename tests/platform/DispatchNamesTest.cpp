// GetIDsOfNames over the coclass: case-insensitive member names, the default interface
// winning a name two interfaces share (in tables the generator would refuse), members of base interfaces, and parameter names
// mapped to positions for named arguments.
#include <gtest/gtest.h>

#include "TestWidget.h"
#include "platform/Dispatcher.h"

#include <atomic>
#include <string_view>
#include <thread>

namespace tessaly::test {
namespace {

class DispatchNamesTest : public WidgetTest {
protected:
    HRESULT Ids(IDispatch* target, std::vector<const char*> names, std::vector<DISPID>& ids) {
        ids.assign(names.size(), 12345);
        std::vector<LPOLESTR> pointers;
        for (const char* name : names) pointers.push_back(const_cast<LPOLESTR>(name));
        return target->GetIDsOfNames(GUID_NULL, pointers.data(), static_cast<UINT>(pointers.size()),
                                     LOCALE_USER_DEFAULT, ids.data());
    }
};

TEST_F(DispatchNamesTest, MemberNamesIgnoreAsciiCase) {
    TestWidget* widget = NewWidget();
    std::vector<DISPID> ids;
    for (const char* spelling : {"Name", "name", "NAME", "nAmE"}) {
        ASSERT_EQ(Ids(widget->GetDispatch(), {spelling}, ids), S_OK) << spelling;
        EXPECT_EQ(ids[0], TestWidget::kName) << spelling;
    }
    ASSERT_EQ(Ids(widget->GetDispatch(), {"VALUE"}, ids), S_OK);
    EXPECT_EQ(ids[0], DISPID_VALUE);
    // Folding is ASCII only and never makes different names equal.
    EXPECT_EQ(Ids(widget->GetDispatch(), {"Names"}, ids), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(Ids(widget->GetDispatch(), {"Nam"}, ids), DISP_E_UNKNOWNNAME);
}

// ITestWidget's Extent under the name Size, which ITestGadget also has with another DISPID.
// The generator refuses such a coclass; tables built otherwise still get the rule that the
// default interface wins the name.
const InterfaceInfo& WidgetWithSize() {
    static const InterfaceInfo info = [] {
        const InterfaceInfo& widget = tessaly::generated::Interface_ITestWidget;
        static MemberInfo size{};
        for (uint16_t m = 0; m < widget.memberCount; ++m)
            if (std::string_view(widget.members[m].name) == "Extent") size = widget.members[m];
        size.name = "Size";
        return InterfaceInfo{"IWidgetWithSize", ITestWidget::iid, nullptr, InterfaceKind::Dual, "", &size, 1};
    }();
    return info;
}

// Both interfaces, listed in either order, [default] on the one named.
const CoClassInfo& SharedName(bool gadgetListedFirst, bool gadgetIsDefault) {
    static CoClassInterface lists[4][2];
    static CoClassInfo infos[4];
    const int which = (gadgetListedFirst ? 2 : 0) + (gadgetIsDefault ? 1 : 0);
    const CoClassInterface widget{&WidgetWithSize(), static_cast<uint8_t>(gadgetIsDefault ? 0 : IMPLTYPEFLAG_FDEFAULT)};
    const CoClassInterface gadget{&tessaly::generated::Interface_ITestGadget,
                                  static_cast<uint8_t>(gadgetIsDefault ? IMPLTYPEFLAG_FDEFAULT : 0)};
    lists[which][0] = gadgetListedFirst ? gadget : widget;
    lists[which][1] = gadgetListedFirst ? widget : gadget;
    infos[which] = CoClassInfo{"SharedName", GUID_NULL, "", false, "", "", lists[which], 2};
    return infos[which];
}

TEST_F(DispatchNamesTest, DefaultInterfaceWinsASharedNameWhateverTheOrder) {
    for (bool gadgetFirst : {false, true}) {
        for (bool gadgetDefault : {false, true}) {
            const Dispatcher* dispatcher = Dispatcher::For(SharedName(gadgetFirst, gadgetDefault));
            ASSERT_NE(dispatcher, nullptr);
            EXPECT_EQ(dispatcher->FindName("size"), gadgetDefault ? TestWidget::kGadgetSize : TestWidget::kWidgetExtent)
                << gadgetFirst << gadgetDefault;
            // The other interface's member stays reachable by its own DISPID.
            const MemberInfo* widgetSize = dispatcher->FindMember(TestWidget::kWidgetExtent, INVOKE_PROPERTYGET);
            const MemberInfo* gadgetSize = dispatcher->FindMember(TestWidget::kGadgetSize, INVOKE_PROPERTYGET);
            ASSERT_NE(widgetSize, nullptr);
            ASSERT_NE(gadgetSize, nullptr);
            EXPECT_EQ(widgetSize->params[0].vt, VT_R8);
            EXPECT_EQ(gadgetSize->params[0].vt, VT_I4);
            EXPECT_EQ(dispatcher->FindMember(TestWidget::kWidgetExtent, INVOKE_PROPERTYPUT), nullptr);
        }
    }
}

TEST_F(DispatchNamesTest, BaseInterfaceMembersAreFoundAndCalled) {
    TestWidget* widget = NewWidget();
    std::vector<DISPID> ids;
    ASSERT_EQ(Ids(widget->GetDispatch(), {"kind"}, ids), S_OK);
    EXPECT_EQ(ids[0], TestWidget::kKind);
    Args none;
    VARIANT result{};
    ASSERT_EQ(Call(widget, TestWidget::kKind, DISPATCH_PROPERTYGET, none, &result), S_OK);
    ASSERT_EQ(result.vt, VT_BSTR);
    EXPECT_EQ(Text(result.bstrVal), "widget");
    VariantClear(&result);
}

TEST_F(DispatchNamesTest, FurtherNamesAreParameterPositions) {
    TestWidget* widget = NewWidget();
    std::vector<DISPID> ids;
    ASSERT_EQ(Ids(widget->GetDispatch(), {"Concat", "second", "FIRST"}, ids), S_OK);
    EXPECT_EQ(ids, (std::vector<DISPID>{TestWidget::kConcat, 1, 0}));
    // The index of a property is in its get and put; the value only in the put.
    ASSERT_EQ(Ids(widget->GetDispatch(), {"Item", "index", "value"}, ids), S_OK);
    EXPECT_EQ(ids, (std::vector<DISPID>{TestWidget::kItem, 0, 1}));
}

TEST_F(DispatchNamesTest, UnknownNamesLeaveDispidUnknownInTheirSlots) {
    TestWidget* widget = NewWidget();
    std::vector<DISPID> ids;
    EXPECT_EQ(Ids(widget->GetDispatch(), {"NoSuchMember", "a"}, ids), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(ids, (std::vector<DISPID>{DISPID_UNKNOWN, DISPID_UNKNOWN}));
    // A known member with one unknown parameter: the known ones are still filled in.
    EXPECT_EQ(Ids(widget->GetDispatch(), {"Add", "zzz", "b"}, ids), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(ids, (std::vector<DISPID>{TestWidget::kAdd, DISPID_UNKNOWN, 1}));
    // The retval is not an argument a caller can name.
    EXPECT_EQ(Ids(widget->GetDispatch(), {"Add", "sum"}, ids), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(ids[1], DISPID_UNKNOWN);
    // Events belong to the source interface: they are not members of the object.
    EXPECT_EQ(Ids(widget->GetDispatch(), {"Change"}, ids), DISP_E_UNKNOWNNAME);
}

TEST_F(DispatchNamesTest, OnlyIidNullIsAccepted) {
    TestWidget* widget = NewWidget();
    LPOLESTR name = const_cast<LPOLESTR>("Name");
    DISPID id = 0;
    EXPECT_EQ(widget->GetIDsOfNames(ITestWidget::iid, &name, 1, LOCALE_USER_DEFAULT, &id), DISP_E_UNKNOWNINTERFACE);
    Args none;
    VARIANT result{};
    EXPECT_EQ(widget->Invoke(TestWidget::kName, ITestWidget::iid, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET,
                             none.get(), &result, nullptr, nullptr),
              DISP_E_UNKNOWNINTERFACE);
    EXPECT_EQ(widget->calls, 0);
}

TEST_F(DispatchNamesTest, DispatcherIsSharedByTheClassAndDescribesTheCoClass) {
    const Dispatcher* dispatcher = Dispatcher::For(TestWidget::CoClass());
    ASSERT_NE(dispatcher, nullptr);
    EXPECT_EQ(dispatcher, Dispatcher::For(TestWidget::CoClass()));
    EXPECT_EQ(dispatcher, TestWidget::ClassDispatcher());
    ASSERT_NE(dispatcher->DefaultInterface(), nullptr);
    EXPECT_EQ(dispatcher->DefaultInterface()->iid, ITestWidget::iid);
    ASSERT_NE(dispatcher->DefaultSourceInterface(), nullptr);
    EXPECT_EQ(dispatcher->DefaultSourceInterface()->iid, ITestWidgetEvents::iid);
    EXPECT_EQ(dispatcher->FindName("GADGET"), TestWidget::kGadget);
    ASSERT_NE(dispatcher->FindMember(TestWidget::kGadget, INVOKE_PROPERTYPUTREF), nullptr);
    EXPECT_EQ(dispatcher->FindMember(TestWidget::kGadget, INVOKE_PROPERTYPUT), nullptr);
    EXPECT_EQ(dispatcher->FindMember(0x7777, INVOKE_FUNC), nullptr);
    // Base interfaces count as implemented; the source interface does not.
    EXPECT_TRUE(dispatcher->Implements(ITestBase::iid));
    EXPECT_FALSE(dispatcher->Implements(ITestWidgetEvents::iid));
}

// The coclass's interfaces in another order: [default] on the second one.
const CoClassInfo& ReorderedCoClass() {
    static const CoClassInterface interfaces[] = {
        {TestWidget::ClassDispatcher()->ImplementingInterface(ITestGadget::iid), 0},
        {TestWidget::ClassDispatcher()->DefaultInterface(), IMPLTYPEFLAG_FDEFAULT},
    };
    static const CoClassInfo info{"Reordered", GUID_NULL, "", false, "", "", interfaces, 2};
    return info;
}

TEST_F(DispatchNamesTest, DefaultFlagDecidesNotTheOrderOfInterfaces) {
    const Dispatcher* dispatcher = Dispatcher::For(ReorderedCoClass());
    ASSERT_NE(dispatcher, nullptr);
    EXPECT_EQ(dispatcher->DefaultInterface()->iid, ITestWidget::iid);
    EXPECT_EQ(dispatcher->FindName("Extent"), TestWidget::kWidgetExtent);
    EXPECT_EQ(dispatcher->FindName("Size"), TestWidget::kGadgetSize);
    EXPECT_EQ(dispatcher->DefaultSourceInterface(), nullptr);
}

TEST_F(DispatchNamesTest, ConcurrentFirstUseBuildsOneDispatcher) {
    // A coclass no other test uses, so that the threads race on its first use.
    static const CoClassInterface interfaces[] = {{TestWidget::ClassDispatcher()->DefaultInterface(), 0}};
    static const CoClassInfo fresh{"Fresh", GUID_NULL, "", false, "", "", interfaces, 1};
    std::atomic<bool> go{false};
    const Dispatcher* seen[4] = {};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            while (!go.load()) std::this_thread::yield();
            seen[t] = Dispatcher::For(fresh);
        });
    }
    go = true;
    for (std::thread& thread : threads) thread.join();
    ASSERT_NE(seen[0], nullptr);
    for (const Dispatcher* dispatcher : seen) EXPECT_EQ(dispatcher, seen[0]);
    // Without a [default] flag the first interface is the default one.
    EXPECT_EQ(seen[0]->DefaultInterface()->iid, ITestWidget::iid);
    EXPECT_EQ(seen[0]->FindName("concat"), TestWidget::kConcat);
}

}  // namespace
}  // namespace tessaly::test
