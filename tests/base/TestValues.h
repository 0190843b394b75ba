// Counted values for the handle tests: one shared deliberately (like a pel root), one
// hierarchy copied on write (like shapes), each counting its live instances so that a
// test can see when a value dies and that it dies once.
#pragma once

#include <atomic>
#include <stdexcept>

#include "xnl/std/base/ccRefCounted.h"

namespace tessaly::test {

// Shared deliberately: no Clone, every holder writes the one value.
class SharedPixels : public ccRefCounted {
public:
    static inline std::atomic<int> live{0};
    static inline std::atomic<int> destroyed{0};

    SharedPixels() { ++live; }
    int pixel = 0;

protected:
    ~SharedPixels() override {
        --live;
        ++destroyed;
    }
};

// Copied on write, polymorphically: a handle to the base clones the derived value.
class ShapeValue : public ccRefCounted {
public:
    static inline std::atomic<int> live{0};
    static inline std::atomic<int> clones{0};
    // When set, the next Clone throws (an allocation that fails, say).
    static inline std::atomic<bool> failNextClone{false};

    explicit ShapeValue(double size) : size(size) { ++live; }
    ShapeValue(const ShapeValue& other) : ccRefCounted(other), size(other.size) { ++live; }
    ShapeValue& operator=(const ShapeValue&) = default;
    virtual ShapeValue* Clone() const {
        if (failNextClone.exchange(false)) throw std::bad_alloc();
        ++clones;
        return new ShapeValue(*this);
    }
    virtual int Corners() const { return 0; }

    double size;

protected:
    ~ShapeValue() override { --live; }
};

class SquareValue final : public ShapeValue {
public:
    explicit SquareValue(double size) : ShapeValue(size) {}
    SquareValue* Clone() const override {
        ++clones;
        return new SquareValue(*this);
    }
    int Corners() const override { return 4; }

private:
    ~SquareValue() override = default;
};

}  // namespace tessaly::test
