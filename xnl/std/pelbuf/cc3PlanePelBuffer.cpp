#include "xnl/std/pelbuf/cc3PlanePelBuffer.h"

#include <memory>
#include <string>

#include "xnl/std/except/ccStdError.h"

cc3PlanePelBuffer::cc3PlanePelBuffer(int32_t width, int32_t height, int32_t alignment)
    : planes_{ccPelBuffer<uint8_t>(width, height, alignment), ccPelBuffer<uint8_t>(width, height, alignment),
              ccPelBuffer<uint8_t>(width, height, alignment)} {}

cc3PlanePelBuffer::cc3PlanePelBuffer(ccPelBuffer<uint8_t> plane0, ccPelBuffer<uint8_t> plane1,
                                     ccPelBuffer<uint8_t> plane2) {
    const int bound = int{plane0.IsBound()} + int{plane1.IsBound()} + int{plane2.IsBound()};
    if (bound != 0 && bound != 3) throw ccPel::UnboundWindow("only some of the three planes have a root");
    if (plane1.Width() != plane0.Width() || plane2.Width() != plane0.Width() || plane1.Height() != plane0.Height() ||
        plane2.Height() != plane0.Height())
        throw ccPel::BadWindow("the three planes differ in size");
    // Every plane answers the same client transform.
    plane1.SetClientFromPelXform(plane0.ClientFromPelXform());
    plane2.SetClientFromPelXform(plane0.ClientFromPelXform());
    planes_ = {std::move(plane0), std::move(plane1), std::move(plane2)};
}

const ccPelBuffer<uint8_t>& cc3PlanePelBuffer::Plane(int index) const {
    if (index < 0 || index > 2) throw ccStdError::OutOfRange("plane " + std::to_string(index));
    return planes_[static_cast<size_t>(index)];
}

void cc3PlanePelBuffer::RequireRoots() const {
    if (!IsBound()) throw ccPel::UnboundWindow();
}

void cc3PlanePelBuffer::RequireSize(int32_t width, int32_t height) const {
    if (width != Width() || height != Height())
        throw ccPelFunc::BadParams("copying " + std::to_string(width) + " x " + std::to_string(height) +
                                   " pixels to or from " + std::to_string(Width()) + " x " +
                                   std::to_string(Height()));
}

cc3PlanePel cc3PlanePelBuffer::Get(int32_t x, int32_t y) const {
    RequireRoots();
    return {planes_[0].Get(x, y), planes_[1].Get(x, y), planes_[2].Get(x, y)};
}

void cc3PlanePelBuffer::Set(int32_t x, int32_t y, const cc3PlanePel& value) const {
    RequireRoots();
    // Plane 0 checks the coordinate before any plane is written.
    *planes_[0].PelPointer(x, y) = value.plane0;
    *planes_[1].PelPointer(x, y) = value.plane1;
    *planes_[2].PelPointer(x, y) = value.plane2;
}

void cc3PlanePelBuffer::Fill(const cc3PlanePel& value) const {
    RequireRoots();
    planes_[0].Fill(value.plane0);
    planes_[1].Fill(value.plane1);
    planes_[2].Fill(value.plane2);
}

cc3PlanePelBuffer cc3PlanePelBuffer::Window(int32_t x, int32_t y, int32_t width, int32_t height) const {
    RequireRoots();
    cc3PlanePelBuffer window;
    window.planes_ = {planes_[0].Window(x, y, width, height), planes_[1].Window(x, y, width, height),
                      planes_[2].Window(x, y, width, height)};
    return window;
}

void cc3PlanePelBuffer::CopyFrom(const cc3PlanePelBuffer& source) const {
    RequireRoots();
    source.RequireRoots();
    RequireSize(source.Width(), source.Height());
    // Every plane's copy is checked before the first is made.
    for (size_t i = 0; i < 3; ++i) planes_[i].CheckCopyFrom(source.planes_[i]);
    for (size_t i = 0; i < 3; ++i) planes_[i].CopyFrom(source.planes_[i]);
}

void cc3PlanePelBuffer::CopyFrom(const ccPelBuffer_const<cc3PlanePel>& source) const {
    RequireRoots();
    if (!source.IsBound()) throw ccPel::UnboundWindow("copying from an unbound buffer");
    RequireSize(source.Width(), source.Height());
    for (int32_t y = 0; y < Height(); ++y) {
        const cc3PlanePel* in = source.RowPointer(y);
        uint8_t* out0 = planes_[0].RowPointer(y);
        uint8_t* out1 = planes_[1].RowPointer(y);
        uint8_t* out2 = planes_[2].RowPointer(y);
        for (int32_t x = 0; x < Width(); ++x) {
            out0[x] = in[x].plane0;
            out1[x] = in[x].plane1;
            out2[x] = in[x].plane2;
        }
    }
}

void cc3PlanePelBuffer::CopyTo(const ccPelBuffer<cc3PlanePel>& target) const {
    RequireRoots();
    if (!target.IsBound()) throw ccPel::UnboundWindow("copying into an unbound buffer");
    RequireSize(target.Width(), target.Height());
    for (int32_t y = 0; y < Height(); ++y) {
        const uint8_t* in0 = planes_[0].RowPointer(y);
        const uint8_t* in1 = planes_[1].RowPointer(y);
        const uint8_t* in2 = planes_[2].RowPointer(y);
        cc3PlanePel* out = target.RowPointer(y);
        for (int32_t x = 0; x < Width(); ++x) out[x] = {in0[x], in1[x], in2[x]};
    }
}

void cc3PlanePelBuffer::SetClientFromPelXform(const cc2XformBase& xform) {
    std::shared_ptr<const cc2XformBase> shared(xform.Clone());
    for (auto& plane : planes_) plane.SetClientFromPelXform(shared);
}
