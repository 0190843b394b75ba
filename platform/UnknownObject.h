// The reference-counted object template every class of the library stands on. A class
// names itself and the interfaces it implements; QueryInterface is one variadic template
// over that list:
//
//     class MemoryStream : public tessaly::UnknownObject<MemoryStream, IStream> {
//     public:
//         ... IStream methods ...
//     protected:
//         ~MemoryStream() override = default;  // objects die through Release only
//     };
//
// IUnknown and IDispatch are answered through the first dual interface of the list (IUnknown
// through the first interface when none is dual), and every other interface along a listed
// interface's base chain through that interface. Listing a base beside an interface derived
// from it does not compile. A class that
// answers more IIDs declares its own `void* FindInterface(const IID&)`, which hides this
// one and may fall back to FindListed.
//
// Code of the library that is handed an interface pointer reaches the C++ object behind it,
// when it is one of its own, with `Derived::ImplementationOf(pointer)`.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>
#include <typeinfo>
#include <type_traits>
#include <utility>

#include "platform/DestructionQueue.h"
#include "platform/Guid.h"
#include "platform/Module.h"
#include "platform/StandardInterfaces.h"

namespace tessaly {

namespace detail {

// GUID equality as two 64-bit compares: QueryInterface and dispatch run it on every call.
inline bool SameGuid(const GUID& a, const GUID& b) noexcept {
    static_assert(sizeof(GUID) == 16);
    uint64_t x[2];
    uint64_t y[2];
    std::memcpy(x, &a, 16);
    std::memcpy(y, &b, 16);
    return ((x[0] ^ y[0]) | (x[1] ^ y[1])) == 0;
}

// Answered by every object of the library and by nothing else: no client knows it. The
// pointer answered is the object's IUnknown, whose C++ class can then be asked safely.
inline constexpr IID kImplementationIid = MakeGuid("6C1E0A47-93B2-4D58-8F1D-2A7B5C39E604");

// Whether I names the interface it derives from (every generated and standard interface
// does, IUnknown alone excepted).
template <class I>
concept HasBaseInterface = requires { typename I::BaseInterface; };

// The pointer for iid if `object` (seen as I) answers it as I itself or as an interface
// along I's base chain: a class lists its most derived interfaces only.
template <class I>
void* MatchInterface(I* object, const IID& iid) noexcept {
    if (SameGuid(iid, I::iid)) return object;
    if constexpr (HasBaseInterface<I>) {
        using Base = typename I::BaseInterface;
        if constexpr (!std::is_same_v<Base, IUnknown>) return MatchInterface(static_cast<Base*>(object), iid);
    }
    return nullptr;
}

// Whether Base lies on Derived's base chain (Derived itself excluded).
template <class Base, class Derived>
constexpr bool DerivesFromInterface() {
    if constexpr (HasBaseInterface<Derived>) {
        using Next = typename Derived::BaseInterface;
        return std::is_same_v<Base, Next> || DerivesFromInterface<Base, Next>();
    } else {
        return false;
    }
}

// Whether some interface of the list is a base of another interface of the list: the class
// would hold two vtables for one interface, and QueryInterface could answer either.
template <class I, class... Interfaces>
constexpr bool IsBaseOfAny() {
    return (DerivesFromInterface<I, Interfaces>() || ...);
}
template <class... Interfaces>
constexpr bool ListsABaseBesideItsDerived() {
    return (IsBaseOfAny<Interfaces, Interfaces...>() || ...);
}

// The interface that stands for the object's identity: the first dual one, else the first.
template <class... Interfaces>
struct IdentityOf;
template <class First, class... Rest>
struct IdentityOf<First, Rest...> {
    template <class I, class... More>
    struct FirstDual {
        using type = std::conditional_t<std::is_base_of_v<IDispatch, I>, I, typename FirstDual<More...>::type>;
    };
    template <class I>
    struct FirstDual<I> {
        using type = std::conditional_t<std::is_base_of_v<IDispatch, I>, I, First>;
    };
    using type = typename FirstDual<First, Rest...>::type;
};

}  // namespace detail

template <class Derived, class... Interfaces>
class UnknownObject : public Interfaces... {
    static_assert(sizeof...(Interfaces) > 0, "an object implements at least one interface");
    static_assert(!detail::ListsABaseBesideItsDerived<Interfaces...>(),
                  "list only the most derived interfaces: a base interface is answered through the interface "
                  "derived from it");
    using Identity = typename detail::IdentityOf<Interfaces...>::type;

public:
    UnknownObject(const UnknownObject&) = delete;
    UnknownObject& operator=(const UnknownObject&) = delete;

    HRESULT QueryInterface(REFIID riid, void** ppv) override {
        if (!ppv) return E_POINTER;
        // Answered here, before any FindInterface of the class could hide it.
        void* found = detail::SameGuid(riid, detail::kImplementationIid) ? GetUnknown()
                                                                         : static_cast<Derived*>(this)->FindInterface(riid);
        *ppv = found;
        if (!found) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }

    ULONG AddRef() override { return refs_.fetch_add(1, std::memory_order_relaxed) + 1; }

    ULONG Release() override {
        const ULONG remaining = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (remaining == 0) {
            // A destructor that hands `this` to someone (who AddRefs and Releases it) must
            // not bring the count to zero a second time.
            refs_.store(kDestroying, std::memory_order_relaxed);
            DestructionQueue::Run(this, &DeleteObject);
        }
        return remaining;
    }

    // A reference taken only while the object is still alive: false once its count has
    // reached zero (it is being destroyed). What a weak back-reference needs, such as a
    // child's link to the container that holds it; the caller must know that the memory
    // is still there (the container unhooks the link under a lock before it goes).
    bool TryAddRef() noexcept {
        ULONG count = refs_.load(std::memory_order_relaxed);
        while (count != 0 && count < kDestroying)
            if (refs_.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) return true;
        return false;
    }

    // The object's pointer for an interface, without a reference; nullptr when it has none.
    void* FindInterface(const IID& iid) noexcept { return FindListed(iid); }

    // The object's one IUnknown: that of its first dual interface, else of its first one.
    IUnknown* GetUnknown() noexcept { return static_cast<IUnknown*>(static_cast<Identity*>(this)); }

    // The library's own object of class Derived (or of a class derived from it) behind
    // `any`, reached through any of its interfaces; null for a null pointer, for another
    // implementation of the same interfaces (a client's object) and for an object of
    // another class of the library, even one of the same coclass. Adds no reference (the
    // caller's reference on `any` keeps the object alive) and allocates nothing.
    static Derived* ImplementationOf(IUnknown* any) noexcept {
        if (!any) return nullptr;
        void* answered = nullptr;
        if (FAILED(any->QueryInterface(detail::kImplementationIid, &answered)) || !answered) return nullptr;
        auto* unknown = static_cast<IUnknown*>(answered);
        unknown->Release();  // only our objects answer, and none of them dies of it
        // The C++ class tells apart classes that share interfaces or a coclass. An object of
        // exactly this class (the common case) is reached from its IUnknown by plain casts;
        // only a class derived from it needs the slower cross-cast.
        if (typeid(*unknown) == typeid(Derived)) return static_cast<Derived*>(static_cast<Identity*>(unknown));
        return dynamic_cast<Derived*>(unknown);
    }

    // A new object holding one reference, which the caller owns; nullptr when construction
    // fails (out of memory or a constructor that throws).
    template <class... Args>
    static Derived* Create(Args&&... args) noexcept {
        Derived* object = nullptr;
        try {
            object = new Derived(std::forward<Args>(args)...);
        } catch (...) {
            return nullptr;
        }
        object->AddRef();
        return object;
    }

    // Factory of the class table: a new object, answered for riid.
    static HRESULT CreateInstance(REFIID riid, void** ppv) noexcept {
        if (!ppv) return E_POINTER;
        *ppv = nullptr;
        Derived* object = nullptr;
        try {
            object = new Derived();
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        } catch (...) {
            return E_FAIL;
        }
        object->AddRef();
        const HRESULT hr = object->QueryInterface(riid, ppv);
        object->Release();
        return hr;
    }

protected:
    UnknownObject() noexcept {
        static_assert(!std::is_destructible_v<Derived>,
                      "declare the destructor protected or private: objects die through Release");
        Module::ObjectCreated();
    }
    virtual ~UnknownObject() { Module::ObjectDestroyed(); }

    // The interfaces of the list (and their standard bases), IUnknown through the identity.
    void* FindListed(const IID& iid) noexcept {
        if (detail::SameGuid(iid, IUnknown::iid)) return GetUnknown();
        void* found = nullptr;
        ((found = found ? found : detail::MatchInterface(static_cast<Interfaces*>(this), iid)), ...);
        return found;
    }

    ULONG ReferenceCount() const noexcept { return refs_.load(std::memory_order_relaxed); }

private:
    static void DeleteObject(void* object) noexcept { delete static_cast<UnknownObject*>(object); }

    static constexpr ULONG kDestroying = 0x40000000u;
    std::atomic<ULONG> refs_{0};
};

}  // namespace tessaly
