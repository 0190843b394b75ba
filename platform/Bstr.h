// Automation strings: length-prefixed, NUL-terminated UTF-8 that may hold embedded NULs.
// A null BSTR is the empty string everywhere.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/AutomationTypes.h"

// Copies a NUL-terminated string; null in gives null out.
BSTR SysAllocString(const OLECHAR* text) noexcept;
// Copies `length` bytes (NULs included); a null `text` gives `length` zero bytes.
BSTR SysAllocStringLen(const OLECHAR* text, UINT length) noexcept;
// Same as SysAllocStringLen: strings here are bytes already.
BSTR SysAllocStringByteLen(const char* text, UINT length) noexcept;
// Replaces *target with a copy; 0 (and *target untouched) when out of memory.
int SysReAllocString(BSTR* target, const OLECHAR* text) noexcept;
int SysReAllocStringLen(BSTR* target, const OLECHAR* text, UINT length) noexcept;
void SysFreeString(BSTR text) noexcept;
// Length in bytes, without the terminator; 0 for null.
UINT SysStringLen(BSTR text) noexcept;
UINT SysStringByteLen(BSTR text) noexcept;

namespace tessaly {

// The contents of a BSTR as a view (empty for null).
inline std::string_view BstrView(BSTR text) noexcept { return text ? std::string_view(text, SysStringLen(text)) : std::string_view(); }

// Owns one BSTR. Moves transfer ownership; copies duplicate the string.
class Bstr {
public:
    Bstr() noexcept = default;
    explicit Bstr(std::string_view text);  // throws std::bad_alloc
    Bstr(const char* text) : Bstr(std::string_view(text ? text : "")) {}
    Bstr(const Bstr& other) : Bstr(other.view()) {}
    Bstr(Bstr&& other) noexcept : text_(std::exchange(other.text_, nullptr)) {}
    Bstr& operator=(Bstr other) noexcept {
        std::swap(text_, other.text_);
        return *this;
    }
    ~Bstr() { SysFreeString(text_); }

    // Takes ownership of a BSTR allocated elsewhere.
    static Bstr Attach(BSTR text) noexcept {
        Bstr result;
        result.text_ = text;
        return result;
    }
    // Gives up ownership.
    BSTR Detach() noexcept { return std::exchange(text_, nullptr); }
    // Frees the current string and returns the slot for an out parameter.
    BSTR* Out() noexcept {
        SysFreeString(std::exchange(text_, nullptr));
        return &text_;
    }

    BSTR get() const noexcept { return text_; }
    std::string_view view() const noexcept { return BstrView(text_); }
    std::string str() const { return std::string(view()); }
    UINT size() const noexcept { return SysStringLen(text_); }
    bool empty() const noexcept { return size() == 0; }

    friend bool operator==(const Bstr& a, const Bstr& b) noexcept { return a.view() == b.view(); }
    friend bool operator==(const Bstr& a, std::string_view b) noexcept { return a.view() == b; }
    friend bool operator==(const Bstr& a, const char* b) noexcept { return a.view() == std::string_view(b ? b : ""); }

private:
    BSTR text_ = nullptr;
};

}  // namespace tessaly
