// The base of the core's two-dimensional transforms: a map from a "from" space to a "to"
// space. The automation layer's transform objects hold one of these and leave the
// mathematics to it.
//
// Values are copied, not shared: Clone makes an independent copy on the heap, owned by the
// caller. Persistence goes through the core archive: each class writes the base part first
// (Write calls WriteBase), then its own numbers, and reads them back in the same order.
#pragma once

#include <cstdint>
#include <memory>

#include "xnl/std/base/cc2Vect.h"
#include "xnl/std/base/ccPersistent.h"

class ccArchive;

class cc2XformBase : public ccPersistent {
public:
    virtual ~cc2XformBase() = default;

    // The image of a point of the "from" space.
    virtual cc2Vect MapPoint(const cc2Vect& point) const = 0;
    // Whether the transform is linear (affine).
    virtual bool IsLinear() const noexcept = 0;
    // A new independent copy.
    virtual std::unique_ptr<cc2XformBase> Clone() const = 0;
    // The inverse transform; ccMathError::Singular when there is none.
    virtual std::unique_ptr<cc2XformBase> InverseBase() const = 0;
    // The transform that maps a point through `right` first, then through this one.
    virtual std::unique_ptr<cc2XformBase> ComposeBase(const cc2XformBase& right) const = 0;

    // The value's state in the core archive: the base part, then the class's own.
    virtual void Write(ccArchive& archive) const = 0;
    virtual void Read(ccArchive& archive) = 0;

    // The version of the base part that WriteBase writes.
    static constexpr uint32_t kBaseVersion = 1;

protected:
    cc2XformBase() = default;
    cc2XformBase(const cc2XformBase&) = default;
    cc2XformBase& operator=(const cc2XformBase&) = default;

    // The base part: its class version (the base holds no numbers of its own yet; the version
    // lets a later base part be read beside older archives).
    static void WriteBase(ccArchive& archive);
    static void ReadBase(ccArchive& archive);
};
