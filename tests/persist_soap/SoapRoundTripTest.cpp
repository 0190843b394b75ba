// Graphs that go through SOAP and come back equal: every class of the class table that
// persists, every scalar type bit for bit, and conversions between SOAP, XML and binary;
// the one-call functions and format detection with SOAP among the formats.
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "com/core/ObjectPersistence.h"
#include "persist_soap/SoapFixture.h"
#include "platform/ClassTable.h"
#include "platform/SafeArray.h"
#include "platform/StandardInterfaces.h"

namespace tessaly::test {
namespace {

std::vector<uint8_t> Bytes(std::string_view text) { return std::vector<uint8_t>(text.begin(), text.end()); }

// Bytes of `object` saved in `format` through the one-call function.
std::vector<uint8_t> SaveAs(IDispatch* object, int32_t format) {
    std::vector<uint8_t> bytes;
    EXPECT_EQ(SaveObjectToBytes(object, format, luxPersistOptionAll, &bytes), S_OK);
    return bytes;
}

ComPtr<IDispatch> LoadAs(const std::vector<uint8_t>& bytes, int32_t format) {
    ComPtr<IDispatch> object;
    EXPECT_EQ(LoadObjectFromBytes(bytes, format, object.Out()), S_OK);
    return object;
}

TEST_F(SoapFormatterTest, EveryPersistableClassOfTheClassTableRoundTripsBitForBit) {
    // A default object of each class, and the same object as the value of a collection (so
    // that it is saved as a body element after the root): SOAP gives back what binary saved,
    // and saving the loaded graph as SOAP again gives the same document.
    size_t persistable = 0;
    for (const ClassEntry& entry : ClassTable::Entries()) {
        if (!entry.create) continue;
        ComPtr<IUnknown> made;
        ASSERT_EQ(entry.create(IUnknown::iid, made.OutVoid()), S_OK) << entry.coclass->name;
        ComPtr<IUnknown> archived;
        ComPtr<IUnknown> streamed;
        made->QueryInterface(ILuxPersistArchive::iid, archived.OutVoid());
        made->QueryInterface(IPersistStream::iid, streamed.OutVoid());
        ComPtr<IDispatch> object;
        if ((!archived && !streamed) || FAILED(made->QueryInterface(IDispatch::iid, object.OutVoid()))) continue;
        ++persistable;
        const char* name = entry.coclass->name;
        auto holder = NewCollection();
        ASSERT_EQ(Add(holder.get(), Variant(object.get()), "held"), S_OK);
        for (IDispatch* root : {object.get(), static_cast<IDispatch*>(holder.get())}) {
            const std::string document = Save(root);
            Loaded loaded = Load(document);
            ASSERT_EQ(loaded.result, S_OK) << name << ": " << loaded.error.description << "\n" << document;
            EXPECT_TRUE(loaded.warnings.empty()) << name << ": " << loaded.warnings.front();
            EXPECT_EQ(Binary(loaded.object.get()), Binary(root)) << name;
            EXPECT_EQ(Save(loaded.object.get()), document) << name;
            Release(loaded.object);
        }
        ASSERT_EQ(holder->Clear(), S_OK);
    }
    EXPECT_GE(persistable, 10u);
}

TEST_F(SoapFormatterTest, EveryScalarTypeComesBackBitForBit) {
    std::vector<Variant> values;
    const auto add = [&](VARTYPE vt, auto value) {
        VARIANT v;
        VariantInit(&v);
        v.vt = vt;
        std::memcpy(&v.llVal, &value, sizeof value);
        values.push_back(Variant::Attach(v));
    };
    add(VT_I1, int8_t(-128));
    add(VT_UI1, uint8_t(255));
    add(VT_I2, int16_t(-32768));
    add(VT_UI2, uint16_t(65535));
    add(VT_I4, int32_t(-2147483647 - 1));
    add(VT_UI4, uint32_t(4294967295u));
    add(VT_I8, std::numeric_limits<int64_t>::min());
    add(VT_UI8, std::numeric_limits<uint64_t>::max());
    add(VT_INT, int32_t(7));
    add(VT_UINT, uint32_t(8));
    add(VT_R4, std::numeric_limits<float>::denorm_min());
    add(VT_R4, -std::numeric_limits<float>::infinity());
    add(VT_R4, 0.1f);
    add(VT_R8, std::numeric_limits<double>::denorm_min());
    add(VT_R8, std::nextafter(1.0, 2.0));
    add(VT_R8, -0.0);
    add(VT_R8, 100.0);
    add(VT_R8, std::numeric_limits<double>::quiet_NaN());
    add(VT_CY, std::numeric_limits<int64_t>::min());
    add(VT_DATE, 45351.520833333336);
    add(VT_DATE, -0.25);
    add(VT_BOOL, VARIANT_TRUE);
    add(VT_ERROR, int32_t(0x80004005));
    add(VT_EMPTY, int32_t(0));
    add(VT_NULL, int32_t(0));
    values.emplace_back("tab\tcr\rlf\n\x01 \xC3\xA9 ]]> &amp;");
    values.emplace_back(" 42 ");
    values.emplace_back("false");
    values.emplace_back("-1.5e-3");
    auto list = NewCollection();
    for (const Variant& value : values) ASSERT_EQ(Add(list.get(), value), S_OK);
    for (const char* layout : {"", "LineBreaks"}) {
        const std::string document = Save(list.get(), layout);
        const Loaded loaded = Load(document);
        ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
        EXPECT_EQ(Binary(loaded.object.get()), Binary(list.get())) << document;
    }
}

TEST_F(SoapFormatterTest, ConversionsBetweenSoapXmlAndBinaryGiveEqualGraphs) {
    auto root = NewCollection();
    auto inner = NewCollection();
    auto strings = NewStrings();
    ASSERT_EQ(strings->Add(Bstr("one").get(), Bstr("k").get(), luxNoIndex), S_OK);
    ASSERT_EQ(Add(inner.get(), Variant(static_cast<IDispatch*>(inner.get()))), S_OK);
    ASSERT_EQ(Add(inner.get(), Variant(static_cast<IDispatch*>(strings.get())), "strings"), S_OK);
    ASSERT_EQ(Add(root.get(), Variant(static_cast<IDispatch*>(inner.get())), "inner"), S_OK);
    ASSERT_EQ(Add(root.get(), Variant(static_cast<IDispatch*>(strings.get()))), S_OK);
    ASSERT_EQ(Add(root.get(), Variant(2.5)), S_OK);
    ASSERT_EQ(Add(root.get(), Variant("7")), S_OK);
    const std::vector<uint8_t> reference = SaveAs(root.get(), luxPersistFormatBinary);

    // SOAP -> XML -> binary -> SOAP, and XML -> SOAP, each step loaded from the last.
    const int32_t chain[] = {luxPersistFormatSoap, luxPersistFormatXML, luxPersistFormatBinary, luxPersistFormatSoap,
                             luxPersistFormatXMLWithLineBreaks, luxPersistFormatSoap};
    ComPtr<IDispatch> current(static_cast<IDispatch*>(root.get()));
    std::vector<uint8_t> firstSoap;
    for (const int32_t format : chain) {
        const std::vector<uint8_t> saved = SaveAs(current.get(), format);
        if (format == luxPersistFormatSoap && firstSoap.empty()) firstSoap = saved;
        if (format == luxPersistFormatSoap) {
            EXPECT_EQ(saved, firstSoap) << "the SOAP document is the same every time";
        }
        ComPtr<IDispatch> loaded = LoadAs(saved, luxPersistFormatAny);
        ASSERT_TRUE(loaded) << format;
        EXPECT_EQ(SaveAs(loaded.get(), luxPersistFormatBinary), reference) << format;
        if (current.get() != static_cast<IDispatch*>(root.get())) Release(current);
        current = loaded;
    }
    Release(current);
    ASSERT_EQ(inner->Clear(), S_OK);
}

TEST_F(SoapFormatterTest, FormatAnyTellsSoapFromXmlAndBinary) {
    const auto detect = [](std::string_view head) { return DetectPersistFormat(Bytes(head)); };
    EXPECT_EQ(detect("<?xml version=\"1.0\"?>\r\n<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"x\">"), luxPersistFormatSoap);
    EXPECT_EQ(detect("\xEF\xBB\xBF  <SOAP-ENV:Envelope>"), luxPersistFormatSoap);
    EXPECT_EQ(detect("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\t<SOAP-ENV:Envelope"), luxPersistFormatSoap);
    EXPECT_EQ(detect("<?xml version=\"1.0\"?>\r\n<Root xmlns:dt=\"urn:schemas-microsoft-com:datatypes\">"),
              luxPersistFormatXML);
    EXPECT_EQ(detect("<SOAP-ENV:Envelopes>"), luxPersistFormatSoap) << "the reader refuses it with its message";
    EXPECT_EQ(detect("<?xml version=\"1.0\"?><!-- saved --><?pi?>\n<SOAP-ENV:Envelope>"), luxPersistFormatSoap);
    EXPECT_EQ(detect("<?xml version=\"1.0\"?><!-- never closed <SOAP-ENV:Envelope>"), luxPersistFormatXML);
    EXPECT_EQ(detect("<?xml version=\"1.0\"?><soap:Envelope>"), luxPersistFormatXML);
    EXPECT_EQ(detect("<?xml version=\"1.0\""), luxPersistFormatXML);
    EXPECT_EQ(detect("\x89TSA"), luxPersistFormatBinary);
    EXPECT_EQ(detect(""), luxPersistFormatBinary);

    // Each format loads through Any; a SOAP document refused by the XML reader says so.
    auto list = NewCollection();
    ASSERT_EQ(Add(list.get(), Variant(3)), S_OK);
    for (const int32_t format : {luxPersistFormatSoap, luxPersistFormatXML, luxPersistFormatBinary}) {
        ComPtr<IDispatch> loaded = LoadAs(SaveAs(list.get(), format), luxPersistFormatAny);
        ASSERT_TRUE(loaded) << format;
        EXPECT_EQ(Binary(loaded.get()), Binary(list.get())) << format;
    }
    ComPtr<IDispatch> object;
    EXPECT_EQ(LoadObjectFromBytes(SaveAs(list.get(), luxPersistFormatSoap), luxPersistFormatXML, object.Out()),
              ids_LuxFormatter_InvalidNodeObject);
    EXPECT_FALSE(object);
    EXPECT_EQ(LoadObjectFromBytes(SaveAs(list.get(), luxPersistFormatXML), luxPersistFormatSoap, object.Out()),
              ids_LuxFormatter_InvalidNodeObject);
    EXPECT_FALSE(object);
}

}  // namespace
}  // namespace tessaly::test
