#include "com/core/MethodGuard.h"

#include <new>
#include <string>
#include <vector>

#include "com/core/MessageTable.h"
#include "com/core/ccCOMError.h"
#include "platform/ErrorInfo.h"
#include "xnl/std/except/ccException.h"

namespace tessaly::core {

namespace {

// The guard's own failures (family 0x00A, the object base).
class ccMethodGuard {
public:
    using Errors = ccErrorFamily<"ccMethodGuard">;
    using NullOutPointer = ccError<Errors, "ccMethodGuard::NullOutPointer", 0x100A0001>;
};

// A null [out] pointer is described by E_POINTER's own text, as a body that returns
// E_POINTER is: one text, whichever way a method refuses it.
const ExceptionRow kMethodGuardRows[] = {
    {"", ccMethodGuard::NullOutPointer::kCode, E_POINTER, 0, 0},
};
const ExceptionTableRegistrar registrar(kMethodGuardRows);

// Between the message text and the exception's own message.
constexpr const char* kSeparator = "\n";

// The description of a library exception, built as the row's flags say.
std::string Describe(const ccException& error, const ExceptionMapping& mapping) {
    const uint32_t flags = mapping.flags;
    std::string text;
    if (flags & kTextMessage) {
        const int32_t id = error.MessageId() ? error.MessageId() : mapping.messageId;
        bool found = false;
        if (id) {
            // An exception thrown without inserts lends its details to %1.
            const std::vector<std::string> detailsOnly{error.Details()};
            text = MessageTable::Text(id, error.Inserts().empty() ? detailsOnly : error.Inserts(), &found);
        }
        if (!found) text = MessageTable::ResultText(mapping.result);
    }
    if (flags & kTextAppend) {
        if (!text.empty()) text += kSeparator;
        text += (flags & kTextDetailed) ? error.DetailedMessage() : std::string(error.Message());
    } else if (!(flags & kTextMessage)) {
        if (flags == 0) return MessageTable::ResultText(mapping.result);
        text = (flags & kTextDetailed) ? error.DetailedMessage() : std::string(error.Message());
    }
    return text;
}

HRESULT PassOn(const ccCOMError& error, const char* method, const IID& iid) {
    const HRESULT result = error.Result() < 0 ? error.Result() : E_FAIL;
    if (error.Info() && result == error.Result()) {
        SetErrorInfo(0, error.Info());
        return result;
    }
    return SetErrorInfo(result, MessageTable::ResultText(result), method, iid);
}

HRESULT Translate(const ccException& error, ModuleKey module, const char* method, const IID& iid) {
    ExceptionMapping mapping = ExceptionTable::Find(error.Code(), module.name ? module.name : "");
    if ((mapping.flags & kResultFromMessage) && error.MessageId() < 0) mapping.result = error.MessageId();
    if (mapping.result >= 0) mapping.result = E_FAIL;  // a row must not turn a throw into success
    return SetErrorInfo(mapping.result, Describe(error, mapping), method, iid);
}

}  // namespace

void ThrowNullOutPointer() { throw ccMethodGuard::NullOutPointer("a null pointer was given for a result"); }

namespace detail {

HRESULT GuardException(ModuleKey module, const char* method, const IID& iid) noexcept {
    try {
        try {
            throw;
        } catch (const ccCOMError& error) {
            return PassOn(error, method, iid);
        } catch (const ccException& error) {
            return Translate(error, module, method, iid);
        } catch (const std::bad_alloc&) {
            // No description: reporting must not need the memory that just ran out.
            ClearErrorInfo();
            return E_OUTOFMEMORY;
        } catch (const std::exception& error) {
            return SetErrorInfo(E_FAIL, error.what(), method, iid);
        } catch (...) {
            return SetErrorInfo(E_FAIL, MessageTable::Text(ids_Core_UnknownException), method, iid);
        }
    } catch (...) {
        // Building the description itself failed: memory is exhausted.
        ClearErrorInfo();
        return E_OUTOFMEMORY;
    }
}

HRESULT GuardFailure(HRESULT result, const char* method, const IID& iid) noexcept {
    IErrorInfo* info = nullptr;
    GetErrorInfo(0, &info);
    if (info && MayDescribe(info, result)) {
        // The body or the object it called described this failure: keep that text.
        SetErrorInfo(0, info);
        info->Release();
        return result;
    }
    if (info) info->Release();
    try {
        return SetErrorInfo(result, MessageTable::ResultText(result), method, iid);
    } catch (...) {
        ClearErrorInfo();
        return result;
    }
}

}  // namespace detail

}  // namespace tessaly::core
