#include "com/image/CLuxImage16Grey.h"

#include "platform/ClassTable.h"

namespace tessaly::image {
namespace {

const ClassRegistrar<CLuxImage16Grey> registrar;

bool ValidEncoding(int32_t encoding) noexcept {
    return encoding >= luxImage16EncodingGrey10 && encoding <= luxImage16EncodingGrey8;
}

}  // namespace

void CLuxImage16Grey::CopyExtrasFrom(const CLuxImage16Grey& source) {
    int32_t encoding;
    {
        core::ObjectLock::Guard guard(source.Lock());
        encoding = source.encoding_;
    }
    core::ObjectLock::Guard guard(Lock());
    encoding_ = encoding;
}

void CLuxImage16Grey::ResetState() {
    Base::ResetState();
    encoding_ = luxImage16EncodingGrey16;
}

void CLuxImage16Grey::PersistState(core::ArchiveAccess& archive) {
    Base::PersistState(archive);
    if (archive.Saving()) {
        archive.Persist("Encoding", encoding_);
        return;
    }
    Variant value;
    if (!archive.Read("Encoding", value)) return;
    if (FAILED(value.ChangeType(VT_I4)) || !ValidEncoding(value.get().lVal))
        throw ccArchive::BadType("Encoding is not a 16-bit encoding", ids_Lux_ReadInvalidProperty_1, {"Encoding"});
    archive.OnCommit([this, encoding = value.get().lVal]() noexcept { encoding_ = encoding; });
}

HRESULT CLuxImage16Grey::get_Encoding(LuxImage16EncodingConstants* Encoding) {
    return core::Guarded("get_Encoding", IID_ILuxImage16Grey, [&] {
        core::RequireOut(Encoding);
        core::ObjectLock::Guard guard(Lock());
        *Encoding = static_cast<LuxImage16EncodingConstants>(encoding_);
    });
}

HRESULT CLuxImage16Grey::put_Encoding(LuxImage16EncodingConstants Encoding) {
    return core::Guarded("put_Encoding", IID_ILuxImage16Grey, [&] {
        if (!ValidEncoding(Encoding)) throw ccStdError::BadArgument("Encoding");
        {
            core::ObjectLock::Guard guard(Lock());
            if (encoding_ == Encoding) return S_OK;
            encoding_ = Encoding;
        }
        return RaiseChange(luxImage16Grey_Encoding, luxFA_Misc);
    });
}

}  // namespace tessaly::image
