#include "com/core/CLuxStringCollection.h"

#include "platform/ClassTable.h"

namespace tessaly::core {

namespace {
const ClassRegistrar<CLuxStringCollection> registrar;
}  // namespace

}  // namespace tessaly::core
