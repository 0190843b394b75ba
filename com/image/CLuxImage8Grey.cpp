#include "com/image/CLuxImage8Grey.h"

#include "platform/ClassTable.h"

namespace tessaly::image {
namespace {

const ClassRegistrar<CLuxImage8Grey> registrar;

}  // namespace
}  // namespace tessaly::image
