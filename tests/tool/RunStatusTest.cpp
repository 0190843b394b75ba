// LuxRunStatus through its interfaces: defaults, Init and InitWithSource with their one
// Change (and none for the present values), the C++ setter the tools use, Clone and
// persistence in both formats.
#include <cmath>
#include <limits>
#include <vector>

#include "com/core/ObjectPersistence.h"
#include "com/tool/CLuxRunStatus.h"
#include "image/ImageFixture.h"
#include "tool/RunStatusValues.h"

namespace tessaly::test {
namespace {

using tool::CLuxRunStatus;

using Status = RunStatusValues;

class RunStatusTest : public ImageFixture {
public:
    static Status Read(ILuxRunStatus* status) { return RunStatusValues::Of(status); }
};

TEST_F(RunStatusTest, NewStatusIsAPassWithNoTime) {
    auto status = Make<ILuxRunStatus>("Tessaly.LuxRunStatus");
    EXPECT_EQ(Read(status.get()), (Status{0, "", "", 0, 0}));
    ExpectRefused(status->get_ErrorCode(nullptr), E_POINTER, "get_ErrorCode");
    ExpectRefused(status->get_ErrorString(nullptr), E_POINTER, "get_ErrorString");
    ExpectRefused(status->get_TimeRaw(nullptr), E_POINTER, "get_TimeRaw");
    ExpectRefused(status->get_Time(nullptr), E_POINTER, "get_Time");
    ExpectRefused(As<ILuxRunStatusInternal>(status.get())->get_ErrorSource(nullptr), E_POINTER, "get_ErrorSource");
}

TEST_F(RunStatusTest, InitRaisesOneChangeOnlyWhenAValueDiffers) {
    auto status = Make<ILuxRunStatus>("Tessaly.LuxRunStatus");
    auto internal = As<ILuxRunStatusInternal>(status.get());
    auto log = Listen(status.get());

    ASSERT_EQ(status->Init(luxAnalysisReject, Bstr("too dark").get(), 1.5, 2.25), S_OK);
    EXPECT_EQ(Read(status.get()), (Status{luxAnalysisReject, "too dark", "", 1.5, 2.25}));
    EXPECT_EQ(*log, std::vector<int32_t>{luxState_MoreThanOneStateIDChanged});
    VARIANT_BOOL changed = 0;
    ASSERT_EQ(As<ILuxPersistArchive>(status.get())->get_HasChanged(&changed), S_OK);
    EXPECT_EQ(changed, VARIANT_TRUE);

    // The same values again: nothing. A null string is the empty string.
    ASSERT_EQ(status->Init(luxAnalysisReject, Bstr("too dark").get(), 1.5, 2.25), S_OK);
    EXPECT_EQ(log->size(), 1u);

    // Each value alone counts as a difference.
    ASSERT_EQ(status->Init(luxAnalysisReject, Bstr("too dark").get(), 1.5, 2.5), S_OK);
    ASSERT_EQ(status->Init(luxAnalysisReject, Bstr("too dark").get(), 1.0, 2.5), S_OK);
    ASSERT_EQ(status->Init(luxAnalysisReject, nullptr, 1.0, 2.5), S_OK);
    ASSERT_EQ(status->Init(luxAnalysisWarn, nullptr, 1.0, 2.5), S_OK);
    EXPECT_EQ(log->size(), 5u);
    ASSERT_EQ(status->Init(luxAnalysisWarn, Bstr("").get(), 1.0, 2.5), S_OK);
    EXPECT_EQ(log->size(), 5u) << "a null string and an empty one are the same";

    // The source is a value of its own; Init clears it.
    ASSERT_EQ(internal->InitWithSource(luxAnalysisWarn, nullptr, 1.0, 2.5, Bstr("Run").get()), S_OK);
    EXPECT_EQ(log->size(), 6u);
    EXPECT_EQ(Read(status.get()).source, "Run");
    ASSERT_EQ(internal->InitWithSource(luxAnalysisWarn, nullptr, 1.0, 2.5, Bstr("Run").get()), S_OK);
    EXPECT_EQ(log->size(), 6u);
    ASSERT_EQ(status->Init(luxAnalysisWarn, nullptr, 1.0, 2.5), S_OK);
    EXPECT_EQ(log->size(), 7u);
    EXPECT_EQ(Read(status.get()).source, "");

    // A time that is not a number stays the same reading when set again.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    ASSERT_EQ(status->Init(0, nullptr, nan, nan), S_OK);
    ASSERT_EQ(status->Init(0, nullptr, nan, nan), S_OK);
    EXPECT_EQ(log->size(), 8u);
}

TEST_F(RunStatusTest, ToolsSetAndReadWithoutDispatch) {
    const auto made = CLuxRunStatus::Make();
    ILuxRunStatus* status = made.get();
    auto log = Listen(status);
    const CLuxRunStatus::Values failure{static_cast<int32_t>(e_LuxImage_NoPixels), "no pixels", 3, 4, "Run"};
    ASSERT_EQ(made->Set(failure), S_OK);
    ASSERT_EQ(made->Set(failure), S_OK);
    EXPECT_EQ(*log, std::vector<int32_t>{luxState_MoreThanOneStateIDChanged});
    EXPECT_TRUE(made->Get() == failure);
    EXPECT_EQ(Read(status),
              (Status{static_cast<LONG>(e_LuxImage_NoPixels), "no pixels", "Run", 3, 4}));
}

TEST_F(RunStatusTest, CloneAndPersistenceKeepEveryValue) {
    const auto made = CLuxRunStatus::Make();
    ILuxRunStatus* status = made.get();
    ASSERT_EQ(made->Set({static_cast<int32_t>(e_LuxImage_BadCoord), "bad coordinate: \"<x>\" & more", 0.125,
                           1e-9, "get_Pixel"}),
              S_OK);
    const Status expected = Read(status);

    ComPtr<IDispatch> copy;
    ASSERT_EQ(As<ILuxObject>(status)->Clone(copy.Out()), S_OK);
    auto clone = As<ILuxRunStatus>(copy.get());
    EXPECT_EQ(Read(clone.get()), expected);
    ASSERT_EQ(clone->Init(0, nullptr, 0, 0), S_OK);
    EXPECT_EQ(Read(status), expected) << "a clone has values of its own";

    for (const int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(status).get(), format, luxPersistOptionAll, &bytes), S_OK);
        ComPtr<IDispatch> loaded;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, loaded.Out()), S_OK);
        EXPECT_EQ(Read(As<ILuxRunStatus>(loaded.get()).get()), expected) << "format " << format;
    }
}

}  // namespace
}  // namespace tessaly::test
