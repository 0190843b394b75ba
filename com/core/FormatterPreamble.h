// What every formatter's Serialize and Deserialize do around their own format, written
// once: the method guard, the argument checks (a null stream or object to save is
// E_INVALIDARG naming it, a null place for the loaded object E_POINTER; the sub-format is
// the formatter's to read inside its body), the graph saver or loader, and,
// for a load, handing back the root and the warnings only once the whole load succeeded.
//
//     HRESULT CLuxThingFormatter::Serialize(IStream* Stream, IDispatch* Obj, LONG Options, BSTR SubFormat) {
//         return FormatterPreamble::Serialize(Stream, Obj, Options, [&](ObjectGraphSaver& saver) { ... });
//     }
#pragma once

#include <cstdint>

#include "TessalyCore.h"
#include "com/core/MethodGuard.h"
#include "com/core/ObjectGraphLoader.h"
#include "com/core/ObjectGraphSaver.h"
#include "platform/ComPtr.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

class FormatterPreamble {
public:
    // `save(ObjectGraphSaver&)` writes the graph of `object` to `stream`; it throws on failure.
    template <class Save>
    static HRESULT Serialize(IStream* stream, IDispatch* object, int32_t options, Save&& save) noexcept {
        return Guarded("Serialize", ILuxFormatter::iid, [&]() -> HRESULT {
            if (!stream) throw ccStdError::NullArgument("Stream");
            if (!object) throw ccStdError::NullArgument("Obj");
            ObjectGraphSaver saver(options);
            save(saver);
            return S_OK;
        });
    }

    // `load(ObjectGraphLoader&)` reads the document from `stream` and returns the root
    // (ComPtr<IDispatch>, from the loader's Finish); it throws on failure. The [out]
    // arguments are null until the load has succeeded.
    template <class Load>
    static HRESULT Deserialize(IStream* stream, IDispatch* existing, int32_t options,
                               ILuxStringCollection** warnings, IDispatch** object, Load&& load) noexcept {
        if (warnings) *warnings = nullptr;
        if (object) *object = nullptr;
        return Guarded("Deserialize", ILuxFormatter::iid, [&]() -> HRESULT {
            if (!stream) throw ccStdError::NullArgument("Stream");
            if (!object) return E_POINTER;
            ObjectGraphLoader loader(options, existing);
            ComPtr<IDispatch> root = load(loader);
            ComPtr<ILuxStringCollection> found = loader.Warnings();
            if (warnings) *warnings = found.Detach();
            *object = root.Detach();
            return S_OK;
        });
    }
};

}  // namespace tessaly::core
