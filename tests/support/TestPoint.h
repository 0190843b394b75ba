// A small class on the library's object base, for testing the base itself: two finite
// coordinates and a marker value whose changes are announced, and a move that changes
// both coordinates as one change.
#pragma once

#include "TessalyTest.h"
#include "com/core/impl/ILuxObjectImplBase.h"

namespace tessaly::test {

class TestPoint : public core::ILuxObjectImplBase<TestPoint, ITestPoint> {
public:
    static const CoClassInfo& CoClass();
    using CoClassInterfaceList = generated::CoClassInterfaceList_TestPoint;
    void CopyFrom(const TestPoint& source);
    void PersistState(core::ArchiveAccess& archive);

    HRESULT get_X(double* value) override;
    HRESULT put_X(double value) override;
    HRESULT get_Y(double* value) override;
    HRESULT put_Y(double value) override;
    HRESULT get_Marker(VARIANT* value) override;
    HRESULT put_Marker(VARIANT value) override;
    HRESULT putref_Marker(VARIANT value) override;
    HRESULT MoveTo(double x, double y) override;
    // Puts the value given to PrepareMarkerOnPreLoad (if any) into Marker, announcing
    // nothing: what a class prepares before its values arrive.
    HRESULT PreLoad() override;

    // For tests of the load order.
    void PrepareMarkerOnPreLoad(const Variant& value);

    // For tests that drive the base directly.
    using ILuxObjectImplBase::RaiseChange;

protected:
    ~TestPoint() override = default;

private:
    HRESULT SetCoordinate(const char* name, double TestPoint::*field, int32_t stateId, double value);
    HRESULT SetMarker(const char* method, const VARIANT& value);

    double x_ = 0;
    double y_ = 0;
    Variant marker_;
    Variant preLoadMarker_;
};

}  // namespace tessaly::test
