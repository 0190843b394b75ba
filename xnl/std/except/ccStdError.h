// The general failures every part of the library may throw (family 0x000). Failures that
// belong to one subsystem go into that subsystem's own family.
//
//     throw ccStdError::NullArgument("Font");
//     throw ccStdError::BadArgument("Scaling", ids_LuxTransform_InvalidArgSingular_2, {"Scaling", "0"});
//     throw ccStdError::Described("The camera on port 2 did not answer.");
#pragma once

#include "xnl/std/except/ccException.h"

class ccStdError {
public:
    using Errors = ccErrorFamily<"ccStdError">;

    // A broken invariant of the library itself.
    using InternalError = ccError<Errors, "ccStdError::InternalError", 0x10000001>;
    // A member the library does not provide (yet, or on this platform).
    using NotImplemented = ccError<Errors, "ccStdError::NotImplemented", 0x10000002>;
    // An argument refused; details name the argument. The thrower may pick the message.
    using BadArgument = ccError<Errors, "ccStdError::BadArgument", 0x10000003>;
    // A required object or pointer argument that is null; details name the argument.
    using NullArgument = ccError<Errors, "ccStdError::NullArgument", 0x10000004>;
    // A number or index outside the range it must lie in; details name the argument.
    using OutOfRange = ccError<Errors, "ccStdError::OutOfRange", 0x10000005>;
    // A failure whose complete description was written where it was thrown.
    class Described;
    // A call the object's present state does not allow.
    using Unexpected = ccError<Errors, "ccStdError::Unexpected", 0x10000007>;
    // A path that names no file or folder; details give the path.
    using BadPath = ccError<Errors, "ccStdError::BadPath", 0x10000008>;
};

// The one failure whose code is fixed at 0x10000006: its message is the description it was
// thrown with, and the guard shows that text alone.
class ccStdError::Described : public ccStdError::Errors {
public:
    static constexpr int32_t kCode = 0x10000006;

    explicit Described(std::string description) : Errors(std::move(description)) {}

    int32_t Code() const noexcept override { return kCode; }
    const char* Message() const noexcept override { return Details().c_str(); }
    // The message is the description; the class is still this one.
    const char* PersistentClassName() const noexcept override { return "ccStdError::Described"; }
    std::string DetailedMessage() const override { return Details(); }
};
