// An owning interface pointer: releases on destruction, adds a reference on copy.
#pragma once

#include <cstddef>
#include <utility>

#include "platform/StandardInterfaces.h"

namespace tessaly {

template <class T>
class ComPtr {
public:
    ComPtr() noexcept = default;
    ComPtr(std::nullptr_t) noexcept {}
    // Adds a reference to `pointer`.
    explicit ComPtr(T* pointer) noexcept : p_(pointer) {
        if (p_) p_->AddRef();
    }
    ComPtr(const ComPtr& other) noexcept : ComPtr(other.p_) {}
    ComPtr(ComPtr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    ~ComPtr() { Reset(); }

    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(p_, other.p_);
        return *this;
    }

    // Takes over a reference the caller already owns (a freshly created object, say).
    static ComPtr Attach(T* pointer) noexcept {
        ComPtr result;
        result.p_ = pointer;
        return result;
    }
    T* Detach() noexcept { return std::exchange(p_, nullptr); }
    void Reset() noexcept {
        if (T* old = std::exchange(p_, nullptr)) old->Release();
    }
    // Releases the current pointer and returns the slot for an out parameter.
    T** Out() noexcept {
        Reset();
        return &p_;
    }
    void** OutVoid() noexcept { return reinterpret_cast<void**>(Out()); }

    // QueryInterface for another interface; null when the object does not have it.
    template <class U>
    ComPtr<U> As() const noexcept {
        ComPtr<U> result;
        if (p_) p_->QueryInterface(uuidof<U>(), result.OutVoid());
        return result;
    }

    T* get() const noexcept { return p_; }
    T* operator->() const noexcept { return p_; }
    T& operator*() const noexcept { return *p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }
    friend bool operator==(const ComPtr& a, const ComPtr& b) noexcept { return a.p_ == b.p_; }
    friend bool operator==(const ComPtr& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }

private:
    T* p_ = nullptr;
};

}  // namespace tessaly
