// LuxFrameGrabbers: the frame grabbers present when the collection is made, the
// simulated grabber first, then every GenICam camera found. The list is a
// snapshot: indices stay put while the collection lives, and a camera plugged
// in later appears in the next one made. Each collection has a simulated
// grabber of its own (the same is true of a LuxSimulatedFrameGrabber created
// directly); cameras are the same hardware whichever collection reaches them,
// and a second FIFO on a camera port already open is refused by the camera's
// grabber.
//
// Item takes a 0-based index or a grabber's Name (the first grabber of that
// name).
#pragma once

#include <vector>

#include "TessalyCore.h"
#include "platform/ComObject.h"
#include "platform/ComPtr.h"

namespace tessaly::acq {

class CLuxFrameGrabbers : public ComObject<CLuxFrameGrabbers, ILuxFrameGrabbers> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxFrameGrabbers; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxFrameGrabbers;

    CLuxFrameGrabbers();

    // ILuxFrameGrabbers
    HRESULT get_Count(LONG* Count) override;
    HRESULT get_Item(VARIANT IndexOrName, ILuxFrameGrabber** Item) override;
    HRESULT get__NewEnum(IUnknown** Enumerator) override;

protected:
    ~CLuxFrameGrabbers() override = default;

private:
    // Never changes after construction, so the members need no lock.
    std::vector<ComPtr<ILuxFrameGrabber>> grabbers_;
};

}  // namespace tessaly::acq
