// Destroys objects whose last reference is gone, with bounded stack. Releasing an object's
// last reference destroys it; its destructor releases what it held, which may be destroyed
// in turn: a long chain of objects, each the last holder of the next (an archive can spell
// one of any length), would otherwise recurse once per object and overflow the stack.
//
// Up to kMaxNesting destructions in progress on a thread, an object is destroyed at once,
// as plain `delete` would. Beyond that it waits in the thread's queue, which the outermost
// destruction empties before it returns: everything a Release frees is still gone by the
// time that Release returns.
#pragma once

namespace tessaly {

class DestructionQueue {
public:
    static constexpr int kMaxNesting = 64;

    using Destroy = void (*)(void* object) noexcept;

    // Runs destroy(object) now or, beyond kMaxNesting nested destructions, later in this
    // thread's outermost destruction.
    static void Run(void* object, Destroy destroy) noexcept;
};

}  // namespace tessaly
