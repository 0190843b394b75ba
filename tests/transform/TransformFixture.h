// What the transform tests share: a fixture that fails a test leaving objects alive,
// transforms made as a client makes them, a log of the Change events an object raises, the
// state of a linear transform read bit for bit, the check of a refusal (exact HRESULT, the
// message with its inserts, the source) and a non-linear transform of the tests' own.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "TessalyCore.h"
#include "com/core/MessageTable.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "platform/EventSink.h"
#include "platform/Module.h"
#include "platform/UnknownObject.h"
#include "platform/Variant.h"
#include "support/RecordedError.h"
#include "support/LiveObjectFixture.h"

namespace tessaly::test {

// The Change events one object raised: (state ID, functional areas) each.
struct ChangeLog {
    std::vector<std::pair<int32_t, int32_t>> events;
    size_t Count() const { return events.size(); }
};

// Bends the plane: (x, y) -> (x + k x^2, y). Not linear, with no inverse of its own; made to
// drive the composed transform with a member that is not a linear transform.
class BendTransform final : public UnknownObject<BendTransform, ILuxTransform2D> {
public:
    explicit BendTransform(double k) : k_(k) {}
    static ComPtr<ILuxTransform2D> Make(double k) {
        return ComPtr<ILuxTransform2D>::Attach(static_cast<ILuxTransform2D*>(Create(k)));
    }

    HRESULT GetTypeInfoCount(UINT* count) override {
        *count = 0;
        return S_OK;
    }
    HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return DISP_E_UNKNOWNNAME; }
    HRESULT Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return DISP_E_MEMBERNOTFOUND;
    }

    HRESULT MapPoint(double x, double y, double* mappedX, double* mappedY) override {
        if (mappedX) *mappedX = x + k_ * x * x;
        if (mappedY) *mappedY = y;
        return S_OK;
    }
    HRESULT get_Linear(VARIANT_BOOL* linear) override {
        *linear = VARIANT_FALSE;
        return S_OK;
    }
    // The Jacobian at (x, y), through the point's own image.
    HRESULT LinearTransform(double x, double y, ILuxTransform2DLinear** linear) override {
        const double slope = 1 + 2 * k_ * x;
        const double mapped = x + k_ * x * x;
        *linear = transform::CLuxTransform2DLinear::FromValue(
                      cc2XformLinear(slope, 0, 0, 1, mapped - slope * x, y - y))
                      .Detach();
        return S_OK;
    }
    HRESULT BestFitLinearTransform(IDispatch*, double*, ILuxTransform2DLinear**) override { return E_NOTIMPL; }
    HRESULT CopyBase(ILuxTransform2D** copy) override {
        ++copies;
        *copy = Make(k_).Detach();
        return S_OK;
    }
    HRESULT ComposeBase(ILuxTransform2D*, ILuxTransform2D**) override { return E_NOTIMPL; }
    HRESULT InvertBase(ILuxTransform2D**) override { return E_NOTIMPL; }

    int copies = 0;

private:
    friend class UnknownObject<BendTransform, ILuxTransform2D>;
    ~BendTransform() override = default;
    double k_;
};

class TransformFixture : public LiveObjectFixture {
public:
    static ComPtr<ILuxTransform2DLinear> NewLinear() {
        return Make<ILuxTransform2DLinear>("Tessaly.LuxTransform2DLinear");
    }
    static ComPtr<ILuxTransform2DLinear> NewLinear(double m00, double m01, double m10, double m11, double tx,
                                                   double ty) {
        auto linear = NewLinear();
        EXPECT_EQ(linear->SetMatrixElementsTranslation(m00, m01, m10, m11, tx, ty), S_OK);
        return linear;
    }
    static ComPtr<ILuxTransform2DComposed> NewComposed() {
        return Make<ILuxTransform2DComposed>("Tessaly.LuxTransform2DComposed");
    }

    // Logs the Change events of `object` from now on (the object keeps the sink).
    static std::shared_ptr<ChangeLog> Listen(IUnknown* object) {
        auto log = std::make_shared<ChangeLog>();
        auto sink = ComPtr<IDispatch>::Attach(MakeEventSink(
            luxChange_Change,
            [log](std::span<const VARIANT> args) { log->events.emplace_back(args[0].lVal, args[2].lVal); },
            DIID_ILuxChangeEvent));
        DWORD cookie = 0;
        EXPECT_EQ(Advise(object, DIID_ILuxChangeEvent, sink.get(), &cookie), S_OK);
        return log;
    }

    // m00, m01, m10, m11, tx, ty and the determinant, as bit patterns.
    using State = std::array<uint64_t, 7>;
    static State StateOf(ILuxTransform2DLinear* linear) {
        double v[7] = {};
        EXPECT_EQ(linear->GetMatrixElementsTranslation(&v[0], &v[1], &v[2], &v[3], &v[4], &v[5]), S_OK);
        EXPECT_EQ(linear->get_MatrixDeterminant(&v[6]), S_OK);
        State state;
        for (int i = 0; i < 7; ++i) state[i] = std::bit_cast<uint64_t>(v[i]);
        return state;
    }
    static std::array<double, 6> Elements(ILuxTransform2DLinear* linear) {
        std::array<double, 6> v{};
        EXPECT_EQ(linear->GetMatrixElementsTranslation(&v[0], &v[1], &v[2], &v[3], &v[4], &v[5]), S_OK);
        return v;
    }
    template <class T>
    static std::pair<double, double> Map(T* transform, double x, double y) {
        double mx = NAN, my = NAN;
        EXPECT_EQ(transform->MapPoint(x, y, &mx, &my), S_OK);
        return {mx, my};
    }

    // A refusal: the exact HRESULT, the message text with its inserts, the source.
    static void ExpectRefused(HRESULT got, HRESULT expected, int32_t messageId, std::vector<std::string> inserts,
                              const char* source) {
        EXPECT_EQ(got, expected);
        const RecordedError error = TakeErrorInfo();
        EXPECT_TRUE(error.present);
        EXPECT_EQ(error.description, core::MessageTable::Text(messageId, inserts));
        EXPECT_EQ(error.source, source);
    }
    // A refusal with the HRESULT's own text followed by an exception's detailed message.
    static void ExpectFailed(HRESULT got, HRESULT expected, const char* exception, const char* source) {
        EXPECT_EQ(got, expected);
        const RecordedError error = TakeErrorInfo();
        EXPECT_TRUE(error.present);
        EXPECT_EQ(error.description.rfind(core::MessageTable::Text(expected), 0), 0u) << error.description;
        EXPECT_NE(error.description.find(exception), std::string::npos) << error.description;
        EXPECT_EQ(error.source, source);
    }
};

}  // namespace tessaly::test
