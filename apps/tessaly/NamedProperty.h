// Properties of any object reached by their names through its IDispatch, as a late-bound
// client reaches them: how `tessaly run` hands an image to a tool and reads its results
// without knowing the tool's class.
//
//     Variant mean;
//     HRESULT hr = NamedProperty::Get(tool, "Mean", mean);
//     hr = NamedProperty::PutRef(tool, "InputImage", Variant(image));
//
// Failures are the HRESULTs of GetIDsOfNames and Invoke (DISP_E_UNKNOWNNAME for a name the
// object does not have, the member's own failure with the thread's error info).
#pragma once

#include <string>
#include <string_view>

#include "platform/StandardInterfaces.h"
#include "platform/TypeInfo.h"
#include "platform/Variant.h"

namespace tessaly::cli {

class NamedProperty {
public:
    static HRESULT Get(IDispatch* object, std::string_view name, Variant& value) noexcept;
    static HRESULT PutRef(IDispatch* object, std::string_view name, const VARIANT& value) noexcept;

    // The type of the value the property gets, from the type information of the object's
    // class (its interfaces and their bases); nullptr when the class or the property is
    // not described.
    static const ParamInfo* ValueType(IDispatch* object, std::string_view name) noexcept;

    // A value as one field of text: numbers in decimal (reals in the shortest form that
    // reads back the same), Booleans as true or false, strings as they are, arrays as
    // their elements separated by spaces, objects by their class's ProgID, nothing as "".
    static std::string Text(const VARIANT& value);
};

}  // namespace tessaly::cli
