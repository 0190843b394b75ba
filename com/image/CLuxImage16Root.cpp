#include "com/image/CLuxImage16Root.h"

#include "platform/ClassTable.h"

namespace tessaly::image {
namespace {

const ClassRegistrar<CLuxImage16Root> registrar;

}  // namespace
}  // namespace tessaly::image
