#include "com/core/CLuxDictionary.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <vector>

#include "com/core/MessageTable.h"
#include "com/core/MethodGuard.h"
#include "com/core/ccCOMError.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/Variant.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

namespace {

const ClassRegistrar<CLuxDictionary> registrar;

constexpr const char* kDefaultBaseName = "TessalyCore";

const LanguageTable& CurrentTable() {
    const LanguageTable* table = MessageTable::Language(MessageTable::CurrentLanguage());
    if (!table) throw ccStdError::InternalError("no table for the current language");
    return *table;
}

void SetText(BSTR* out, std::string_view text) {
    *out = nullptr;
    *out = Bstr(text).Detach();
}

// The pattern of a message; unknown IDs are refused.
const char* Pattern(LONG id) {
    const char* pattern = MessageTable::Find(id);
    if (!pattern) throw ccStdError::BadArgument("ID", ids_Core_UnknownMessageID_1, {MessageTable::Hex(id)});
    return pattern;
}

// An optional argument as text: a missing one is empty, anything else is converted.
std::string ArgumentText(const VARIANT& argument, const char* name, const char* method, const IID& iid) {
    if (argument.vt == VT_ERROR && argument.scode == DISP_E_PARAMNOTFOUND) return {};
    Variant text;
    const HRESULT hr = VariantChangeType(text.Out(), &argument, 0, VT_BSTR);
    if (FAILED(hr)) {
        const std::string names[] = {name};
        throw ccCOMError(hr, MessageTable::Text(ids_Core_NotText_1, names), method, iid);
    }
    return std::string(BstrView(text.get().bstrVal));
}

std::string Formatted(LONG id, const VARIANT& arg1, const VARIANT& arg2, const VARIANT& arg3, const char* method,
                      const IID& iid) {
    const char* pattern = Pattern(id);
    const std::string inserts[] = {ArgumentText(arg1, "Arg1", method, iid), ArgumentText(arg2, "Arg2", method, iid),
                                   ArgumentText(arg3, "Arg3", method, iid)};
    return MessageTable::Format(pattern, inserts);
}

// Copies UTF-8 text into a caller's buffer of `length` bytes, always NUL-terminated, cut
// before a character that does not fit whole. S_FALSE when the text was cut.
HRESULT CopyToBuffer(std::string_view text, LONGLONG address, LONG length) {
    char* buffer = reinterpret_cast<char*>(static_cast<uintptr_t>(address));
    size_t count = std::min(text.size(), static_cast<size_t>(length) - 1);
    if (count < text.size())
        while (count > 0 && (static_cast<unsigned char>(text[count]) & 0xC0) == 0x80) --count;
    std::memcpy(buffer, text.data(), count);
    buffer[count] = '\0';
    return count < text.size() ? S_FALSE : S_OK;
}

void CheckBuffer(LONGLONG address, LONG length) {
    if (address == 0) throw ccStdError::NullArgument("Buf");  // the caller's buffer: an [in] argument
    if (length <= 0) throw ccStdError::BadArgument("BufLen", ids_Core_ArgNotPositive_1);
}

LuxFontUsageConstants CheckUsage(LuxFontUsageConstants usage) {
    if (usage < luxFontUsageDefault || usage > luxFontUsageNonProportional) throw ccStdError::OutOfRange("Usage");
    return usage;
}

constexpr const char* kUpdateFont = "UpdateFont";

// The DISPID of a property of the Font object given to UpdateFont.
DISPID FontProperty(IDispatch* font, const char* name) {
    LPOLESTR names[] = {const_cast<char*>(name)};
    DISPID dispid = DISPID_UNKNOWN;
    const HRESULT hr = font->GetIDsOfNames(GUID_NULL, names, 1, LOCALE_USER_DEFAULT, &dispid);
    if (FAILED(hr)) {
        const std::string inserts[] = {"Font", name};
        throw ccCOMError(hr, MessageTable::Text(ids_Core_NoSuchProperty_2, inserts), kUpdateFont,
                         ILuxDictionary::iid);
    }
    return dispid;
}

// Sets one property of the Font object, passing on the object's own failure.
void PutFontProperty(IDispatch* font, DISPID dispid, VARIANT& value) {
    DISPID putId = DISPID_PROPERTYPUT;
    DISPPARAMS params{&value, &putId, 1, 1};
    EXCEPINFO excep{};
    UINT argErr = 0;
    const HRESULT hr = font->Invoke(dispid, GUID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYPUT, &params, nullptr,
                                    &excep, &argErr);
    if (hr == DISP_E_EXCEPTION) {
        if (excep.pfnDeferredFillIn) excep.pfnDeferredFillIn(&excep);
        const Bstr source = Bstr::Attach(excep.bstrSource);
        const Bstr description = Bstr::Attach(excep.bstrDescription);
        SysFreeString(excep.bstrHelpFile);
        const HRESULT code = excep.scode < 0 ? excep.scode : E_FAIL;
        throw ccCOMError(code, description.empty() ? MessageTable::ResultText(code) : description.str(),
                         source.empty() ? std::string_view(kUpdateFont) : source.view(), ILuxDictionary::iid);
    }
    if (FAILED(hr)) throw ccCOMError(hr, MessageTable::ResultText(hr), kUpdateFont, ILuxDictionary::iid);
}

}  // namespace

const CoClassInfo& CLuxDictionary::CoClass() { return generated::CoClass_LuxDictionary; }

HRESULT CLuxDictionary::Init(BSTR Path, BSTR BaseName) {
    return Guarded("Init", ILuxDictionary::iid, [&] {
        const std::string folder(BstrView(Path));
        if (folder.empty()) throw ccStdError::BadArgument("Path");
        std::error_code error;
        if (!std::filesystem::is_directory(folder, error)) throw ccStdError::BadPath(folder);
        std::string baseName(BstrView(BaseName));
        const std::lock_guard lock(mutex_);
        folder_ = folder;
        baseName_ = std::move(baseName);
    });
}

HRESULT CLuxDictionary::InitHmod(LONGLONG, BSTR BaseName) {
    // Every module's texts are compiled into this library: any handle (0 = this library)
    // leads to the same tables.
    return Guarded("InitHmod", ILuxDictionary::iid, [&] {
        std::string baseName(BstrView(BaseName));
        const std::lock_guard lock(mutex_);
        folder_.clear();
        baseName_ = std::move(baseName);
    });
}

HRESULT CLuxDictionary::get_LanguageAbbrev(BSTR* Abbrev) {
    return Guarded("get_LanguageAbbrev", ILuxDictionary::iid, [&] {
        RequireOut(Abbrev);
        SetText(Abbrev, CurrentTable().abbreviation);
    });
}

HRESULT CLuxDictionary::get_LanguageID(LONG* LanguageID) {
    return Guarded("get_LanguageID", ILuxDictionary::iid, [&] {
        RequireOut(LanguageID);
        *LanguageID = MessageTable::CurrentLanguage();
    });
}

HRESULT CLuxDictionary::put_LanguageID(LONG LanguageID) {
    return Guarded("put_LanguageID", ILuxDictionary::iid, [&] {
        if (!MessageTable::SetCurrentLanguage(LanguageID))
            throw ccStdError::BadArgument("LanguageID", ids_Core_NoLanguageTable_1, {MessageTable::Hex(LanguageID)});
    });
}

HRESULT CLuxDictionary::GetString(LONG ID, BSTR* Text) {
    return Guarded("GetString", ILuxDictionary::iid, [&] {
        RequireOut(Text);
        SetText(Text, Pattern(ID));
    });
}

HRESULT CLuxDictionary::FormatString(LONG ID, VARIANT Arg1, VARIANT Arg2, VARIANT Arg3, BSTR* Text) {
    return Guarded("FormatString", ILuxDictionary::iid, [&] {
        RequireOut(Text);
        SetText(Text, Formatted(ID, Arg1, Arg2, Arg3, "FormatString", ILuxDictionary::iid));
    });
}

HRESULT CLuxDictionary::get_HelpFile(LONG, BSTR* Path) {
    // Help is one HTML file per language beside the texts: <folder>/<base name>_<abbrev>.html
    // in the folder given to Init. Without such a file there is no help: "".
    return Guarded("get_HelpFile", ILuxDictionary::iid, [&] {
        RequireOut(Path);
        std::filesystem::path file;
        {
            const std::lock_guard lock(mutex_);
            if (!folder_.empty())
                file = std::filesystem::path(folder_) / ((baseName_.empty() ? kDefaultBaseName : baseName_) + "_" +
                                                         CurrentTable().abbreviation + ".html");
        }
        std::error_code error;
        const bool exists = !file.empty() && std::filesystem::is_regular_file(file, error);
        SetText(Path, exists ? std::filesystem::absolute(file, error).string() : std::string());
    });
}

HRESULT CLuxDictionary::get_FontName(LuxFontUsageConstants Usage, BSTR* Name) {
    return Guarded("get_FontName", ILuxDictionary::iid, [&] {
        RequireOut(Name);
        SetText(Name, CurrentTable().fonts[CheckUsage(Usage)]);
    });
}

HRESULT CLuxDictionary::get_FontCharset(LuxFontUsageConstants Usage, LONG* Charset) {
    return Guarded("get_FontCharset", ILuxDictionary::iid, [&] {
        RequireOut(Charset);
        CheckUsage(Usage);
        *Charset = CurrentTable().charset;
    });
}

HRESULT CLuxDictionary::UpdateFont(IDispatch* Font, LuxFontUsageConstants Usage) {
    return Guarded("UpdateFont", ILuxDictionary::iid, [&] {
        RequireArgument(Font, "Font");
        const LanguageTable& table = CurrentTable();
        Variant name(table.fonts[CheckUsage(Usage)]);
        VARIANT charset;
        VariantInit(&charset);
        charset.vt = VT_I2;  // a font's Charset is a 16-bit integer
        charset.iVal = static_cast<int16_t>(table.charset);
        // Both properties are found before either is set: a font that lacks one is left as it was.
        const DISPID nameId = FontProperty(Font, "Name");
        const DISPID charsetId = FontProperty(Font, "Charset");
        PutFontProperty(Font, nameId, *name.ptr());
        PutFontProperty(Font, charsetId, charset);
    });
}

HRESULT CLuxDictionary::LoadStringBuf(LONG ID, LONGLONG Buf, LONG BufLen) {
    return Guarded("LoadStringBuf", ILuxDictionaryEx::iid, [&] {
        CheckBuffer(Buf, BufLen);
        return CopyToBuffer(Pattern(ID), Buf, BufLen);
    });
}

HRESULT CLuxDictionary::FormatStringBuf(LONG ID, LONGLONG Buf, LONG BufLen, VARIANT Arg1, VARIANT Arg2,
                                        VARIANT Arg3) {
    return Guarded("FormatStringBuf", ILuxDictionaryEx::iid, [&] {
        CheckBuffer(Buf, BufLen);
        return CopyToBuffer(Formatted(ID, Arg1, Arg2, Arg3, "FormatStringBuf", ILuxDictionaryEx::iid), Buf, BufLen);
    });
}

}  // namespace tessaly::core
