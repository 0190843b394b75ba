// A class built from an interface family: TestRectFigure lists ITestRectFigure (derived from
// ITestFigure) and the [local] ITestFigureGeometry, and writes nothing but its own members.
// The base members answer through the derived vtable and through the one IDispatch, the
// local interface only through QueryInterface, and the corner point's changes reach the
// figure's sinks as sub-object events that describe them.
#include <gtest/gtest.h>

#include <vector>

#include "TessalyTest.h"
#include "platform/Bstr.h"
#include "platform/ComPtr.h"
#include "platform/EventSink.h"
#include "platform/Module.h"
#include "platform/Variant.h"
#include "support/RecordedError.h"
#include "support/TestRectFigure.h"

namespace tessaly::test {
namespace {

struct SeenChange {
    int32_t stateId;
    Variant value;
    int32_t areas;
};

class InterfaceFamilyTest : public ::testing::Test {
protected:
    void SetUp() override {
        live_ = Module::LiveObjectCount();
        figure_ = ComPtr<TestRectFigure>::Attach(TestRectFigure::Create());
        ASSERT_TRUE(figure_);
        ASSERT_EQ(figure_->get_Corner(corner_.Out()), S_OK);
    }
    void TearDown() override {
        if (sink_) {
            EXPECT_EQ(Unadvise(figure_->GetUnknown(), DIID_ILuxChangeEvent, cookie_), S_OK);
            sink_.Reset();
        }
        seen_.clear();  // an event info holds its source
        corner_.Reset();
        figure_.Reset();
        EXPECT_EQ(Module::LiveObjectCount(), live_);
    }

    void Listen() {
        sink_ = ComPtr<IDispatch>::Attach(MakeEventSink(luxChange_Change, [this](std::span<const VARIANT> args) {
            seen_.push_back({args[0].lVal, Variant(args[1]), args[2].lVal});
        }));
        ASSERT_EQ(Advise(figure_->GetUnknown(), DIID_ILuxChangeEvent, sink_.get(), &cookie_), S_OK);
    }

    // Invokes a member by name through the figure's IDispatch.
    HRESULT Call(const char* name, WORD flags, std::vector<VARIANT> args, VARIANT* result) {
        ComPtr<IDispatch> dispatch(figure_->GetDispatch());
        Bstr text(name);
        LPOLESTR names[] = {text.get()};
        DISPID dispid = DISPID_UNKNOWN;
        const HRESULT found = dispatch->GetIDsOfNames(GUID_NULL, names, 1, 0, &dispid);
        if (FAILED(found)) return found;
        DISPID put = DISPID_PROPERTYPUT;
        DISPPARAMS params{args.data(), nullptr, static_cast<UINT>(args.size()), 0};
        if (flags == DISPATCH_PROPERTYPUT) {
            params.rgdispidNamedArgs = &put;
            params.cNamedArgs = 1;
        }
        return dispatch->Invoke(dispid, GUID_NULL, 0, flags, &params, result, nullptr, nullptr);
    }

    size_t live_ = 0;
    ComPtr<TestRectFigure> figure_;
    ComPtr<ITestPoint> corner_;
    ComPtr<IDispatch> sink_;
    DWORD cookie_ = 0;
    std::vector<SeenChange> seen_;
};

TEST_F(InterfaceFamilyTest, BaseMembersAnswerThroughTheDerivedInterfaceAndQueryInterface) {
    ITestRectFigure* rect = figure_.get();
    ASSERT_EQ(rect->put_Width(4), S_OK);
    ASSERT_EQ(rect->put_Height(2.5), S_OK);
    ASSERT_EQ(rect->put_Name(Bstr("gauge").get()), S_OK);

    auto base = figure_.As<ITestFigure>();
    ASSERT_TRUE(base);
    double area = 0;
    EXPECT_EQ(base->get_Area(&area), S_OK);
    EXPECT_EQ(area, 10.0);
    Bstr name;
    EXPECT_EQ(base->get_Name(name.Out()), S_OK);
    EXPECT_EQ(name, "gauge");
    // Every interface of the family is one object.
    EXPECT_EQ(base.As<IUnknown>().get(), figure_->GetUnknown());
    EXPECT_EQ(base.As<ITestRectFigure>().get(), rect);
}

TEST_F(InterfaceFamilyTest, TheLocalInterfaceHandsOutItsStructAndStaysOutOfDispatch) {
    ASSERT_EQ(corner_->MoveTo(1.5, -2), S_OK);
    ASSERT_EQ(figure_->put_Width(3), S_OK);
    ASSERT_EQ(figure_->put_Height(4), S_OK);
    auto geometry = ComPtr<IUnknown>(figure_->GetUnknown()).As<ITestFigureGeometry>();
    ASSERT_TRUE(geometry);
    TestFigureBounds bounds{};
    ASSERT_EQ(geometry->GetBounds(&bounds), S_OK);
    EXPECT_EQ(bounds.Left, 1.5);
    EXPECT_EQ(bounds.Top, -2.0);
    EXPECT_EQ(bounds.Right, 4.5);
    EXPECT_EQ(bounds.Bottom, 2.0);
    EXPECT_EQ(geometry->GetBounds(nullptr), E_POINTER);
    TakeErrorInfo();

    VARIANT result;
    VariantInit(&result);
    EXPECT_EQ(Call("GetBounds", DISPATCH_METHOD, {}, &result), DISP_E_UNKNOWNNAME);
    // The base's and the derived interface's members dispatch through the one IDispatch.
    ASSERT_EQ(Call("Area", DISPATCH_PROPERTYGET, {}, &result), S_OK);
    EXPECT_EQ(result.vt, VT_R8);
    EXPECT_EQ(result.dblVal, 12.0);
    Variant width(7.0);
    ASSERT_EQ(Call("Width", DISPATCH_PROPERTYPUT, {width.get()}, nullptr), S_OK);
    ASSERT_EQ(Call("Area", DISPATCH_PROPERTYGET, {}, &result), S_OK);
    EXPECT_EQ(result.dblVal, 28.0);
}

TEST_F(InterfaceFamilyTest, ARefusedSetterChangesNothingAndRaisesNothing) {
    ASSERT_EQ(figure_->put_Width(2), S_OK);
    Listen();
    EXPECT_EQ(figure_->put_Width(-1), E_INVALIDARG);
    const RecordedError error = TakeErrorInfo();
    EXPECT_TRUE(error.present);
    EXPECT_EQ(error.source, "put_Width");
    double width = 0;
    EXPECT_EQ(figure_->get_Width(&width), S_OK);
    EXPECT_EQ(width, 2.0);
    EXPECT_TRUE(seen_.empty());
}

TEST_F(InterfaceFamilyTest, TheCornersChangesReachTheFiguresSinksAsSubObjectEvents) {
    Listen();
    ASSERT_EQ(corner_->put_X(3), S_OK);
    ASSERT_EQ(seen_.size(), 1u);
    EXPECT_EQ(seen_[0].stateId, luxState_SubObjectEvent);
    EXPECT_EQ(seen_[0].areas, testFA_Point_Position);
    ASSERT_EQ(seen_[0].value.vt(), VT_DISPATCH);

    auto info = ComPtr<IDispatch>(seen_[0].value.get().pdispVal).As<ILuxEventInfo>();
    ASSERT_TRUE(info);
    LONG number = 0;
    EXPECT_EQ(info->get_EventID(&number), S_OK);
    EXPECT_EQ(number, luxChange_Change);
    EXPECT_EQ(info->get_ArgumentCount(&number), S_OK);
    EXPECT_EQ(number, 3);
    VARIANT argument;
    VariantInit(&argument);
    ASSERT_EQ(info->get_Arguments(0, &argument), S_OK);
    EXPECT_EQ(argument.vt, VT_I4);
    EXPECT_EQ(argument.lVal, testPoint_X);
    ASSERT_EQ(info->get_Arguments(1, &argument), S_OK);
    EXPECT_EQ(argument.vt, VT_R8);
    EXPECT_EQ(argument.dblVal, 3.0);
    EXPECT_EQ(info->get_SourceIndex(&number), S_OK);
    EXPECT_EQ(number, luxNoIndex);
    ComPtr<IDispatch> source;
    ASSERT_EQ(info->get_Source(source.Out()), S_OK);
    EXPECT_EQ(source.As<IUnknown>().get(), corner_.As<IUnknown>().get());

    // An unchanged value raises nothing on the corner, so nothing reaches the figure.
    ASSERT_EQ(corner_->put_X(3), S_OK);
    EXPECT_EQ(seen_.size(), 1u);
}

TEST_F(InterfaceFamilyTest, SubObjectEventsMergeWhileTheFigureIsSuspended) {
    Listen();
    ASSERT_EQ(figure_->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(corner_->put_X(1), S_OK);
    ASSERT_EQ(corner_->put_Marker(Variant(int32_t{5}).get()), S_OK);
    EXPECT_TRUE(seen_.empty());
    ASSERT_EQ(figure_->ResumeAndFireEvent(), S_OK);
    ASSERT_EQ(seen_.size(), 1u);
    EXPECT_EQ(seen_[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(seen_[0].value.vt(), VT_EMPTY);
    EXPECT_EQ(seen_[0].areas, testFA_Point_Position | testFA_Point_Marker);
}

TEST_F(InterfaceFamilyTest, ACornerOutlivingItsFigurePassesNothingOn) {
    Listen();
    // The corner holds no reference on the figure: releasing the figure frees it at once.
    ComPtr<ITestPoint> corner = corner_;
    corner_.Reset();
    figure_.Reset();
    EXPECT_EQ(corner->put_Y(9), S_OK);
    double y = 0;
    EXPECT_EQ(corner->get_Y(&y), S_OK);
    EXPECT_EQ(y, 9.0);
    EXPECT_TRUE(seen_.empty());
    corner.Reset();
    sink_.Reset();
    EXPECT_EQ(Module::LiveObjectCount(), live_);  // no reference cycle kept figure or corner alive
    figure_ = ComPtr<TestRectFigure>::Attach(TestRectFigure::Create());  // for TearDown
}

}  // namespace
}  // namespace tessaly::test
