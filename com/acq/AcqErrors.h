// The failures of acquisition: an e_LuxAcq_* code (or E_INVALIDARG, E_NOTIMPL) with a
// text that says what was refused, as a client reads it from the error info.
//
//     ThrowAcqError(e_LuxAcq_BadTicket, "ticket 7 was never issued by this FIFO");
#pragma once

#include <string>

#include "TessalyCore.h"

namespace tessaly::acq {

// The code's standard text, then ": " and `detail`.
[[noreturn]] void ThrowAcqError(HRESULT code, const std::string& detail);

}  // namespace tessaly::acq
