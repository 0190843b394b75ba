// A run status read whole through its interfaces, to compare in one expectation.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "TessalyCore.h"
#include "image/ImageFixture.h"

namespace tessaly::test {

struct RunStatusValues {
    LONG code = -1;
    std::string text, source;
    double timeRaw = -1, time = -1;
    bool operator==(const RunStatusValues&) const = default;

    static RunStatusValues Of(ILuxRunStatus* status) {
        RunStatusValues seen;
        Bstr text, source;
        EXPECT_EQ(status->get_ErrorCode(&seen.code), S_OK);
        EXPECT_EQ(status->get_ErrorString(text.Out()), S_OK);
        EXPECT_EQ(status->get_TimeRaw(&seen.timeRaw), S_OK);
        EXPECT_EQ(status->get_Time(&seen.time), S_OK);
        EXPECT_EQ(ImageFixture::As<ILuxRunStatusInternal>(status)->get_ErrorSource(source.Out()), S_OK);
        seen.text = text.str();
        seen.source = source.str();
        return seen;
    }
};

}  // namespace tessaly::test
