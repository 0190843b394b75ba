// The name syntax: every refusal with its exact HRESULT, the message that opens its
// description and the method as its source, leaving the tree as it was and firing nothing;
// and the names that look odd but are accepted.
#include "spacetree/SpaceTreeFixture.h"

namespace tessaly::test {
namespace {

class SpaceNameTest : public SpaceTreeFixture {};

struct Refusal {
    const char* name;
    int32_t message;
};

TEST_F(SpaceNameTest, NewSpaceNamesAreRefusedByRuleAndNothingChanges) {
    const Refusal refusals[] = {
        {"", ids_Lux_NameMissing},
        {"Left\\Camera", ids_Lux_NameHasSeparator},
        {"Left/Camera", ids_Lux_NameHasSeparator},
        {" Camera", ids_Lux_NameHasSpaceAtEdge},
        {"Camera ", ids_Lux_NameHasSpaceAtEdge},
        {"Cam\tera", ids_Lux_NameHasCntrlChar},
        {"Camera\x7f", ids_Lux_NameHasCntrlChar},
        {".", ids_Lux_NameIsReserved},
        {"..", ids_Lux_NameIsReserved},
        {"...", ids_Lux_NameIsReserved},
        {"^", ids_Lux_NameIsReserved},
        {"$", ids_Lux_NameIsReserved},
        {"_Camera", ids_Lux_NameStartsWithPunct},
        {"-1", ids_Lux_NameStartsWithPunct},
        {"@Camera", ids_Lux_NameStartsWithPunct},
    };
    auto tree = Sample();
    const std::string before = Dump(tree.get());
    auto sink = Listen(tree.get());
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.name);
        ExpectSyntax(Add(tree.get(), "@", refusal.name, Shift(1, 2).get()), refusal.message, "AddSpace");
        ExpectSyntax(tree->AddSpaceEx(Bstr("@").get(), Bstr(refusal.name).get(), nullptr, 1, 2, 3, 4),
                     refusal.message, "AddSpaceEx");
        ExpectSyntax(tree->ChangeName(Bstr("Camera").get(), Bstr(refusal.name).get()), refusal.message, "ChangeName");
    }
    EXPECT_EQ(Dump(tree.get()), before);
    EXPECT_EQ(sink->Log(), "");
}

TEST_F(SpaceNameTest, LookupNamesAreRefusedByRuleInEveryMethodThatTakesOne) {
    const Refusal refusals[] = {
        {"", ids_Lux_NameMissing},
        {"\\Fixture", ids_Lux_NameMissingAtStart},
        {"/Fixture", ids_Lux_NameMissingAtStart},
        {"@\\\\Fixture", ids_Lux_NameMissingInPath},
        {"@\\Fixture\\", ids_Lux_NameMissingInPath},
        {"@\\ Fixture", ids_Lux_NameHasSpaceAtEdge},
        {"@\\Fixture\\Part\x01", ids_Lux_NameHasCntrlChar},
        {".", ids_Lux_NameIsPartial},
        {"..", ids_Lux_NameIsPartial},
        {"@\\Fixture\\..", ids_Lux_NameIsPartial},
        {"^\\...", ids_Lux_NameIsPartial},
        {".\\Part", ids_Lux_NameIsPartial},
        {"Fixture\\Part", ids_Lux_PathnamesStartAtRoot},
        {"Root\\Fixture", ids_Lux_PathnamesStartAtRoot},
    };
    auto tree = Sample();
    const std::string before = Dump(tree.get());
    auto sink = Listen(tree.get());
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.name);
        const Bstr name(refusal.name);
        Bstr text;
        ComPtr<ILuxStringCollection> names;
        ComPtr<ILuxTransform2D> transform;
        ComPtr<ILuxCoordinateSpaceTree> copy;
        VARIANT_BOOL yes = 0;
        ExpectSyntax(tree->LookUpName(name.get(), luxSpaceTreePathnameFull, text.Out()), refusal.message, "LookUpName");
        ExpectSyntax(tree->ParentName(name.get(), luxSpaceTreePathnameFull, text.Out()), refusal.message, "ParentName");
        ExpectSyntax(tree->ChildNames(name.get(), luxSpaceTreePathnameFull, names.Out()), refusal.message, "ChildNames");
        ExpectSyntax(tree->AllChildNames(name.get(), luxSpaceTreePathnameFull, VARIANT_TRUE, names.Out()),
                     refusal.message, "AllChildNames");
        ExpectSyntax(tree->FindNames(name.get(), names.Out()), refusal.message, "FindNames");
        ExpectSyntax(tree->VerifyName(name.get(), luxSpaceTreePathnameFull, text.Out(), &yes), refusal.message,
                     "VerifyName");
        ExpectSyntax(tree->VerifyChild(Bstr("@").get(), name.get(), luxSpaceTreePathnameFull, VARIANT_TRUE,
                                       text.Out(), &yes),
                     refusal.message, "VerifyChild");
        ExpectSyntax(Add(tree.get(), refusal.name, "New"), refusal.message, "AddSpace");
        ExpectSyntax(tree->GetTransform(Bstr("@").get(), name.get(), transform.Out()), refusal.message, "GetTransform");
        ExpectSyntax(tree->GetTransform(name.get(), Bstr("@").get(), transform.Out()), refusal.message, "GetTransform");
        ExpectSyntax(tree->ChangeName(name.get(), Bstr("Other").get()), refusal.message, "ChangeName");
        ExpectSyntax(tree->ChangeTransform(name.get(), nullptr, VARIANT_TRUE), refusal.message, "ChangeTransform");
        ExpectSyntax(tree->DeleteSubtree(name.get()), refusal.message, "DeleteSubtree");
        ExpectSyntax(tree->CopySubtree(name.get(), copy.Out()), refusal.message, "CopySubtree");
        ExpectSyntax(tree->MoveSubtree(name.get(), Bstr("Camera").get(), luxAddSpaceDuplicateIsError),
                     refusal.message, "MoveSubtree");
        ExpectSyntax(tree->MoveSubtree(Bstr("Part").get(), name.get(), luxAddSpaceDuplicateIsError), refusal.message,
                     "MoveSubtree");
        EXPECT_FALSE(copy);
        EXPECT_FALSE(transform);
    }
    EXPECT_EQ(Dump(tree.get()), before);
    EXPECT_EQ(sink->Log(), "");
}

TEST_F(SpaceNameTest, TheRootNameFollowsTheRulesButPunctuation) {
    auto tree = Sample();
    auto sink = Listen(tree.get());
    const Refusal refusals[] = {
        {"", ids_Lux_NameMissing},       {"a\\b", ids_Lux_NameHasSeparator}, {" @", ids_Lux_NameHasSpaceAtEdge},
        {"@\n", ids_Lux_NameHasCntrlChar}, {"^", ids_Lux_NameIsReserved},    {"..", ids_Lux_NameIsReserved},
    };
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(refusal.name);
        ExpectSyntax(tree->put_RootName(Bstr(refusal.name).get()), refusal.message, "put_RootName");
    }
    EXPECT_EQ(Lookup(tree.get(), "^"), "@");
    EXPECT_EQ(sink->Take(), "");

    // A root is not a user space: it may begin with punctuation.
    EXPECT_EQ(tree->put_RootName(Bstr("#World").get()), S_OK);
    EXPECT_EQ(sink->Take(), "7456(" + std::to_string(luxCoordinateSpaceTree_RootName) + ",#World,1)");
    EXPECT_EQ(Lookup(tree.get(), "#world\\fixture"), "#World\\Fixture");
}

TEST_F(SpaceNameTest, NamesThatLookOddButAreAccepted) {
    auto tree = NewTree();
    // The library's own space names, a name with inner blanks, another script, a name that
    // merely contains dots.
    for (const char* name : {"#", "@", "Left Camera", "Kamera\xc3\xa4", "v1.2", "a$"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Add(tree.get(), "^", name), S_OK);
    }
    EXPECT_EQ(All(tree.get(), "^", luxSpaceTreePathnameNone, true), "#|@|Left Camera|Kamera\xc3\xa4|v1.2|a$");
    // A child named like the root: the root's name wins as the first component, so the child
    // is reached through the root.
    EXPECT_EQ(Lookup(tree.get(), "@"), "@");
    EXPECT_EQ(Lookup(tree.get(), "@\\@"), "@\\@");
    EXPECT_EQ(Lookup(tree.get(), "^\\#"), "@\\#");
}

TEST_F(SpaceNameTest, TripleDotTakesExactlyOneName) {
    auto tree = Sample();
    for (const char* name : {"...", "...\\Part\\More", ".\\...", "...\\.."}) {
        SCOPED_TRACE(name);
        Bstr resolved;
        ExpectSyntax(tree->ResolvePartialName(Bstr("@").get(), Bstr(name).get(), resolved.Out()),
                     ids_Lux_OneNameAfterTripleDot, "ResolvePartialName");
    }
    Bstr resolved;
    ASSERT_EQ(tree->ResolvePartialName(Bstr("@").get(), Bstr("...\\part").get(), resolved.Out()), S_OK);
    EXPECT_EQ(resolved.str(), "@\\Fixture\\Part");
}

}  // namespace
}  // namespace tessaly::test
