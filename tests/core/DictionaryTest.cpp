// LuxDictionary through its interfaces and through late binding, as clients use it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <strings.h>
#include <unistd.h>
#include <vector>

#include "TessalyCore.h"
#include "com/core/MessageTable.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "platform/ErrorInfo.h"
#include "platform/Module.h"
#include "platform/UnknownObject.h"
#include "platform/Variant.h"
#include "support/RecordedError.h"

namespace tessaly::test {

namespace {

// A Font as display toolkits expose one: Name and Charset properties set through dispatch.
// It can lack Charset, or fail every put with an exception of its own.
class FakeFont : public UnknownObject<FakeFont, IDispatch> {
public:
    static constexpr DISPID kName = 1;
    static constexpr DISPID kCharset = 2;

    bool hasCharset = true;
    bool failPuts = false;
    std::vector<DISPID> puts;
    std::string name;
    VARIANT charset{};

    HRESULT GetTypeInfoCount(UINT* count) override {
        *count = 0;
        return S_OK;
    }
    HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
        if (count != 1) return DISP_E_UNKNOWNNAME;
        if (strcasecmp(names[0], "name") == 0) {
            *ids = kName;
        } else if (hasCharset && strcasecmp(names[0], "charset") == 0) {
            *ids = kCharset;
        } else {
            *ids = DISPID_UNKNOWN;
            return DISP_E_UNKNOWNNAME;
        }
        return S_OK;
    }
    HRESULT Invoke(DISPID dispid, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT*, EXCEPINFO* excep,
                   UINT*) override {
        if (flags != DISPATCH_PROPERTYPUT || params->cArgs != 1 || params->cNamedArgs != 1 ||
            params->rgdispidNamedArgs[0] != DISPID_PROPERTYPUT)
            return DISP_E_MEMBERNOTFOUND;
        if (failPuts) {
            std::memset(excep, 0, sizeof *excep);
            excep->scode = CONNECT_E_CANNOTCONNECT;
            excep->bstrDescription = SysAllocString("The font is read-only.");
            excep->bstrSource = SysAllocString("FakeFont");
            return DISP_E_EXCEPTION;
        }
        puts.push_back(dispid);
        if (dispid == kName) {
            if (params->rgvarg[0].vt != VT_BSTR) return DISP_E_TYPEMISMATCH;
            name = std::string(BstrView(params->rgvarg[0].bstrVal));
        } else {
            VariantClear(&charset);
            VariantCopy(&charset, &params->rgvarg[0]);
        }
        return S_OK;
    }

protected:
    ~FakeFont() override { VariantClear(&charset); }
};


VARIANT Missing() {
    VARIANT value;
    VariantInit(&value);
    value.vt = VT_ERROR;
    value.scode = DISP_E_PARAMNOTFOUND;
    return value;
}

LONGLONG Address(char* buffer) { return static_cast<LONGLONG>(reinterpret_cast<uintptr_t>(buffer)); }

// The length of the UTF-8 sequence a lead byte starts; 0 for a continuation byte.
size_t SequenceLength(char lead) {
    const auto byte = static_cast<unsigned char>(lead);
    return byte < 0x80 ? 1 : byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 0;
}

// Whether text is well-formed UTF-8 (no sequence cut short).
bool WholeUtf8(const std::string& text) {
    for (size_t i = 0; i < text.size();) {
        const size_t length = SequenceLength(text[i]);
        if (length == 0 || i + length > text.size()) return false;
        for (size_t k = 1; k < length; ++k)
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
        i += length;
    }
    return true;
}

class DictionaryTest : public ::testing::Test {
protected:
    void SetUp() override {
        liveAtStart_ = Module::LiveObjectCount();
        ClearErrorInfo();
        ASSERT_EQ(CreateObject("Tessaly.LuxDictionary", ILuxDictionaryEx::iid, reinterpret_cast<void**>(dict_.Out())),
                  S_OK);
    }
    void TearDown() override {
        dict_.Reset();
        ClearErrorInfo();
        EXPECT_EQ(Module::LiveObjectCount(), liveAtStart_) << "objects left alive";
    }

    std::string GetString(LONG id, HRESULT expected = S_OK) {
        Bstr text;
        EXPECT_EQ(dict_->GetString(id, text.Out()), expected);
        return text.str();
    }

    // IDispatch::Invoke by member name, arguments in written order.
    HRESULT CallByName(const char* member, WORD flags, std::vector<VARIANT> args, VARIANT* result,
                       EXCEPINFO* excep = nullptr) {
        LPOLESTR names[] = {const_cast<char*>(member)};
        DISPID dispid = DISPID_UNKNOWN;
        const HRESULT hr = dict_->GetIDsOfNames(GUID_NULL, names, 1, LOCALE_USER_DEFAULT, &dispid);
        if (FAILED(hr)) return hr;
        std::vector<VARIANT> reversed(args.rbegin(), args.rend());
        DISPID putId = DISPID_PROPERTYPUT;
        DISPPARAMS params{reversed.data(), flags == DISPATCH_PROPERTYPUT ? &putId : nullptr,
                          static_cast<UINT>(reversed.size()), flags == DISPATCH_PROPERTYPUT ? 1u : 0u};
        UINT argErr = 0;
        if (result) VariantInit(result);
        const HRESULT invoked =
            dict_->Invoke(dispid, GUID_NULL, LOCALE_USER_DEFAULT, flags, &params, result, excep, &argErr);
        for (VARIANT& arg : reversed) VariantClear(&arg);
        return invoked;
    }

    ComPtr<ILuxDictionaryEx> dict_;
    LONG liveAtStart_ = 0;
};

}  // namespace

TEST_F(DictionaryTest, IsCreatableAndAnswersBothInterfaces) {
    ComPtr<ILuxDictionary> primary;
    ASSERT_EQ(dict_->QueryInterface(ILuxDictionary::iid, reinterpret_cast<void**>(primary.Out())), S_OK);
    ComPtr<IDispatch> dispatch;
    ASSERT_EQ(dict_->QueryInterface(IDispatch::iid, reinterpret_cast<void**>(dispatch.Out())), S_OK);
    ComPtr<IUnknown> one, two;
    primary->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(one.Out()));
    dict_->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(two.Out()));
    EXPECT_EQ(one.get(), two.get()) << "one identity";
    // Both reach the same object: a language set through one is read through the other.
    LONG language = 0;
    EXPECT_EQ(primary->get_LanguageID(&language), S_OK);
    EXPECT_EQ(language, 0x0409);
    Bstr abbrev;
    EXPECT_EQ(primary->get_LanguageAbbrev(abbrev.Out()), S_OK);
    EXPECT_EQ(abbrev, "eng");

    ComPtr<ILuxDictionary> byClsid;
    EXPECT_EQ(CreateObject(CLSID_LuxDictionary, ILuxDictionary::iid, reinterpret_cast<void**>(byClsid.Out())), S_OK);
}

TEST_F(DictionaryTest, GetStringLoadsTextsAndRefusesUnknownIds) {
    EXPECT_EQ(GetString(ids_LuxFormatter_NoProgID_1), "The class %1 has no ProgID.");
    EXPECT_EQ(GetString(e_LuxCollection_InvalidIndex), "The collection index is out of range.");
    EXPECT_EQ(GetString(ids_LuxFormatter_BadFormat), "The input is not in the format this formatter reads.");

    Bstr text;
    EXPECT_EQ(dict_->GetString(0x00012345, text.Out()), E_INVALIDARG);
    EXPECT_EQ(text.get(), nullptr) << "no text on failure";
    const RecordedError recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "No message has the ID 0x00012345.");
    EXPECT_EQ(recorded.source, "GetString");

    EXPECT_EQ(dict_->GetString(ids_Lux_NameMissing, nullptr), E_POINTER);
    const RecordedError nullOut = TakeErrorInfo();
    EXPECT_EQ(nullOut.description, "A required pointer or object argument is null.");
    EXPECT_EQ(nullOut.source, "GetString");
}

TEST_F(DictionaryTest, FormatStringConvertsArgumentsAndTreatsMissingOnesAsEmpty) {
    Variant name("Caméra");
    Variant number(2.5);
    Variant count(int32_t{7});
    Bstr text;
    EXPECT_EQ(dict_->FormatString(ids_LuxFormatter_InvalidArrayBoundSep_3, name.get(), Missing(), count.get(),
                                  text.Out()),
              S_OK);
    EXPECT_EQ(text, "The array bounds Caméra of the element  are not separated correctly at 7.");
    EXPECT_EQ(dict_->FormatString(ids_LuxTransform_InvalidArgSingular_2, name.get(), number.get(), Missing(),
                                  text.Out()),
              S_OK);
    EXPECT_EQ(text, "Setting Caméra to 2.5 would make the transform singular.");
    VARIANT empty;
    VariantInit(&empty);
    EXPECT_EQ(dict_->FormatString(ids_LuxFormatter_NoProgID_1, empty, Missing(), Missing(), text.Out()), S_OK);
    EXPECT_EQ(text, "The class  has no ProgID.");

    // An argument that has no text form fails with the conversion's code.
    VARIANT null;
    VariantInit(&null);
    null.vt = VT_NULL;
    EXPECT_EQ(dict_->FormatString(ids_LuxFormatter_NoProgID_1, name.get(), null, Missing(), text.Out()),
              DISP_E_TYPEMISMATCH);
    const RecordedError recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "The argument Arg2 cannot be converted to text.");
    EXPECT_EQ(recorded.source, "FormatString");

    EXPECT_EQ(dict_->FormatString(0x7EEEEEEE, Missing(), Missing(), Missing(), text.Out()), E_INVALIDARG);
}

TEST_F(DictionaryTest, LateBoundCallsReachBothInterfaces) {
    // FormatString with only the ID and one argument: the others arrive missing.
    VARIANT result;
    EXPECT_EQ(CallByName("formatstring", DISPATCH_METHOD,
                         {Variant(int32_t{ids_LuxFormatter_CantSaveObject_2}).Detach(), Variant("Tree").Detach()},
                         &result),
              S_OK);
    ASSERT_EQ(result.vt, VT_BSTR);
    EXPECT_EQ(BstrView(result.bstrVal), "The object Tree could not be saved: .");
    VariantClear(&result);

    // A failure reaches the dispatch client with its text.
    EXCEPINFO excep{};
    EXPECT_EQ(CallByName("GetString", DISPATCH_METHOD, {Variant(int32_t{42}).Detach()}, &result, &excep),
              DISP_E_EXCEPTION);
    EXPECT_EQ(excep.scode, E_INVALIDARG);
    EXPECT_EQ(BstrView(excep.bstrDescription), "No message has the ID 0x0000002A.");
    EXPECT_EQ(BstrView(excep.bstrSource), "GetString");
    SysFreeString(excep.bstrDescription);
    SysFreeString(excep.bstrSource);
    SysFreeString(excep.bstrHelpFile);

    // A member of the extended interface, with the buffer's address as a 64-bit integer.
    char buffer[64];
    std::memset(buffer, 'x', sizeof buffer);
    VARIANT address;
    VariantInit(&address);
    address.vt = VT_I8;
    address.llVal = Address(buffer);
    EXPECT_EQ(CallByName("LoadStringBuf", DISPATCH_METHOD,
                         {Variant(int32_t{ids_Lux_NameIsReserved}).Detach(), address, Variant(int32_t{64}).Detach()},
                         nullptr),
              S_OK);
    EXPECT_STREQ(buffer, "The name is reserved.");

    // Properties with their optional arguments left out.
    EXPECT_EQ(CallByName("FontName", DISPATCH_PROPERTYGET, {}, &result), S_OK);
    EXPECT_EQ(BstrView(result.bstrVal), "DejaVu Sans");
    VariantClear(&result);
    EXPECT_EQ(CallByName("LanguageID", DISPATCH_PROPERTYGET, {}, &result), S_OK);
    EXPECT_EQ(result.vt, VT_I4);
    EXPECT_EQ(result.lVal, 0x0409);
}

TEST_F(DictionaryTest, BuffersAreFilledWhole_OrCutAtACharacterBoundary) {
    Variant name("Caméra€");  // 2- and 3-byte sequences near the end
    Bstr full;
    ASSERT_EQ(dict_->FormatString(ids_LuxFormatter_NoProgID_1, name.get(), Missing(), Missing(), full.Out()), S_OK);
    const std::string expected = full.str();
    ASSERT_EQ(expected, "The class Caméra€ has no ProgID.");

    for (LONG length = 1; length <= static_cast<LONG>(expected.size()) + 2; ++length) {
        SCOPED_TRACE(length);
        std::vector<char> buffer(static_cast<size_t>(length) + 8, '#');
        const HRESULT hr = dict_->FormatStringBuf(ids_LuxFormatter_NoProgID_1, Address(buffer.data()), length,
                                                  name.get(), Missing(), Missing());
        const std::string got(buffer.data(), strnlen(buffer.data(), static_cast<size_t>(length)));
        ASSERT_LT(got.size(), static_cast<size_t>(length)) << "always NUL-terminated within BufLen";
        EXPECT_EQ(expected.compare(0, got.size(), got), 0) << "a prefix of the text";
        EXPECT_TRUE(WholeUtf8(got)) << "no character cut in two";
        const bool fits = expected.size() < static_cast<size_t>(length);
        EXPECT_EQ(hr, fits ? S_OK : S_FALSE);
        // The longest whole-character prefix that fits: the next character would not.
        if (fits) {
            EXPECT_EQ(got, expected);
        } else {
            EXPECT_GT(got.size() + SequenceLength(expected[got.size()]), static_cast<size_t>(length) - 1);
        }
        for (size_t k = static_cast<size_t>(length); k < buffer.size(); ++k) ASSERT_EQ(buffer[k], '#');
    }

    // The cut around the three-byte euro sign: nothing of it, then all of it.
    const size_t euro = expected.find("€");
    std::vector<char> buffer(64, '#');
    for (size_t room = euro; room < euro + 3; ++room) {
        dict_->FormatStringBuf(ids_LuxFormatter_NoProgID_1, Address(buffer.data()), static_cast<LONG>(room + 1),
                               name.get(), Missing(), Missing());
        EXPECT_EQ(std::string(buffer.data()), expected.substr(0, euro));
    }
    dict_->FormatStringBuf(ids_LuxFormatter_NoProgID_1, Address(buffer.data()), static_cast<LONG>(euro + 4),
                           name.get(), Missing(), Missing());
    EXPECT_EQ(std::string(buffer.data()), expected.substr(0, euro + 3));
}

TEST_F(DictionaryTest, BufferArgumentsAreChecked) {
    char buffer[16];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(dict_->LoadStringBuf(ids_Lux_NameMissing, 0, 16), E_INVALIDARG);  // the caller's buffer: an argument
    EXPECT_EQ(TakeErrorInfo().description, "The argument Buf must not be null.");
    EXPECT_EQ(dict_->LoadStringBuf(ids_Lux_NameMissing, Address(buffer), 0), E_INVALIDARG);
    EXPECT_EQ(TakeErrorInfo().description, "The argument BufLen must be greater than zero.");
    EXPECT_EQ(dict_->LoadStringBuf(ids_Lux_NameMissing, Address(buffer), -5), E_INVALIDARG);
    EXPECT_EQ(dict_->LoadStringBuf(0x7EEEEEEE, Address(buffer), 16), E_INVALIDARG);
    EXPECT_EQ(dict_->FormatStringBuf(ids_Lux_NameMissing, Address(buffer), -1, Missing(), Missing(), Missing()),
              E_INVALIDARG);
    for (char c : buffer) EXPECT_EQ(c, '#') << "refused calls write nothing";

    EXPECT_EQ(dict_->LoadStringBuf(ids_Lux_NameMissing, Address(buffer), 1), S_FALSE);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[1], '#');
}

TEST_F(DictionaryTest, LanguageIsProcessWideAndRefusedWithoutATable) {
    ComPtr<ILuxDictionary> other;
    ASSERT_EQ(CreateObject("Tessaly.LuxDictionary.1", ILuxDictionary::iid, reinterpret_cast<void**>(other.Out())),
              S_OK);

    EXPECT_EQ(dict_->put_LanguageID(0x0407), E_INVALIDARG);
    const RecordedError refusal = TakeErrorInfo();
    EXPECT_EQ(refusal.description, "No message table exists for the language ID 0x00000407.");
    EXPECT_EQ(refusal.source, "put_LanguageID");
    LONG language = 0;
    EXPECT_EQ(other->get_LanguageID(&language), S_OK);
    EXPECT_EQ(language, 0x0409) << "unchanged after the refusal";

    // English (United Kingdom) uses the English table; every dictionary sees the change.
    EXPECT_EQ(dict_->put_LanguageID(0x0809), S_OK);
    EXPECT_EQ(other->get_LanguageID(&language), S_OK);
    EXPECT_EQ(language, 0x0809);
    Bstr abbrev;
    EXPECT_EQ(other->get_LanguageAbbrev(abbrev.Out()), S_OK);
    EXPECT_EQ(abbrev, "eng");
    Bstr text;
    EXPECT_EQ(other->GetString(ids_Lux_NameIsReserved, text.Out()), S_OK);
    EXPECT_EQ(text, "The name is reserved.");

    EXPECT_EQ(other->put_LanguageID(0x0409), S_OK);
    EXPECT_EQ(dict_->get_LanguageID(&language), S_OK);
    EXPECT_EQ(language, 0x0409);
    EXPECT_EQ(dict_->get_LanguageID(nullptr), E_POINTER);
}

TEST_F(DictionaryTest, FontsPerUsage) {
    const char* expected[] = {"DejaVu Sans", "DejaVu Sans", "DejaVu Sans", "DejaVu Sans Mono"};
    for (LONG usage = luxFontUsageDefault; usage <= luxFontUsageNonProportional; ++usage) {
        Bstr name;
        EXPECT_EQ(dict_->get_FontName(static_cast<LuxFontUsageConstants>(usage), name.Out()), S_OK);
        EXPECT_EQ(name, expected[usage]);
        LONG charset = -1;
        EXPECT_EQ(dict_->get_FontCharset(static_cast<LuxFontUsageConstants>(usage), &charset), S_OK);
        EXPECT_EQ(charset, 0) << "ANSI for English";
    }
    Bstr name;
    EXPECT_EQ(dict_->get_FontName(static_cast<LuxFontUsageConstants>(4), name.Out()), E_INVALIDARG);
    EXPECT_EQ(TakeErrorInfo().description, "The argument Usage is out of range.");
    LONG charset = -7;
    EXPECT_EQ(dict_->get_FontCharset(static_cast<LuxFontUsageConstants>(-1), &charset), E_INVALIDARG);
    EXPECT_EQ(charset, -7);
}

TEST_F(DictionaryTest, UpdateFontSetsNameAndCharsetThroughDispatch) {
    FakeFont* font = FakeFont::Create();
    ASSERT_NE(font, nullptr);
    EXPECT_EQ(dict_->UpdateFont(font, luxFontUsageNonProportional), S_OK);
    EXPECT_EQ(font->name, "DejaVu Sans Mono");
    EXPECT_EQ(font->charset.vt, VT_I2);
    EXPECT_EQ(font->charset.iVal, 0);
    EXPECT_EQ(font->puts, (std::vector<DISPID>{FakeFont::kName, FakeFont::kCharset}));
    EXPECT_EQ(dict_->UpdateFont(font, luxFontUsageDefault), S_OK);
    EXPECT_EQ(font->name, "DejaVu Sans");

    // A font without Charset is refused before anything is set.
    font->hasCharset = false;
    font->puts.clear();
    EXPECT_EQ(dict_->UpdateFont(font, luxFontUsageNonProportional), DISP_E_UNKNOWNNAME);
    RecordedError recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "The Font object has no property Charset.");
    EXPECT_EQ(recorded.source, "UpdateFont");
    EXPECT_TRUE(font->puts.empty());
    EXPECT_EQ(font->name, "DejaVu Sans");

    // The font's own failure reaches the caller as the font reported it.
    font->hasCharset = true;
    font->failPuts = true;
    EXPECT_EQ(dict_->UpdateFont(font, luxFontUsageDefault), CONNECT_E_CANNOTCONNECT);
    recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "The font is read-only.");
    EXPECT_EQ(recorded.source, "FakeFont");

    EXPECT_EQ(dict_->UpdateFont(nullptr, luxFontUsageDefault), E_INVALIDARG);
    EXPECT_EQ(TakeErrorInfo().description, "The argument Font must not be null.");
    EXPECT_EQ(dict_->UpdateFont(font, static_cast<LuxFontUsageConstants>(9)), E_INVALIDARG);

    // The dictionary keeps no reference to the font.
    font->AddRef();
    EXPECT_EQ(font->Release(), 1u);
    font->Release();
}

TEST_F(DictionaryTest, InitChecksTheFolderAndHelpFileLivesThere) {
    EXPECT_EQ(dict_->Init(Bstr("/no/such/folder").get(), Bstr("Guide").get()), e_BADPATH);
    RecordedError recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "The path /no/such/folder does not exist.");
    EXPECT_EQ(recorded.source, "Init");
    EXPECT_EQ(dict_->Init(nullptr, nullptr), E_INVALIDARG);

    Bstr path;
    EXPECT_EQ(dict_->get_HelpFile(0, path.Out()), S_OK);
    EXPECT_EQ(path, "") << "no folder, no help";

    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("tessaly-dictionary-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    EXPECT_EQ(dict_->Init(Bstr(folder.string()).get(), Bstr("Guide").get()), S_OK);
    EXPECT_EQ(dict_->get_HelpFile(0, path.Out()), S_OK);
    EXPECT_EQ(path, "") << "the folder has no help file yet";
    std::ofstream(folder / "Guide_eng.html") << "<html></html>";
    EXPECT_EQ(dict_->get_HelpFile(17, path.Out()), S_OK);
    EXPECT_EQ(path, (folder / "Guide_eng.html").string());

    // Pointing the dictionary at a module forgets the folder; the texts stay the same.
    EXPECT_EQ(dict_->InitHmod(0, Bstr("TessalyCore").get()), S_OK);
    EXPECT_EQ(dict_->get_HelpFile(0, path.Out()), S_OK);
    EXPECT_EQ(path, "");
    EXPECT_EQ(GetString(ids_Lux_NameIsReserved), "The name is reserved.");
    std::filesystem::remove_all(folder);
}

}  // namespace tessaly::test
