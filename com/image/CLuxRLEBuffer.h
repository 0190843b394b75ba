// LuxRLEBuffer: an 8-bit image held as runs (a ccRLEBuffer) placed with its top-left pixel
// at (X, Y). Shapes make their region masks as these objects; clients read them, draw
// them into grey images, map their values and combine them. docs/rle.md tells the whole
// behaviour; in short:
//
//  - A new object is not initialised: Initted false, Width, Height and NumRuns 0.
//    RLEData, X and Y (get and put), Binary, CreateImage8Grey, DrawIntoImage8Grey and
//    PixelMap refuse with e_LuxRLEBuffer_NotInitialized; Pixel refuses every coordinate
//    (e_LuxImage_BadCoord), Combine with e_LuxRLEBuffer_CombineFailed.
//  - Pixel(X, Y) takes the coordinates in which the buffer lies at (X, Y): pixel (X, Y) is
//    the top-left one. DrawIntoImage8Grey writes pixel (X + i, Y + j) of the image from
//    pixel (i, j) of the runs, leaving out what falls outside the image;
//    CreateImage8Grey makes an image of Width x Height whose pixel (0, 0) is the buffer's
//    (X, Y).
//  - put_X and put_Y raise Change(luxRLEBuffer_X / _Y, the new value, luxFA_Misc); setting
//    the present value raises nothing. Nothing else changes an object's runs but a load
//    or a Clone into it.
//  - RLEData hands out the object's own run array: valid while the object lives and holds
//    those runs (a load replaces them); copies made with Clone or Core share it, so it is
//    for reading.
//  - Persistence: "Initted" (boolean) and "RLEBuffer": empty when not initialised, else a
//    one-dimensional array of 32-bit integers X, Y, Width, Height, then value and length
//    of each run in order.
//
// Code of the library that makes or reads masks uses FromCore, Core, X and Y;
// ImplementationOf finds the object behind any of its interface pointers.
#pragma once

#include <cstdint>

#include "TessalyCore.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "platform/ComPtr.h"
#include "xnl/std/rlebuf/ccRLEBuffer.h"

namespace tessaly::image {

class CLuxRLEBuffer : public core::ILuxObjectImplBase<CLuxRLEBuffer, ILuxRLEBuffer, ILuxRLEData> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxRLEBuffer; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxRLEBuffer;

    CLuxRLEBuffer() = default;

    // A new object holding `runs` at (x, y); initialised when `runs` is. Throws
    // std::bad_alloc when it cannot be made.
    static ComPtr<CLuxRLEBuffer> FromCore(ccRLEBuffer runs, int32_t x, int32_t y);
    // Snapshots taken under the object's lock (the runs are shared, not copied).
    ccRLEBuffer Core() const;
    int32_t X() const;
    int32_t Y() const;

    void CopyFrom(const CLuxRLEBuffer& source);
    void PersistState(core::ArchiveAccess& archive);
    void ResetState() noexcept;

    // ILuxRLEBuffer
    HRESULT get_Initted(VARIANT_BOOL* Initted) override;
    HRESULT get_Binary(VARIANT_BOOL* Binary) override;
    HRESULT get_X(LONG* X) override;
    HRESULT put_X(LONG X) override;
    HRESULT get_Y(LONG* Y) override;
    HRESULT put_Y(LONG Y) override;
    HRESULT get_Width(LONG* Width) override;
    HRESULT get_Height(LONG* Height) override;
    HRESULT get_Pixel(LONG X, LONG Y, LONG* Value) override;
    HRESULT get_NumRuns(LONG* NumRuns) override;
    HRESULT CreateImage8Grey(ILuxImage8Grey** Image) override;
    HRESULT DrawIntoImage8Grey(ILuxImage8Grey* Image, VARIANT_BOOL TransparencyEnabled,
                               LONG TransparencyValue) override;
    HRESULT PixelMap(VARIANT Map, ILuxRLEBuffer** Mapped) override;
    HRESULT Combine(ILuxRLEBuffer* SubImage, VARIANT Map, LONG TransparencyValue,
                    ILuxRLEBuffer** Combined) override;

    // ILuxRLEData
    HRESULT get_RLEData(LuxRLEData* Data) override;

protected:
    ~CLuxRLEBuffer() override = default;

private:
    struct Placed {
        ccRLEBuffer runs;
        int32_t x = 0;
        int32_t y = 0;
    };
    // The runs and their place, under the lock; RLEBufferErrors::NotInitialized for
    // `method` when the buffer holds none.
    Placed Initialized() const;
    // Sets X or Y: refused when not initialised, nothing raised for the present value.
    HRESULT SetCoordinate(const char* method, int32_t CLuxRLEBuffer::*member, int32_t value, int32_t stateId);

    ccRLEBuffer runs_;
    int32_t x_ = 0;
    int32_t y_ = 0;
};

}  // namespace tessaly::image
