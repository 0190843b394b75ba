// Automation strings: the SysAllocString family with embedded NULs and null strings, and
// the ownership rules of tessaly::Bstr.
#include <gtest/gtest.h>

#include <string>

#include "platform/Bstr.h"

namespace tessaly {
namespace {

using namespace std::string_literals;

TEST(BstrTest, AllocationKeepsEveryByteAndTheTerminator) {
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    EXPECT_EQ(SysStringByteLen(nullptr), 0u);
    EXPECT_EQ(BstrView(nullptr), "");

    BSTR empty = SysAllocString("");
    ASSERT_NE(empty, nullptr);  // empty, yet a string of its own
    EXPECT_EQ(SysStringLen(empty), 0u);
    EXPECT_EQ(empty[0], '\0');
    SysFreeString(empty);

    // UTF-8 counts bytes, and SysAllocString stops at the first NUL.
    BSTR text = SysAllocString("gr\xC3\xBC\xC3\x9F\0tail");
    EXPECT_EQ(SysStringLen(text), 6u);
    EXPECT_EQ(SysStringByteLen(text), 6u);
    SysFreeString(text);

    const std::string withNuls = "a\0b\0\0c"s;
    BSTR bytes = SysAllocStringLen(withNuls.data(), static_cast<UINT>(withNuls.size()));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(SysStringLen(bytes), 6u);
    EXPECT_EQ(BstrView(bytes), withNuls);
    EXPECT_EQ(bytes[6], '\0');
    SysFreeString(bytes);

    BSTR zeros = SysAllocStringByteLen(nullptr, 5);
    ASSERT_NE(zeros, nullptr);
    EXPECT_EQ(BstrView(zeros), std::string(5, '\0'));
    EXPECT_EQ(zeros[5], '\0');
    SysFreeString(zeros);

    // A length no string may have is refused, not wrapped around.
    EXPECT_EQ(SysAllocStringLen(nullptr, 0xFFFFFFFFu), nullptr);
    EXPECT_EQ(SysAllocStringByteLen("x", 0x80000000u), nullptr);
    SysFreeString(nullptr);
}

TEST(BstrTest, ReallocationReplacesOrLeavesTheTargetAlone) {
    BSTR text = SysAllocString("first");
    EXPECT_EQ(SysReAllocString(&text, "second one"), 1);
    EXPECT_EQ(BstrView(text), "second one");

    // The source may lie inside the string being replaced.
    EXPECT_EQ(SysReAllocString(&text, text + 7), 1);
    EXPECT_EQ(BstrView(text), "one");
    EXPECT_EQ(SysReAllocStringLen(&text, text, 2), 1);
    EXPECT_EQ(BstrView(text), "on");

    EXPECT_EQ(SysReAllocStringLen(&text, "x\0y", 3), 1);
    EXPECT_EQ(BstrView(text), "x\0y"s);
    EXPECT_EQ(SysReAllocString(&text, nullptr), 1);
    EXPECT_EQ(SysStringLen(text), 0u);

    // Refusals return 0 and keep the old string.
    EXPECT_EQ(SysReAllocString(&text, "kept"), 1);
    const BSTR before = text;
    EXPECT_EQ(SysReAllocStringLen(&text, nullptr, 0xFFFFFFF0u), 0);
    EXPECT_EQ(text, before);
    EXPECT_EQ(BstrView(text), "kept");
    EXPECT_EQ(SysReAllocString(nullptr, "x"), 0);
    SysFreeString(text);

    BSTR none = nullptr;  // a null target is a string like any other
    EXPECT_EQ(SysReAllocString(&none, "made"), 1);
    EXPECT_EQ(BstrView(none), "made");
    SysFreeString(none);
}

TEST(BstrTest, BstrOwnsExactlyOneString) {
    const Bstr null;
    EXPECT_EQ(null.get(), nullptr);
    EXPECT_TRUE(null.empty());
    EXPECT_TRUE(null == "");
    EXPECT_TRUE(null == Bstr(""));  // null equals empty
    EXPECT_NE(Bstr(static_cast<const char*>(nullptr)).get(), nullptr);

    const Bstr nuls(std::string_view("p\0q", 3));
    EXPECT_EQ(nuls.size(), 3u);
    EXPECT_EQ(nuls.str(), "p\0q"s);
    EXPECT_FALSE(nuls == "p");

    // Copies duplicate; moves hand the very same string over.
    Bstr copy(nuls);
    EXPECT_NE(copy.get(), nuls.get());
    EXPECT_TRUE(copy == nuls);
    const BSTR owned = copy.get();
    Bstr moved(std::move(copy));
    EXPECT_EQ(moved.get(), owned);
    EXPECT_EQ(copy.get(), nullptr);
    Bstr assigned("old");
    assigned = std::move(moved);
    EXPECT_EQ(assigned.get(), owned);
    assigned = nuls;
    EXPECT_NE(assigned.get(), nuls.get());
    EXPECT_TRUE(assigned == nuls);
    const Bstr& self = assigned;  // through a reference, as self-assignment happens in practice
    assigned = self;
    EXPECT_TRUE(assigned == nuls);

    // Detach gives the string up; Attach takes it back without copying.
    BSTR raw = assigned.Detach();
    EXPECT_EQ(assigned.get(), nullptr);
    EXPECT_EQ(BstrView(raw), "p\0q"s);
    Bstr adopted = Bstr::Attach(raw);
    EXPECT_EQ(adopted.get(), raw);

    // Out frees the current string and lends the empty slot to a producer.
    BSTR* slot = adopted.Out();
    EXPECT_EQ(*slot, nullptr);
    EXPECT_EQ(adopted.get(), nullptr);
    *slot = SysAllocString("produced");
    EXPECT_EQ(adopted, "produced");
}

}  // namespace
}  // namespace tessaly
