// Values through LuxXMLFormatter: every VARIANT type the runtime holds comes back with its
// type and its bits, arrays of every element type with any dimensions and lower bounds,
// and the large byte block.
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "persist_xml/XmlFormatterFixture.h"
#include "platform/SafeArray.h"

namespace tessaly::test {
namespace {

template <class T>
Variant Scalar(VARTYPE vt, T value) {
    VARIANT v;
    VariantInit(&v);
    v.vt = vt;
    std::memcpy(&v.llVal, &value, sizeof value);
    return Variant::Attach(v);
}

// An array of `vt` with the bounds given left-most first, filled by `fill(index, element)`.
template <class Fill>
Variant Array(VARTYPE vt, std::initializer_list<SAFEARRAYBOUND> bounds, Fill fill) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_ARRAY | vt;
    v.parray = SafeArrayCreate(vt, static_cast<UINT>(bounds.size()), bounds.begin());
    EXPECT_NE(v.parray, nullptr);
    auto* data = static_cast<uint8_t*>(v.parray->pvData);
    for (size_t i = 0; i < SafeArrayElementCount(v.parray); ++i) fill(i, data + i * v.parray->cbElements);
    return Variant::Attach(v);
}

class XmlValuesTest : public XmlFormatterTest {
protected:
    // The marker after a save and a load of a point holding `value`, in both layouts (which
    // must agree); `document` receives the plain one.
    Variant RoundTrip(const Variant& value, std::string* document = nullptr) {
        auto point = NewPoint(0, 0, value);
        const std::string plain = Save(point.get());
        if (document) *document = plain;
        const Loaded loaded = Load(plain);
        EXPECT_EQ(loaded.result, S_OK) << loaded.error.description << "\n" << plain;
        if (FAILED(loaded.result)) return Variant();
        Variant marker = Marker(loaded.object.As<ITestPoint>().get());
        const Loaded lines = Load(Save(point.get(), "LineBreaks"));
        EXPECT_EQ(lines.result, S_OK) << lines.error.description;
        if (SUCCEEDED(lines.result)) {
            EXPECT_EQ(Dump(Marker(lines.object.As<ITestPoint>().get()).get()), Dump(marker.get()));
        }
        return marker;
    }
};

TEST_F(XmlValuesTest, EveryScalarTypeKeepsItsTypeAndBits) {
    struct Case {
        Variant value;
        const char* element;  // how the document writes it
    };
    const Case cases[] = {
        {Variant(), "<Marker dt:dt=\"empty\"/>"},
        {Scalar<int64_t>(VT_NULL, 0), "<Marker dt:dt=\"null\"/>"},
        {Scalar<int8_t>(VT_I1, -128), "<Marker dt:dt=\"i1\">-128</Marker>"},
        {Scalar<uint8_t>(VT_UI1, 255), "<Marker dt:dt=\"ui1\">255</Marker>"},
        {Scalar<int16_t>(VT_I2, -32768), "<Marker dt:dt=\"i2\">-32768</Marker>"},
        {Scalar<uint16_t>(VT_UI2, 65535), "<Marker dt:dt=\"ui2\">65535</Marker>"},
        {Scalar<int32_t>(VT_I4, INT32_MIN), "<Marker dt:dt=\"i4\">-2147483648</Marker>"},
        {Scalar<uint32_t>(VT_UI4, UINT32_MAX), "<Marker dt:dt=\"ui4\">4294967295</Marker>"},
        {Scalar<int64_t>(VT_I8, INT64_MIN), "<Marker dt:dt=\"i8\">-9223372036854775808</Marker>"},
        {Scalar<uint64_t>(VT_UI8, UINT64_MAX), "<Marker dt:dt=\"ui8\">18446744073709551615</Marker>"},
        {Scalar<int32_t>(VT_INT, -5), "<Marker dt:dt=\"int\">-5</Marker>"},
        {Scalar<uint32_t>(VT_UINT, 7), "<Marker dt:dt=\"uint\">7</Marker>"},
        {Scalar<float>(VT_R4, 0.1f), "<Marker dt:dt=\"r4\">0.1</Marker>"},
        {Scalar<float>(VT_R4, -0.0f), "<Marker dt:dt=\"r4\">-0</Marker>"},
        {Scalar<float>(VT_R4, std::numeric_limits<float>::denorm_min()), "<Marker dt:dt=\"r4\">1e-45</Marker>"},
        {Scalar<double>(VT_R8, 1.0 / 3.0), "<Marker dt:dt=\"r8\">0.3333333333333333</Marker>"},
        {Scalar<double>(VT_R8, std::numeric_limits<double>::max()),
         "<Marker dt:dt=\"r8\">1.7976931348623157e+308</Marker>"},
        {Scalar<double>(VT_R8, HUGE_VAL), "<Marker dt:dt=\"r8\">1.#INF</Marker>"},
        {Scalar<double>(VT_R8, -HUGE_VAL), "<Marker dt:dt=\"r8\">-1.#INF</Marker>"},
        {Scalar<int64_t>(VT_CY, INT64_MIN), "<Marker dt:dt=\"fixed.14.4\">-922337203685477.5808</Marker>"},
        {Scalar<int64_t>(VT_CY, 15000), "<Marker dt:dt=\"fixed.14.4\">1.5</Marker>"},
        {Scalar<double>(VT_DATE, 36526.5), "<Marker dt:dt=\"dateTime\">2000-01-01T12:00:00</Marker>"},
        {Scalar<double>(VT_DATE, -0.25), "<Marker dt:dt=\"dateTime\">-0.25</Marker>"},
        {Scalar<int16_t>(VT_BOOL, VARIANT_TRUE), "<Marker dt:dt=\"boolean\">1</Marker>"},
        {Scalar<int16_t>(VT_BOOL, VARIANT_FALSE), "<Marker dt:dt=\"boolean\">0</Marker>"},
        {Scalar<int32_t>(VT_ERROR, E_FAIL), "<Marker dt:dt=\"error\">-2147467259</Marker>"},
        {Variant("text"), "<Marker>text</Marker>"},
        {Variant(""), "<Marker/>"},
    };
    for (const Case& c : cases) {
        std::string document;
        const Variant back = RoundTrip(c.value, &document);
        EXPECT_NE(document.find(c.element), std::string::npos) << document;
        EXPECT_EQ(Dump(back.get()), Dump(c.value.get())) << c.element;
    }
    // NaN keeps its sign; its payload is not kept.
    for (const double nan : {std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::quiet_NaN()}) {
        std::string document;
        const Variant back = RoundTrip(Scalar(VT_R8, nan), &document);
        EXPECT_NE(document.find(std::signbit(nan) ? ">-1.#QNAN<" : ">1.#QNAN<"), std::string::npos);
        ASSERT_EQ(back.vt(), VT_R8);
        EXPECT_TRUE(std::isnan(back.get().dblVal));
        EXPECT_EQ(std::signbit(back.get().dblVal), std::signbit(nan));
    }
}

TEST_F(XmlValuesTest, ObjectsAndNothingRoundTrip) {
    auto inner = NewPoint(3, 4, Variant("in"));
    const Variant object = RoundTrip(Variant(static_cast<IDispatch*>(inner.get())));
    ASSERT_EQ(object.vt(), VT_DISPATCH);
    EXPECT_EQ(PointText(ComPtr<IDispatch>(object.get().pdispVal).As<ITestPoint>().get()), "3.000000,4.000000,in");

    std::string document;
    const Variant nothing = RoundTrip(Variant(static_cast<IDispatch*>(nullptr)), &document);
    EXPECT_NE(document.find("<Marker idref=\"0\"/>"), std::string::npos);
    EXPECT_EQ(Dump(nothing.get()), "0009:null");

    // An object held as VT_UNKNOWN comes back as the automation type every persistable
    // object has.
    const Variant unknown = RoundTrip(Variant(static_cast<IUnknown*>(static_cast<IDispatch*>(inner.get()))));
    EXPECT_EQ(Dump(unknown.get()), "0009:obj");
    EXPECT_EQ(Dump(RoundTrip(Variant(static_cast<IUnknown*>(nullptr))).get()), "0009:null");
}

TEST_F(XmlValuesTest, NumberArraysOfEveryTypeAndShapeRoundTrip) {
    const VARTYPE types[] = {VT_I1, VT_UI1, VT_I2,  VT_UI2, VT_I4, VT_UI4,  VT_I8,  VT_UI8,
                             VT_INT, VT_UINT, VT_R4, VT_R8, VT_CY, VT_DATE, VT_BOOL, VT_ERROR};
    for (const VARTYPE vt : types) {
        // Three dimensions with negative, positive and single-element ranges; elements
        // from bit patterns that reach the extremes of each type.
        const Variant array = Array(vt, {{3, -1}, {2, 2}, {1, 5}}, [vt](size_t i, uint8_t* at) {
            uint64_t bits = (0x8000000000000000ull >> (i * 7 % 64)) | (i * 0x0101010101010101ull);
            if (vt == VT_BOOL) bits = i % 2 ? 0xFFFF : 0;
            if (vt == VT_R4) {
                const float f = i == 0 ? -HUGE_VALF : static_cast<float>(i) / 3.0f;
                std::memcpy(&bits, &f, 4);
            }
            if (vt == VT_R8 || vt == VT_DATE) {
                const double d = i == 0 ? -0.0 : 36526.0 + static_cast<double>(i) / 7.0;
                std::memcpy(&bits, &d, 8);
            }
            std::memcpy(at, &bits, ReferencedValueSize(vt));
        });
        std::string document;
        const Variant back = RoundTrip(array, &document);
        EXPECT_NE(document.find("ArrayBounds=\"-1:1,2:3,5:5\""), std::string::npos) << document;
        EXPECT_EQ(Dump(back.get()), Dump(array.get())) << document;
    }
    std::string document;
    RoundTrip(Array(VT_I2, {{2, 0}, {2, 1}}, [](size_t i, uint8_t* at) {
                  const int16_t value = static_cast<int16_t>(i * 10 - 15);
                  std::memcpy(at, &value, 2);
              }),
              &document);
    EXPECT_NE(document.find("<Marker ArrayType=\"i2\" ArrayBounds=\"0:1,1:2\">-15 -5 5 15</Marker>"), std::string::npos)
        << document;
    RoundTrip(Array(VT_UI1, {{3, 0}}, [](size_t i, uint8_t* at) { *at = static_cast<uint8_t>("foo"[i]); }), &document);
    EXPECT_NE(document.find("<Marker ArrayType=\"ui1\" ArrayBounds=\"0:2\" dt:dt=\"bin.base64\">Zm9v</Marker>"),
              std::string::npos)
        << document;
}

TEST_F(XmlValuesTest, StringVariantAndObjectArraysRoundTrip) {
    const char* texts[] = {"a<b", "", "\xC3\xA9t\xC3\xA9", "  x  ", "&amp;", "last"};
    const Variant strings = Array(VT_BSTR, {{2, 10}, {3, -3}}, [&](size_t i, uint8_t* at) {
        const BSTR text = SysAllocString(texts[i]);
        std::memcpy(at, &text, sizeof text);
    });
    std::string document;
    EXPECT_EQ(Dump(RoundTrip(strings, &document).get()), Dump(strings.get()));
    EXPECT_NE(document.find("<Marker ArrayType=\"string\" ArrayBounds=\"10:11,-3:-1\"><Item>a&lt;b</Item><Item/>"),
              std::string::npos)
        << document;

    auto shared = NewPoint(1, 1);
    const Variant nested = Array(VT_I4, {{2, 0}}, [](size_t i, uint8_t* at) {
        const int32_t value = static_cast<int32_t>(i) + 40;
        std::memcpy(at, &value, 4);
    });
    const Variant items[] = {Variant(1),
                             Variant("x"),
                             Variant(),
                             nested,
                             Variant(static_cast<IDispatch*>(shared.get())),
                             Variant(static_cast<IDispatch*>(shared.get())),
                             Variant(static_cast<IDispatch*>(nullptr)),
                             Scalar<double>(VT_DATE, 36526.25)};
    const Variant variants = Array(VT_VARIANT, {{8, 1}}, [&](size_t i, uint8_t* at) {
        EXPECT_EQ(VariantCopy(reinterpret_cast<VARIANT*>(at), &items[i].get()), S_OK);
    });
    const Variant back = RoundTrip(variants, &document);
    EXPECT_EQ(Dump(back.get()), Dump(variants.get()));
    EXPECT_NE(document.find("<Item ArrayType=\"i4\" ArrayBounds=\"0:1\">40 41</Item>"), std::string::npos) << document;
    const auto* loaded = static_cast<const VARIANT*>(back.get().parray->pvData);
    EXPECT_TRUE(Same(loaded[4].pdispVal, loaded[5].pdispVal)) << "the object met twice is one object";

    const Variant objects = Array(VT_DISPATCH, {{3, 0}}, [&](size_t i, uint8_t* at) {
        IDispatch* object = i == 1 ? nullptr : static_cast<IDispatch*>(shared.get());
        if (object) object->AddRef();
        std::memcpy(at, &object, sizeof object);
    });
    const Variant loadedObjects = RoundTrip(objects, &document);
    EXPECT_EQ(Dump(loadedObjects.get()), "2009:[0:2]{0009:obj,0009:null,0009:obj}");
    auto* const* pointers = static_cast<IDispatch* const*>(loadedObjects.get().parray->pvData);
    EXPECT_TRUE(Same(pointers[0], pointers[2]));

    const Variant unknowns = Array(VT_UNKNOWN, {{1, 0}}, [&](size_t, uint8_t* at) {
        IUnknown* object = static_cast<IDispatch*>(shared.get());
        object->AddRef();
        std::memcpy(at, &object, sizeof object);
    });
    EXPECT_EQ(Dump(RoundTrip(unknowns, &document).get()), "200D:[0:0]{000D:obj}");
    EXPECT_NE(document.find("ArrayType=\"unknown\""), std::string::npos);
}

TEST_F(XmlValuesTest, EmptyAndNullArraysRoundTrip) {
    std::string document;
    const Variant empty = Array(VT_I4, {{0, 0}}, [](size_t, uint8_t*) {});
    EXPECT_EQ(Dump(RoundTrip(empty, &document).get()), "2003:[0:-1]{}");
    EXPECT_NE(document.find("<Marker ArrayType=\"i4\" ArrayBounds=\"0:-1\"/>"), std::string::npos) << document;
    const Variant emptyRows = Array(VT_BSTR, {{2, 1}, {0, 7}}, [](size_t, uint8_t*) {});
    EXPECT_EQ(Dump(RoundTrip(emptyRows).get()), "2008:[1:2,7:6]{}");
    EXPECT_EQ(Dump(RoundTrip(Array(VT_UI1, {{0, 5}}, [](size_t, uint8_t*) {})).get()), "2011:[5:4]{}");

    VARIANT null;
    VariantInit(&null);
    null.vt = VT_ARRAY | VT_R8;
    EXPECT_EQ(Dump(RoundTrip(Variant::Attach(null), &document).get()), "2005:nullarray");
    EXPECT_NE(document.find("<Marker ArrayType=\"r8\" ArrayBounds=\"\"/>"), std::string::npos) << document;
}

TEST_F(XmlValuesTest, SixteenMebibyteBlockRoundTripsAsOneBase64Run) {
    constexpr size_t kSize = 16 * 1024 * 1024;
    uint32_t state = 3;
    const Variant block = Array(VT_UI1, {{kSize, 0}}, [&](size_t, uint8_t* at) {
        state = state * 1664525u + 1013904223u;
        *at = static_cast<uint8_t>(state >> 24);
    });
    auto point = NewPoint(0, 0, block);
    const std::string document = Save(point.get());
    const size_t start = document.find("dt:dt=\"bin.base64\">") + 19;
    const size_t end = document.find('<', start);
    EXPECT_EQ(end - start, kSize / 3 * 4 + 4);
    const Loaded loaded = Load(document);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    const Variant back = Marker(loaded.object.As<ITestPoint>().get());
    ASSERT_EQ(back.vt(), VT_ARRAY | VT_UI1);
    ASSERT_EQ(SafeArrayElementCount(back.get().parray), kSize);
    EXPECT_EQ(std::memcmp(back.get().parray->pvData, block.get().parray->pvData, kSize), 0);
}

TEST_F(XmlValuesTest, HandWrittenArraysNeedNoBounds) {
    const Loaded loaded = Load(
        "<Root><Object ProgID=\"Tessaly.LuxCollection.1\">"
        "<Item0 dt:dt=\"bin.base64\">Zm9v YmFy</Item0>"
        "<Item1 ArrayType=\"r8\">\n 1.5\t-2 1e3 \n</Item1>"
        "<Item2 ArrayType=\"string\"><S>a</S><T>b</T></Item2>"
        "<Item3 ArrayType=\"variant\"><V dt:dt=\"i2\">3</V><V>text</V></Item3>"
        "</Object></Root>");
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    auto list = loaded.object.As<ILuxCollection>();
    EXPECT_EQ(Dump(Item(list.get(), 0).get()), "2011:[0:5]{0011:66,0011:6F,0011:6F,0011:62,0011:61,0011:72}");
    EXPECT_EQ(Dump(Item(list.get(), 1).get()),
              "2005:[0:2]{0005:3FF8000000000000,0005:C000000000000000,0005:408F400000000000}");
    EXPECT_EQ(Dump(Item(list.get(), 2).get()), "2008:[0:1]{0008:\"a\",0008:\"b\"}");
    EXPECT_EQ(Dump(Item(list.get(), 3).get()), "200C:[0:1]{0002:3,0008:\"text\"}");
}

}  // namespace
}  // namespace tessaly::test
