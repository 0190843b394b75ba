// LuxStringCollection: an ordered list of strings, each with an optional key (see
// ccCollectionImpl for the behaviour both collections share). Its events carry the items
// as VT_BSTR values; FindItem compares the text exactly (case-sensitively, byte for byte).
#pragma once

#include <string>
#include <string_view>

#include "com/core/impl/ccCollectionImpl.h"

namespace tessaly::core {

struct LuxStringCollectionItems {
    using Stored = Bstr;
    using In = BSTR;
    using Out = BSTR;

    static Bstr Take(BSTR item) { return Bstr(BstrView(item)); }
    static Bstr Clone(Bstr item) noexcept { return item; }
    static void InitOut(BSTR* out) noexcept { *out = nullptr; }
    // Strings fire nothing: a string collection has no children to listen to.
    static IUnknown* ObjectOf(const Bstr&) noexcept { return nullptr; }
    static VARIANT Lend(const Bstr& item) noexcept {
        VARIANT lent{};
        lent.vt = VT_BSTR;
        lent.bstrVal = item.get();
        return lent;
    }
    // A loaded item that is not text is converted to it, as Item put would.
    static Bstr FromArchive(Variant value, const std::string& name);

    class Finder {
    public:
        explicit Finder(BSTR wanted) noexcept : wanted_(BstrView(wanted)) {}
        bool operator()(const Bstr& item) const noexcept { return item.view() == wanted_; }

    private:
        std::string_view wanted_;  // the caller's argument, alive for the call
    };
};

class CLuxStringCollection
    : public ccCollectionImpl<CLuxStringCollection, ILuxStringCollection, LuxStringCollectionItems> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxStringCollection; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxStringCollection;

    CLuxStringCollection() = default;

protected:
    ~CLuxStringCollection() override = default;
};

}  // namespace tessaly::core
