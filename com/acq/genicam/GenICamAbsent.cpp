// The build without Aravis: no GenICam cameras.
#include "com/acq/genicam/GenICamFrameGrabbers.h"

namespace tessaly::acq {

std::vector<ComPtr<ILuxFrameGrabber>> FindGenICamFrameGrabbers() { return {}; }

bool GenICamSupportBuilt() noexcept { return false; }

}  // namespace tessaly::acq
