#include "com/core/impl/ArchiveAccess.h"

#include "com/core/CLuxArchive.h"
#include "com/core/ccCOMError.h"
#include "persist/ccArchive.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

namespace {

template <class T>
constexpr VARTYPE kTypeOf = VT_EMPTY;
template <>
constexpr VARTYPE kTypeOf<uint8_t> = VT_UI1;
template <>
constexpr VARTYPE kTypeOf<int16_t> = VT_I2;
template <>
constexpr VARTYPE kTypeOf<int32_t> = VT_I4;
template <>
constexpr VARTYPE kTypeOf<float> = VT_R4;
template <>
constexpr VARTYPE kTypeOf<double> = VT_R8;

template <class T>
T& Field(VARIANT& value);
template <>
uint8_t& Field(VARIANT& value) { return value.bVal; }
template <>
int16_t& Field(VARIANT& value) { return value.iVal; }
template <>
int32_t& Field(VARIANT& value) { return value.lVal; }
template <>
float& Field(VARIANT& value) { return value.fltVal; }
template <>
double& Field(VARIANT& value) { return value.dblVal; }

}  // namespace

ArchiveAccess::ArchiveAccess(ILuxArchive* archive, int32_t options)
    : archive_(archive), own_(CLuxArchive::ImplementationOf(archive)), keep_(archive), options_(options) {
    if (!archive) throw ccStdError::NullArgument("Archive");
}

size_t ArchiveAccess::StoredCount() const {
    if (own_) return own_->EntryCount();
    return 0;
}

size_t ArchiveAccess::StoredCountSoFar() const {
    if (own_) return own_->EntriesHeld();
    return 0;
}

void ArchiveAccess::Write(std::string_view name, const VARIANT& value) {
    if (own_) {
        own_->Write(name, value);
        return;
    }
    ThrowIfFailed(archive_->PersistVariant(Bstr(name).get(), const_cast<VARIANT*>(&value)));
}

bool ArchiveAccess::Read(std::string_view name, Variant& value) {
    if (own_) return own_->TakeEntry(name, value);
    Variant read;
    const HRESULT hr = archive_->PersistVariant(Bstr(name).get(), read.ptr());
    ThrowIfFailed(hr);
    if (hr == S_FALSE) return false;
    value = std::move(read);
    return true;
}

template <class T>
void ArchiveAccess::PersistScalar(std::string_view name, T& value, Content content,
                                  HRESULT (ILuxArchive::*member)(BSTR, T*)) {
    if (!Selected(content)) return;
    if (Saving()) {
        if (own_) {
            VARIANT passed{};
            passed.vt = kTypeOf<T>;
            Field<T>(passed) = value;
            own_->Write(name, passed);
        } else {
            T copy = value;
            ThrowIfFailed((archive_->*member)(Bstr(name).get(), &copy));
        }
        return;
    }
    T read{};
    if (own_) {
        Variant stored;
        if (!own_->Read(name, kTypeOf<T>, stored, ids_Lux_ReadInvalidProperty_1)) return;
        read = Field<T>(*stored.ptr());
    } else {
        const HRESULT hr = (archive_->*member)(Bstr(name).get(), &read);
        ThrowIfFailed(hr);
        if (hr == S_FALSE) return;
    }
    OnCommit([&value, read]() noexcept { value = read; });
}

void ArchiveAccess::Persist(std::string_view name, uint8_t& value, Content content) {
    PersistScalar(name, value, content, &ILuxArchive::PersistUI1);
}
void ArchiveAccess::Persist(std::string_view name, int16_t& value, Content content) {
    PersistScalar(name, value, content, &ILuxArchive::PersistI2);
}
void ArchiveAccess::Persist(std::string_view name, int32_t& value, Content content) {
    PersistScalar(name, value, content, &ILuxArchive::PersistI4);
}
void ArchiveAccess::Persist(std::string_view name, float& value, Content content) {
    PersistScalar(name, value, content, &ILuxArchive::PersistR4);
}
void ArchiveAccess::Persist(std::string_view name, double& value, Content content) {
    PersistScalar(name, value, content, &ILuxArchive::PersistR8);
}

void ArchiveAccess::Persist(std::string_view name, bool& value, Content content) {
    if (!Selected(content)) return;
    VARIANT_BOOL flag = value ? VARIANT_TRUE : VARIANT_FALSE;
    if (Saving()) {
        VARIANT passed{};
        passed.vt = VT_BOOL;
        passed.boolVal = flag;
        if (own_)
            own_->Write(name, passed);
        else
            ThrowIfFailed(archive_->PersistBoolean(Bstr(name).get(), &flag));
        return;
    }
    if (own_) {
        Variant stored;
        if (!own_->Read(name, VT_BOOL, stored, ids_Lux_ReadInvalidProperty_1)) return;
        flag = stored.get().boolVal;
    } else {
        const HRESULT hr = archive_->PersistBoolean(Bstr(name).get(), &flag);
        ThrowIfFailed(hr);
        if (hr == S_FALSE) return;
    }
    OnCommit([&value, flag]() noexcept { value = flag != VARIANT_FALSE; });
}

void ArchiveAccess::Persist(std::string_view name, Bstr& value, Content content) {
    if (!Selected(content)) return;
    if (Saving()) {
        VARIANT passed{};
        passed.vt = VT_BSTR;
        passed.bstrVal = value.get();  // lent
        Write(name, passed);
        return;
    }
    Variant stored;
    if (own_) {
        if (!own_->Read(name, VT_BSTR, stored, ids_Lux_ReadInvalidProperty_1)) return;
    } else {
        BSTR text = nullptr;
        const HRESULT hr = archive_->PersistString(Bstr(name).get(), &text);
        Bstr owned = Bstr::Attach(text);
        ThrowIfFailed(hr);
        if (hr == S_FALSE) return;
        stored = Variant(owned.view());
    }
    OnCommit([&value, text = Bstr::Attach(stored.Detach().bstrVal)]() mutable noexcept { value = std::move(text); });
}

void ArchiveAccess::Persist(std::string_view name, Variant& value, Content content) {
    if (!Selected(content)) return;
    if (Saving()) {
        Write(name, value.get());
        return;
    }
    Variant read;
    if (!Read(name, read)) return;
    OnCommit([&value, read = std::move(read)]() mutable noexcept { value = std::move(read); });
}

void ArchiveAccess::Persist(std::string_view name, ComPtr<IDispatch>& value, Content content) {
    if (!Selected(content)) return;
    if (Saving()) {
        VARIANT passed{};
        passed.vt = VT_DISPATCH;
        passed.pdispVal = value.get();  // lent
        Write(name, passed);
        return;
    }
    Variant stored;
    if (!Read(name, stored)) return;
    ComPtr<IDispatch> object;
    const VARIANT& got = stored.get();
    if ((got.vt == VT_DISPATCH || got.vt == VT_UNKNOWN) && got.punkVal) {
        if (FAILED(got.punkVal->QueryInterface(IDispatch::iid, object.OutVoid())))
            throw ccArchive::BadType("the object stored as " + std::string(name) + " is not an automation object",
                                     ids_Lux_ReadInvalidObject_1, {std::string(name)});
    } else if (got.vt != VT_EMPTY && got.vt != VT_NULL && got.vt != VT_DISPATCH && got.vt != VT_UNKNOWN) {
        throw ccArchive::BadType("the value stored as " + std::string(name) + " is not an object",
                                 ids_Lux_ReadInvalidObject_1, {std::string(name)});
    }
    OnCommit([&value, object = std::move(object)]() mutable noexcept { value = std::move(object); });
}

void ArchiveAccess::Commit() { commits_.Run(); }

}  // namespace tessaly::core
