// The GenICam cameras (GigE Vision, USB3 Vision) present, one frame grabber each, found
// through Aravis. Without Aravis at build time there are none, and GenICamSupportBuilt
// says so (`tessaly acq list` prints it).
#pragma once

#include <vector>

#include "TessalyCore.h"
#include "platform/ComPtr.h"

namespace tessaly::acq {

// Every camera found now; each call looks again. A camera that is found but cannot be
// opened is left out.
std::vector<ComPtr<ILuxFrameGrabber>> FindGenICamFrameGrabbers();

bool GenICamSupportBuilt() noexcept;

}  // namespace tessaly::acq
