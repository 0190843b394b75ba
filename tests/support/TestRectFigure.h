// A rectangular figure on the library's object base, for testing interface families: it
// implements ITestRectFigure (derived from ITestFigure, whose members it answers through the
// one dispatch), the [local] ITestFigureGeometry that hands out a plain struct, and holds a
// corner point whose Change events it passes on as sub-object events (-2).
#pragma once

#include "TessalyTest.h"
#include "com/core/impl/ChildEventForwarder.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "platform/Bstr.h"
#include "support/TestPoint.h"

namespace tessaly::test {

class TestRectFigure : public core::ILuxObjectImplBase<TestRectFigure, ITestRectFigure, ITestFigureGeometry> {
public:
    static const CoClassInfo& CoClass();
    using CoClassInterfaceList = generated::CoClassInterfaceList_TestRectFigure;

    TestRectFigure();
    void CopyFrom(const TestRectFigure& source);
    void PersistState(core::ArchiveAccess& archive);

    // ITestFigure
    HRESULT get_Name(BSTR* value) override;
    HRESULT put_Name(BSTR value) override;
    HRESULT get_Area(double* value) override;
    // ITestRectFigure
    HRESULT get_Width(double* value) override;
    HRESULT put_Width(double value) override;
    HRESULT get_Height(double* value) override;
    HRESULT put_Height(double value) override;
    HRESULT get_Corner(ITestPoint** value) override;
    // ITestFigureGeometry
    HRESULT GetBounds(TestFigureBounds* bounds) override;

protected:
    ~TestRectFigure() override;

private:
    HRESULT SetExtent(const char* method, double TestRectFigure::*field, int32_t stateId, double value);

    Bstr name_;
    double width_ = 0;
    double height_ = 0;
    ComPtr<TestPoint> corner_;  // made with the figure, never replaced
    core::ChildEventForwarder children_{*this};
};

}  // namespace tessaly::test
