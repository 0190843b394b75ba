// The one enumerator of the runtime: IEnumVARIANT, IEnumConnections and
// IEnumConnectionPoints are all instances of it. It walks a snapshot of elements taken when
// it was made, so iterating never sees (nor blocks) later changes of what it enumerates.
// Clones share the snapshot (no element is copied or counted again) and start at the
// position of the enumerator they were made from.
//
// A policy says what the snapshot holds and how an element is handed out:
//
//     struct Policy {
//         using Element = ...;   // held by the snapshot; owns what it refers to
//         using Item = ...;      // what Next writes: the interface's element type
//         static void Init(Item&) noexcept;                      // an empty item
//         static HRESULT Copy(const Element&, Item&) noexcept;   // the caller owns the copy
//         static void Clear(Item&) noexcept;                     // gives a copy back
//     };
//
// OLE's rules: Next hands out up to `count` items and answers S_OK when it handed out all
// of them, S_FALSE when the snapshot ran out first (*fetched says how many); `fetched` may
// be null only when count is 1; every one of the `count` slots is written (the items, then
// empty ones). A copy that fails hands out nothing: the items copied so far are given back,
// the position stays, and the failure is answered. Skip answers S_FALSE when fewer than
// `count` items remained (the position is then at the end). One enumerator may be used
// from several threads: each Next or Skip moves the position as one step.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <mutex>
#include <ranges>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/UnknownObject.h"

namespace tessaly {

template <class Interface, class Policy>
class SnapshotEnumerator final : public UnknownObject<SnapshotEnumerator<Interface, Policy>, Interface> {
public:
    using Element = typename Policy::Element;
    using Item = typename Policy::Item;
    using Items = std::vector<Element>;

    // A new enumerator over `items` with one reference, at the start; nullptr when out of
    // memory.
    static Interface* New(Items items) noexcept { return SnapshotEnumerator::Create(std::move(items), size_t{0}); }

    // A snapshot of `source`, whose values make Elements (an interface pointer makes a
    // counted reference, say), positioned at `position` (at most the end).
    template <std::ranges::input_range Source>
    SnapshotEnumerator(Source&& source, size_t position)
        : SnapshotEnumerator(MakeSnapshot(std::forward<Source>(source)), position) {}
    SnapshotEnumerator(std::shared_ptr<const Items> snapshot, size_t position) noexcept
        : items_(std::move(snapshot)), position_(std::min(position, items_->size())) {}

    HRESULT Next(ULONG count, Item* items, ULONG* fetched) override {
        if (fetched) *fetched = 0;
        if (count == 0) return S_OK;
        if (!items || (count > 1 && !fetched)) return E_POINTER;
        for (ULONG i = 0; i < count; ++i) Policy::Init(items[i]);
        std::lock_guard lock(mutex_);
        const size_t available = std::min<size_t>(count, items_->size() - position_);
        for (size_t i = 0; i < available; ++i) {
            const HRESULT copied = Policy::Copy((*items_)[position_ + i], items[i]);
            if (FAILED(copied)) {
                for (size_t j = 0; j < i; ++j) Policy::Clear(items[j]);
                return copied;
            }
        }
        position_ += available;
        if (fetched) *fetched = static_cast<ULONG>(available);
        return available == count ? S_OK : S_FALSE;
    }

    HRESULT Skip(ULONG count) override {
        std::lock_guard lock(mutex_);
        const size_t remaining = items_->size() - position_;
        if (count > remaining) {
            position_ = items_->size();
            return S_FALSE;
        }
        position_ += count;
        return S_OK;
    }

    HRESULT Reset() override {
        std::lock_guard lock(mutex_);
        position_ = 0;
        return S_OK;
    }

    HRESULT Clone(Interface** clone) override {
        if (!clone) return E_POINTER;
        size_t position;
        {
            std::lock_guard lock(mutex_);
            position = position_;
        }
        *clone = SnapshotEnumerator::Create(items_, position);
        return *clone ? S_OK : E_OUTOFMEMORY;
    }

private:
    ~SnapshotEnumerator() override = default;

    template <class Source>
    static std::shared_ptr<const Items> MakeSnapshot(Source&& source) {
        if constexpr (std::is_same_v<std::remove_cvref_t<Source>, Items>) {
            return std::make_shared<const Items>(std::forward<Source>(source));
        } else {
            return std::make_shared<const Items>(std::ranges::begin(source), std::ranges::end(source));
        }
    }

    // Shared with clones; elements are released with the last of them.
    const std::shared_ptr<const Items> items_;
    std::mutex mutex_;  // Next, Skip and Reset move the position as one step
    size_t position_;
};

}  // namespace tessaly
