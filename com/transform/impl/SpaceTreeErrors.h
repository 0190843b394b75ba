// The refusals of the coordinate space trees (family 0x011). Each maps to its
// e_LuxSpaceTree_* code; the description is a message text followed, on the next line, by
// what was refused:
//
//     throw SpaceTreeErrors::NotInTree("no space is named \"Fixture\"");
//
// A syntax refusal names the rule's message ID (ids_Lux_NameMissing, ...), whose text
// opens the description:
//
//     throw SpaceTreeErrors::InvalidNameSyntax("\" Part\"", ids_Lux_NameHasSpaceAtEdge);
//
// BadArgument refuses an argument that is well formed but not acceptable (grafting a tree
// into itself, deleting the root): E_INVALIDARG, "The argument %1 is not valid." with the
// argument's name, then the reason.
#pragma once

#include <string>
#include <string_view>

#include "xnl/std/except/ccException.h"

namespace tessaly::transform {

class SpaceTreeErrors {
public:
    using Errors = ccErrorFamily<"SpaceTreeErrors">;

    using DuplicateChildName = ccError<Errors, "SpaceTreeErrors::DuplicateChildName", 0x10110001>;
    using InvalidNameSyntax = ccError<Errors, "SpaceTreeErrors::InvalidNameSyntax", 0x10110002>;
    using NotInTree = ccError<Errors, "SpaceTreeErrors::NotInTree", 0x10110003>;
    using NotUnique = ccError<Errors, "SpaceTreeErrors::NotUnique", 0x10110004>;
    using BadArgument = ccError<Errors, "SpaceTreeErrors::BadArgument", 0x10110005>;

    [[noreturn]] static void ThrowSyntax(std::string_view name, int32_t messageId);
    [[noreturn]] static void ThrowBadArgument(const char* argument, const std::string& why);
};

}  // namespace tessaly::transform
