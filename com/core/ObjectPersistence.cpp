#include "com/core/ObjectPersistence.h"

#include <cstdio>
#include <string>
#include <string_view>

#include <unistd.h>

#include "com/core/MessageTable.h"
#include "com/core/MethodGuard.h"
#include "com/core/ObjectGraphObjects.h"
#include "com/core/ccCOMError.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "platform/ErrorInfo.h"
#include "platform/FileStream.h"
#include "platform/MemoryStream.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly {

namespace {

using core::Guarded;
using core::ThrowIfFailed;

// The first bytes read to tell the formats apart.
constexpr size_t kHeadSize = 64;

const IID& kIid = ILuxFormatter::iid;

// The formatter class and sub-format of a format constant, for saving (`loading` false)
// or for loading bytes that start with `head`.
struct FormatChoice {
    const char* progId;
    const char* subFormat;
};

FormatChoice Choose(int32_t format, bool loading, std::span<const uint8_t> head) {
    if (format == luxPersistFormatAny) format = loading ? DetectPersistFormat(head) : luxPersistFormatBinary;
    switch (format) {
        case luxPersistFormatXML:
            return {"Tessaly.LuxXMLFormatter", ""};
        case luxPersistFormatXMLWithLineBreaks:
            return {"Tessaly.LuxXMLFormatter", loading ? "" : "LineBreaks"};
        case luxPersistFormatBinary:
            return {"Tessaly.LuxBinaryFormatter", ""};
        case luxPersistFormatSoap:
            return {"Tessaly.LuxSoapFormatter", ""};
        case luxPersistFormatCustom:  // needs a formatter object: its Serialize and Deserialize
        default:
            throw ccStdError::BadArgument("Format");
    }
}

ComPtr<ILuxFormatter> MakeFormatter(const char* progId) {
    ComPtr<ILuxFormatter> formatter;
    ThrowIfFailed(CreateObject(progId, ILuxFormatter::iid, formatter.OutVoid()));
    return formatter;
}

// Reads up to kHeadSize bytes and puts the stream back where it was.
std::vector<uint8_t> PeekHead(IStream* stream) {
    ULONGLONG start = 0;
    ThrowIfFailed(stream->Seek(0, STREAM_SEEK_CUR, &start));
    std::vector<uint8_t> head(kHeadSize);
    ULONG got = 0;
    ThrowIfFailed(stream->Read(head.data(), static_cast<ULONG>(head.size()), &got));
    head.resize(got);
    ThrowIfFailed(stream->Seek(static_cast<LONGLONG>(start), STREAM_SEEK_SET, nullptr));
    return head;
}

void Save(IDispatch* object, IStream* stream, int32_t format, int32_t options) {
    if (!object) throw ccStdError::NullArgument("Object");
    if (!stream) throw ccStdError::NullArgument("Stream");
    const FormatChoice choice = Choose(format, false, {});
    const ComPtr<ILuxFormatter> formatter = MakeFormatter(choice.progId);
    const Bstr subFormat(choice.subFormat);
    ThrowIfFailed(formatter->Serialize(stream, object, options, subFormat.get()));
}

ComPtr<IDispatch> Load(IStream* stream, int32_t format) {
    if (!stream) throw ccStdError::NullArgument("Stream");
    const std::vector<uint8_t> head = format == luxPersistFormatAny ? PeekHead(stream) : std::vector<uint8_t>();
    const FormatChoice choice = Choose(format, true, head);
    const ComPtr<ILuxFormatter> formatter = MakeFormatter(choice.progId);
    const Bstr subFormat(choice.subFormat);
    ComPtr<ILuxStringCollection> warnings;
    ComPtr<IDispatch> object;
    ThrowIfFailed(formatter->Deserialize(stream, nullptr, luxPersistOptionAll, subFormat.get(), warnings.Out(),
                                         object.Out()));
    return object;
}

// A file failure as the file group reports it: the code, the path and what went wrong.
[[noreturn]] void ThrowFileError(const char* method, HRESULT code, std::string_view path, HRESULT cause) {
    std::string text = core::MessageTable::ResultText(code) + "\n" + std::string(path) + ": ";
    ComPtr<IErrorInfo> info;
    GetErrorInfo(0, info.Out());
    BSTR description = nullptr;
    if (info && SUCCEEDED(info->GetDescription(&description)) && description && *description)
        text += std::string(BstrView(description));
    else
        text += core::MessageTable::ResultText(cause);
    SysFreeString(description);
    throw core::ccCOMError(code, text, method, kIid);
}

}  // namespace

int32_t DetectPersistFormat(std::span<const uint8_t> head) noexcept {
    size_t at = 0;
    const auto skipSpace = [&] {
        while (at < head.size() && (head[at] == ' ' || head[at] == '\t' || head[at] == '\r' || head[at] == '\n')) ++at;
    };
    if (head.size() >= 3 && head[0] == 0xEF && head[1] == 0xBB && head[2] == 0xBF) at = 3;
    skipSpace();
    if (at == head.size() || head[at] != '<') return luxPersistFormatBinary;
    // Text: a SOAP document is the one whose top element, after the declaration, comments
    // and processing instructions, is an envelope ("<SOAP-ENV:Envelope"); everything else
    // is left to the XML loader.
    const std::string_view text(reinterpret_cast<const char*>(head.data()), head.size());
    for (;;) {
        const std::string_view rest = text.substr(at);
        const bool instruction = rest.starts_with("<?");
        if (!instruction && !rest.starts_with("<!--")) break;
        const size_t end = text.find(instruction ? "?>" : "-->", at + (instruction ? 2 : 4));
        if (end == std::string_view::npos) return luxPersistFormatXML;
        at = end + (instruction ? 2 : 3);
        skipSpace();
    }
    return text.substr(at).starts_with("<SOAP-ENV:Envelope") ? luxPersistFormatSoap : luxPersistFormatXML;
}

HRESULT SaveObjectToStream(IDispatch* object, IStream* stream, int32_t format, int32_t options) noexcept {
    return Guarded("SaveObjectToStream", kIid, [&] {
        Save(object, stream, format, options);
        return S_OK;
    });
}

HRESULT LoadObjectFromStream(IStream* stream, int32_t format, IDispatch** object) noexcept {
    return Guarded("LoadObjectFromStream", kIid, [&] {
        if (!object) return E_POINTER;
        *object = nullptr;
        *object = Load(stream, format).Detach();
        return S_OK;
    });
}

HRESULT SaveObjectToBytes(IDispatch* object, int32_t format, int32_t options, std::vector<uint8_t>* bytes) noexcept {
    return Guarded("SaveObjectToBytes", kIid, [&] {
        if (!bytes) return E_POINTER;
        auto stream = ComPtr<MemoryStream>::Attach(MemoryStream::Create());
        if (!stream) throw std::bad_alloc();
        Save(object, stream.get(), format, options);
        bytes->assign(stream->Data(), stream->Data() + stream->Size());
        return S_OK;
    });
}

HRESULT LoadObjectFromBytes(std::span<const uint8_t> bytes, int32_t format, IDispatch** object) noexcept {
    return Guarded("LoadObjectFromBytes", kIid, [&] {
        if (!object) return E_POINTER;
        *object = nullptr;
        ComPtr<IStream> stream;
        ThrowIfFailed(MemoryStream::Create(bytes.data(), bytes.size(), stream.Out()));
        *object = Load(stream.get(), format).Detach();
        return S_OK;
    });
}

HRESULT SaveObjectToFile(IDispatch* object, std::string_view path, int32_t format, int32_t options) noexcept {
    return Guarded("SaveObjectToFile", kIid, [&] {
        if (path.empty()) throw ccStdError::BadArgument("Path");
        // Written beside the target and renamed over it only when complete.
        const std::string target(path);
        const std::string temporary = target + ".saving-" + std::to_string(::getpid());
        ComPtr<IStream> stream;
        const HRESULT opened = FileStream::Open(temporary, FileStream::Mode::Write, stream.Out());
        if (FAILED(opened)) ThrowFileError("SaveObjectToFile", e_Lux_FileOpen, path, opened);
        try {
            Save(object, stream.get(), format, options);
            stream.Reset();
            if (std::rename(temporary.c_str(), target.c_str()) != 0) {
                ClearErrorInfo();
                ThrowFileError("SaveObjectToFile", e_Lux_FileWrite, path, STG_E_ACCESSDENIED);
            }
        } catch (...) {
            stream.Reset();
            std::remove(temporary.c_str());
            throw;
        }
        return S_OK;
    });
}

HRESULT LoadObjectFromFile(std::string_view path, int32_t format, IDispatch** object) noexcept {
    return Guarded("LoadObjectFromFile", kIid, [&] {
        if (!object) return E_POINTER;
        *object = nullptr;
        ComPtr<IStream> stream;
        const HRESULT opened = FileStream::Open(path, FileStream::Mode::Read, stream.Out());
        if (FAILED(opened)) ThrowFileError("LoadObjectFromFile", e_Lux_FileOpen, path, opened);
        *object = Load(stream.get(), format).Detach();
        return S_OK;
    });
}

HRESULT ClearObjectGraph(IDispatch* root) noexcept {
    return Guarded("ClearObjectGraph", kIid, [&] {
        if (!root) return E_POINTER;
        const core::ObjectGraphObjects graph(root);
        HRESULT first = S_OK;
        ComPtr<IErrorInfo> firstInfo;
        for (const ComPtr<IUnknown>& object : graph.Objects()) {
            const HRESULT cleared = core::ObjectGraphObjects::Empty(object.get(), luxPersistOptionAll);
            if (FAILED(cleared) && SUCCEEDED(first)) {
                first = cleared;
                GetErrorInfo(0, firstInfo.Out());
            }
        }
        // The first refusal, described as the object described it.
        if (FAILED(first)) SetErrorInfo(0, firstInfo.get());
        return first;
    });
}

}  // namespace tessaly
