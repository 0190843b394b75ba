#include "platform/Bstr.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// The 4-byte length sits in front of the characters; keep the characters 8-aligned
// by reserving a whole 8-byte header.
constexpr size_t kHeader = 8;

UINT& LengthOf(BSTR text) noexcept { return *reinterpret_cast<UINT*>(text - sizeof(UINT)); }

BSTR Allocate(const char* text, UINT length) noexcept {
    void* block = std::malloc(kHeader + size_t(length) + 1);
    if (!block) return nullptr;
    BSTR result = static_cast<char*>(block) + kHeader;
    LengthOf(result) = length;
    if (text)
        std::memcpy(result, text, length);
    else
        std::memset(result, 0, length);
    result[length] = '\0';
    return result;
}

}  // namespace

BSTR SysAllocString(const OLECHAR* text) noexcept {
    if (!text) return nullptr;
    const size_t length = std::strlen(text);
    if (length > 0x7FFFFFF0u) return nullptr;
    return Allocate(text, static_cast<UINT>(length));
}

BSTR SysAllocStringLen(const OLECHAR* text, UINT length) noexcept {
    if (length > 0x7FFFFFF0u) return nullptr;
    return Allocate(text, length);
}

BSTR SysAllocStringByteLen(const char* text, UINT length) noexcept { return SysAllocStringLen(text, length); }

int SysReAllocString(BSTR* target, const OLECHAR* text) noexcept {
    if (!target) return 0;
    return SysReAllocStringLen(target, text, text ? static_cast<UINT>(std::strlen(text)) : 0);
}

int SysReAllocStringLen(BSTR* target, const OLECHAR* text, UINT length) noexcept {
    if (!target) return 0;
    // Allocate first: the source may be part of the old string.
    BSTR copy = SysAllocStringLen(text, length);
    if (!copy) return 0;
    SysFreeString(*target);
    *target = copy;
    return 1;
}

void SysFreeString(BSTR text) noexcept {
    if (text) std::free(text - kHeader);
}

UINT SysStringLen(BSTR text) noexcept { return text ? LengthOf(text) : 0; }

UINT SysStringByteLen(BSTR text) noexcept { return SysStringLen(text); }

namespace tessaly {

Bstr::Bstr(std::string_view text) {
    if (text.size() > 0x7FFFFFF0u) throw std::bad_alloc();
    text_ = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (!text_) throw std::bad_alloc();
}

}  // namespace tessaly
