// The thread's error info: handing over ownership, replacing, clearing, and keeping
// threads apart.
#include <gtest/gtest.h>

#include <thread>

#include "TestWidget.h"
#include "platform/ErrorInfo.h"

namespace tessaly::test {
namespace {

class ErrorInfoTest : public WidgetTest {
protected:
    // An error object with a description, one reference owned by the caller.
    IErrorInfo* MakeError(const char* description) {
        ICreateErrorInfo* writer = nullptr;
        EXPECT_EQ(CreateErrorInfo(&writer), S_OK);
        writer->SetDescription(const_cast<LPOLESTR>(description));
        IErrorInfo* reader = nullptr;
        EXPECT_EQ(writer->QueryInterface(IErrorInfo::iid, reinterpret_cast<void**>(&reader)), S_OK);
        writer->Release();
        return reader;
    }
    static std::string Description(IErrorInfo* info) {
        BSTR text = nullptr;
        EXPECT_EQ(info->GetDescription(&text), S_OK);
        std::string result = Text(text);
        SysFreeString(text);
        return result;
    }
};

TEST_F(ErrorInfoTest, GetErrorInfoHandsOverTheRecordAndClearsTheSlot) {
    IErrorInfo* none = reinterpret_cast<IErrorInfo*>(0x1);
    EXPECT_EQ(::GetErrorInfo(0, &none), S_FALSE);
    EXPECT_EQ(none, nullptr);

    IErrorInfo* error = MakeError("first");
    ASSERT_EQ(::SetErrorInfo(0, error), S_OK);
    EXPECT_EQ(RefCount(error), 2u) << "the slot holds its own reference";
    IErrorInfo* fetched = nullptr;
    ASSERT_EQ(::GetErrorInfo(0, &fetched), S_OK);
    EXPECT_EQ(fetched, error);
    EXPECT_EQ(RefCount(error), 2u) << "the slot's reference became the caller's";
    fetched->Release();
    EXPECT_EQ(::GetErrorInfo(0, &fetched), S_FALSE);
    EXPECT_EQ(RefCount(error), 1u);
    error->Release();
}

TEST_F(ErrorInfoTest, SetErrorInfoReplacesAndReleasesThePreviousRecord) {
    IErrorInfo* first = MakeError("first");
    IErrorInfo* second = MakeError("second");
    ASSERT_EQ(::SetErrorInfo(0, first), S_OK);
    ASSERT_EQ(::SetErrorInfo(0, second), S_OK);
    EXPECT_EQ(RefCount(first), 1u);
    // A reserved word other than 0 is refused and changes nothing.
    EXPECT_EQ(::SetErrorInfo(1, first), E_INVALIDARG);
    EXPECT_EQ(RefCount(first), 1u);
    IErrorInfo* fetched = nullptr;
    EXPECT_EQ(::GetErrorInfo(1, &fetched), E_INVALIDARG);
    ASSERT_EQ(::GetErrorInfo(0, &fetched), S_OK);
    EXPECT_EQ(Description(fetched), "second");
    fetched->Release();

    ASSERT_EQ(::SetErrorInfo(0, first), S_OK);
    ASSERT_EQ(::SetErrorInfo(0, nullptr), S_OK);
    EXPECT_EQ(RefCount(first), 1u);
    EXPECT_EQ(::GetErrorInfo(0, &fetched), S_FALSE);
    first->Release();
    second->Release();
}

TEST_F(ErrorInfoTest, ErrorObjectKeepsWhatWasWrittenAndHandsOutCopies) {
    ICreateErrorInfo* writer = nullptr;
    ASSERT_EQ(CreateErrorInfo(&writer), S_OK);
    ASSERT_EQ(writer->SetGUID(ITestGadget::iid), S_OK);
    ASSERT_EQ(writer->SetSource(const_cast<LPOLESTR>("put_Size")), S_OK);
    ASSERT_EQ(writer->SetDescription(const_cast<LPOLESTR>("Size must be positive")), S_OK);
    ASSERT_EQ(writer->SetHelpFile(const_cast<LPOLESTR>("tessaly.html")), S_OK);
    ASSERT_EQ(writer->SetHelpContext(42), S_OK);
    IErrorInfo* reader = nullptr;
    ASSERT_EQ(writer->QueryInterface(IErrorInfo::iid, reinterpret_cast<void**>(&reader)), S_OK);
    void* other = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(writer->QueryInterface(IDispatch::iid, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    writer->Release();

    GUID iid{};
    ASSERT_EQ(reader->GetGUID(&iid), S_OK);
    EXPECT_EQ(iid, ITestGadget::iid);
    BSTR first = nullptr;
    BSTR second = nullptr;
    ASSERT_EQ(reader->GetSource(&first), S_OK);
    ASSERT_EQ(reader->GetSource(&second), S_OK);
    EXPECT_NE(first, second) << "each caller owns its copy";
    EXPECT_EQ(Text(first), "put_Size");
    SysFreeString(first);
    SysFreeString(second);
    EXPECT_EQ(Description(reader), "Size must be positive");
    BSTR help = nullptr;
    ASSERT_EQ(reader->GetHelpFile(&help), S_OK);
    EXPECT_EQ(Text(help), "tessaly.html");
    SysFreeString(help);
    DWORD context = 0;
    ASSERT_EQ(reader->GetHelpContext(&context), S_OK);
    EXPECT_EQ(context, 42u);
    EXPECT_EQ(reader->GetDescription(nullptr), E_POINTER);
    reader->Release();
    EXPECT_EQ(CreateErrorInfo(nullptr), E_POINTER);
}

TEST_F(ErrorInfoTest, HelperRecordsTheFailureAndReturnsItsHresult) {
    EXPECT_EQ(tessaly::SetErrorInfo(E_INVALIDARG, "Width must be positive", "put_Width", ITestWidget::iid),
              E_INVALIDARG);
    IErrorInfo* info = nullptr;
    ASSERT_EQ(::GetErrorInfo(0, &info), S_OK);
    EXPECT_EQ(Description(info), "Width must be positive");
    BSTR source = nullptr;
    ASSERT_EQ(info->GetSource(&source), S_OK);
    EXPECT_EQ(Text(source), "put_Width");
    SysFreeString(source);
    GUID iid{};
    info->GetGUID(&iid);
    EXPECT_EQ(iid, ITestWidget::iid);
    info->Release();

    tessaly::SetErrorInfo(E_FAIL, "gone", "Clear", GUID_NULL);
    ClearErrorInfo();
    EXPECT_EQ(::GetErrorInfo(0, &info), S_FALSE);
}

TEST_F(ErrorInfoTest, EachThreadHasItsOwnRecord) {
    tessaly::SetErrorInfo(E_FAIL, "main thread", "Main", GUID_NULL);
    HRESULT otherBefore = S_OK;
    std::string otherDescription;
    std::thread other([&] {
        IErrorInfo* seen = nullptr;
        otherBefore = ::GetErrorInfo(0, &seen);
        if (seen) seen->Release();
        tessaly::SetErrorInfo(E_ABORT, "other thread", "Other", GUID_NULL);
        IErrorInfo* own = nullptr;
        if (::GetErrorInfo(0, &own) == S_OK) {
            otherDescription = Description(own);
            own->Release();
        }
        // Left behind on purpose: the thread's end releases it.
        tessaly::SetErrorInfo(E_ABORT, "left at exit", "Other", GUID_NULL);
    });
    other.join();
    EXPECT_EQ(otherBefore, S_FALSE);
    EXPECT_EQ(otherDescription, "other thread");
    IErrorInfo* mine = nullptr;
    ASSERT_EQ(::GetErrorInfo(0, &mine), S_OK);
    EXPECT_EQ(Description(mine), "main thread");
    mine->Release();
}

}  // namespace
}  // namespace tessaly::test
