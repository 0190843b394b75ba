#include "support/TestRectFigure.h"

#include <cmath>
#include <new>

#include "com/core/ccCOMError.h"
#include "platform/ClassTable.h"
#include "platform/Variant.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::test {

namespace {
const ClassRegistrar<TestRectFigure> registrar;
}  // namespace

const CoClassInfo& TestRectFigure::CoClass() { return generated::CoClass_TestRectFigure; }

TestRectFigure::TestRectFigure() : corner_(ComPtr<TestPoint>::Attach(TestPoint::Create())) {
    if (!corner_) throw std::bad_alloc();
    core::ObjectLock::Guard guard(Lock());
    if (!children_.Link(corner_->GetUnknown())) throw std::bad_alloc();
}

TestRectFigure::~TestRectFigure() {
    core::ObjectLock::Guard guard(Lock());
    children_.UnlinkAll();
}

void TestRectFigure::CopyFrom(const TestRectFigure& source) {
    {
        core::ObjectLock::Guard sourceGuard(source.Lock());
        core::ObjectLock::Guard guard(Lock());
        name_ = source.name_;
        width_ = source.width_;
        height_ = source.height_;
    }
    corner_->CopyFrom(*source.corner_);  // the copy keeps its own corner, linked to it
}

void TestRectFigure::PersistState(core::ArchiveAccess& archive) {
    archive.Persist("Name", name_);
    archive.Persist("Width", width_);
    archive.Persist("Height", height_);
}

HRESULT TestRectFigure::get_Name(BSTR* value) {
    return core::Guarded("get_Name", IID_ITestFigure, [&] {
        if (!value) return E_POINTER;
        core::ObjectLock::Guard guard(Lock());
        *value = Bstr(name_).Detach();
        return S_OK;
    });
}

HRESULT TestRectFigure::put_Name(BSTR value) {
    return core::Guarded("put_Name", IID_ITestFigure, [&] {
        Bstr name(BstrView(value));
        {
            core::ObjectLock::Guard guard(Lock());
            if (name_ == name) return S_OK;
            std::swap(name_, name);
        }
        return RaiseChange(testFigure_Name, Variant(BstrView(value)).get(), luxFA_Misc);
    });
}

HRESULT TestRectFigure::get_Area(double* value) {
    return core::Guarded("get_Area", IID_ITestFigure, [&] {
        if (!value) return E_POINTER;
        core::ObjectLock::Guard guard(Lock());
        *value = width_ * height_;
        return S_OK;
    });
}

HRESULT TestRectFigure::get_Width(double* value) {
    return core::Guarded("get_Width", IID_ITestRectFigure, [&] {
        if (!value) return E_POINTER;
        core::ObjectLock::Guard guard(Lock());
        *value = width_;
        return S_OK;
    });
}

HRESULT TestRectFigure::get_Height(double* value) {
    return core::Guarded("get_Height", IID_ITestRectFigure, [&] {
        if (!value) return E_POINTER;
        core::ObjectLock::Guard guard(Lock());
        *value = height_;
        return S_OK;
    });
}

HRESULT TestRectFigure::put_Width(double value) {
    return SetExtent("put_Width", &TestRectFigure::width_, testRectFigure_Width, value);
}
HRESULT TestRectFigure::put_Height(double value) {
    return SetExtent("put_Height", &TestRectFigure::height_, testRectFigure_Height, value);
}

HRESULT TestRectFigure::SetExtent(const char* method, double TestRectFigure::*field, int32_t stateId, double value) {
    return core::Guarded(method, IID_ITestRectFigure, [&] {
        if (!std::isfinite(value) || value < 0) throw ccStdError::BadArgument("value");
        {
            core::ObjectLock::Guard guard(Lock());
            if (this->*field == value) return S_OK;
            this->*field = value;
        }
        return RaiseChange(stateId, Variant(value).get(), luxFA_Misc);
    });
}

HRESULT TestRectFigure::get_Corner(ITestPoint** value) {
    return core::Guarded("get_Corner", IID_ITestRectFigure, [&] {
        if (!value) return E_POINTER;
        *value = corner_.get();
        (*value)->AddRef();
        return S_OK;
    });
}

HRESULT TestRectFigure::GetBounds(TestFigureBounds* bounds) {
    return core::Guarded("GetBounds", IID_ITestFigureGeometry, [&] {
        if (!bounds) return E_POINTER;
        double x = 0;
        double y = 0;
        core::ThrowIfFailed(corner_->get_X(&x));
        core::ThrowIfFailed(corner_->get_Y(&y));
        core::ObjectLock::Guard guard(Lock());
        *bounds = TestFigureBounds{x, y, x + width_, y + height_};
        return S_OK;
    });
}

}  // namespace tessaly::test
