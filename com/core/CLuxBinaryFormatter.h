// LuxBinaryFormatter: saves an object graph in the library's compact binary format and
// loads it back. docs/binary-format.md gives the layout byte by byte; in short, a ccArchive
// header, then the root object, each object written where it is first met (class record
// by class ID on first use, then its named values as tagged VARIANTs), later meetings as
// a reference to its number, and an end mark.
//
// Large arrays of numbers travel as one block: saving hands the SAFEARRAY's memory to the
// stream in one Write, loading reads the stream straight into the new SAFEARRAY's memory.
//
// Loading is safe against damaged and hostile input: every length and count is checked
// against what remains of the stream before anything is allocated, nesting is limited to
// kMaxDepth, and a failure releases everything made so far. The caller's existing root is
// changed only once the whole document has been read.
#pragma once

#include <cstdint>

#include "TessalyCore.h"
#include "platform/ComObject.h"

namespace tessaly::core {

class CLuxBinaryFormatter : public ComObject<CLuxBinaryFormatter, ILuxFormatter> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxBinaryFormatter; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxBinaryFormatter;

    // The deepest nesting of objects and arrays of VARIANTs that is saved or loaded (the
    // root object is level 1). Bounds the stack a hostile archive can make the reader use.
    static constexpr uint32_t kMaxDepth = 512;

    // ILuxFormatter. SubFormat must be empty: the binary format has no variants.
    HRESULT Serialize(IStream* Stream, IDispatch* Obj, LONG Options, BSTR SubFormat) override;
    HRESULT Deserialize(IStream* Stream, IDispatch* Existing, LONG Options, BSTR SubFormat,
                        ILuxStringCollection** Warnings, IDispatch** Obj) override;

    CLuxBinaryFormatter() = default;

protected:
    ~CLuxBinaryFormatter() override = default;
};

}  // namespace tessaly::core
