// What releases memory lent to a root: a disposable root (ccPelRootDisposable) holds one
// and calls Dispose exactly once, when the root dies, after which the memory is no longer
// used. The automation layer wraps its disposable objects in one; C++ clients pass a
// callable through ccMakePelDisposable:
//
//     auto pixels = std::make_unique<uint8_t[]>(640 * 480);
//     uint8_t* row0 = pixels.get();
//     ccPelRootPtrh<uint8_t> root(new ccPelRootDisposable<uint8_t>(
//         640, 480, row0, 640, ccMakePelDisposable([p = std::move(pixels)]() mutable { p.reset(); })));
#pragma once

#include <memory>
#include <type_traits>
#include <utility>

class ccPelDisposable {
public:
    virtual ~ccPelDisposable();
    // Releases the memory. Called once, on the thread that drops the root's last handle.
    virtual void Dispose() noexcept = 0;

protected:
    ccPelDisposable() = default;
    ccPelDisposable(const ccPelDisposable&) = default;
    ccPelDisposable& operator=(const ccPelDisposable&) = default;
};

// A disposable that calls `release()` (which must not throw).
template <class F>
    requires std::is_invocable_v<F&>
class ccPelDisposableFunction final : public ccPelDisposable {
public:
    explicit ccPelDisposableFunction(F release) : release_(std::move(release)) {}
    void Dispose() noexcept override { release_(); }

private:
    F release_;
};

template <class F>
std::unique_ptr<ccPelDisposable> ccMakePelDisposable(F&& release) {
    return std::make_unique<ccPelDisposableFunction<std::decay_t<F>>>(std::forward<F>(release));
}
