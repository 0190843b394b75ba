// Saving and loading a tree through both formats: names, transforms, creators, child order,
// grafted trees (one object however often grafted), the Change a load announces; and
// archives that lie about the tree, each refused with e_Lux_BadFileFormat and nothing of
// them loaded.
#include <functional>

#include "com/core/ObjectPersistence.h"
#include "com/transform/CLuxCoordinateSpaceTree.h"
#include "platform/MemoryStream.h"
#include "spacetree/SpaceTreeFixture.h"

namespace tessaly::test {
namespace {

using transform::CLuxCoordinateSpaceTree;

class SpaceTreePersistTest : public SpaceTreeFixture {
public:
    static std::vector<uint8_t> Save(ILuxCoordinateSpaceTree* tree, int32_t format) {
        std::vector<uint8_t> bytes;
        EXPECT_EQ(SaveObjectToBytes(tree, format, luxPersistOptionAll, &bytes), S_OK);
        return bytes;
    }
    static ComPtr<ILuxCoordinateSpaceTree> Load(const std::vector<uint8_t>& bytes, int32_t format) {
        ComPtr<IDispatch> loaded;
        EXPECT_EQ(LoadObjectFromBytes(bytes, format, loaded.Out()), S_OK);
        ComPtr<ILuxCoordinateSpaceTree> tree;
        if (loaded) {
            EXPECT_EQ(loaded->QueryInterface(IID_ILuxCoordinateSpaceTree, tree.OutVoid()), S_OK);
        }
        return tree;
    }
    // Loads `text` into `existing` through the XML formatter.
    static HRESULT LoadInto(const std::string& text, IDispatch* existing) {
        ComPtr<ILuxFormatter> formatter;
        EXPECT_EQ(CreateObject("Tessaly.LuxXMLFormatter", ILuxFormatter::iid, formatter.OutVoid()), S_OK);
        ComPtr<IStream> stream;
        EXPECT_EQ(MemoryStream::Create(text.data(), text.size(), stream.Out()), S_OK);
        ComPtr<IDispatch> loaded;
        return formatter->Deserialize(stream.get(), existing, luxPersistOptionAll, nullptr, nullptr, loaded.Out());
    }
    static std::string Text(const std::vector<uint8_t>& bytes) { return std::string(bytes.begin(), bytes.end()); }
    static std::vector<uint8_t> Bytes(const std::string& text) { return std::vector<uint8_t>(text.begin(), text.end()); }

    // A tree with every kind of node: renamed root, spaces out of alphabetical order, a
    // held transform, creators, a tree grafted twice.
    static ComPtr<ILuxCoordinateSpaceTree> Rich() {
        auto tree = Sample();
        EXPECT_EQ(tree->put_RootName(Bstr("World").get()), S_OK);
        EXPECT_EQ(Add(tree.get(), "^", "Axis", Linear(0.5, 0.25, -1, 3, 7, -8).get(), false), S_OK);
        EXPECT_EQ(tree->AddSpaceEx(Bstr("Part").get(), Bstr("Tool").get(), nullptr, 1, 2, -3, 2147483647), S_OK);
        auto robot = NewTree();
        EXPECT_EQ(robot->put_RootName(Bstr("Robot").get()), S_OK);
        EXPECT_EQ(Add(robot.get(), "^", "Gripper", Shift(0, 2).get()), S_OK);
        EXPECT_EQ(tree->AddTree(Bstr("Camera").get(), robot.get(), Base(Shift(1, 0).get()).get(), VARIANT_TRUE,
                                luxAddSpaceDuplicateIsError),
                  S_OK);
        EXPECT_EQ(Add(tree.get(), "Camera", "Lens", Shift(0, 1).get()), S_OK);
        EXPECT_EQ(tree->AddTree(Bstr("Tool").get(), robot.get(), Base(Shift(0, 9).get()).get(), VARIANT_TRUE,
                                luxAddSpaceDuplicateIsError),
                  S_OK);
        return tree;
    }
};

TEST_F(SpaceTreePersistTest, RoundTripsThroughBothFormats) {
    auto tree = Rich();
    const std::string dump = Dump(tree.get());
    for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        SCOPED_TRACE(format);
        auto loaded = Load(Save(tree.get(), format), format);
        ASSERT_TRUE(loaded);
        EXPECT_EQ(Dump(loaded.get()), dump);
        Bstr root;
        ASSERT_EQ(loaded->get_RootName(root.Out()), S_OK);
        EXPECT_EQ(root.str(), "World");
        auto* own = CLuxCoordinateSpaceTree::ImplementationOf(loaded.get());
        ASSERT_NE(own, nullptr);
        EXPECT_EQ(own->CreatorIDs("Tool"), (std::vector<int32_t>{1, 2, -3, 2147483647}));
        // The grafted tree is one object, reached twice: a change to it shows in both places.
        ASSERT_EQ(loaded->AddSpace(Bstr("World\\Camera\\Robot").get(), Bstr("Finger").get(), nullptr, VARIANT_TRUE,
                                   luxAddSpaceDuplicateIsError),
                  S_OK);
        ComPtr<ILuxStringCollection> names;
        ASSERT_EQ(loaded->FindNames(Bstr("Finger").get(), names.Out()), S_OK);
        EXPECT_EQ(Joined(names.get()), "World\\Fixture\\Part\\Tool\\Robot\\Finger|World\\Camera\\Robot\\Finger");
        // Loaded transforms are the tree's own.
        EXPECT_EQ(TransformText(loaded.get(), "^", "Axis"), "0.5 0.25 -1 3 7 -8");
        EXPECT_EQ(ClearObjectGraph(loaded.get()), S_OK);
    }
    EXPECT_EQ(ClearObjectGraph(tree.get()), S_OK);
}

TEST_F(SpaceTreePersistTest, LoadingIntoATreeAnnouncesOneChangeAndAnEmptyArchiveGivesANewTree) {
    auto source = Sample();
    const std::string text = Text(Save(source.get(), luxPersistFormatXML));
    auto tree = NewTree();
    ASSERT_EQ(Add(tree.get(), "^", "Old"), S_OK);
    auto sink = Listen(tree.get());
    ASSERT_EQ(LoadInto(text, tree.get()), S_OK);
    EXPECT_EQ(sink->Take(), "7456(-1,,-1)");
    EXPECT_EQ(Dump(tree.get()), Dump(source.get()));

    ASSERT_EQ(LoadInto("<?xml version=\"1.0\"?><Root xmlns:dt=\"urn:schemas-microsoft-com:datatypes\">"
                       "<Object ProgID=\"Tessaly.LuxCoordinateSpaceTree.1\" id=\"1\"/></Root>",
                       tree.get()),
              S_OK);
    EXPECT_EQ(All(tree.get()), "@");
}

TEST_F(SpaceTreePersistTest, HostileArchivesAreRefusedAndNothingOfThemIsLoaded) {
    auto source = Sample();
    auto robot = NewTree();
    ASSERT_EQ(robot->put_RootName(Bstr("Robot").get()), S_OK);
    ASSERT_EQ(source->AddTree(Bstr("Camera").get(), robot.get(), Base(Shift(0, 0).get()).get(), VARIANT_TRUE,
                              luxAddSpaceDuplicateIsError),
              S_OK);
    const std::string good = Text(Save(source.get(), luxPersistFormatXMLWithLineBreaks));
    auto replace = [&](const std::string& from, const std::string& to) {
        std::string text = good;
        const size_t at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        if (at != std::string::npos) text.replace(at, from.size(), to);
        return text;
    };
    // The element whose text or content is replaced, from its opening tag to its closing one.
    auto replaceElement = [&](const std::string& name, const std::string& with) {
        std::string text = good;
        const size_t open = text.find("<" + name);
        const std::string close = "</" + name + ">";
        const size_t end = text.find(close, open);
        EXPECT_NE(open, std::string::npos) << name;
        if (open != std::string::npos && end != std::string::npos)
            text.replace(open, end + close.size() - open, with);
        return text;
    };
    const std::pair<const char*, std::string> hostile[] = {
        {"parent is itself", replace("<Space2.Parent dt:dt=\"i4\">1<", "<Space2.Parent dt:dt=\"i4\">2<")},
        {"parent stored later", replace("<Space2.Parent dt:dt=\"i4\">1<", "<Space2.Parent dt:dt=\"i4\">3<")},
        {"negative parent", replace("<Space1.Parent dt:dt=\"i4\">0<", "<Space1.Parent dt:dt=\"i4\">-1<")},
        {"tree's parent out of range", replace("<Tree0.Parent dt:dt=\"i4\">3<", "<Tree0.Parent dt:dt=\"i4\">4<")},
        {"huge space count", replace(">4</NumSpaceNodes>", ">2000000000</NumSpaceNodes>")},
        {"no root", replace(">4</NumSpaceNodes>", ">0</NumSpaceNodes>")},
        {"negative tree count", replace(">1</NumTreeNodes>", ">-1</NumTreeNodes>")},
        {"missing tree count", replaceElement("NumTreeNodes", "")},
        {"a name with a separator", replace(">Fixture<", ">Fix\\ture<")},
        {"an empty name", replace(">Fixture<", "><")},
        {"a reserved name", replace(">Fixture<", ">..<")},
        {"a root named ^", replace("<Space0.Name>@<", "<Space0.Name>^<")},
        {"two children of one name", replace(">Camera<", ">FIXTURE<")},
        {"a missing name", replaceElement("Space3.Name", "")},
        {"a missing transform", replaceElement("Space1.Transform", "")},
        {"a null transform", replaceElement("Space1.Transform", "<Space1.Transform idref=\"0\"/>")},
        {"a transform that is text", replaceElement("Space1.Transform", "<Space1.Transform>shift</Space1.Transform>")},
        {"a transform that is a tree", replaceElement("Space1.Transform", "<Space1.Transform idref=\"1\"/>")},
        {"a tree that is a transform", replaceElement("Tree0.Tree", "<Tree0.Tree idref=\"2\"/>")},
        {"a tree grafted into itself", replaceElement("Tree0.Tree", "<Tree0.Tree idref=\"1\"/>")},
        {"a count that is not a number", replace(">4</NumSpaceNodes>", ">four</NumSpaceNodes>")},
    };
    for (const auto& [what, text] : hostile) {
        SCOPED_TRACE(what);
        ComPtr<IDispatch> loaded;
        EXPECT_EQ(LoadObjectFromBytes(Bytes(text), luxPersistFormatXML, loaded.Out()),
                  static_cast<HRESULT>(e_Lux_BadFileFormat));
        EXPECT_FALSE(loaded);
        // Loaded into an existing tree: a document the formatter cannot read leaves it as it
        // was; one it reads has reset the tree before the tree read its values, and the tree
        // assigns none of them. Never anything in between.
        auto tree = Sample();
        const std::string before = Dump(tree.get());
        EXPECT_EQ(LoadInto(text, tree.get()), static_cast<HRESULT>(e_Lux_BadFileFormat));
        const std::string after = Dump(tree.get());
        EXPECT_TRUE(after == before || after == "@=1 0 0 1 0 0;") << after;
    }
    // The unchanged document loads.
    ComPtr<IDispatch> loaded;
    EXPECT_EQ(LoadObjectFromBytes(Bytes(good), luxPersistFormatXML, loaded.Out()), S_OK);
}

}  // namespace
}  // namespace tessaly::test
