// Saving to and loading from text through an ILuxFormatter as a client does, for the suites
// of the text formatters: what Serialize wrote, and what Deserialize handed back (the
// object, the warnings as texts and the error info), with the checks every load makes:
// a load that succeeds hands back a warnings collection, one that fails hands back nothing.
// Header-only: the benchmarks link this folder without the test framework.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "TessalyCore.h"
#include "platform/Bstr.h"
#include "platform/ComPtr.h"
#include "platform/MemoryStream.h"
#include "platform/Variant.h"
#include "support/RecordedError.h"

namespace tessaly::test {

struct FormatterLoad {
    HRESULT result = E_FAIL;
    ComPtr<IDispatch> object;
    std::vector<std::string> warnings;
    RecordedError error;
};

// The document Serialize writes; `result` is what it must return.
inline std::string SaveThrough(ILuxFormatter* formatter, IDispatch* object, const char* subFormat, HRESULT result,
                               int32_t options) {
    auto stream = ComPtr<MemoryStream>::Attach(MemoryStream::Create());
    EXPECT_EQ(formatter->Serialize(stream.get(), object, options, Bstr(subFormat).get()), result);
    return std::string(reinterpret_cast<const char*>(stream->Data()), stream->Size());
}

inline FormatterLoad LoadThrough(ILuxFormatter* formatter, std::string_view document, IDispatch* existing,
                                 int32_t options) {
    ComPtr<IStream> stream;
    EXPECT_EQ(MemoryStream::Create(document.data(), document.size(), stream.Out()), S_OK);
    FormatterLoad loaded;
    ComPtr<ILuxStringCollection> warnings;
    loaded.result = formatter->Deserialize(stream.get(), existing, options, Bstr("").get(), warnings.Out(),
                                           loaded.object.Out());
    loaded.error = TakeErrorInfo();
    if (SUCCEEDED(loaded.result)) {
        EXPECT_TRUE(warnings);
        LONG count = 0;
        if (warnings) {
            EXPECT_EQ(warnings->get_Count(&count), S_OK);
        }
        for (LONG i = 0; i < count; ++i) {
            Bstr item;
            EXPECT_EQ(warnings->get_Item(Variant(i).get(), item.Out()), S_OK);
            loaded.warnings.push_back(item.str());
        }
    } else {
        EXPECT_FALSE(loaded.object) << "a failed load hands back no object";
        EXPECT_FALSE(warnings) << "a failed load hands back no warnings";
    }
    return loaded;
}

}  // namespace tessaly::test
