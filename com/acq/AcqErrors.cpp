#include "com/acq/AcqErrors.h"

#include "com/core/MessageTable.h"
#include "com/core/ccCOMError.h"

namespace tessaly::acq {

void ThrowAcqError(HRESULT code, const std::string& detail) {
    std::string text = core::MessageTable::ResultText(code);
    if (!text.empty() && text.back() == '.') text.pop_back();
    throw core::ccCOMError(code, text + ": " + detail, "LuxAcqFifo", IID_ILuxAcqFifo);
}

}  // namespace tessaly::acq
