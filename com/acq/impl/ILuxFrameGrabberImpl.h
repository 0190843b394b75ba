// The members of ILuxFrameGrabber every grabber class shares, over what the class says of
// itself as a FrameGrabberDriver (its name, serial number, video formats and sources):
//
//     class CLuxSimulatedFrameGrabber
//         : public ILuxFrameGrabberImpl<CLuxSimulatedFrameGrabber, ILuxSimulatedFrameGrabber> {
//         std::string GrabberName() const override;
//         std::string GrabberSerialNumber() const override;
//         std::vector<VideoFormatInfo> VideoFormats() const override;
//         std::unique_ptr<FrameSource> OpenSource(const VideoFormatInfo&, int32_t port) override;
//         ... the members of its own interface ...
//     };
//
// AvailableVideoFormats is a new LuxStringCollection of the format names in the grabber's
// order; NumCameraPorts and CreateAcqFifo refuse a name the grabber does not offer with
// e_LuxAcq_BadVideoFormat and a camera port outside the format's with E_INVALIDARG naming
// CameraPort. CreateAcqFifo's FifoType is the FIFO's first OutputPixelFormat.
#pragma once

#include <string>
#include <vector>

#include "TessalyCore.h"
#include "com/acq/AcqErrors.h"
#include "com/acq/CLuxAcqFifo.h"
#include "com/acq/FrameGrabberDriver.h"
#include "com/core/MethodGuard.h"
#include "com/core/ccCOMError.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ComObject.h"
#include "platform/ComPtr.h"

namespace tessaly::acq {

template <class Derived, class GrabberInterface>
class ILuxFrameGrabberImpl : public ComObject<Derived, GrabberInterface>, public FrameGrabberDriver {
public:
    HRESULT get_Name(BSTR* Name) override {
        return core::Guarded("Name", IID_ILuxFrameGrabber, [&] {
            core::RequireOut(Name);
            *Name = Bstr(this->GrabberName()).Detach();
        });
    }

    HRESULT get_SerialNumber(BSTR* SerialNumber) override {
        return core::Guarded("SerialNumber", IID_ILuxFrameGrabber, [&] {
            core::RequireOut(SerialNumber);
            *SerialNumber = Bstr(this->GrabberSerialNumber()).Detach();
        });
    }

    HRESULT get_AvailableVideoFormats(ILuxStringCollection** VideoFormats) override {
        return core::Guarded("AvailableVideoFormats", IID_ILuxFrameGrabber, [&] {
            core::RequireOut(VideoFormats);
            *VideoFormats = nullptr;
            ComPtr<ILuxStringCollection> names;
            core::ThrowIfFailed(
                tessaly::CreateObject(CLSID_LuxStringCollection, IID_ILuxStringCollection, names.OutVoid()));
            for (const VideoFormatInfo& format : this->VideoFormats())
                core::ThrowIfFailed(names->Add(Bstr(format.name).get(), Bstr("").get(), -1));
            *VideoFormats = names.Detach();
        });
    }

    HRESULT get_NumCameraPorts(BSTR VideoFormat, LONG* NumCameraPorts) override {
        return core::Guarded("NumCameraPorts", IID_ILuxFrameGrabber, [&] {
            core::RequireOut(NumCameraPorts);
            *NumCameraPorts = FindFormat(BstrView(VideoFormat)).cameraPorts;
        });
    }

    HRESULT CreateAcqFifo(BSTR VideoFormat, LuxImagePixelFormatConstants FifoType, LONG CameraPort,
                          VARIANT_BOOL AutoPrepare, ILuxAcqFifo** Fifo) override {
        return core::Guarded("CreateAcqFifo", IID_ILuxFrameGrabber, [&] {
            core::RequireOut(Fifo);
            *Fifo = nullptr;
            const VideoFormatInfo format = FindFormat(BstrView(VideoFormat));
            if (CameraPort < 0 || CameraPort >= format.cameraPorts)
                throw core::ccCOMError(E_INVALIDARG,
                                       "CameraPort must lie between 0 and " + std::to_string(format.cameraPorts - 1) +
                                           " for \"" + format.name + "\", not " + std::to_string(CameraPort),
                                       "CreateAcqFifo", IID_ILuxFrameGrabber);
            *Fifo = CLuxAcqFifo::Make(static_cast<GrabberInterface*>(this), *this, format, CameraPort, FifoType,
                                      AutoPrepare != VARIANT_FALSE)
                        .Detach();
        });
    }

protected:
    ILuxFrameGrabberImpl() = default;
    ~ILuxFrameGrabberImpl() override = default;

    // The format of that name; e_LuxAcq_BadVideoFormat naming the grabber's formats otherwise.
    VideoFormatInfo FindFormat(std::string_view name) const {
        std::string offered;
        for (const VideoFormatInfo& format : this->VideoFormats()) {
            if (format.name == name) return format;
            offered += (offered.empty() ? "\"" : ", \"") + format.name + "\"";
        }
        ThrowAcqError(e_LuxAcq_BadVideoFormat, this->GrabberName() + " has no video format \"" + std::string(name) +
                                                   "\"; it offers " + (offered.empty() ? "none" : offered));
    }
};

}  // namespace tessaly::acq
