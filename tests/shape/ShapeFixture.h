// What the shape tests share: shapes and images made as a client makes them, a log of the
// Change events (state ID, areas, value) and of the interactive events a shape raises, the
// parameters of a rectangle, and the check of a refusal (exact HRESULT, the message with
// its inserts, the source).
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "TessalyCore.h"
#include "com/core/MessageTable.h"
#include "platform/Bstr.h"
#include "platform/ComPtr.h"
#include "platform/EventSink.h"
#include "platform/Variant.h"
#include "support/LiveObjectFixture.h"
#include "support/RecordedError.h"

namespace tessaly::test {

struct ChangeEvent {
    int32_t stateId;
    int32_t areas;
    Variant value;
};

struct ShapeEvents {
    std::vector<ChangeEvent> changes;
    std::vector<ComPtr<ILuxGraphic>> dragging;
    std::vector<ComPtr<ILuxGraphic>> stopped;
};

using RectParams = std::array<double, 4>;  // X, Y, Width, Height

class ShapeFixture : public LiveObjectFixture {
public:
    static ComPtr<ILuxRectangle> NewRectangle() { return Make<ILuxRectangle>("Tessaly.LuxRectangle"); }
    static ComPtr<ILuxRectangle> NewRectangle(double x, double y, double width, double height) {
        auto rectangle = NewRectangle();
        EXPECT_EQ(rectangle->SetXYWidthHeight(x, y, width, height), S_OK);
        return rectangle;
    }
    template <class I>
    static ComPtr<I> As(IUnknown* object) {
        ComPtr<I> other;
        EXPECT_EQ(object->QueryInterface(I::iid, other.OutVoid()), S_OK);
        return other;
    }
    static RectParams Params(ILuxRectangle* rectangle) {
        RectParams p{};
        EXPECT_EQ(rectangle->GetXYWidthHeight(&p[0], &p[1], &p[2], &p[3]), S_OK);
        return p;
    }
    static std::string SpaceName(IUnknown* shape) {
        Bstr name;
        EXPECT_EQ(As<ILuxShape>(shape)->get_SelectedSpaceName(name.Out()), S_OK);
        return name.str();
    }
    static ComPtr<ILuxTransform2DLinear> Linear(double m00, double m01, double m10, double m11, double tx, double ty) {
        auto linear = Make<ILuxTransform2DLinear>("Tessaly.LuxTransform2DLinear");
        EXPECT_EQ(linear->SetMatrixElementsTranslation(m00, m01, m10, m11, tx, ty), S_OK);
        return linear;
    }
    // A space under the root of `tree`.
    static HRESULT AddSpace(ILuxCoordinateSpaceTree* tree, const char* name, ILuxTransform2DLinear* parentFromNew) {
        return tree->AddSpace(Bstr("@").get(), Bstr(name).get(), As<ILuxTransform2D>(parentFromNew).get(), VARIANT_TRUE,
                              luxAddSpaceDuplicateIsError);
    }
    static ComPtr<ILuxImage8Grey> NewImage(LONG width, LONG height) {
        auto image = Make<ILuxImage8Grey>("Tessaly.LuxImage8Grey");
        EXPECT_EQ(As<ILuxImage>(image.get())->Allocate(width, height), S_OK);
        return image;
    }

    // The events `shape` raises from now on (the shape keeps the sinks).
    static std::shared_ptr<ShapeEvents> Listen(IUnknown* shape) {
        auto log = std::make_shared<ShapeEvents>();
        auto change = ComPtr<IDispatch>::Attach(MakeEventSink(
            luxChange_Change,
            [log](std::span<const VARIANT> args) { log->changes.push_back({args[0].lVal, args[2].lVal, Variant(args[1])}); },
            DIID_ILuxChangeEvent));
        DWORD cookie = 0;
        EXPECT_EQ(Advise(shape, DIID_ILuxChangeEvent, change.get(), &cookie), S_OK);
        auto interactive = ComPtr<IDispatch>::Attach(MakeEventSink(
            [log](DISPID id, DISPPARAMS* params) {
                ComPtr<ILuxGraphic> graphic;
                if (params->cArgs == 1 && params->rgvarg[0].vt == VT_DISPATCH && params->rgvarg[0].pdispVal)
                    params->rgvarg[0].pdispVal->QueryInterface(IID_ILuxGraphic, graphic.OutVoid());
                (id == luxGraphicInteractiveEvents_Dragging ? log->dragging : log->stopped).push_back(graphic);
            },
            DIID_ILuxGraphicInteractiveEvents));
        EXPECT_EQ(Advise(shape, DIID_ILuxGraphicInteractiveEvents, interactive.get(), &cookie), S_OK);
        return log;
    }

    // A refusal described by a library message with its inserts.
    static void ExpectRefused(HRESULT got, HRESULT expected, int32_t messageId, std::vector<std::string> inserts,
                              const char* source) {
        EXPECT_EQ(got, expected);
        const RecordedError error = TakeErrorInfo();
        EXPECT_TRUE(error.present);
        EXPECT_EQ(error.description, core::MessageTable::Text(messageId, inserts));
        EXPECT_EQ(error.source, source);
    }
    // A failure whose description names a core exception.
    static void ExpectFailed(HRESULT got, HRESULT expected, const char* exception, const char* source) {
        EXPECT_EQ(got, expected);
        const RecordedError error = TakeErrorInfo();
        EXPECT_TRUE(error.present);
        EXPECT_NE(error.description.find(exception), std::string::npos) << error.description;
        EXPECT_EQ(error.source, source);
    }
};

}  // namespace tessaly::test
