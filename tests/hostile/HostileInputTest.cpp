// Loading input nobody can vouch for: the fuzz corpora, every truncation of valid
// archives, lengths and bounds that claim far more than the input holds, nesting far
// deeper than any archive the library writes, and long chains of objects spelt at a
// shallow nesting. Every load must end in S_OK or in a failure with error info, never in a
// crash, a hang or an allocation the input does not justify, and must leave no object
// alive once the graph is released.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "TessalyCore.h"
#include "com/core/ObjectPersistence.h"
#include "support/AllocationCounter.h"
#include "hostile/HostileLoad.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/Module.h"
#include "platform/SafeArray.h"
#include "platform/Variant.h"

namespace tessaly::test {
namespace {

using Bytes = std::vector<uint8_t>;

// What a load that meets a length or count far beyond its input may ask the heap for in
// all: the document and parser buffers, the objects made before the lie is found.
constexpr size_t kAllocationBound = 1 << 20;

Bytes BytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

Bytes ReadFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// `bytes` with the one occurrence of `from` replaced by `to` (of the same length).
Bytes Patch(Bytes bytes, const Bytes& from, const Bytes& to) {
    EXPECT_EQ(from.size(), to.size());
    const auto at = std::search(bytes.begin(), bytes.end(), from.begin(), from.end());
    EXPECT_NE(at, bytes.end()) << "pattern not found";
    if (at == bytes.end()) return bytes;
    EXPECT_EQ(std::search(at + 1, bytes.end(), from.begin(), from.end()), bytes.end()) << "pattern found twice";
    std::copy(to.begin(), to.end(), at);
    return bytes;
}

Bytes LittleEndian32(uint32_t value) {
    return {uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16), uint8_t(value >> 24)};
}

Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

class HostileInputTest : public ::testing::Test {
protected:
    void SetUp() override { live_ = Module::LiveObjectCount(); }
    void TearDown() override { EXPECT_EQ(Module::LiveObjectCount(), live_) << "objects left alive"; }

    static ComPtr<ILuxCollection> NewCollection() {
        ComPtr<ILuxCollection> list;
        EXPECT_EQ(CreateObject("Tessaly.LuxCollection", ILuxCollection::iid, list.OutVoid()), S_OK);
        return list;
    }
    static void Add(ILuxCollection* list, const Variant& item, const char* key = "") {
        EXPECT_EQ(list->Add(item.get(), Bstr(key).get(), luxNoIndex), S_OK);
    }
    static Variant Object(const ComPtr<ILuxCollection>& list) { return Variant(static_cast<IDispatch*>(list.get())); }

    // A one-dimensional array of `vt` holding `count` elements from `lower`, filled by `fill`.
    template <class Fill>
    static Variant Array(VARTYPE vt, ULONG count, Fill fill, LONG lower = 0) {
        VARIANT value;
        VariantInit(&value);
        value.vt = VT_ARRAY | vt;
        value.parray = SafeArrayCreateVector(vt, lower, count);
        EXPECT_NE(value.parray, nullptr);
        fill(value.parray->pvData);
        return Variant::Attach(value);
    }

    // Nested, shared and cyclic objects and arrays of every storage kind: the archive whose
    // truncations are loaded.
    static ComPtr<ILuxCollection> Graph() {
        auto root = NewCollection();
        auto shared = NewCollection();
        Add(shared.get(), Variant(2.5));
        Add(shared.get(), Variant("shared <&> text"), "name");
        Add(shared.get(), Object(root));  // a cycle back to the root
        ComPtr<ILuxStringCollection> strings;
        EXPECT_EQ(CreateObject("Tessaly.LuxStringCollection", ILuxStringCollection::iid, strings.OutVoid()), S_OK);
        EXPECT_EQ(strings->Add(Bstr("one").get(), Bstr("first").get(), luxNoIndex), S_OK);
        EXPECT_EQ(strings->Add(Bstr("two").get(), Bstr("").get(), luxNoIndex), S_OK);

        Add(root.get(), Variant(int32_t(-7)));
        Add(root.get(), Object(shared), "shared");
        Add(root.get(), Object(shared));
        Add(root.get(), Variant(static_cast<IDispatch*>(strings.get())));
        Add(root.get(), Array(VT_UI1, 16, [](void* data) {
            for (int i = 0; i < 16; ++i) static_cast<uint8_t*>(data)[i] = uint8_t(i * 17);
        }));
        Add(root.get(), Array(VT_R8, 3, [](void* data) {
            for (int i = 0; i < 3; ++i) static_cast<double*>(data)[i] = i / 3.0;
        }, -1));
        Add(root.get(), Array(VT_BSTR, 2, [](void* data) {
            static_cast<BSTR*>(data)[0] = SysAllocString("x");
        }));
        auto inner = NewCollection();
        Add(inner.get(), Variant(true));
        Add(inner.get(), Object(inner));  // a cycle that does not pass through the root
        Add(root.get(), Array(VT_VARIANT, 3, [&](void* data) {
            auto* items = static_cast<VARIANT*>(data);
            items[0] = Variant(int32_t(5)).Detach();
            items[1] = Object(inner).Detach();
            items[2] = Object(shared).Detach();
        }));
        return root;
    }

    static Bytes Save(const ComPtr<ILuxCollection>& graph, int32_t format) {
        Bytes bytes;
        EXPECT_EQ(SaveObjectToBytes(static_cast<IDispatch*>(graph.get()), format, luxPersistOptionAll, &bytes), S_OK);
        return bytes;
    }
    static Bytes SaveAndRelease(ComPtr<ILuxCollection> graph, int32_t format) {
        Bytes bytes = Save(graph, format);
        HostileLoad::Release(ComPtr<IDispatch>(static_cast<IDispatch*>(graph.get())));
        return bytes;
    }

    // A binary archive of one collection holding `item`, which the library saves.
    static Bytes BinaryHolding(const Variant& item) {
        auto list = NewCollection();
        Add(list.get(), item);
        return Save(list, luxPersistFormatBinary);
    }

    // Loads with an allocation counter running; the load must fail with `expected` and
    // error info, ask for no more than kAllocationBound, and leave nothing alive.
    static void ExpectRefusedCheaply(const Bytes& bytes, int32_t format, HRESULT expected, const std::string& what) {
        SCOPED_TRACE(what);
        LoadOutcome outcome;
        size_t requested = 0;
        size_t largest = 0;
        {
            AllocationCounter counter;
            outcome = HostileLoad::Run(bytes, format);
            requested = counter.Bytes();
            largest = counter.Largest();
        }
        EXPECT_EQ(outcome.result, expected) << outcome.Describe();
        EXPECT_TRUE(outcome.errorInfo);
        EXPECT_EQ(outcome.leftAlive, 0);
        EXPECT_GT(requested, 0u) << "the counter saw nothing";
        EXPECT_LT(requested, kAllocationBound) << "largest single request: " << largest;
    }

private:
    LONG live_ = 0;
};

// ---------------------------------------------------------------------------------------

TEST_F(HostileInputTest, EveryCorpusFileLoadsOrFailsCleanly) {
    const std::filesystem::path corpus = TESSALY_FUZZ_CORPUS_DIR;
    struct Folder {
        const char* name;
        int32_t format;
    };
    for (const Folder folder : {Folder{"xml", luxPersistFormatXML}, Folder{"binary", luxPersistFormatBinary},
                                Folder{"soap", luxPersistFormatSoap}}) {
        size_t files = 0, valid = 0, broken = 0;
        for (const auto& entry : std::filesystem::directory_iterator(corpus / folder.name)) {
            if (!entry.is_regular_file()) continue;
            const std::string name = entry.path().filename().string();
            SCOPED_TRACE(std::string(folder.name) + "/" + name);
            const Bytes bytes = ReadFile(entry.path());
            ++files;
            for (const int32_t format : {folder.format, int32_t(luxPersistFormatAny)}) {
                const LoadOutcome outcome = HostileLoad::Run(bytes, format);
                EXPECT_TRUE(outcome.Clean()) << outcome.Describe();
                // Seeds say what they are: valid archives load, broken ones fail.
                if (name.starts_with("valid-")) {
                    EXPECT_EQ(outcome.result, S_OK) << outcome.Describe();
                }
                if (name.starts_with("broken-")) {
                    EXPECT_TRUE(FAILED(outcome.result)) << outcome.Describe();
                }
            }
            valid += name.starts_with("valid-");
            broken += name.starts_with("broken-");
        }
        EXPECT_GE(valid, 8u) << folder.name;
        EXPECT_GE(broken, 5u) << folder.name;
        EXPECT_GE(files, valid + broken);
    }
}

TEST_F(HostileInputTest, EveryTruncationOfAValidArchiveFailsCleanly) {
    for (const int32_t format : {luxPersistFormatBinary, luxPersistFormatXML, luxPersistFormatXMLWithLineBreaks,
                                 luxPersistFormatSoap}) {
        const Bytes bytes = SaveAndRelease(Graph(), format);
        SCOPED_TRACE("format " + std::to_string(format));
        ASSERT_GT(bytes.size(), 200u);
        const LoadOutcome whole = HostileLoad::Run(bytes, format);
        EXPECT_EQ(whole.result, S_OK) << whole.Describe();
        EXPECT_EQ(whole.leftAlive, 0);
        // The line-break form ends with a line break after the top element; without it the
        // document is still whole.
        size_t complete = bytes.size();
        while (complete > 0 && (bytes[complete - 1] == '\r' || bytes[complete - 1] == '\n')) --complete;
        size_t failures = 0;
        for (size_t size = 0; size < bytes.size(); ++size) {
            const std::span<const uint8_t> prefix(bytes.data(), size);
            for (const int32_t as : {format, int32_t(luxPersistFormatAny)}) {
                const LoadOutcome outcome = HostileLoad::Run(prefix, as);
                if (size >= complete) {
                    EXPECT_EQ(outcome.result, S_OK) << size << ": " << outcome.Describe();
                    continue;
                }
                const bool binary = format == luxPersistFormatBinary;
                // A cut binary archive runs out of data; a cut document is reported by the
                // text formatters' own messages or, inside a value, as a bad value.
                const bool expectedCode =
                    binary ? outcome.result == e_Lux_BadFileFormat
                           : outcome.result == e_Lux_BadFileFormat ||
                                 (outcome.result >= ids_LuxFormatter_BadFormat &&
                                  outcome.result <= ids_LuxFormatter_CantCreateObject_1);
                if (!expectedCode || !outcome.errorInfo || outcome.leftAlive != 0) {
                    ADD_FAILURE() << "cut at " << size << " of " << bytes.size() << ": " << outcome.Describe();
                    if (++failures == 10) return;
                }
            }
        }
    }
}

TEST_F(HostileInputTest, LengthsAndCountsBeyondTheInputFailBeforeAllocating) {
    // A string that claims 4 GiB, in an archive of about a hundred bytes.
    const Bytes text = BinaryHolding(Variant("HUGE"));
    const Bytes hugeText = Patch(text, Concat({LittleEndian32(4), BytesOf("HUGE")}),
                                 Concat({LittleEndian32(0xFFFFFFFF), BytesOf("HUGE")}));
    EXPECT_LT(hugeText.size(), 128u);
    ExpectRefusedCheaply(hugeText, luxPersistFormatBinary, e_Lux_BadFileFormat, "a 4 GiB string");
    ExpectRefusedCheaply(hugeText, luxPersistFormatAny, e_Lux_BadFileFormat, "a 4 GiB string, format detected");

    // Arrays whose element counts claim 2^32 - 1 elements of each storage kind.
    const Bytes marker = Concat({LittleEndian32(4), LittleEndian32(0)});  // count 4, lower bound 0
    const Bytes huge = Concat({LittleEndian32(0xFFFFFFFF), LittleEndian32(0)});
    const auto fill4 = [](VARTYPE vt) {
        return [vt](void* data) {
            if (vt == VT_UI1) std::fill_n(static_cast<uint8_t*>(data), 4, uint8_t(0xAB));
            if (vt == VT_BSTR) static_cast<BSTR*>(data)[3] = SysAllocString("z");
            if (vt == VT_VARIANT) static_cast<VARIANT*>(data)[3] = Variant(int32_t(9)).Detach();
        };
    };
    for (const VARTYPE vt : {VARTYPE(VT_UI1), VARTYPE(VT_R8), VARTYPE(VT_BSTR), VARTYPE(VT_VARIANT), VARTYPE(VT_DISPATCH)}) {
        const Bytes bytes = Patch(BinaryHolding(Array(vt, 4, fill4(vt))), marker, huge);
        ExpectRefusedCheaply(bytes, luxPersistFormatBinary, e_Lux_BadFileFormat, "2^32 - 1 elements of type " + std::to_string(vt));
    }

    // Two dimensions of 2^20 each: 2^40 elements in all.
    VARIANT square;
    VariantInit(&square);
    const SAFEARRAYBOUND bounds[2] = {{2, 0}, {2, 0}};
    square.vt = VT_ARRAY | VT_I4;
    square.parray = SafeArrayCreate(VT_I4, 2, bounds);
    ASSERT_NE(square.parray, nullptr);
    const Bytes two = Concat({LittleEndian32(2), LittleEndian32(0), LittleEndian32(2), LittleEndian32(0)});
    const Bytes million = Concat({LittleEndian32(1 << 20), LittleEndian32(0), LittleEndian32(1 << 20), LittleEndian32(0)});
    ExpectRefusedCheaply(Patch(BinaryHolding(Variant::Attach(square)), two, million), luxPersistFormatBinary,
                         e_Lux_BadFileFormat, "2^40 elements in two dimensions");
}

TEST_F(HostileInputTest, ArrayBoundsClaimingTwoToTheFortyElementsFailBeforeAllocating) {
    const auto document = [](const std::string& item) {
        return BytesOf("<?xml version=\"1.0\"?><Root xmlns:dt=\"urn:schemas-microsoft-com:datatypes\">"
                       "<Object ProgID=\"Tessaly.LuxCollection.1\" id=\"1\">" + item + "</Object></Root>");
    };
    const std::string square = "0:1048575,0:1048575";  // 2^20 by 2^20
    struct Case {
        const char* what;
        std::string item;
        HRESULT expected;
    };
    const Case cases[] = {
        {"numbers", "<Item0 ArrayType=\"i4\" ArrayBounds=\"" + square + "\">1 2 3</Item0>", e_Lux_BadFileFormat},
        {"variants", "<Item0 ArrayType=\"variant\" ArrayBounds=\"" + square + "\"><Item/><Item/></Item0>",
         e_Lux_BadFileFormat},
        {"strings", "<Item0 ArrayType=\"string\" ArrayBounds=\"" + square + "\"><Item>a</Item></Item0>",
         e_Lux_BadFileFormat},
        {"objects", "<Item0 ArrayType=\"object\" ArrayBounds=\"" + square + "\"><Item idref=\"1\"/></Item0>",
         e_Lux_BadFileFormat},
        {"base64 bytes", "<Item0 ArrayType=\"ui1\" ArrayBounds=\"" + square + "\" dt:dt=\"bin.base64\">AAAA</Item0>",
         ids_LuxFormatter_ShortMime_1},
        {"one dimension of 2^40", "<Item0 ArrayType=\"r8\" ArrayBounds=\"0:1099511627775\">1</Item0>",
         ids_LuxFormatter_InvalidNodeAttrs_1},
        // 2^32 elements: one more than a dimension can count.
        {"the whole 32-bit index range", "<Item0 ArrayType=\"r8\" ArrayBounds=\"-2147483648:2147483647\">1</Item0>",
         ids_LuxFormatter_InvalidNodeAttrs_1},
    };
    for (const Case& test : cases) {
        ExpectRefusedCheaply(document(test.item), luxPersistFormatXML, test.expected, test.what);
        ExpectRefusedCheaply(document(test.item), luxPersistFormatAny, test.expected, std::string(test.what) + ", detected");
    }
}

TEST_F(HostileInputTest, HundredThousandNestedElementsFailWithoutExhaustingTheStack) {
    constexpr int kLevels = 100000;
    const std::string head = "<Root><Object ProgID=\"Tessaly.LuxCollection\" id=\"1\">";
    const std::string tail = "</Object></Root>";
    const auto repeat = [](std::string_view unit, int times) {
        std::string text;
        text.reserve(unit.size() * times);
        for (int i = 0; i < times; ++i) text += unit;
        return text;
    };
    // Elements after the root object (skipped, but their syntax is checked), objects in
    // objects, arrays of variants in arrays, and objects that never end.
    const std::string skipped = "<Root><Object ProgID=\"Tessaly.LuxCollection\" id=\"1\"/>" + repeat("<a>", kLevels) +
                                repeat("</a>", kLevels) + "</Root>";
    const std::string objects = head + repeat("<Item0 ProgID=\"Tessaly.LuxCollection\">", kLevels) +
                                repeat("</Item0>", kLevels) + tail;
    const std::string arrays = head + repeat("<Item0 ArrayType=\"variant\">", kLevels) + repeat("</Item0>", kLevels) + tail;
    const std::string unclosed = head + repeat("<Item0 ProgID=\"Tessaly.LuxCollection\">", kLevels);
    for (const std::string* text : {&skipped, &objects, &arrays, &unclosed}) {
        const LoadOutcome outcome = HostileLoad::Run(BytesOf(*text), luxPersistFormatXML);
        EXPECT_EQ(outcome.result, ids_LuxFormatter_BadFormat) << outcome.Describe();
        EXPECT_TRUE(outcome.errorInfo);
        EXPECT_EQ(outcome.leftAlive, 0);
    }

    // The same in the binary format: each level an entry holding a new object.
    const Bytes flat = BinaryHolding(Variant(int32_t(1)));
    const Bytes entry = Concat({Bytes{1}, LittleEndian32(5), BytesOf("Item0")});  // a value named Item0
    // The archive up to its first value, and the class record every later object reuses.
    const auto first = std::search(flat.begin(), flat.end(), entry.begin(), entry.end());
    ASSERT_NE(first, flat.end());
    Bytes deep(flat.begin(), first);
    for (uint32_t id = 2; id <= kLevels; ++id) {
        const Bytes level = Concat({entry, Bytes{VT_DISPATCH, 0, 2}, LittleEndian32(id), LittleEndian32(0), Bytes{1}});
        deep.insert(deep.end(), level.begin(), level.end());
    }
    deep.insert(deep.end(), kLevels, 0);  // every object's end of values
    deep.push_back(0xFF);                 // the end of the archive
    const LoadOutcome outcome = HostileLoad::Run(deep, luxPersistFormatBinary);
    EXPECT_EQ(outcome.result, e_Lux_BadFileFormat) << outcome.Describe();
    EXPECT_NE(outcome.description.find("nested deeper"), std::string::npos) << outcome.description;
    EXPECT_EQ(outcome.leftAlive, 0);

    // Shallow enough, the same construction loads: the refusal above is the depth's.
    Bytes shallow(flat.begin(), first);
    for (uint32_t id = 2; id <= 100; ++id) {
        const Bytes level = Concat({entry, Bytes{VT_DISPATCH, 0, 2}, LittleEndian32(id), LittleEndian32(0), Bytes{1}});
        shallow.insert(shallow.end(), level.begin(), level.end());
    }
    shallow.insert(shallow.end(), 100, 0);
    shallow.push_back(0xFF);
    const LoadOutcome loaded = HostileLoad::Run(shallow, luxPersistFormatBinary);
    EXPECT_EQ(loaded.result, S_OK) << loaded.Describe();
    EXPECT_EQ(loaded.leftAlive, 0);
}

TEST_F(HostileInputTest, LongChainsOfObjectsLoadSaveAndReleaseCleanly) {
    // 100,000 objects side by side, each holding the one before, and the root holding the
    // last: the document nests three levels, the graph 100,000.
    constexpr int kObjects = 100000;
    std::string text = "<Root><Object ProgID=\"Tessaly.LuxCollection\" id=\"1\"><Chain ProgID=\"Tessaly.LuxCollection\" id=\"2\">"
                       "<Item0 ProgID=\"Tessaly.LuxCollection\" id=\"3\"/>";
    for (int id = 4; id <= kObjects; ++id)
        text += "<Item" + std::to_string(id - 3) + " ProgID=\"Tessaly.LuxCollection\" id=\"" + std::to_string(id) +
                "\"><Item0 idref=\"" + std::to_string(id - 1) + "\"/></Item" + std::to_string(id - 3) + ">";
    text += "</Chain><Item0 idref=\"" + std::to_string(kObjects) + "\"/></Object></Root>";
    const Bytes document = BytesOf(text);

    const LoadOutcome outcome = HostileLoad::Run(document, luxPersistFormatXML);
    EXPECT_EQ(outcome.result, S_OK) << outcome.Describe();
    EXPECT_EQ(outcome.leftAlive, 0);

    // Released as a client releases it, the chain goes object by object; saving it stops
    // at the formatters' nesting limit.
    const LONG before = Module::LiveObjectCount();
    {
        ComPtr<IDispatch> root;
        ASSERT_EQ(LoadObjectFromBytes(document, luxPersistFormatXML, root.Out()), S_OK);
        // All but the unread Chain; nobody listens, so no holder links its item yet.
        EXPECT_EQ(Module::LiveObjectCount(), before + (kObjects - 1));
        for (const int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
            Bytes saved;
            EXPECT_EQ(SaveObjectToBytes(root.get(), format, luxPersistOptionAll, &saved), ids_LuxFormatter_CantSaveObject_2);
            EXPECT_TRUE(saved.empty());
        }
    }
    EXPECT_EQ(Module::LiveObjectCount(), before);
}

TEST_F(HostileInputTest, ReleasingAChainOfObjectsTakesBoundedStack) {
    // Each collection the last holder of the one before: releasing the head destroys them
    // all, one inside the other's destruction unless the runtime defers them.
    constexpr int kObjects = 200000;
    const LONG before = Module::LiveObjectCount();
    {
        ComPtr<ILuxCollection> head = NewCollection();
        for (int i = 1; i < kObjects; ++i) {
            ComPtr<ILuxCollection> next = NewCollection();
            Add(next.get(), Object(head));
            head = std::move(next);
        }
        // The collections; nobody listens, so no holder links its item.
        EXPECT_EQ(Module::LiveObjectCount(), before + kObjects);
    }
    EXPECT_EQ(Module::LiveObjectCount(), before);
}

TEST_F(HostileInputTest, ObjectsThatHoldThemselvesAreFreedWhateverTheLoadsOutcome) {
    // An object that holds itself, in a value the root never reads (the name is no item's),
    // and then in a document that fails after the object was complete.
    const std::string selfHolding = "<Unread ProgID=\"Tessaly.LuxCollection\" id=\"2\"><Item0 idref=\"2\"/></Unread>";
    const std::string unread = "<Root><Object ProgID=\"Tessaly.LuxCollection\" id=\"1\">" + selfHolding + "</Object></Root>";
    const std::string failing = "<Root><Object ProgID=\"Tessaly.LuxCollection\" id=\"1\">" + selfHolding +
                                "<Item0 dt:dt=\"i4\">x</Item0></Object></Root>";
    LoadOutcome outcome = HostileLoad::Run(BytesOf(unread), luxPersistFormatXML);
    EXPECT_EQ(outcome.result, S_OK) << outcome.Describe();
    EXPECT_EQ(outcome.leftAlive, 0);
    outcome = HostileLoad::Run(BytesOf(failing), luxPersistFormatXML);
    EXPECT_EQ(outcome.result, e_Lux_BadFileFormat) << outcome.Describe();
    EXPECT_EQ(outcome.leftAlive, 0);

    // The same in binary: a collection holding itself under the name Unread, and one cut
    // before the archive's end.
    auto inner = NewCollection();
    Add(inner.get(), Object(inner));
    const Bytes saved = BinaryHolding(Object(inner));
    HostileLoad::Release(ComPtr<IDispatch>(static_cast<IDispatch*>(inner.get())));
    const Bytes renamed = Patch(saved, Concat({LittleEndian32(5), BytesOf("Item0"), Bytes{VT_DISPATCH, 0, 2}}),
                                Concat({LittleEndian32(5), BytesOf("Unrd0"), Bytes{VT_DISPATCH, 0, 2}}));
    outcome = HostileLoad::Run(renamed, luxPersistFormatBinary);
    EXPECT_EQ(outcome.result, S_OK) << outcome.Describe();
    EXPECT_EQ(outcome.leftAlive, 0);
    outcome = HostileLoad::Run(std::span(saved.data(), saved.size() - 1), luxPersistFormatBinary);
    EXPECT_EQ(outcome.result, e_Lux_BadFileFormat) << outcome.Describe();
    EXPECT_EQ(outcome.leftAlive, 0);
}

// A SOAP envelope whose body holds `objects`, the namespaces as the formatter writes them.
Bytes Envelope(const std::string& objects) {
    return BytesOf("<?xml version=\"1.0\"?>\r\n<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\" "
                   "xmlns:SOAP-ENC=\"http://schemas.xmlsoap.org/soap/encoding/\" "
                   "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
                   "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" xmlns:lux=\"urn:schemas-tessaly:classes\" "
                   "SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><SOAP-ENV:Body>" +
                   objects + "</SOAP-ENV:Body></SOAP-ENV:Envelope>");
}

// A SOAP envelope whose root collection holds `values`.
Bytes SoapCollection(const std::string& values) {
    return Envelope("<lux:LuxCollection id=\"ref-1\" lux:class=\"Tessaly.LuxCollection.1\">" + values +
                    "</lux:LuxCollection>");
}

TEST_F(HostileInputTest, SoapArrayTypesClaimingTwoToTheFortyElementsFailBeforeAllocating) {
    const std::string square = "[1048576,1048576]";  // 2^20 by 2^20
    struct Case {
        const char* what;
        std::string item;
        HRESULT expected;
    };
    const Case cases[] = {
        {"numbers", "<Item0 SOAP-ENC:arrayType=\"xsd:int" + square + "\"><item>1</item></Item0>", e_Lux_BadFileFormat},
        {"variants", "<Item0 SOAP-ENC:arrayType=\"xsd:anyType" + square + "\"><item/><item/></Item0>",
         e_Lux_BadFileFormat},
        {"strings", "<Item0 SOAP-ENC:arrayType=\"xsd:string" + square + "\"><item>a</item></Item0>",
         e_Lux_BadFileFormat},
        {"objects", "<Item0 SOAP-ENC:arrayType=\"lux:object" + square + "\"><item href=\"#ref-1\"/></Item0>",
         e_Lux_BadFileFormat},
        {"base64 bytes",
         "<Item0 xsi:type=\"xsd:base64Binary\" SOAP-ENC:arrayType=\"xsd:unsignedByte" + square + "\">AAAA</Item0>",
         ids_LuxFormatter_ShortMime_1},
        {"one dimension of 2^40", "<Item0 SOAP-ENC:arrayType=\"xsd:double[1099511627776]\"><item>1</item></Item0>",
         ids_LuxFormatter_InvalidNodeAttrs_1},
        {"a dimension past the 32-bit index range",
         "<Item0 SOAP-ENC:arrayType=\"xsd:double[4294967295]\" lux:lowerBounds=\"1\"><item>1</item></Item0>",
         ids_LuxFormatter_InvalidNodeAttrs_1},
        {"65,536 dimensions", "<Item0 SOAP-ENC:arrayType=\"xsd:int[" + [] {
             std::string many = "1";
             for (int i = 1; i < 65536; ++i) many += ",1";
             return many;
         }() + "]\"><item>1</item></Item0>",
         ids_LuxFormatter_InvalidNodeAttrs_1},
    };
    for (const Case& test : cases) {
        ExpectRefusedCheaply(SoapCollection(test.item), luxPersistFormatSoap, test.expected, test.what);
        ExpectRefusedCheaply(SoapCollection(test.item), luxPersistFormatAny, test.expected,
                             std::string(test.what) + ", detected");
    }
}

TEST_F(HostileInputTest, HundredThousandNestedSoapArraysFailWithoutExhaustingTheStack) {
    constexpr int kLevels = 100000;
    const auto repeat = [](std::string_view unit, int times) {
        std::string text;
        text.reserve(unit.size() * times);
        for (int i = 0; i < times; ++i) text += unit;
        return text;
    };
    const std::string open = repeat("<item SOAP-ENC:arrayType=\"xsd:anyType[1]\">", kLevels);
    const Bytes nested = SoapCollection("<Item0 SOAP-ENC:arrayType=\"xsd:anyType[1]\">" + open +
                                        repeat("</item>", kLevels) + "</Item0>");
    const Bytes unclosed = SoapCollection("<Item0 SOAP-ENC:arrayType=\"xsd:anyType[1]\">" + open);
    const Bytes header = Envelope("").size() ? BytesOf("<SOAP-ENV:Envelope><SOAP-ENV:Header>" + repeat("<a>", kLevels) +
                                                       repeat("</a>", kLevels) + "</SOAP-ENV:Header></SOAP-ENV:Envelope>")
                                             : Bytes();
    for (const Bytes* bytes : {&nested, &unclosed, &header}) {
        const LoadOutcome outcome = HostileLoad::Run(*bytes, luxPersistFormatSoap);
        EXPECT_EQ(outcome.result, ids_LuxFormatter_BadFormat) << outcome.Describe();
        EXPECT_TRUE(outcome.errorInfo);
        EXPECT_EQ(outcome.leftAlive, 0);
    }
}

TEST_F(HostileInputTest, SoapChainOfHundredThousandForwardReferencesLoadsAndSavesFlat) {
    // Each object refers to the next, not read yet: every reference is resolved at the end.
    // The graph nests 100,000 deep, the document three levels, and SOAP saves it as it
    // loaded it, where the nesting formats stop at their limit.
    constexpr int kObjects = 100000;
    std::string body = "<lux:LuxCollection id=\"ref-1\" lux:class=\"Tessaly.LuxCollection.1\"><Item0 href=\"#ref-2\"/>"
                       "</lux:LuxCollection>";
    for (int id = 2; id < kObjects; ++id)
        body += "<lux:LuxCollection id=\"ref-" + std::to_string(id) + "\"><Item0 href=\"#ref-" + std::to_string(id + 1) +
                "\"/></lux:LuxCollection>";
    body += "<lux:LuxCollection id=\"ref-" + std::to_string(kObjects) + "\"/>";
    const Bytes document = Envelope(body);
    const LoadOutcome outcome = HostileLoad::Run(document, luxPersistFormatSoap);
    EXPECT_EQ(outcome.result, S_OK) << outcome.Describe();
    EXPECT_EQ(outcome.leftAlive, 0);

    const LONG before = Module::LiveObjectCount();
    {
        ComPtr<IDispatch> root;
        ASSERT_EQ(LoadObjectFromBytes(document, luxPersistFormatAny, root.Out()), S_OK);
        EXPECT_EQ(Module::LiveObjectCount(), before + kObjects);
        Bytes saved;
        EXPECT_EQ(SaveObjectToBytes(root.get(), luxPersistFormatSoap, luxPersistOptionAll, &saved), S_OK);
        EXPECT_TRUE(saved == document) << "saved " << saved.size() << " bytes of " << document.size();
        EXPECT_EQ(SaveObjectToBytes(root.get(), luxPersistFormatXML, luxPersistOptionAll, &saved),
                  ids_LuxFormatter_CantSaveObject_2);
    }
    EXPECT_EQ(Module::LiveObjectCount(), before);

    // The same chain with its last object missing: nothing is loaded, nothing left alive.
    const std::string last = "<lux:LuxCollection id=\"ref-" + std::to_string(kObjects) + "\"/>";
    const LoadOutcome missing =
        HostileLoad::Run(Envelope(body.substr(0, body.size() - last.size())), luxPersistFormatSoap);
    EXPECT_EQ(missing.result, ids_LuxFormatter_UnsresolvedHref_1) << missing.Describe();
    EXPECT_EQ(missing.leftAlive, 0);
}

TEST_F(HostileInputTest, SoapObjectsNoOneKeepsAreFreedWhateverTheirReferences) {
    // An object that holds itself under a name the root never reads; two that hold each
    // other and nobody refers to; one nobody refers to; and the cycle again in an envelope
    // that fails after every object was read.
    const std::string cycles =
        "<lux:LuxCollection id=\"ref-1\" lux:class=\"Tessaly.LuxCollection.1\"><Unread href=\"#ref-2\"/>"
        "<Item0>1</Item0></lux:LuxCollection>"
        "<lux:LuxCollection id=\"ref-2\"><Item0 href=\"#ref-2\"/></lux:LuxCollection>"
        "<lux:LuxCollection id=\"ref-3\"><Item0 href=\"#ref-4\"/></lux:LuxCollection>"
        "<lux:LuxCollection id=\"ref-4\"><Item0 href=\"#ref-3\"/></lux:LuxCollection>"
        "<lux:LuxCollection id=\"ref-5\"><Item0>5</Item0></lux:LuxCollection>";
    LoadOutcome outcome = HostileLoad::Run(Envelope(cycles), luxPersistFormatSoap);
    EXPECT_EQ(outcome.result, S_OK) << outcome.Describe();
    EXPECT_EQ(outcome.leftAlive, 0);
    outcome = HostileLoad::Run(Envelope(cycles + "<lux:LuxCollection id=\"ref-6\"><Item0 href=\"#ref-9\"/>"
                                                 "</lux:LuxCollection>"),
                               luxPersistFormatSoap);
    EXPECT_EQ(outcome.result, ids_LuxFormatter_UnsresolvedHref_1) << outcome.Describe();
    EXPECT_EQ(outcome.leftAlive, 0);
    // Without a cycle: objects the root does not reach go with the load.
    outcome = HostileLoad::Run(Envelope("<lux:LuxCollection id=\"ref-1\" lux:class=\"Tessaly.LuxCollection.1\">"
                                        "<Unread href=\"#ref-2\"/></lux:LuxCollection>"
                                        "<lux:LuxCollection id=\"ref-2\"><Item0 href=\"#ref-3\"/></lux:LuxCollection>"
                                        "<lux:LuxCollection id=\"ref-3\"/><lux:LuxCollection id=\"ref-4\"/>"),
                               luxPersistFormatSoap);
    EXPECT_EQ(outcome.result, S_OK) << outcome.Describe();
    EXPECT_EQ(outcome.leftAlive, 0);
}

TEST_F(HostileInputTest, AllocationCounterSeesTheLibrarysAllocations) {
    // The instrument itself: what the library allocates through malloc and calloc (strings,
    // arrays) and through operator new is all counted, so a bound the tests above check
    // cannot pass by missing an allocation.
    AllocationCounter counter;
    SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, 3 << 20);
    ASSERT_NE(array, nullptr);
    EXPECT_GE(counter.Largest(), size_t(3) << 20);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
    const size_t afterArray = counter.Bytes();
    SysFreeString(SysAllocStringLen(nullptr, 200000));
    EXPECT_GE(counter.Bytes() - afterArray, 200000u);
    const size_t afterString = counter.Bytes();
    auto vector = std::make_unique<std::vector<char>>(300000, 'v');
    SysFreeString(SysAllocStringLen(vector->data(), 4));  // the block escapes: it must exist
    EXPECT_GE(counter.Bytes() - afterString, 300000u);
}

}  // namespace
}  // namespace tessaly::test
