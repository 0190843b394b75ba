// LuxDictionary: the library's message texts, fonts and help file in the current
// language. The texts are compiled in (MessageTable), so Init and InitHmod only check and
// remember where a client points the dictionary; the language is process-wide, and
// setting it on one dictionary changes it for all.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "TessalyCore.h"
#include "platform/ComObject.h"

namespace tessaly::core {

class CLuxDictionary : public ComObject<CLuxDictionary, ILuxDictionaryEx> {
public:
    static const CoClassInfo& CoClass();
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxDictionary;

    // ILuxDictionary
    HRESULT Init(BSTR Path, BSTR BaseName) override;
    HRESULT InitHmod(LONGLONG HModule, BSTR BaseName) override;
    HRESULT get_LanguageAbbrev(BSTR* Abbrev) override;
    HRESULT get_LanguageID(LONG* LanguageID) override;
    HRESULT put_LanguageID(LONG LanguageID) override;
    HRESULT GetString(LONG ID, BSTR* Text) override;
    HRESULT FormatString(LONG ID, VARIANT Arg1, VARIANT Arg2, VARIANT Arg3, BSTR* Text) override;
    HRESULT get_HelpFile(LONG ContextID, BSTR* Path) override;
    HRESULT get_FontName(LuxFontUsageConstants Usage, BSTR* Name) override;
    HRESULT get_FontCharset(LuxFontUsageConstants Usage, LONG* Charset) override;
    HRESULT UpdateFont(IDispatch* Font, LuxFontUsageConstants Usage) override;

    // ILuxDictionaryEx
    HRESULT LoadStringBuf(LONG ID, LONGLONG Buf, LONG BufLen) override;
    HRESULT FormatStringBuf(LONG ID, LONGLONG Buf, LONG BufLen, VARIANT Arg1, VARIANT Arg2, VARIANT Arg3) override;

protected:
    ~CLuxDictionary() override = default;

private:
    std::mutex mutex_;
    std::string folder_;    // from Init; "" until then and after InitHmod
    std::string baseName_;
};

}  // namespace tessaly::core
