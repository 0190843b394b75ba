#include "com/image/CLuxImage8Root.h"

#include "platform/ClassTable.h"

namespace tessaly::image {
namespace {

const ClassRegistrar<CLuxImage8Root> registrar;

}  // namespace
}  // namespace tessaly::image
