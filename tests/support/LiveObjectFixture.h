// A test that ends with as many of the library's objects alive as it began with, and makes
// objects by ProgID as a client does. The suites of the object classes derive from it.
#pragma once

#include <gtest/gtest.h>

#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "platform/Module.h"

namespace tessaly::test {

class LiveObjectFixture : public ::testing::Test {
protected:
    void SetUp() override { live_ = Module::LiveObjectCount(); }
    void TearDown() override { EXPECT_EQ(Module::LiveObjectCount(), live_) << "objects left alive"; }

public:
    template <class I>
    static ComPtr<I> Make(const char* progId) {
        ComPtr<I> object;
        EXPECT_EQ(CreateObject(progId, I::iid, object.OutVoid()), S_OK);
        return object;
    }

private:
    LONG live_ = 0;
};

}  // namespace tessaly::test
