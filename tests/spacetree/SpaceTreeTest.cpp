// Looking up, formatting and changing a tree through its interface: the three name formats,
// simple, full and partial names, each structural change with its events and arguments, the
// duplicate policies, and refusals that leave the tree as it was and fire nothing.
#include <thread>

#include "com/transform/CLuxCoordinateSpaceTree.h"
#include "spacetree/SpaceTreeFixture.h"

namespace tessaly::test {
namespace {

using transform::CLuxCoordinateSpaceTree;

class SpaceTreeTest : public SpaceTreeFixture {};

const std::string kChanged = "7456(-1,,1)";

std::string Resolve(ILuxCoordinateSpaceTree* tree, const char* start, const char* name) {
    Bstr resolved;
    const HRESULT hr = tree->ResolvePartialName(Bstr(start).get(), Bstr(name).get(), resolved.Out());
    return SUCCEEDED(hr) ? resolved.str() : "failed " + std::to_string(hr);
}

TEST_F(SpaceTreeTest, FullSimpleAndAliasNamesFindTheSameSpaces) {
    auto tree = Sample();
    EXPECT_EQ(Lookup(tree.get(), "^"), "@");
    EXPECT_EQ(Lookup(tree.get(), "@"), "@");
    EXPECT_EQ(Lookup(tree.get(), "^\\Fixture"), "@\\Fixture");
    EXPECT_EQ(Lookup(tree.get(), "@/Fixture/Part"), "@\\Fixture\\Part");
    EXPECT_EQ(Lookup(tree.get(), "^/Fixture\\Part"), "@\\Fixture\\Part");
    EXPECT_EQ(Lookup(tree.get(), "Part"), "@\\Fixture\\Part");
    // Without regard to case, and only at equal length.
    EXPECT_EQ(Lookup(tree.get(), "PART"), "@\\Fixture\\Part");
    EXPECT_EQ(Lookup(tree.get(), "@\\fixture\\pART"), "@\\Fixture\\Part");
    auto notInTree = [&](const char* name) {
        Bstr found;
        ExpectCode(tree->LookUpName(Bstr(name).get(), luxSpaceTreePathnameFull, found.Out()),
                   e_LuxSpaceTree_NotInTree, "LookUpName");
    };
    notInTree("Par");
    notInTree("Parts");
    notInTree("@\\Part");  // a full path is followed from the root, not searched
    notInTree("^\\Fixture\\Part\\Deeper");

    // The three formats, and partial names relative to the space itself.
    EXPECT_EQ(Lookup(tree.get(), "part", luxSpaceTreePathnameNone), "Part");
    EXPECT_EQ(Lookup(tree.get(), "part", luxSpaceTreePathnamePartial), ".");
    EXPECT_EQ(Lookup(tree.get(), "^", luxSpaceTreePathnameNone), "@");
    Bstr found;
    ExpectRefused(tree->LookUpName(Bstr("Part").get(), static_cast<LuxSpaceTreePathnameConstants>(3), found.Out()),
                  E_INVALIDARG, core::ids_Core_InvalidArg_1, "LookUpName", {"PathnameFormat"});
    EXPECT_EQ(tree->LookUpName(Bstr("Part").get(), luxSpaceTreePathnameFull, nullptr), E_POINTER);
}

TEST_F(SpaceTreeTest, ParentAndChildNamesInEachFormat) {
    auto tree = Sample();
    for (auto format : {luxSpaceTreePathnameNone, luxSpaceTreePathnameFull, luxSpaceTreePathnamePartial})
        EXPECT_EQ(Parent(tree.get(), "^", format), "");
    EXPECT_EQ(Parent(tree.get(), "Part", luxSpaceTreePathnameNone), "Fixture");
    EXPECT_EQ(Parent(tree.get(), "Part", luxSpaceTreePathnameFull), "@\\Fixture");
    EXPECT_EQ(Parent(tree.get(), "Part", luxSpaceTreePathnamePartial), "..");
    EXPECT_EQ(Parent(tree.get(), "Fixture", luxSpaceTreePathnamePartial), "..");
    EXPECT_EQ(Parent(tree.get(), "Fixture", luxSpaceTreePathnameFull), "@");

    auto children = [&](const char* name, LuxSpaceTreePathnameConstants format) {
        ComPtr<ILuxStringCollection> names;
        EXPECT_EQ(tree->ChildNames(Bstr(name).get(), format, names.Out()), S_OK);
        return Joined(names.get());
    };
    EXPECT_EQ(children("^", luxSpaceTreePathnameFull), "@\\Fixture|@\\Camera");
    EXPECT_EQ(children("^", luxSpaceTreePathnameNone), "Fixture|Camera");
    EXPECT_EQ(children("^", luxSpaceTreePathnamePartial), ".\\Fixture|.\\Camera");
    EXPECT_EQ(children("Part", luxSpaceTreePathnameFull), "");  // a leaf: empty, not an error

    EXPECT_EQ(All(tree.get()), "@|@\\Fixture|@\\Fixture\\Part|@\\Camera");
    EXPECT_EQ(All(tree.get(), "^", luxSpaceTreePathnameFull, true), "@\\Fixture|@\\Fixture\\Part|@\\Camera");
    EXPECT_EQ(All(tree.get(), "Fixture", luxSpaceTreePathnamePartial), ".|.\\Part");
    EXPECT_EQ(All(tree.get(), "Fixture", luxSpaceTreePathnameNone, true), "Part");
    EXPECT_EQ(All(tree.get(), "Part", luxSpaceTreePathnameFull, true), "");
}

TEST_F(SpaceTreeTest, PartialNamesResolveAgainstTheStartingSpace) {
    auto tree = Sample();
    EXPECT_EQ(Resolve(tree.get(), "@\\Fixture", "."), "@\\Fixture");
    EXPECT_EQ(Resolve(tree.get(), "Fixture", ".\\Part"), "@\\Fixture\\Part");
    EXPECT_EQ(Resolve(tree.get(), "Fixture", "./part"), "@\\Fixture\\Part");
    EXPECT_EQ(Resolve(tree.get(), "Fixture", ".."), "@");
    EXPECT_EQ(Resolve(tree.get(), "Part", "..\\..\\Camera"), "@\\Camera");
    EXPECT_EQ(Resolve(tree.get(), "Part", "..\\.\\Part"), "@\\Fixture\\Part");
    EXPECT_EQ(Resolve(tree.get(), "^", "...\\Part"), "@\\Fixture\\Part");
    EXPECT_EQ(Resolve(tree.get(), "Part", "..\\..\\...\\Camera"), "@\\Camera");
    // A name that is not partial is already fit for lookup.
    EXPECT_EQ(Resolve(tree.get(), "Part", "Camera"), "Camera");

    Bstr resolved;
    ExpectCode(tree->ResolvePartialName(Bstr("^").get(), Bstr("..").get(), resolved.Out()), e_LuxSpaceTree_NotInTree,
               "ResolvePartialName");
    ExpectCode(tree->ResolvePartialName(Bstr("Fixture").get(), Bstr("...\\Camera").get(), resolved.Out()),
               e_LuxSpaceTree_NotInTree, "ResolvePartialName");
    ExpectCode(tree->ResolvePartialName(Bstr("Fixture").get(), Bstr(".\\Camera").get(), resolved.Out()),
               e_LuxSpaceTree_NotInTree, "ResolvePartialName");
    ExpectSyntax(tree->ResolvePartialName(Bstr(".").get(), Bstr(".").get(), resolved.Out()), ids_Lux_NameIsPartial,
                 "ResolvePartialName");
    ExpectSyntax(tree->ResolvePartialName(Bstr("^").get(), Bstr("@\\Fixture\\..").get(), resolved.Out()),
                 ids_Lux_NameIsPartial, "ResolvePartialName");

    // "...\Name" below a space finds it at any depth, and only there.
    ASSERT_EQ(Add(tree.get(), "Camera", "Part"), S_OK);
    EXPECT_EQ(Resolve(tree.get(), "Camera", "...\\Part"), "@\\Camera\\Part");
    ExpectCode(tree->ResolvePartialName(Bstr("^").get(), Bstr("...\\Part").get(), resolved.Out()),
               e_LuxSpaceTree_NotUnique, "ResolvePartialName");
}

TEST_F(SpaceTreeTest, AmbiguousSimpleNamesAreFoundButNotUsed) {
    auto tree = Sample();
    ASSERT_EQ(Add(tree.get(), "Camera", "part"), S_OK);
    Bstr found;
    ExpectCode(tree->LookUpName(Bstr("Part").get(), luxSpaceTreePathnameFull, found.Out()), e_LuxSpaceTree_NotUnique,
               "LookUpName");
    ComPtr<ILuxTransform2D> transform;
    ExpectCode(tree->GetTransform(Bstr("^").get(), Bstr("Part").get(), transform.Out()), e_LuxSpaceTree_NotUnique,
               "GetTransform");

    ComPtr<ILuxStringCollection> names;
    ASSERT_EQ(tree->FindNames(Bstr("PART").get(), names.Out()), S_OK);
    EXPECT_EQ(Joined(names.get()), "@\\Fixture\\Part|@\\Camera\\part");
    ASSERT_EQ(tree->FindNames(Bstr("Nothing").get(), names.Out()), S_OK);
    EXPECT_EQ(Joined(names.get()), "");
    ASSERT_EQ(tree->FindNames(Bstr("^\\Camera\\Part").get(), names.Out()), S_OK);
    EXPECT_EQ(Joined(names.get()), "@\\Camera\\part");

    auto verify = [&](const char* name, LuxSpaceTreePathnameConstants format) {
        Bstr name_;
        VARIANT_BOOL unique = 7;
        EXPECT_EQ(tree->VerifyName(Bstr(name).get(), format, name_.Out(), &unique), S_OK);
        return std::to_string(unique) + ":" + name_.str();
    };
    EXPECT_EQ(verify("Part", luxSpaceTreePathnameFull), "0:");
    EXPECT_EQ(verify("Nothing", luxSpaceTreePathnameFull), "0:");
    EXPECT_EQ(verify("@\\Camera\\Part", luxSpaceTreePathnameFull), "-1:@\\Camera\\part");
    EXPECT_EQ(verify("Fixture", luxSpaceTreePathnameNone), "-1:Fixture");
    EXPECT_EQ(verify("Fixture", luxSpaceTreePathnamePartial), "-1:.");
    VARIANT_BOOL unique = 0;
    EXPECT_EQ(tree->VerifyName(Bstr("Fixture").get(), luxSpaceTreePathnameFull, nullptr, &unique), S_OK);
    EXPECT_EQ(unique, VARIANT_TRUE);
    EXPECT_EQ(tree->VerifyName(Bstr("Fixture").get(), luxSpaceTreePathnameFull, nullptr, nullptr), E_POINTER);

    // Below a parent a simple name may be unique where it is not in the whole tree.
    auto child = [&](const char* parent, const char* name, bool childrenOnly, LuxSpaceTreePathnameConstants format) {
        Bstr found_;
        VARIANT_BOOL is = 7;
        EXPECT_EQ(tree->VerifyChild(Bstr(parent).get(), Bstr(name).get(), format,
                                    childrenOnly ? VARIANT_TRUE : VARIANT_FALSE, found_.Out(), &is),
                  S_OK);
        return std::to_string(is) + ":" + found_.str();
    };
    EXPECT_EQ(child("Fixture", "Part", true, luxSpaceTreePathnameFull), "-1:@\\Fixture\\Part");
    EXPECT_EQ(child("Fixture", "Part", true, luxSpaceTreePathnamePartial), "-1:.\\Part");
    EXPECT_EQ(child("^", "Part", true, luxSpaceTreePathnameFull), "0:");
    EXPECT_EQ(child("^", "@\\Camera\\part", true, luxSpaceTreePathnameNone), "-1:part");
    EXPECT_EQ(child("Fixture", "Camera", true, luxSpaceTreePathnameFull), "0:");
    EXPECT_EQ(child("Fixture", "@\\Camera", true, luxSpaceTreePathnameFull), "0:");
    EXPECT_EQ(child("Fixture", "Fixture", true, luxSpaceTreePathnameFull), "0:");
    EXPECT_EQ(child("Fixture", "Fixture", false, luxSpaceTreePathnamePartial), "-1:.");
    EXPECT_EQ(child("^", "^", false, luxSpaceTreePathnameFull), "-1:@");
    Bstr ignored;
    VARIANT_BOOL is = 0;
    ExpectCode(tree->VerifyChild(Bstr("Nowhere").get(), Bstr("Part").get(), luxSpaceTreePathnameFull, VARIANT_TRUE,
                                 ignored.Out(), &is),
               e_LuxSpaceTree_NotInTree, "VerifyChild");
}

TEST_F(SpaceTreeTest, RootNameChangesHowFullPathsBeginButNotTheAlias) {
    auto tree = Sample();
    auto sink = Listen(tree.get());
    ASSERT_EQ(tree->put_RootName(Bstr("World").get()), S_OK);
    EXPECT_EQ(sink->Take(), "7456(" + std::to_string(luxCoordinateSpaceTree_RootName) + ",World,1)");
    Bstr root;
    ASSERT_EQ(tree->get_RootName(root.Out()), S_OK);
    EXPECT_EQ(root.str(), "World");
    EXPECT_EQ(Lookup(tree.get(), "world\\Fixture"), "World\\Fixture");
    EXPECT_EQ(Lookup(tree.get(), "^\\Fixture"), "World\\Fixture");
    Bstr found;
    ExpectSyntax(tree->LookUpName(Bstr("@\\Fixture").get(), luxSpaceTreePathnameFull, found.Out()),
                 ids_Lux_PathnamesStartAtRoot, "LookUpName");
    // The same name again changes nothing and announces nothing.
    ASSERT_EQ(tree->put_RootName(Bstr("World").get()), S_OK);
    EXPECT_EQ(sink->Take(), "");
    EXPECT_EQ(tree->get_RootName(nullptr), E_POINTER);
}

TEST_F(SpaceTreeTest, AddingAnnouncesTheFullNameAndDuplicatesFollowThePolicy) {
    auto tree = NewTree();
    auto sink = Listen(tree.get());
    ASSERT_EQ(Add(tree.get(), "^", "Fixture", Shift(10, 0).get()), S_OK);
    ASSERT_EQ(Add(tree.get(), "Fixture", "Part", Shift(0, 1).get()), S_OK);
    EXPECT_EQ(sink->Take(), "1(@\\Fixture) " + kChanged + " 1(@\\Fixture\\Part) " + kChanged);
    const std::string before = Dump(tree.get());

    // The same name in another case is a duplicate.
    ExpectCode(Add(tree.get(), "^", "FIXTURE", Shift(5, 5).get()), e_LuxSpaceTree_DuplicateChildName, "AddSpace");
    ExpectCode(tree->AddSpaceEx(Bstr("^").get(), Bstr("fixture").get(), nullptr, 1, 2, 3, 4),
               e_LuxSpaceTree_DuplicateChildName, "AddSpaceEx");
    ExpectCode(Add(tree.get(), "Nowhere", "New"), e_LuxSpaceTree_NotInTree, "AddSpace");
    ExpectRefused(Add(tree.get(), "^", "New", nullptr, true, static_cast<LuxAddSpaceConstants>(3)), E_INVALIDARG,
                  core::ids_Core_InvalidArg_1, "AddSpace", {"DuplicateHandling"});
    EXPECT_EQ(Add(tree.get(), "^", "fixture", Shift(5, 5).get(), true, luxAddSpaceIgnoreDuplicate), S_OK);
    EXPECT_EQ(Dump(tree.get()), before);
    EXPECT_EQ(sink->Take(), "");

    // Replacing takes the old space's place and drops its subtree.
    ASSERT_EQ(Add(tree.get(), "^", "Camera"), S_OK);
    sink->Take();
    ASSERT_EQ(Add(tree.get(), "^", "fixture", Shift(5, 5).get(), true, luxAddSpaceReplaceDuplicate), S_OK);
    EXPECT_EQ(sink->Take(), "5(@\\Fixture) " + kChanged + " 1(@\\fixture) " + kChanged);
    EXPECT_EQ(All(tree.get()), "@|@\\fixture|@\\Camera");
    EXPECT_EQ(TransformText(tree.get(), "^", "fixture"), "1 0 0 1 5 5");
}

TEST_F(SpaceTreeTest, AddSpaceCopiesOrHoldsTheTransformAndNullIsTheIdentity) {
    auto tree = NewTree();
    auto copied = Shift(1, 0);
    auto held = Shift(2, 0);
    ASSERT_EQ(Add(tree.get(), "^", "Copied", copied.get(), true), S_OK);
    ASSERT_EQ(Add(tree.get(), "^", "Held", held.get(), false), S_OK);
    ASSERT_EQ(Add(tree.get(), "^", "Plain", nullptr, false), S_OK);
    ASSERT_EQ(copied->put_TranslationX(7), S_OK);
    ASSERT_EQ(held->put_TranslationX(9), S_OK);
    EXPECT_EQ(TransformText(tree.get(), "^", "Copied"), "1 0 0 1 1 0");
    EXPECT_EQ(TransformText(tree.get(), "^", "Held"), "1 0 0 1 9 0");
    EXPECT_EQ(TransformText(tree.get(), "^", "Plain"), "1 0 0 1 0 0");

    // AddSpaceEx always copies, and records its creators.
    auto source = Shift(3, 0);
    ASSERT_EQ(tree->AddSpaceEx(Bstr("Held").get(), Bstr("Made").get(), Base(source.get()).get(), 11, -12, 13, 14),
              S_OK);
    ASSERT_EQ(source->put_TranslationX(100), S_OK);
    EXPECT_EQ(TransformText(tree.get(), "Held", "Made"), "1 0 0 1 3 0");
    auto* own = CLuxCoordinateSpaceTree::ImplementationOf(tree.get());
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(own->CreatorIDs("Made"), (std::vector<int32_t>{11, -12, 13, 14}));
    EXPECT_EQ(own->CreatorIDs("Copied"), (std::vector<int32_t>{0, 0, 0, 0}));
}

TEST_F(SpaceTreeTest, RenamingKeepsTheSubtreeAndRefusesASiblingsName) {
    auto tree = Sample();
    auto sink = Listen(tree.get());
    ASSERT_EQ(tree->ChangeName(Bstr("Fixture").get(), Bstr("Jig").get()), S_OK);
    EXPECT_EQ(sink->Take(), "3(@\\Fixture,@\\Jig) " + kChanged);
    EXPECT_EQ(Lookup(tree.get(), "Part"), "@\\Jig\\Part");
    // Another spelling of the same name is a change; the very same name is none.
    ASSERT_EQ(tree->ChangeName(Bstr("Jig").get(), Bstr("JIG").get()), S_OK);
    EXPECT_EQ(sink->Take(), "3(@\\Jig,@\\JIG) " + kChanged);
    ASSERT_EQ(tree->ChangeName(Bstr("Jig").get(), Bstr("JIG").get()), S_OK);
    EXPECT_EQ(sink->Take(), "");

    const std::string before = Dump(tree.get());
    ExpectCode(tree->ChangeName(Bstr("JIG").get(), Bstr("camera").get()), e_LuxSpaceTree_DuplicateChildName,
               "ChangeName");
    ExpectCode(tree->ChangeName(Bstr("Nowhere").get(), Bstr("Other").get()), e_LuxSpaceTree_NotInTree, "ChangeName");
    EXPECT_EQ(Dump(tree.get()), before);
    EXPECT_EQ(sink->Take(), "");

    // The root may be renamed too; it follows the root's rules.
    ASSERT_EQ(tree->ChangeName(Bstr("^").get(), Bstr("#Pixels").get()), S_OK);
    EXPECT_EQ(sink->Take(), "3(@,#Pixels) " + kChanged);
    EXPECT_EQ(Lookup(tree.get(), "Part"), "#Pixels\\JIG\\Part");
}

TEST_F(SpaceTreeTest, ChangingATransformAnnouncesTheSpace) {
    auto tree = Sample();
    auto sink = Listen(tree.get());
    ASSERT_EQ(tree->ChangeTransform(Bstr("Camera").get(), Base(Shift(0, -4).get()).get(), VARIANT_TRUE), S_OK);
    EXPECT_EQ(sink->Take(), "4(@\\Camera) " + kChanged);
    EXPECT_EQ(TransformText(tree.get(), "^", "Camera"), "1 0 0 1 0 -4");
    ASSERT_EQ(tree->ChangeTransform(Bstr("Camera").get(), nullptr, VARIANT_TRUE), S_OK);
    EXPECT_EQ(TransformText(tree.get(), "^", "Camera"), "1 0 0 1 0 0");
    sink->Take();

    const std::string before = Dump(tree.get());
    ExpectRefused(tree->ChangeTransform(Bstr("^").get(), Base(Shift(1, 1).get()).get(), VARIANT_TRUE), E_INVALIDARG,
                  core::ids_Core_InvalidArg_1, "ChangeTransform", {"ChildSpaceName"});
    ExpectCode(tree->ChangeTransform(Bstr("Nowhere").get(), nullptr, VARIANT_TRUE), e_LuxSpaceTree_NotInTree,
               "ChangeTransform");
    EXPECT_EQ(Dump(tree.get()), before);
    EXPECT_EQ(sink->Take(), "");
}

TEST_F(SpaceTreeTest, DeletingRemovesTheWholeSubtreeButNeverTheRoot) {
    auto tree = Sample();
    auto sink = Listen(tree.get());
    const std::string before = Dump(tree.get());
    ExpectRefused(tree->DeleteSubtree(Bstr("^").get()), E_INVALIDARG, core::ids_Core_InvalidArg_1, "DeleteSubtree",
                  {"SpaceName"});
    ExpectRefused(tree->DeleteSubtree(Bstr("@").get()), E_INVALIDARG, core::ids_Core_InvalidArg_1, "DeleteSubtree",
                  {"SpaceName"});
    ExpectCode(tree->DeleteSubtree(Bstr("Nowhere").get()), e_LuxSpaceTree_NotInTree, "DeleteSubtree");
    EXPECT_EQ(Dump(tree.get()), before);
    EXPECT_EQ(sink->Take(), "");

    ASSERT_EQ(tree->DeleteSubtree(Bstr("fixture").get()), S_OK);
    EXPECT_EQ(sink->Take(), "5(@\\Fixture) " + kChanged);
    EXPECT_EQ(All(tree.get()), "@|@\\Camera");
    // The indices left behind are consistent: the tree grows and reads as before.
    ASSERT_EQ(Add(tree.get(), "Camera", "Lens", Shift(1, 1).get()), S_OK);
    EXPECT_EQ(TransformText(tree.get(), "^", "Lens"), "2 0 0 2 2 2");
}

TEST_F(SpaceTreeTest, MovingKeepsTheTransformIntoTheParent) {
    auto tree = Sample();
    auto sink = Listen(tree.get());
    ASSERT_EQ(tree->MoveSubtree(Bstr("Part").get(), Bstr("Camera").get(), luxAddSpaceDuplicateIsError), S_OK);
    EXPECT_EQ(sink->Take(), "6(@\\Fixture\\Part,@\\Camera\\Part) " + kChanged);
    EXPECT_EQ(All(tree.get()), "@|@\\Fixture|@\\Camera|@\\Camera\\Part");
    EXPECT_EQ(TransformText(tree.get(), "Camera", "Part"), "0 -1 1 0 0 5");
    // Under its present parent: nothing to do.
    ASSERT_EQ(tree->MoveSubtree(Bstr("Part").get(), Bstr("Camera").get(), luxAddSpaceDuplicateIsError), S_OK);
    EXPECT_EQ(sink->Take(), "");

    const std::string before = Dump(tree.get());
    auto refused = [&](const char* space, const char* parent, const char* argument) {
        ExpectRefused(tree->MoveSubtree(Bstr(space).get(), Bstr(parent).get(), luxAddSpaceDuplicateIsError),
                      E_INVALIDARG, core::ids_Core_InvalidArg_1, "MoveSubtree", {argument});
    };
    refused("Camera", "Part", "NewParentSpaceName");    // below its own descendant
    refused("Camera", "Camera", "NewParentSpaceName");  // below itself
    refused("^", "Fixture", "SpaceName");
    ASSERT_EQ(Add(tree.get(), "Fixture", "PART", Shift(9, 9).get()), S_OK);
    sink->Take();
    const std::string withDuplicate = Dump(tree.get());
    ExpectCode(tree->MoveSubtree(Bstr("@\\Camera\\Part").get(), Bstr("Fixture").get(), luxAddSpaceDuplicateIsError),
               e_LuxSpaceTree_DuplicateChildName, "MoveSubtree");
    EXPECT_EQ(tree->MoveSubtree(Bstr("@\\Camera\\Part").get(), Bstr("Fixture").get(), luxAddSpaceIgnoreDuplicate),
              S_OK);
    EXPECT_EQ(Dump(tree.get()), withDuplicate);
    EXPECT_EQ(sink->Take(), "");
    EXPECT_NE(before, withDuplicate);

    ASSERT_EQ(Add(tree.get(), "@\\Camera\\Part", "Tip", Shift(1, 0).get()), S_OK);
    sink->Take();
    ASSERT_EQ(tree->MoveSubtree(Bstr("@\\Camera\\Part").get(), Bstr("Fixture").get(), luxAddSpaceReplaceDuplicate),
              S_OK);
    EXPECT_EQ(sink->Take(), "5(@\\Fixture\\PART) " + kChanged + " 6(@\\Camera\\Part,@\\Fixture\\Part) " + kChanged);
    EXPECT_EQ(All(tree.get()), "@|@\\Fixture|@\\Fixture\\Part|@\\Fixture\\Part\\Tip|@\\Camera");
    EXPECT_EQ(TransformText(tree.get(), "^", "Tip"), "0 -1 1 0 10 6");
}

TEST_F(SpaceTreeTest, CopySubtreeMakesAnIndependentTreeRootedAtTheSpace) {
    auto tree = Sample();
    auto held = Shift(0, 3);
    ASSERT_EQ(Add(tree.get(), "Part", "Tool", held.get(), false), S_OK);
    auto sink = Listen(tree.get());
    ComPtr<ILuxCoordinateSpaceTree> copy;
    ASSERT_EQ(tree->CopySubtree(Bstr("Fixture").get(), copy.Out()), S_OK);
    EXPECT_EQ(sink->Take(), "");
    EXPECT_EQ(All(copy.get()), "Fixture|Fixture\\Part|Fixture\\Part\\Tool");
    EXPECT_EQ(TransformText(copy.get(), "^", "Tool"), "0 -1 1 0 -3 5");
    ASSERT_EQ(held->put_TranslationY(30), S_OK);
    EXPECT_EQ(TransformText(copy.get(), "^", "Tool"), "0 -1 1 0 -3 5");
    EXPECT_EQ(TransformText(tree.get(), "Fixture", "Tool"), "0 -1 1 0 -30 5");
    ASSERT_EQ(Add(copy.get(), "^", "Extra"), S_OK);
    EXPECT_EQ(All(tree.get(), "Fixture"), "@\\Fixture|@\\Fixture\\Part|@\\Fixture\\Part\\Tool");

    ComPtr<ILuxCoordinateSpaceTree> leaf;
    ASSERT_EQ(tree->CopySubtree(Bstr("Camera").get(), leaf.Out()), S_OK);
    EXPECT_EQ(All(leaf.get()), "Camera");
    EXPECT_EQ(tree->CopySubtree(Bstr("Camera").get(), nullptr), E_POINTER);
    ExpectCode(tree->CopySubtree(Bstr("Nowhere").get(), leaf.Out()), e_LuxSpaceTree_NotInTree, "CopySubtree");
    EXPECT_FALSE(leaf);
}

TEST_F(SpaceTreeTest, CloneCopiesTransformsAndStandsAlone) {
    auto tree = Sample();
    auto held = Shift(0, 3);
    ASSERT_EQ(Add(tree.get(), "Camera", "Lens", held.get(), false), S_OK);
    ComPtr<ILuxObject> object;
    ASSERT_EQ(tree->QueryInterface(IID_ILuxObject, object.OutVoid()), S_OK);
    ComPtr<IDispatch> cloned;
    ASSERT_EQ(object->Clone(cloned.Out()), S_OK);
    ComPtr<ILuxCoordinateSpaceTree> clone;
    ASSERT_EQ(cloned->QueryInterface(IID_ILuxCoordinateSpaceTree, clone.OutVoid()), S_OK);
    EXPECT_EQ(Dump(clone.get()), Dump(tree.get()));
    ASSERT_EQ(held->put_TranslationY(30), S_OK);
    EXPECT_EQ(TransformText(clone.get(), "Camera", "Lens"), "1 0 0 1 0 3");
    ASSERT_EQ(clone->DeleteSubtree(Bstr("Fixture").get()), S_OK);
    EXPECT_EQ(All(tree.get()), "@|@\\Fixture|@\\Fixture\\Part|@\\Camera|@\\Camera\\Lens");
}

TEST_F(SpaceTreeTest, NullOutPointersAndArgumentsAreRefused) {
    auto tree = Sample();
    const Bstr part("Part");
    ComPtr<ILuxStringCollection> names;
    Bstr text;
    EXPECT_EQ(tree->ResolvePartialName(part.get(), Bstr(".").get(), nullptr), E_POINTER);
    EXPECT_EQ(tree->ParentName(part.get(), luxSpaceTreePathnameFull, nullptr), E_POINTER);
    EXPECT_EQ(tree->ChildNames(part.get(), luxSpaceTreePathnameFull, nullptr), E_POINTER);
    EXPECT_EQ(tree->AllChildNames(part.get(), luxSpaceTreePathnameFull, VARIANT_TRUE, nullptr), E_POINTER);
    EXPECT_EQ(tree->FindNames(part.get(), nullptr), E_POINTER);
    EXPECT_EQ(tree->VerifyChild(part.get(), part.get(), luxSpaceTreePathnameFull, VARIANT_TRUE, text.Out(), nullptr),
              E_POINTER);
    EXPECT_EQ(tree->GetTransform(part.get(), part.get(), nullptr), E_POINTER);
    ExpectRefused(tree->AddTree(Bstr("^").get(), nullptr, Base(Shift(0, 0).get()).get(), VARIANT_TRUE,
                                luxAddSpaceDuplicateIsError),
                  E_INVALIDARG, ids_Lux_InvalidArgNull_1, "AddTree", {"TreeToAdd"});
    auto other = NewTree();
    ExpectRefused(tree->AddTree(Bstr("^").get(), other.get(), nullptr, VARIANT_TRUE, luxAddSpaceDuplicateIsError),
                  E_INVALIDARG, ids_Lux_InvalidArgNull_1, "AddTree", {"ParentFromTreeRoot"});
    EXPECT_EQ(All(tree.get()), "@|@\\Fixture|@\\Fixture\\Part|@\\Camera");
}

TEST_F(SpaceTreeTest, ChangesFromSeveralThreadsAreNeitherLostNorTorn) {
    // Each change is worked out on a snapshot and committed only if the snapshot is still
    // the present one: racing writers retry, readers always see a whole tree.
    auto tree = NewTree();
    ASSERT_EQ(Add(tree.get(), "^", "Base", Shift(1, 0).get()), S_OK);
    constexpr int kWriters = 4;
    constexpr int kEach = 40;
    std::vector<std::thread> threads;
    std::atomic<bool> torn{false};
    for (int w = 0; w < kWriters; ++w) {
        threads.emplace_back([&, w] {
            for (int i = 0; i < kEach; ++i) {
                const std::string name = "S" + std::to_string(w) + "_" + std::to_string(i);
                if (FAILED(Add(tree.get(), i % 2 ? "Base" : "^", name.c_str(), Shift(0, 1).get()))) torn = true;
                if (i % 5 == 4 && FAILED(tree->DeleteSubtree(Bstr(name).get()))) torn = true;
            }
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < 200; ++i) {
            ComPtr<ILuxStringCollection> names;
            if (FAILED(tree->AllChildNames(Bstr("^").get(), luxSpaceTreePathnameFull, VARIANT_FALSE, names.Out())))
                torn = true;
            ComPtr<ILuxTransform2D> transform;
            if (FAILED(tree->GetTransform(Bstr("^").get(), Bstr("@\\Base").get(), transform.Out()))) torn = true;
        }
    });
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(torn);
    ComPtr<ILuxStringCollection> names;
    ASSERT_EQ(tree->AllChildNames(Bstr("^").get(), luxSpaceTreePathnameNone, VARIANT_TRUE, names.Out()), S_OK);
    LONG count = 0;
    ASSERT_EQ(names->get_Count(&count), S_OK);
    EXPECT_EQ(count, 1 + kWriters * (kEach - kEach / 5));
    EXPECT_EQ(Lookup(tree.get(), "S3_37"), "@\\Base\\S3_37");
    EXPECT_EQ(Lookup(tree.get(), "S2_38"), "@\\S2_38");
}

}  // namespace
}  // namespace tessaly::test
