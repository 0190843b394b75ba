// LuxCollection: an ordered list of VARIANT values, each with an optional key (see
// ccCollectionImpl for the behaviour both collections share).
//
// What is particular to VARIANT items:
//  - an item is stored as given, a reference resolved to its value; put and putref store
//    alike (an object is kept as the object, not as its default value);
//  - FindItem matches the first item of the same VARTYPE and an equal value: numbers,
//    booleans, dates, currency and error codes by value; strings by content, case-
//    sensitively; objects by COM identity (their IUnknown); arrays of the same element
//    type with the same number of dimensions and elements per dimension (lower bounds
//    aside) whose elements are equal by these rules; VT_EMPTY matches VT_EMPTY and VT_NULL
//    matches VT_NULL;
//  - Clone clones the objects that are ILuxObjects; everything else is copied. Objects
//    inside arrays are shared;
//  - an item that is an object firing Change (held as VT_DISPATCH or VT_UNKNOWN) has its
//    Change passed on as the collection's Change(-2, info, areas), info.SourceIndex its
//    index; objects inside arrays are not listened to.
#pragma once

#include "com/core/impl/ccCollectionImpl.h"

namespace tessaly::core {

struct LuxCollectionItems {
    using Stored = Variant;
    using In = VARIANT;
    using Out = VARIANT;

    static Variant Take(const VARIANT& item);
    static Variant Clone(Variant item);
    static VARIANT Lend(const Variant& item) noexcept { return item.get(); }
    static Variant FromArchive(Variant value, const std::string&) noexcept { return value; }
    static void InitOut(VARIANT* out) noexcept { VariantInit(out); }
    // Objects held directly (not inside arrays) have their Change passed on.
    static IUnknown* ObjectOf(const Variant& item) noexcept {
        const VARIANT& value = item.get();
        return value.vt == VT_DISPATCH || value.vt == VT_UNKNOWN ? value.punkVal : nullptr;
    }

    // FindItem's equality, prepared once per call.
    class Finder {
    public:
        explicit Finder(const VARIANT& wanted);
        bool operator()(const Variant& item) const noexcept;

    private:
        Variant wanted_;
    };
};

class CLuxCollection : public ccCollectionImpl<CLuxCollection, ILuxCollection, LuxCollectionItems> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxCollection; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxCollection;

    HRESULT putref_Item(VARIANT KeyOrIndex, VARIANT Item) override;

    CLuxCollection() = default;

protected:
    ~CLuxCollection() override = default;
};

// Whether two values are equal by FindItem's rules.
bool SameCollectionItem(const VARIANT& a, const VARIANT& b) noexcept;

}  // namespace tessaly::core
