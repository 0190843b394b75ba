// A root over memory lent by a client together with the object that releases it: when the
// root's last handle goes, the root calls the disposable's Dispose exactly once and then
// destroys it (see ccPelDisposable). The memory counts as borrowed: the root never frees
// it itself. A null disposable makes it a plain borrowed root.
#pragma once

#include <cstdint>
#include <memory>

#include "xnl/std/pelbuf/ccPelDisposable.h"
#include "xnl/std/pelbuf/ccPelRootBorrowed.h"

template <class T>
    requires ccPelRootType<T>
class ccPelRootDisposable : public ccPelRootBorrowed<T> {
public:
    // As ccPelRootBorrowed. When the memory is refused the disposable is not called: the
    // caller still owns the memory (the disposable is destroyed without Dispose).
    ccPelRootDisposable(int32_t width, int32_t height, T* row0, int32_t pitch,
                        std::unique_ptr<ccPelDisposable> disposable)
        : ccPelRootBorrowed<T>(width, height, row0, pitch), disposable_(std::move(disposable)) {}

    bool HasDisposable() const noexcept { return disposable_ != nullptr; }

protected:
    ~ccPelRootDisposable() override {
        if (disposable_) disposable_->Dispose();
    }

private:
    std::unique_ptr<ccPelDisposable> disposable_;
};
