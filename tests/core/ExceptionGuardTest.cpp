// The method guard, the exception table and the message tables: what a client sees when a
// method body throws or fails.
#include <gtest/gtest.h>

#include <cctype>
#include <new>
#include <set>
#include <stdexcept>
#include <string>

#include "TessalyCore.h"
#include "com/core/ExceptionTable.h"
#include "com/core/MessageTable.h"
#include "com/core/MethodGuard.h"
#include "com/core/ccCOMError.h"
#include "platform/Bstr.h"
#include "platform/ErrorInfo.h"
#include "platform/Module.h"
#include "support/RecordedError.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::test {

namespace {

using core::Guarded;

// A family of the tests' own, with one failure per text-flag combination.
class ccGuardTest {
public:
    using Errors = ccErrorFamily<"ccGuardTest">;
    using MessageOnly = ccError<Errors, "ccGuardTest::MessageOnly", 0x1FFF0001>;
    using MessageAndName = ccError<Errors, "ccGuardTest::MessageAndName", 0x1FFF0002>;
    using MessageAndDetails = ccError<Errors, "ccGuardTest::MessageAndDetails", 0x1FFF0003>;
    using DetailsOnly = ccError<Errors, "ccGuardTest::DetailsOnly", 0x1FFF0004>;
    using NameOnly = ccError<Errors, "ccGuardTest::NameOnly", 0x1FFF0005>;
    using NoFlags = ccError<Errors, "ccGuardTest::NoFlags", 0x1FFF0006>;
    using MessageWithoutId = ccError<Errors, "ccGuardTest::MessageWithoutId", 0x1FFF0007>;
    using MappedToSuccess = ccError<Errors, "ccGuardTest::MappedToSuccess", 0x1FFF0008>;
    using PerModule = ccError<Errors, "ccGuardTest::PerModule", 0x1FFF0010>;
    using ModuleOnly = ccError<Errors, "ccGuardTest::ModuleOnly", 0x1FFF0011>;
    using Unmapped = ccError<Errors, "ccGuardTest::Unmapped", 0x1FFF00FF>;
};

constexpr core::ModuleKey kTestModule{"guard-tests"};
constexpr IID kTestIid = MakeGuid("0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0");
constexpr IID kCalleeIid = MakeGuid("11111111-2222-3333-4444-555555555555");

// Registered the way a subsystem registers its family: static rows in its own file.
const core::ExceptionRow kTestRows[] = {
    {"", ccGuardTest::MessageOnly::kCode, e_Lux_FileRead, core::kTextMessage, ids_LuxFormatter_NoProgID_1},
    {"", ccGuardTest::MessageAndName::kCode, e_Lux_FileRead, core::kTextMessage | core::kTextAppend,
     ids_LuxFormatter_NoProgID_1},
    {"", ccGuardTest::MessageAndDetails::kCode, e_Lux_FileRead,
     core::kTextMessage | core::kTextAppend | core::kTextDetailed, ids_LuxFormatter_NoProgID_1},
    {"", ccGuardTest::DetailsOnly::kCode, e_Lux_FileWrite, core::kTextAppend | core::kTextDetailed, 0},
    {"", ccGuardTest::NameOnly::kCode, e_Lux_FileWrite, 0x40, ids_LuxFormatter_NoProgID_1},
    {"", ccGuardTest::NoFlags::kCode, e_Lux_NoFileOpen, 0, 0},
    {"", ccGuardTest::MessageWithoutId::kCode, e_Lux_BadFileMode, core::kTextMessage, 0},
    {"", ccGuardTest::MappedToSuccess::kCode, S_FALSE, core::kTextOwn, 0},
    {"", ccGuardTest::PerModule::kCode, e_LuxImage_NoPixels, core::kTextOwn, 0},
    {"guard-tests", ccGuardTest::PerModule::kCode, e_LuxImage_BadType, core::kTextOwn, 0},
    {"guard-tests", ccGuardTest::ModuleOnly::kCode, e_LuxImage_NoTree, core::kTextOwn, 0},
};
const core::ExceptionTableRegistrar testRows(kTestRows);

// A later registration of a key and code already taken does not replace the first.
const core::ExceptionRow kLateRows[] = {
    {"", ccGuardTest::PerModule::kCode, E_UNEXPECTED, core::kTextOwn, 0},
};
const core::ExceptionTableRegistrar lateRows(kLateRows);


// The error object in the slot, with a reference, leaving the slot as it was.
IErrorInfo* PeekErrorInfo() {
    IErrorInfo* info = nullptr;
    GetErrorInfo(0, &info);
    if (info) SetErrorInfo(0, info);
    return info;
}

template <class Exception>
HRESULT Throwing(const Exception& error, core::ModuleKey module = core::kDefaultModule) {
    return Guarded(module, "Throwing", kTestIid, [&]() -> HRESULT { throw error; });
}

class GuardTest : public ::testing::Test {
protected:
    void SetUp() override {
        liveAtStart_ = Module::LiveObjectCount();
        ClearErrorInfo();
    }
    void TearDown() override {
        ClearErrorInfo();
        EXPECT_EQ(Module::LiveObjectCount(), liveAtStart_) << "objects left alive";
    }
    // The call failed with `expected` and recorded `description` for method "Throwing".
    static void Expect(HRESULT got, HRESULT expected, const char* description) {
        EXPECT_EQ(got, expected) << description;
        const RecordedError recorded = TakeErrorInfo();
        ASSERT_TRUE(recorded.present) << description;
        EXPECT_EQ(recorded.description, description);
        EXPECT_EQ(recorded.source, "Throwing");
        EXPECT_EQ(recorded.iid, kTestIid);
    }

    LONG liveAtStart_ = 0;
};

}  // namespace

TEST_F(GuardTest, EachTextFlagCombinationBuildsItsDescription) {
    // 2: the message text, the details standing in for %1
    Expect(Throwing(ccGuardTest::MessageOnly("Widget")), e_Lux_FileRead, "The class Widget has no ProgID.");
    // 2|4: the message text, then the exception's message
    Expect(Throwing(ccGuardTest::MessageAndName("Widget")), e_Lux_FileRead,
           "The class Widget has no ProgID.\nccGuardTest::MessageAndName");
    // 2|4|8: the message text, then the detailed message
    Expect(Throwing(ccGuardTest::MessageAndDetails("Widget")), e_Lux_FileRead,
           "The class Widget has no ProgID.\nccGuardTest::MessageAndDetails: Widget");
    // 4|8: the detailed message alone, with no separator in front
    Expect(Throwing(ccGuardTest::DetailsOnly("disk full")), e_Lux_FileWrite, "ccGuardTest::DetailsOnly: disk full");
    Expect(Throwing(ccGuardTest::DetailsOnly()), e_Lux_FileWrite, "ccGuardTest::DetailsOnly");
    // another bit: the exception's message alone, the row's message ID unused
    Expect(Throwing(ccGuardTest::NameOnly("ignored")), e_Lux_FileWrite, "ccGuardTest::NameOnly");
    // no flag: the HRESULT's own text
    Expect(Throwing(ccGuardTest::NoFlags("ignored")), e_Lux_NoFileOpen, "No file is open.");
    // 2 with no message ID anywhere: the HRESULT's own text
    Expect(Throwing(ccGuardTest::MessageWithoutId("x")), e_Lux_BadFileMode,
           "The file is not open in the mode this operation needs.");
    // a row must not turn a throw into success
    Expect(Throwing(ccGuardTest::MappedToSuccess("x")), E_FAIL, "ccGuardTest::MappedToSuccess");
}

TEST_F(GuardTest, MessageIdAndInsertsOfTheThrowSiteOverrideTheRow) {
    // The row names ids_LuxFormatter_NoProgID_1; the exception names its own message.
    EXPECT_EQ(Throwing(ccGuardTest::MessageAndDetails("Scaling", ids_LuxTransform_InvalidArgSingular_2,
                                                      {"Scaling", "0"})),
              e_Lux_FileRead);
    EXPECT_EQ(TakeErrorInfo().description,
              "Setting Scaling to 0 would make the transform singular.\nccGuardTest::MessageAndDetails: Scaling");
    // Fewer inserts than the text takes: the missing ones are empty.
    EXPECT_EQ(Throwing(ccGuardTest::MessageOnly("", ids_LuxFormatter_InvalidArrayBoundSep_3, {"[1,2]"})),
              e_Lux_FileRead);
    EXPECT_EQ(TakeErrorInfo().description, "The array bounds [1,2] of the element  are not separated correctly at .");
    // A message ID no table has falls back to the HRESULT's text.
    EXPECT_EQ(Throwing(ccGuardTest::MessageOnly("x", 0x7EEEEEEE)), e_Lux_FileRead);
    EXPECT_EQ(TakeErrorInfo().description, "The file could not be read.");
}

TEST_F(GuardTest, ModuleRowsComeBeforeDefaultRows) {
    EXPECT_EQ(Throwing(ccGuardTest::PerModule(), kTestModule), e_LuxImage_BadType);
    EXPECT_EQ(Throwing(ccGuardTest::PerModule()), e_LuxImage_NoPixels) << "the first default row stands";
    EXPECT_EQ(Throwing(ccGuardTest::PerModule(), core::ModuleKey{"another-module"}), e_LuxImage_NoPixels);
    EXPECT_EQ(Throwing(ccGuardTest::ModuleOnly(), kTestModule), e_LuxImage_NoTree);
    // A module's rows are not seen from other modules.
    EXPECT_EQ(Throwing(ccGuardTest::ModuleOnly("only there")), E_FAIL);
    EXPECT_EQ(TakeErrorInfo().description, "ccGuardTest::ModuleOnly: only there");

    EXPECT_EQ(core::ExceptionTable::Find(ccGuardTest::PerModule::kCode, "guard-tests").result, e_LuxImage_BadType);
    const core::ExceptionMapping unknown = core::ExceptionTable::Find(ccGuardTest::Unmapped::kCode, "guard-tests");
    EXPECT_EQ(unknown.result, E_FAIL);
    EXPECT_EQ(unknown.flags, 12u);
}

TEST_F(GuardTest, UnknownCodeIsFailWithTheDetailedMessage) {
    EXPECT_EQ(Throwing(ccGuardTest::Unmapped("reading block 7")), E_FAIL);
    const RecordedError recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "ccGuardTest::Unmapped: reading block 7");
    EXPECT_EQ(recorded.source, "Throwing");
}

TEST_F(GuardTest, GeneralFailuresMapToTheirCodesAndTexts) {
    Expect(Throwing(ccStdError::BadArgument("Scaling", ids_LuxTransform_InvalidArgSingular_2, {"Scaling", "0"})),
           E_INVALIDARG, "Setting Scaling to 0 would make the transform singular.");
    Expect(Throwing(ccStdError::BadArgument("Width")), E_INVALIDARG, "The argument Width is not valid.");
    // A null [in] object is an argument refusal; a null [out] pointer is E_POINTER.
    Expect(Throwing(ccStdError::NullArgument("Font")), E_INVALIDARG, "The argument Font must not be null.");
    Expect(Throwing(ccStdError::OutOfRange("Index")), E_INVALIDARG, "The argument Index is out of range.");
    Expect(Throwing(ccStdError::NotImplemented("Skew")), e_Lux_NotImplemented,
           "This function is not implemented.\nccStdError::NotImplemented: Skew");
    Expect(Throwing(ccStdError::InternalError("queue empty")), e_Lux_InternalError,
           "An internal error occurred in the library.\nccStdError::InternalError: queue empty");
    Expect(Throwing(ccStdError::Described("The camera on port 2 did not answer.")), E_FAIL,
           "The camera on port 2 did not answer.");
    Expect(Throwing(ccStdError::Unexpected("no image")), E_UNEXPECTED,
           "The object's present state does not allow this call: no image.");
    Expect(Throwing(ccStdError::BadPath("/no/such")), e_BADPATH, "The path /no/such does not exist.");
}

TEST_F(GuardTest, ExceptionsIdentifyThemselvesAndTheirFamily) {
    EXPECT_EQ(ccStdError::Described("text").Code(), 0x10000006);
    EXPECT_EQ(ccStdError::Described::kCode, 0x10000006);
    const ccStdError::BadArgument refusal("Scaling", ids_LuxTransform_InvalidArgSingular_2, {"Scaling", "0"});
    EXPECT_STREQ(refusal.Message(), "ccStdError::BadArgument");
    EXPECT_STREQ(refusal.what(), "ccStdError::BadArgument");
    EXPECT_EQ(refusal.DetailedMessage(), "ccStdError::BadArgument: Scaling");
    EXPECT_EQ(refusal.MessageId(), ids_LuxTransform_InvalidArgSingular_2);
    EXPECT_EQ(refusal.Inserts(), (std::vector<std::string>{"Scaling", "0"}));
    EXPECT_EQ(ccStdError::NullArgument().DetailedMessage(), "ccStdError::NullArgument");
    EXPECT_EQ(ccStdError::NullArgument().MessageId(), 0);

    // A handler for a family catches its failures and no other family's.
    const auto family = [](auto&& thrower) {
        try {
            thrower();
        } catch (const ccStdError::Errors&) {
            return 1;
        } catch (const ccException&) {
            return 2;
        }
        return 0;
    };
    EXPECT_EQ(family([] { throw ccStdError::OutOfRange("Index"); }), 1);
    EXPECT_EQ(family([] { throw ccStdError::Described("x"); }), 1);
    EXPECT_EQ(family([] { throw ccGuardTest::NoFlags("x"); }), 2);

    // Codes of the general family are distinct and carry family 0x000.
    const std::set<int32_t> codes{ccStdError::InternalError::kCode, ccStdError::NotImplemented::kCode,
                                  ccStdError::BadArgument::kCode,   ccStdError::NullArgument::kCode,
                                  ccStdError::OutOfRange::kCode,    ccStdError::Described::kCode,
                                  ccStdError::Unexpected::kCode,    ccStdError::BadPath::kCode};
    EXPECT_EQ(codes.size(), 8u);
    for (int32_t code : codes) EXPECT_EQ(code & 0xFFFF0000, 0x10000000);
}

TEST_F(GuardTest, FailedCallsIntoOtherObjectsPassThroughUnchanged) {
    // The callee recorded its failure; the caller's guard hands on the very same record.
    IErrorInfo* calleeInfo = nullptr;
    const HRESULT hr = Guarded("Caller", kTestIid, [&] {
        SetErrorInfo(DISP_E_OVERFLOW, "The value does not fit.", "Callee", kCalleeIid);  // the callee fails
        calleeInfo = PeekErrorInfo();
        core::ThrowIfFailed(DISP_E_OVERFLOW);
        return S_OK;
    });
    ASSERT_NE(calleeInfo, nullptr);
    EXPECT_EQ(hr, DISP_E_OVERFLOW);
    IErrorInfo* passed = PeekErrorInfo();
    EXPECT_EQ(passed, calleeInfo) << "the callee's error object itself";
    if (passed) passed->Release();
    calleeInfo->Release();
    RecordedError recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "The value does not fit.");
    EXPECT_EQ(recorded.source, "Callee");
    EXPECT_EQ(recorded.iid, kCalleeIid);

    // Error info left by an earlier, different failure is not taken for this one.
    SetErrorInfo(E_ACCESSDENIED, "stale", "Earlier", kCalleeIid);
    EXPECT_EQ(Guarded("Caller", kTestIid, [] { core::ThrowIfFailed(E_HANDLE); }), E_HANDLE);
    recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "The handle is not valid.");
    EXPECT_EQ(recorded.source, "Caller");
    EXPECT_EQ(recorded.iid, kTestIid);

    // A failure reported without error info, and one built from another report.
    EXPECT_EQ(Guarded("Caller", kTestIid, []() -> HRESULT { throw core::ccCOMError(E_NOINTERFACE, nullptr); }),
              E_NOINTERFACE);
    EXPECT_EQ(TakeErrorInfo().description, "The object does not support the requested interface.");
    EXPECT_EQ(Guarded("Caller", kTestIid,
                      []() -> HRESULT { throw core::ccCOMError(STG_E_FILENOTFOUND, "No a.bin", "Open", kCalleeIid); }),
              STG_E_FILENOTFOUND);
    recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "No a.bin");
    EXPECT_EQ(recorded.source, "Open");
    EXPECT_EQ(recorded.iid, kCalleeIid);

    // ThrowIfFailed lets success codes through.
    EXPECT_NO_THROW(core::ThrowIfFailed(S_FALSE));
}

TEST_F(GuardTest, ForeignExceptionsNeverEscape) {
    SetErrorInfo(E_ACCESSDENIED, "stale", "Earlier", kCalleeIid);
    EXPECT_EQ(Guarded("Allocate", kTestIid, []() -> HRESULT { throw std::bad_alloc(); }), E_OUTOFMEMORY);
    EXPECT_FALSE(TakeErrorInfo().present) << "out of memory leaves no description, and no stale one";

    EXPECT_EQ(Guarded("Parse", kTestIid, []() -> HRESULT { throw std::runtime_error("disk on fire"); }), E_FAIL);
    RecordedError recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "disk on fire");
    EXPECT_EQ(recorded.source, "Parse");

    EXPECT_EQ(Guarded("Parse", kTestIid, []() -> HRESULT { throw 42; }), E_FAIL);
    EXPECT_EQ(TakeErrorInfo().description, "An unknown exception was raised.");
}

TEST_F(GuardTest, ReturnedFailuresGetATextUnlessAlreadyDescribed) {
    EXPECT_EQ(Guarded("Remove", kTestIid, [] { return e_LuxCollection_InvalidIndex; }),
              e_LuxCollection_InvalidIndex);
    RecordedError recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "The collection index is out of range.");
    EXPECT_EQ(recorded.source, "Remove");
    EXPECT_EQ(recorded.iid, kTestIid);

    EXPECT_EQ(Guarded("Remove", kTestIid, [] { return static_cast<HRESULT>(0x80041234); }),
              static_cast<HRESULT>(0x80041234));
    EXPECT_EQ(TakeErrorInfo().description, "Unknown failure (0x80041234).");

    // The body described its failure itself: that text stays.
    EXPECT_EQ(Guarded("put_Ratio", kTestIid,
                      [] { return SetErrorInfo(E_INVALIDARG, "Ratio must not be negative", "put_Ratio", kCalleeIid); }),
              E_INVALIDARG);
    recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "Ratio must not be negative");
    EXPECT_EQ(recorded.iid, kCalleeIid);

    // A stale record is never taken for this failure's, whatever its code.
    SetErrorInfo(E_ACCESSDENIED, "stale", "Earlier", kCalleeIid);
    EXPECT_EQ(Guarded("Remove", kTestIid, [] { return E_POINTER; }), E_POINTER);
    EXPECT_EQ(TakeErrorInfo().description, "A required pointer or object argument is null.");
    SetErrorInfo(E_POINTER, "stale, same code", "Earlier", kCalleeIid);
    EXPECT_EQ(Guarded("get_Count", kTestIid, [] { return E_POINTER; }), E_POINTER);
    recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "A required pointer or object argument is null.");
    EXPECT_EQ(recorded.source, "get_Count");
    EXPECT_EQ(recorded.iid, kTestIid);
}

TEST_F(GuardTest, NullOutPointersAndNullArgumentsHaveOneAnswerEach) {
    // RequireOut and a body returning E_POINTER describe alike.
    int* none = nullptr;
    int value = 0;
    EXPECT_EQ(Guarded("get_Width", kTestIid, [&] { core::RequireOut(&value, none); }), E_POINTER);
    RecordedError recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "A required pointer or object argument is null.");
    EXPECT_EQ(recorded.source, "get_Width");
    EXPECT_EQ(Guarded("get_Width", kTestIid, [&] { core::RequireOut(&value); }), S_OK);
    EXPECT_FALSE(TakeErrorInfo().present);

    EXPECT_EQ(Guarded("UpdateFont", kTestIid, [&] { core::RequireArgument(none, "Font"); }), E_INVALIDARG);
    recorded = TakeErrorInfo();
    EXPECT_EQ(recorded.description, "The argument Font must not be null.");
    EXPECT_EQ(recorded.source, "UpdateFont");
}

TEST_F(GuardTest, SuccessClearsStaleErrorInfo) {
    // Every kind of success, after a failure the caller never read: no info is left.
    const auto stale = [] { SetErrorInfo(E_ACCESSDENIED, "from before", "Earlier", kCalleeIid); };
    stale();
    EXPECT_EQ(Guarded("Get", kTestIid, [] { return S_OK; }), S_OK);
    EXPECT_FALSE(TakeErrorInfo().present);
    stale();
    EXPECT_EQ(Guarded("Get", kTestIid, [] { return S_FALSE; }), S_FALSE);
    EXPECT_FALSE(TakeErrorInfo().present);
    stale();
    EXPECT_EQ(Guarded("Get", kTestIid, [] { return s_LuxTool_Warn; }), s_LuxTool_Warn);
    EXPECT_FALSE(TakeErrorInfo().present);
    int calls = 0;
    stale();
    EXPECT_EQ(Guarded(kTestModule, "Set", kTestIid, [&] { ++calls; }), S_OK);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(TakeErrorInfo().present);
    // A body that got over a callee's failure leaves nothing either.
    EXPECT_EQ(Guarded("Set", kTestIid,
                      [] {
                          SetErrorInfo(E_FAIL, "callee failed", "Inner", kCalleeIid);
                          return S_OK;
                      }),
              S_OK);
    EXPECT_FALSE(TakeErrorInfo().present);
    // A failure after a success still describes itself.
    EXPECT_EQ(Guarded("Remove", kTestIid, [] { return e_LuxCollection_InvalidIndex; }), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(TakeErrorInfo().source, "Remove");
}

TEST(MessageTableTest, EveryCodeAndMessageHasAnEnglishTextWithItsInserts) {
    const EnumInfo& codes = generated::Enum_LuxErrConstants;
    ASSERT_GT(codes.memberCount, 150u);
    for (uint32_t i = 0; i < codes.memberCount; ++i) {
        const EnumMemberInfo& member = codes.members[i];
        const std::string name = member.name;
        SCOPED_TRACE(name);
        const char* text = core::MessageTable::Find(member.value, core::MessageTable::kEnglish);
        ASSERT_NE(text, nullptr);
        EXPECT_GT(std::string(text).size(), 10u);
        // ids_Name_N announces N inserts; everything else takes none.
        size_t announced = 0;
        if (name.rfind("ids_", 0) == 0 && name.size() > 2 && name[name.size() - 2] == '_' &&
            std::isdigit(static_cast<unsigned char>(name.back())))
            announced = static_cast<size_t>(name.back() - '0');
        std::set<int> used;
        const std::string pattern = text;
        for (size_t k = 0; k + 1 < pattern.size(); ++k) {
            if (pattern[k] != '%') continue;
            if (pattern[k + 1] == '%') {
                ++k;
                continue;
            }
            if (std::isdigit(static_cast<unsigned char>(pattern[k + 1]))) used.insert(pattern[k + 1] - '0');
        }
        std::set<int> expected;
        for (size_t n = 1; n <= announced; ++n) expected.insert(static_cast<int>(n));
        EXPECT_EQ(used, expected) << text;
    }
}

TEST(MessageTableTest, LanguagesHaveNoDuplicateIdsAndFallBackByPrimaryLanguage) {
    for (const core::LanguageTable* table : core::MessageTable::Languages()) {
        std::set<int32_t> ids;
        for (const core::MessageText& entry : table->texts)
            EXPECT_TRUE(ids.insert(entry.id).second) << core::MessageTable::Hex(entry.id) << " twice";
        EXPECT_EQ(std::string(table->abbreviation).size(), 3u);
    }
    ASSERT_NE(core::MessageTable::Language(0x0409), nullptr);
    EXPECT_EQ(core::MessageTable::Language(0x0809), core::MessageTable::Language(0x0409)) << "English (UK)";
    EXPECT_EQ(core::MessageTable::Language(0x0407), nullptr) << "German has no table";

    const int32_t before = core::MessageTable::CurrentLanguage();
    EXPECT_FALSE(core::MessageTable::SetCurrentLanguage(0x0407));
    EXPECT_EQ(core::MessageTable::CurrentLanguage(), before);
    EXPECT_EQ(core::MessageTable::Find(0x7EEEEEEE), nullptr);
}

TEST(MessageTableTest, FormatReplacesInsertsOnce) {
    using core::MessageTable;
    const std::string two[] = {"a", "b"};
    EXPECT_EQ(MessageTable::Format("%2-%1-%3", two), "b-a-");
    EXPECT_EQ(MessageTable::Format("100%% of %1", two), "100% of a");
    EXPECT_EQ(MessageTable::Format("%%1 stays", two), "%1 stays");
    EXPECT_EQ(MessageTable::Format("50% off, 7%", two), "50% off, 7%");
    const std::string nested[] = {"%2", "x"};
    EXPECT_EQ(MessageTable::Format("[%1]", nested), "[%2]") << "an insert is not expanded again";
    EXPECT_EQ(MessageTable::Format("%1%1", {}), "");
    EXPECT_EQ(MessageTable::ResultText(e_LuxCollection_DuplicateKey),
              "Another item of the collection already has this key.");
    EXPECT_EQ(MessageTable::ResultText(static_cast<HRESULT>(0x8004FFFF)), "Unknown failure (0x8004FFFF).");
}

}  // namespace tessaly::test
