#include "com/transform/impl/SpaceTreeErrors.h"

#include "TessalyCore.h"
#include "com/core/CollectionErrors.h"
#include "com/core/ExceptionTable.h"
#include "com/core/MessageTable.h"

namespace tessaly::transform {

namespace {

using core::ExceptionRow;

// The message names the failure (the exception's own message ID when it carries one, the
// code's text otherwise); the details say which name.
constexpr uint32_t kFlags = core::kTextMessage | core::kTextAppend | core::kTextDetailed;

const ExceptionRow kSpaceTreeRows[] = {
    {"", SpaceTreeErrors::DuplicateChildName::kCode, e_LuxSpaceTree_DuplicateChildName, kFlags,
     e_LuxSpaceTree_DuplicateChildName},
    {"", SpaceTreeErrors::InvalidNameSyntax::kCode, e_LuxSpaceTree_InvalidNameSyntax, kFlags,
     e_LuxSpaceTree_InvalidNameSyntax},
    {"", SpaceTreeErrors::NotInTree::kCode, e_LuxSpaceTree_NotInTree, kFlags, e_LuxSpaceTree_NotInTree},
    {"", SpaceTreeErrors::NotUnique::kCode, e_LuxSpaceTree_NotUnique, kFlags, e_LuxSpaceTree_NotUnique},
    {"", SpaceTreeErrors::BadArgument::kCode, E_INVALIDARG, kFlags, core::ids_Core_InvalidArg_1},
};

const core::ExceptionTableRegistrar registrar(kSpaceTreeRows);

}  // namespace

void SpaceTreeErrors::ThrowSyntax(std::string_view name, int32_t messageId) {
    throw InvalidNameSyntax("the name " + core::CollectionErrors::Quote(name) + " is refused", messageId);
}

void SpaceTreeErrors::ThrowBadArgument(const char* argument, const std::string& why) {
    throw BadArgument(why, core::ids_Core_InvalidArg_1, {argument});
}

}  // namespace tessaly::transform
