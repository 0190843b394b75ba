// The failures of saving and loading object graphs (family 0x00C). A formatter failure is
// named by its message ID, which is also the HRESULT the caller sees (the formatter's
// messages 0x80048300 onward are failure codes), unless the throw site gives another:
//
//     FormatterErrors::Throw(ids_LuxFormatter_CantCreateObject_1, {"Tessaly.Nothing"});
//     FormatterErrors::Throw(ids_LuxFormatter_NoProgID_1, {"{...}"}, E_FAIL);
//
// The description is the message's text with its inserts. The same file maps the core
// archive's failures (ccArchive::Errors) to HRESULTs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/HResult.h"
#include "xnl/std/except/ccException.h"

namespace tessaly::core {

class FormatterErrors {
public:
    using Errors = ccErrorFamily<"FormatterErrors">;

    // HRESULT = the message ID.
    using Failure = ccError<Errors, "FormatterErrors::Failure", 0x100C0001>;
    // HRESULT = E_FAIL, described by the message.
    using Failed = ccError<Errors, "FormatterErrors::Failed", 0x100C0002>;

    [[noreturn]] static void Throw(int32_t messageId, std::vector<std::string> inserts = {}, HRESULT result = 0);

    // How an object without a ProgID is named in messages.
    static constexpr const char* kNoProgIdName = "object with no ProgID";
};

}  // namespace tessaly::core
