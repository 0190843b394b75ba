#include "xnl/std/pelbuf/ccPelBuffer.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

// The lowest and one past the highest byte a window's rows occupy.
struct ByteSpan {
    const std::byte* low;
    const std::byte* high;
};

template <class T>
ByteSpan SpanOf(const ccPelBuffer_const<T>& buffer) {
    const auto* first = reinterpret_cast<const std::byte*>(buffer.RowPointer(0));
    const auto* last = reinterpret_cast<const std::byte*>(buffer.RowPointer(buffer.Height() - 1));
    const size_t row = static_cast<size_t>(buffer.Width()) * sizeof(T);
    return {std::min(first, last), std::max(first, last) + row};
}

std::string Size(int32_t width, int32_t height) { return std::to_string(width) + " x " + std::to_string(height); }

}  // namespace

template <class T>
    requires ccPelBufferType<T>
void ccPelBuffer<T>::Fill(const T& value) const {
    this->RequireRoot();
    for (int32_t y = 0; y < this->Height(); ++y) std::fill_n(RowPointer(y), this->Width(), value);
}

template <class T>
    requires ccPelBufferType<T>
bool ccPelBuffer<T>::CheckCopyFrom(const ccPelBuffer_const<T>& source) const {
    if (!this->IsBound()) throw ccPel::UnboundWindow("copying into an unbound buffer");
    if (!source.IsBound()) throw ccPel::UnboundWindow("copying from an unbound buffer");
    if (source.Width() != this->Width() || source.Height() != this->Height())
        throw ccPelFunc::BadParams("copying " + Size(source.Width(), source.Height()) + " pixels into " +
                                   Size(this->Width(), this->Height()));
    const int32_t width = this->Width();
    const int32_t height = this->Height();
    if (width == 0 || height == 0) return false;

    const cc_PelRoot* from = source.Root().Get();
    const cc_PelRoot* to = ccPelBuffer_const<T>::Root().Get();
    if (from == to) {
        if (source.OffsetX() == this->OffsetX() && source.OffsetY() == this->OffsetY()) return false;  // the same pixels
        const bool apartX = source.OffsetX() + int64_t{width} <= this->OffsetX() ||
                            this->OffsetX() + int64_t{width} <= source.OffsetX();
        const bool apartY = source.OffsetY() + int64_t{height} <= this->OffsetY() ||
                            this->OffsetY() + int64_t{height} <= source.OffsetY();
        if (!apartX && !apartY) throw ccPelFunc::Overlap("copying between overlapping windows of one root");
    } else {
        // Two roots may lie over one block of borrowed memory: refuse when their bytes meet.
        const ByteSpan a = SpanOf(source);
        const ByteSpan b = SpanOf<T>(*this);
        if (a.low < b.high && b.low < a.high) throw ccPelFunc::Overlap("copying between windows that share memory");
    }
    return true;
}

template <class T>
    requires ccPelBufferType<T>
void ccPelBuffer<T>::CopyFrom(const ccPelBuffer_const<T>& source) const {
    if (!CheckCopyFrom(source)) return;
    const int32_t width = this->Width();
    const int32_t height = this->Height();

    const size_t rowBytes = static_cast<size_t>(width) * sizeof(T);
    if (source.IsContiguous() && this->IsContiguous() && source.Pitch() > 0 && this->Pitch() > 0) {
        std::memcpy(RowPointer(0), source.RowPointer(0), rowBytes * static_cast<size_t>(height));
        return;
    }
    // Whole rows of two roots with one pitch, the target's padding its own: one copy of the
    // span from the first pixel to the last, padding included (nobody reads a root's own
    // padding; a borrowed root's gaps may be the lender's other data, so never write those).
    const cc_PelRoot& to = *ccPelBuffer_const<T>::Root();
    const cc_PelRoot& from = *source.Root();
    if (this->Pitch() == source.Pitch() && this->Pitch() > 0 && this->OffsetX() == 0 && source.OffsetX() == 0 &&
        width == to.Width() && width == from.Width() && to.DescribeMemory().own == 1) {
        const size_t pitchBytes = static_cast<size_t>(this->Pitch()) * sizeof(T);
        std::memcpy(RowPointer(0), source.RowPointer(0), pitchBytes * static_cast<size_t>(height - 1) + rowBytes);
        return;
    }
    for (int32_t y = 0; y < height; ++y) std::memcpy(RowPointer(y), source.RowPointer(y), rowBytes);
}

template class ccPelBuffer_const<uint8_t>;
template class ccPelBuffer_const<uint16_t>;
template class ccPelBuffer_const<uint32_t>;
template class ccPelBuffer_const<double>;
template class ccPelBuffer_const<int16_t>;
template class ccPelBuffer_const<ccPackedRGB16Pel>;
template class ccPelBuffer_const<ccPackedRGB32Pel>;
template class ccPelBuffer_const<cc3PlanePel>;
template class ccPelBuffer<uint8_t>;
template class ccPelBuffer<uint16_t>;
template class ccPelBuffer<uint32_t>;
template class ccPelBuffer<double>;
template class ccPelBuffer<int16_t>;
template class ccPelBuffer<ccPackedRGB16Pel>;
template class ccPelBuffer<ccPackedRGB32Pel>;
template class ccPelBuffer<cc3PlanePel>;
