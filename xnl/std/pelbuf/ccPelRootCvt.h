// A root whose pixels are another root's pixels converted to type T. It owns its memory
// (laid out as ccPelRootOwn), keeps its source alive through a read-only handle, converts
// once when it is made and again on each Update, when the source's pixels may have changed.
// Only the types ccPelCvtType allows have conversion roots; the source may be any root of
// an arithmetic pixel type.
//
// The conversion of one value v:
//  - to double: exact for every integer type;
//  - to an integer type: rounded to the nearest integer (halves away from zero), then
//    clamped to the type's range; NaN becomes 0.
#pragma once

#include <cmath>
#include <concepts>
#include <cstdint>
#include <functional>
#include <limits>
#include <type_traits>

#include <utility>

#include "xnl/std/pelbuf/ccPelError.h"
#include "xnl/std/pelbuf/ccPelRootOwn.h"

template <class T, class S>
    requires std::is_arithmetic_v<T> && std::is_arithmetic_v<S>
constexpr T ccConvertPel(S value) noexcept {
    if constexpr (std::same_as<T, S> || std::floating_point<T>) {
        return static_cast<T>(value);
    } else if constexpr (std::floating_point<S>) {
        if (std::isnan(value)) return T{0};
        const S rounded = std::round(value);
        if (rounded <= static_cast<S>(std::numeric_limits<T>::lowest())) return std::numeric_limits<T>::lowest();
        if (rounded >= static_cast<S>(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
        return static_cast<T>(rounded);
    } else {
        if (std::cmp_less(value, std::numeric_limits<T>::lowest())) return std::numeric_limits<T>::lowest();
        if (std::cmp_greater(value, std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
        return static_cast<T>(value);
    }
}

template <class T>
    requires ccPelCvtType<T>
class ccPelRootCvt : public ccPelRootOwn<T> {
public:
    // A root of the source's size, aligned like ccPelRootOwn, holding the converted pixels
    // (ccPel::UnboundWindow for a null source).
    template <class S>
        requires ccPelRootType<S> && std::is_arithmetic_v<S>
    explicit ccPelRootCvt(const ccPelRootPtrh_const<S>& source, int32_t alignment = 32);

    // Converts the source's present pixels again.
    void Update() { convert_(*this); }
    // The root converted from.
    const ccPtrHandle_const<cc_PelRoot>& Source() const noexcept { return source_; }

protected:
    ~ccPelRootCvt() override = default;

private:
    static int32_t SourceSize(const cc_PelRoot* source, bool width);

    ccPtrHandle_const<cc_PelRoot> source_;
    std::function<void(ccPelRootCvt&)> convert_;
};

template <class T>
    requires ccPelCvtType<T>
int32_t ccPelRootCvt<T>::SourceSize(const cc_PelRoot* source, bool width) {
    if (!source) throw ccPel::UnboundWindow("converting a null root");
    return width ? source->Width() : source->Height();
}

template <class T>
    requires ccPelCvtType<T>
template <class S>
    requires ccPelRootType<S> && std::is_arithmetic_v<S>
ccPelRootCvt<T>::ccPelRootCvt(const ccPelRootPtrh_const<S>& source, int32_t alignment)
    : ccPelRootOwn<T>(SourceSize(source.Get(), true), SourceSize(source.Get(), false), alignment),
      source_(source),
      convert_([typed = source](ccPelRootCvt& self) {
          const ccPelRoot<S>& from = *typed;
          const int32_t width = self.Width();
          for (int32_t y = 0; y < self.Height(); ++y) {
              const S* in = from.RowPointer(y);
              T* out = self.RowPointer(y);
              for (int32_t x = 0; x < width; ++x) out[x] = ccConvertPel<T>(in[x]);
          }
      }) {
    Update();
}
