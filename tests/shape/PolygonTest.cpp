// LuxPolygon: the default square, the vertex list and its refusals (index, count, values,
// arrays), the vertex events after Change, fill modes and masks against a per-pixel
// winding test, measures and their degenerate failures, vertex graphics and highlighting,
// copies and maps, drags and fits, and persistence with the loads it refuses.
#include <cmath>
#include <set>
#include <utility>

#include "com/core/CLuxArchive.h"
#include "com/core/ObjectPersistence.h"
#include "platform/SafeArray.h"
#include "shape/ShapeFixture.h"

namespace tessaly::test {
namespace {

using Pixels = std::set<std::pair<LONG, LONG>>;
using Vertices = std::vector<std::pair<double, double>>;

// One event as the sinks saw it: Change (kind -1: state ID, areas, the value as a number
// or NaN when empty) or a vertex event (kind = its DISPID, its arguments in order).
struct Seen {
    int kind;
    std::vector<double> args;
};
constexpr int kChange = -1;

class PolygonTest : public ShapeFixture {
public:
    static ComPtr<ILuxPolygon> NewPolygon() { return Make<ILuxPolygon>("Tessaly.LuxPolygon"); }
    static ComPtr<ILuxPolygon> NewPolygon(const Vertices& vertices) {
        auto polygon = NewPolygon();
        Variant array = Flat(vertices);
        EXPECT_EQ(polygon->SetVertices(array.get()), S_OK);
        return polygon;
    }
    static Variant Flat(const Vertices& vertices) {
        SAFEARRAY* array = SafeArrayCreateVector(VT_R8, 0, static_cast<ULONG>(2 * vertices.size()));
        for (size_t i = 0; i < vertices.size(); ++i) {
            LONG at = static_cast<LONG>(2 * i);
            SafeArrayPutElement(array, &at, &vertices[i].first);
            ++at;
            SafeArrayPutElement(array, &at, &vertices[i].second);
        }
        VARIANT v{};
        v.vt = VT_ARRAY | VT_R8;
        v.parray = array;
        return Variant::Attach(v);
    }
    // An array of `vt` (a number type, or VT_VARIANT holding VT_I2 numbers) with the given
    // dimensions (left-most first), element (i, j) = values[i * columns + j] for two.
    static Variant ArrayOf(VARTYPE vt, std::vector<ULONG> dims, const std::vector<double>& values) {
        std::vector<SAFEARRAYBOUND> bounds;
        for (ULONG d : dims) bounds.push_back({d, 0});
        SAFEARRAY* array = SafeArrayCreate(vt, static_cast<UINT>(dims.size()), bounds.data());
        for (size_t k = 0; k < values.size(); ++k) {
            std::vector<LONG> index(dims.size());  // the last index varies fastest in `values`
            size_t rest = k;
            for (size_t d = dims.size(); d-- > 0;) {
                index[d] = static_cast<LONG>(rest % dims[d]);
                rest /= dims[d];
            }
            VARIANT number{};
            number.vt = VT_R8;
            number.dblVal = values[k];
            VARIANT element{};
            EXPECT_EQ(VariantChangeType(&element, &number, 0, vt == VT_VARIANT ? VARTYPE(VT_I2) : vt), S_OK);
            if (vt == VT_VARIANT) EXPECT_EQ(SafeArrayPutElement(array, index.data(), &element), S_OK);
            else EXPECT_EQ(SafeArrayPutElement(array, index.data(), &element.llVal), S_OK);
        }
        VARIANT v{};
        v.vt = VT_ARRAY | vt;
        v.parray = array;
        return Variant::Attach(v);
    }
    static Vertices VerticesOf(ILuxPolygon* polygon) {
        Variant out;
        EXPECT_EQ(polygon->GetVertices(out.Out()), S_OK);
        EXPECT_EQ(out.vt(), VT_ARRAY | VT_R8);
        Vertices vertices;
        const size_t count = SafeArrayElementCount(out.get().parray);
        EXPECT_EQ(count % 2, 0u);
        for (LONG i = 0; i + 1 < static_cast<LONG>(count); i += 2) {
            double x = 0, y = 0;
            LONG j = i + 1;
            SafeArrayGetElement(out.get().parray, &i, &x);
            SafeArrayGetElement(out.get().parray, &j, &y);
            vertices.emplace_back(x, y);
        }
        // GetVertex agrees with the array.
        LONG n = 0;
        polygon->get_NumVertices(&n);
        EXPECT_EQ(static_cast<size_t>(n), vertices.size());
        for (LONG i = 0; i < n; ++i) {
            double x = 0, y = 0;
            EXPECT_EQ(polygon->GetVertex(i, &x, &y), S_OK);
            EXPECT_EQ(std::make_pair(x, y), vertices[i]);
        }
        return vertices;
    }
    static std::vector<LONG> ColorsOf(ILuxPolygon* polygon) {
        LONG n = 0;
        polygon->get_NumVertices(&n);
        std::vector<LONG> colors(n);
        for (LONG i = 0; i < n; ++i) EXPECT_EQ(polygon->get_VertexAdornmentColor(i, &colors[i]), S_OK);
        return colors;
    }
    // Change and the polygon events in the order they came.
    static std::shared_ptr<std::vector<Seen>> ListenAll(IUnknown* shape) {
        auto log = std::make_shared<std::vector<Seen>>();
        auto change = ComPtr<IDispatch>::Attach(MakeEventSink(
            luxChange_Change,
            [log](std::span<const VARIANT> args) {
                Variant value(args[1]);
                const double number = SUCCEEDED(value.ChangeType(VT_R8)) && args[1].vt != VT_EMPTY ? value.get().dblVal
                                                                                                    : NAN;
                log->push_back({kChange, {double(args[0].lVal), double(args[2].lVal), number}});
            },
            DIID_ILuxChangeEvent));
        DWORD cookie = 0;
        EXPECT_EQ(Advise(shape, DIID_ILuxChangeEvent, change.get(), &cookie), S_OK);
        auto vertex = ComPtr<IDispatch>::Attach(MakeEventSink(
            [log](DISPID id, DISPPARAMS* params) {
                Seen seen{static_cast<int>(id), {}};
                for (UINT i = params->cArgs; i-- > 0;) {  // last argument first
                    Variant arg(params->rgvarg[i]);
                    EXPECT_EQ(arg.ChangeType(VT_R8), S_OK);
                    seen.args.push_back(arg.get().dblVal);
                }
                log->push_back(std::move(seen));
            },
            DIID_ILuxPolygonEvents));
        EXPECT_EQ(Advise(shape, DIID_ILuxPolygonEvents, vertex.get(), &cookie), S_OK);
        return log;
    }
    static void ExpectChange(const Seen& seen, int32_t stateId, int32_t areas, double value) {
        EXPECT_EQ(seen.kind, kChange);
        ASSERT_EQ(seen.args.size(), 3u);
        EXPECT_EQ(seen.args[0], stateId);
        EXPECT_EQ(seen.args[1], areas);
        if (std::isnan(value)) EXPECT_TRUE(std::isnan(seen.args[2])) << seen.args[2];
        else EXPECT_EQ(seen.args[2], value);
    }
    static Pixels MaskOf(IUnknown* region) {
        ComPtr<ILuxRLEBuffer> rle;
        EXPECT_EQ(As<ILuxRegion>(region)->CreateRLE(255, 0, rle.Out()), S_OK);
        Pixels pixels;
        if (!rle) return pixels;
        LONG x = 0, y = 0, width = 0, height = 0;
        rle->get_X(&x);
        rle->get_Y(&y);
        rle->get_Width(&width);
        rle->get_Height(&height);
        for (LONG j = 0; j < height; ++j)
            for (LONG i = 0; i < width; ++i) {
                LONG value = -1;
                EXPECT_EQ(rle->get_Pixel(x + i, y + j, &value), S_OK);
                if (value == 255) pixels.insert({x + i, y + j});
                else EXPECT_EQ(value, 0);
            }
        return pixels;
    }
    // The pixels whose centres the outline winds round: a non-zero winding number, or an odd
    // one under even-odd. The vertices keep every centre well off the outline (checked).
    static Pixels CentresInside(const Vertices& v, bool winding) {
        Pixels pixels;
        for (LONG j = -5; j < 130; ++j)
            for (LONG i = -5; i < 130; ++i) {
                const double px = i + 0.5, py = j + 0.5;
                int wind = 0;
                for (size_t k = 0; k < v.size(); ++k) {
                    const auto [ax, ay] = v[k];
                    const auto [bx, by] = v[(k + 1) % v.size()];
                    const double side = (bx - ax) * (py - ay) - (by - ay) * (px - ax);
                    const double length = std::hypot(bx - ax, by - ay);
                    if ((ay <= py) != (by <= py)) {
                        EXPECT_GT(std::fabs(side), 1e-6 * length) << i << "," << j;
                    }
                    if (ay <= py && by > py && side > 0) ++wind;
                    if (ay > py && by <= py && side < 0) --wind;
                }
                if (winding ? wind != 0 : (wind % 2) != 0) pixels.insert({i, j});
            }
        return pixels;
    }
};

const Vertices kSquare{{0, 0}, {100, 0}, {100, 100}, {0, 100}};

TEST_F(PolygonTest, ANewPolygonIsTheSquareOfANewRectangle) {
    auto polygon = NewPolygon();
    EXPECT_EQ(VerticesOf(polygon.get()), kSquare);
    EXPECT_EQ(ColorsOf(polygon.get()), std::vector<LONG>(4, luxPolygonVertexColorAuto));
    double area = 0, perimeter = 0;
    VARIANT_BOOL convex = 0, complex = -1;
    polygon->get_Area(&area);
    polygon->get_Perimeter(&perimeter);
    polygon->get_Convex(&convex);
    polygon->get_Complex(&complex);
    EXPECT_EQ(area, 10000);
    EXPECT_EQ(perimeter, 400);
    EXPECT_EQ(convex, VARIANT_TRUE);
    EXPECT_EQ(complex, VARIANT_FALSE);
    LuxPolygonFillConstants fill{};
    LuxPolygonVertexAdornmentConstants adornment{};
    LONG highlightColor = 0, highlightIndex = 0, requested = -1;
    polygon->get_FillMode(&fill);
    polygon->get_VertexAdornment(&adornment);
    polygon->get_HighlightColor(&highlightColor);
    polygon->get_HighlightIndex(&highlightIndex);
    polygon->get_HighlightRequested(&requested);
    EXPECT_EQ(fill, luxPolygonFillEvenOdd);
    EXPECT_EQ(adornment, luxPolygonVertexAdornmentNone);
    EXPECT_EQ(highlightColor, luxColorYellow);
    EXPECT_EQ(highlightIndex, -1);
    EXPECT_EQ(requested, 0);
    EXPECT_EQ(MaskOf(polygon.get()), MaskOf(NewRectangle().get()));
    EXPECT_EQ(MaskOf(polygon.get()).size(), 10000u);
}

TEST_F(PolygonTest, SmallAndSelfCrossingPolygons) {
    auto polygon = NewPolygon({{3, 4}});
    double perimeter = -1, area = -1;
    polygon->get_Perimeter(&perimeter);
    polygon->get_Area(&area);
    EXPECT_EQ(perimeter, 0);
    EXPECT_EQ(area, 0);
    EXPECT_TRUE(MaskOf(polygon.get()).empty());  // fewer than 3 vertices: an empty mask
    ASSERT_EQ(polygon->AddVertex(6, 8, -1), S_OK);
    polygon->get_Perimeter(&perimeter);
    polygon->get_Area(&area);
    EXPECT_EQ(perimeter, 10);  // there and back
    EXPECT_EQ(area, 0);
    EXPECT_TRUE(MaskOf(polygon.get()).empty());

    VARIANT_BOOL complex = 0, convex = -1;
    auto bowTie = NewPolygon({{0, 0}, {10, 10}, {10, 0}, {0, 10}});
    bowTie->get_Complex(&complex);
    bowTie->get_Convex(&convex);
    EXPECT_EQ(complex, VARIANT_TRUE);
    EXPECT_EQ(convex, VARIANT_FALSE);
    auto ell = NewPolygon({{0, 0}, {20, 0}, {20, 10}, {10, 10}, {10, 20}, {0, 20}});
    ell->get_Complex(&complex);
    ell->get_Convex(&convex);
    EXPECT_EQ(complex, VARIANT_FALSE);
    EXPECT_EQ(convex, VARIANT_FALSE);
    ComPtr<ILuxPolygon> hull;
    ASSERT_EQ(ell->ConvexHull(hull.Out()), S_OK);
    ASSERT_TRUE(hull);
    EXPECT_EQ(VerticesOf(hull.get()).size(), 5u);  // the notch's corner dropped
    hull->get_Area(&area);
    EXPECT_EQ(area, 400 - 50);
    hull->get_Convex(&convex);
    EXPECT_EQ(convex, VARIANT_TRUE);
}

TEST_F(PolygonTest, VertexIndicesOutOfRangeAreRefusedLeavingThePolygonAndRaisingNothing) {
    auto polygon = NewPolygon({{1, 2}, {3, 4}, {5, 7}});
    ASSERT_EQ(polygon->put_VertexAdornmentColor(1, luxPolygonVertexColorRed), S_OK);
    auto log = ListenAll(polygon.get());
    const std::vector<std::string> inserts{"vertex index", "NumVertices"};
    const auto refused = [&](HRESULT got, const char* source) {
        ExpectRefused(got, E_INVALIDARG, ids_Lux_InvalidArgIndex_2, inserts, source);
    };
    double x = 0, y = 0;
    LONG color = 0;
    for (LONG bad : {-1, 3, 4, -2147483647 - 1}) {
        SCOPED_TRACE(bad);
        refused(polygon->get_VertexX(bad, &x), "get_VertexX");
        refused(polygon->get_VertexY(bad, &y), "get_VertexY");
        refused(polygon->put_VertexX(bad, 9), "put_VertexX");
        refused(polygon->put_VertexY(bad, 9), "put_VertexY");
        refused(polygon->get_VertexAdornmentColor(bad, &color), "get_VertexAdornmentColor");
        refused(polygon->put_VertexAdornmentColor(bad, luxPolygonVertexColorBlue), "put_VertexAdornmentColor");
        refused(polygon->GetVertex(bad, &x, &y), "GetVertex");
        refused(polygon->SetVertex(bad, 9, 9), "SetVertex");
        refused(polygon->RemoveVertex(bad), "RemoveVertex");
    }
    // AddVertex takes NumVertices and -1 but nothing beyond or below.
    refused(polygon->AddVertex(9, 9, 4), "AddVertex");
    refused(polygon->AddVertex(9, 9, -2), "AddVertex");
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{1, 2}, {3, 4}, {5, 7}}));
    EXPECT_EQ(ColorsOf(polygon.get()), (std::vector<LONG>{-2, luxPolygonVertexColorRed, -2}));
    EXPECT_TRUE(log->empty());
    // An empty polygon has no index at all.
    ASSERT_EQ(polygon->put_NumVertices(0), S_OK);
    refused(polygon->GetVertex(0, &x, &y), "GetVertex");
    refused(polygon->AddVertex(9, 9, 1), "AddVertex");
    EXPECT_EQ(polygon->AddVertex(9, 9, 0), S_OK);
}

TEST_F(PolygonTest, AddAndRemoveVertexRaiseChangeThenTheirVertexEvent) {
    auto polygon = NewPolygon({{0, 0}, {10, 0}, {10, 10}});
    ASSERT_EQ(polygon->put_VertexAdornmentColor(2, luxPolygonVertexColorGreen), S_OK);
    auto log = ListenAll(polygon.get());
    ASSERT_EQ(polygon->AddVertex(0, 10, -1), S_OK);    // appends
    ASSERT_EQ(polygon->AddVertex(5, -5, 4), S_OK);     // Index = NumVertices appends too
    ASSERT_EQ(polygon->AddVertex(-1, -1, 0), S_OK);    // inserts in front
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{-1, -1}, {0, 0}, {10, 0}, {10, 10}, {0, 10}, {5, -5}}));
    EXPECT_EQ(ColorsOf(polygon.get()), (std::vector<LONG>{-2, -2, -2, luxPolygonVertexColorGreen, -2, -2}));
    ASSERT_EQ(log->size(), 6u);
    const double expected[3][4] = {{3, 0, 10, 4}, {4, 5, -5, 5}, {0, -1, -1, 6}};
    for (int k = 0; k < 3; ++k) {
        ExpectChange((*log)[2 * k], luxPolygon_NumVertices, luxFA_Shape_Geometry, expected[k][3]);
        EXPECT_EQ((*log)[2 * k + 1].kind, luxPolygonEvents_VertexAdded);
        EXPECT_EQ((*log)[2 * k + 1].args, std::vector<double>(expected[k], expected[k] + 4));
    }
    log->clear();
    ASSERT_EQ(polygon->RemoveVertex(3), S_OK);  // the green one
    EXPECT_EQ(ColorsOf(polygon.get()), std::vector<LONG>(5, -2));
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{-1, -1}, {0, 0}, {10, 0}, {0, 10}, {5, -5}}));
    ASSERT_EQ(log->size(), 2u);
    ExpectChange((*log)[0], luxPolygon_NumVertices, luxFA_Shape_Geometry, 5);
    EXPECT_EQ((*log)[1].kind, luxPolygonEvents_VertexRemoved);
    EXPECT_EQ((*log)[1].args, (std::vector<double>{3, 5}));
    // Non-finite coordinates are refused before anything changes.
    log->clear();
    ExpectRefused(polygon->AddVertex(NAN, 0, -1), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"X"}, "AddVertex");
    ExpectRefused(polygon->AddVertex(0, INFINITY, 0), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"Y"}, "AddVertex");
    EXPECT_EQ(VerticesOf(polygon.get()).size(), 5u);
    EXPECT_TRUE(log->empty());
}

TEST_F(PolygonTest, MovingAVertexRaisesItsStateIdThenVertexChanged) {
    auto polygon = NewPolygon();
    auto log = ListenAll(polygon.get());
    ASSERT_EQ(polygon->put_VertexX(1, 120), S_OK);
    ASSERT_EQ(polygon->put_VertexY(2, 130), S_OK);
    ASSERT_EQ(polygon->SetVertex(3, -5, -6), S_OK);
    ASSERT_EQ(polygon->SetVertex(0, 0, 7), S_OK);  // only Y differs
    ASSERT_EQ(log->size(), 8u);
    ExpectChange((*log)[0], luxPolygon_VertexX, luxFA_Shape_Geometry, 120);
    EXPECT_EQ((*log)[1].args, (std::vector<double>{1, 120, 0}));
    ExpectChange((*log)[2], luxPolygon_VertexY, luxFA_Shape_Geometry, 130);
    EXPECT_EQ((*log)[3].args, (std::vector<double>{2, 100, 130}));
    ExpectChange((*log)[4], luxState_MoreThanOneStateIDChanged, luxFA_Shape_Geometry, NAN);
    EXPECT_EQ((*log)[5].args, (std::vector<double>{3, -5, -6}));
    ExpectChange((*log)[6], luxPolygon_VertexY, luxFA_Shape_Geometry, 7);
    EXPECT_EQ((*log)[7].args, (std::vector<double>{0, 0, 7}));
    for (int k : {1, 3, 5, 7}) EXPECT_EQ((*log)[k].kind, luxPolygonEvents_VertexChanged);
    // Setting what is there raises nothing; a coordinate that is not finite is refused.
    log->clear();
    ASSERT_EQ(polygon->SetVertex(3, -5, -6), S_OK);
    ASSERT_EQ(polygon->put_VertexX(1, 120), S_OK);
    ExpectRefused(polygon->put_VertexX(1, NAN), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"X"}, "put_VertexX");
    ExpectRefused(polygon->put_VertexY(1, -INFINITY), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"Y"}, "put_VertexY");
    ExpectRefused(polygon->SetVertex(1, 0, NAN), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"Y"}, "SetVertex");
    EXPECT_TRUE(log->empty());
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{0, 7}, {120, 0}, {100, 130}, {-5, -6}}));
}

TEST_F(PolygonTest, SuspendedChangeEventsHoldBackTheVertexEventsUntilOneBulkChanged) {
    auto polygon = NewPolygon();
    auto log = ListenAll(polygon.get());
    auto configuration = As<ILuxChangeEventConfiguration>(polygon.get());
    ASSERT_EQ(configuration->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(configuration->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(polygon->SetVertex(0, 1, 1), S_OK);
    ASSERT_EQ(polygon->AddVertex(5, 5, -1), S_OK);
    ASSERT_EQ(configuration->ResumeAndFireEvent(), S_OK);  // still suspended once
    EXPECT_TRUE(log->empty());
    ASSERT_EQ(configuration->ResumeAndFireEvent(), S_OK);
    ASSERT_EQ(log->size(), 2u);
    EXPECT_EQ((*log)[0].kind, kChange);
    EXPECT_EQ((*log)[1].kind, luxPolygonEvents_BulkChanged);
    EXPECT_EQ((*log)[1].args, std::vector<double>{5});
    // A suspension with only graphic changes brings no BulkChanged.
    log->clear();
    ASSERT_EQ(configuration->SuspendEventDelivery(), S_OK);
    ASSERT_EQ(polygon->put_HighlightIndex(2), S_OK);
    ASSERT_EQ(configuration->ResumeAndFireEvent(), S_OK);
    ASSERT_EQ(log->size(), 1u);
    EXPECT_EQ((*log)[0].kind, kChange);
}

TEST_F(PolygonTest, WritingNumVerticesTruncatesOrExtendsWithCopiesOfTheLastVertex) {
    auto polygon = NewPolygon({{1, 2}, {3, 4}, {5, 6}});
    ASSERT_EQ(polygon->put_VertexAdornmentColor(0, luxPolygonVertexColorNone), S_OK);
    auto log = ListenAll(polygon.get());
    ASSERT_EQ(polygon->put_NumVertices(5), S_OK);
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{1, 2}, {3, 4}, {5, 6}, {5, 6}, {5, 6}}));
    EXPECT_EQ(ColorsOf(polygon.get()), (std::vector<LONG>{-1, -2, -2, -2, -2}));
    ASSERT_EQ(polygon->put_NumVertices(2), S_OK);
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{1, 2}, {3, 4}}));
    ASSERT_EQ(polygon->put_NumVertices(2), S_OK);  // the same count: nothing
    ASSERT_EQ(log->size(), 4u);
    ExpectChange((*log)[0], luxPolygon_NumVertices, luxFA_Shape_Geometry, 5);
    EXPECT_EQ((*log)[1].kind, luxPolygonEvents_BulkChanged);
    EXPECT_EQ((*log)[1].args, std::vector<double>{5});
    ExpectChange((*log)[2], luxPolygon_NumVertices, luxFA_Shape_Geometry, 2);
    EXPECT_EQ((*log)[3].args, std::vector<double>{2});
    log->clear();
    for (LONG bad : {-1, 16777217, 2147483647}) {
        ExpectRefused(polygon->put_NumVertices(bad), E_INVALIDARG, ids_Lux_InvalidArgValue_1, {"NumVertices"},
                      "put_NumVertices");
    }
    ExpectRefused(polygon->VertexReserve(-1), E_INVALIDARG, ids_Lux_InvalidArgValue_1, {"MinNumVertices"},
                  "VertexReserve");
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{1, 2}, {3, 4}}));
    EXPECT_TRUE(log->empty());
    // From nothing the new vertices are at the origin.
    ASSERT_EQ(polygon->put_NumVertices(0), S_OK);
    ASSERT_EQ(polygon->put_NumVertices(2), S_OK);
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{0, 0}, {0, 0}}));
    // Reserving makes room and changes nothing else.
    log->clear();
    ASSERT_EQ(polygon->VertexReserve(1000), S_OK);
    LONG capacity = 0;
    polygon->get_VertexCapacity(&capacity);
    EXPECT_GE(capacity, 1000);
    EXPECT_EQ(VerticesOf(polygon.get()).size(), 2u);
    EXPECT_TRUE(log->empty());
}

TEST_F(PolygonTest, SetVerticesTakesFlatAndNByTwoArraysOfAnyNumberType) {
    auto polygon = NewPolygon();
    auto log = ListenAll(polygon.get());
    const Vertices triangle{{1, 2}, {30, 4}, {5, 60}};
    const std::vector<double> flat{1, 2, 30, 4, 5, 60};
    for (VARTYPE vt : {VARTYPE(VT_R8), VARTYPE(VT_R4), VARTYPE(VT_I4), VARTYPE(VT_UI1), VARTYPE(VT_I8),
                       VARTYPE(VT_VARIANT)}) {
        SCOPED_TRACE(vt);
        ASSERT_EQ(polygon->put_NumVertices(0), S_OK);
        ASSERT_EQ(polygon->SetVertices(ArrayOf(vt, {6}, flat).get()), S_OK);
        EXPECT_EQ(VerticesOf(polygon.get()), triangle);
        ASSERT_EQ(polygon->put_NumVertices(0), S_OK);
        ASSERT_EQ(polygon->SetVertices(ArrayOf(vt, {3, 2}, flat).get()), S_OK);  // rows of X, Y
        EXPECT_EQ(VerticesOf(polygon.get()), triangle);
    }
    // By reference, as some clients pass it.
    Variant array = ArrayOf(VT_R8, {6}, {7, 8, 9, 10, 11, 12});
    VARIANT byRef{};
    byRef.vt = VT_BYREF | VT_VARIANT;
    byRef.pvarVal = const_cast<VARIANT*>(&array.get());
    ASSERT_EQ(polygon->SetVertices(byRef), S_OK);
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{7, 8}, {9, 10}, {11, 12}}));
    // The events of one replacement: Change, then BulkChanged with the new count; the same
    // list again raises nothing.
    log->clear();
    ASSERT_EQ(polygon->SetVertices(Flat(triangle).get()), S_OK);
    ASSERT_EQ(polygon->SetVertices(Flat(triangle).get()), S_OK);
    ASSERT_EQ(log->size(), 2u);
    ExpectChange((*log)[0], luxState_MoreThanOneStateIDChanged, luxFA_Shape_Geometry, NAN);
    EXPECT_EQ((*log)[1].kind, luxPolygonEvents_BulkChanged);
    EXPECT_EQ((*log)[1].args, std::vector<double>{3});
    // An empty array empties the polygon.
    ASSERT_EQ(polygon->SetVertices(Flat({}).get()), S_OK);
    EXPECT_TRUE(VerticesOf(polygon.get()).empty());
    ASSERT_EQ(polygon->SetVertices(Flat(triangle).get()), S_OK);

    log->clear();
    VARIANT strings{};
    strings.vt = VT_ARRAY | VT_BSTR;
    SAFEARRAYBOUND two{2, 0};
    strings.parray = SafeArrayCreate(VT_BSTR, 1, &two);
    Variant heldStrings = Variant::Attach(strings);
    VARIANT notArray{};
    notArray.vt = VT_R8;
    notArray.dblVal = 3;
    const Variant refusedValues[] = {
        ArrayOf(VT_R8, {5}, {1, 2, 3, 4, 5}),               // odd length
        ArrayOf(VT_R8, {2, 3}, {1, 2, 3, 4, 5, 6}),         // rows of three
        ArrayOf(VT_R8, {1, 2, 2}, {1, 2, 3, 4}),            // three dimensions
        ArrayOf(VT_R8, {4}, {1, NAN, 3, 4}),                // not finite
        ArrayOf(VT_R8, {4}, {1, 2, INFINITY, 4}),
        heldStrings,
        Variant(notArray),
        Variant(),
    };
    for (const Variant& bad : refusedValues) {
        SCOPED_TRACE(bad.vt());
        ExpectRefused(polygon->SetVertices(bad.get()), E_INVALIDARG, ids_Lux_InvalidArgValue_1, {"CoordinatesXY"},
                      "SetVertices");
    }
    EXPECT_EQ(VerticesOf(polygon.get()), triangle);
    EXPECT_TRUE(log->empty());
}

TEST_F(PolygonTest, VertexGraphicsAndHighlightingAreGraphicSettings) {
    auto polygon = NewPolygon();
    auto log = ListenAll(polygon.get());
    ASSERT_EQ(polygon->put_VertexAdornment(luxPolygonVertexAdornmentSolidCircle), S_OK);
    ASSERT_EQ(polygon->put_VertexAdornmentColor(2, 0xFFFFFF), S_OK);
    ASSERT_EQ(polygon->put_VertexAdornmentColor(1, 0x123456), S_OK);  // any colour
    ASSERT_EQ(polygon->put_HighlightColor(luxColorMagenta), S_OK);
    ASSERT_EQ(polygon->put_HighlightIndex(7), S_OK);  // beyond the list: nothing highlighted yet
    ASSERT_EQ(log->size(), 5u);
    ExpectChange((*log)[0], luxPolygon_VertexAdornment, luxFA_Shape_Graphic, luxPolygonVertexAdornmentSolidCircle);
    ExpectChange((*log)[1], luxPolygon_VertexAdornmentColor, luxFA_Shape_Graphic, 0xFFFFFF);
    ExpectChange((*log)[2], luxPolygon_VertexAdornmentColor, luxFA_Shape_Graphic, 0x123456);
    ExpectChange((*log)[3], luxPolygon_HighlightColor, luxFA_Shape_Graphic, luxColorMagenta);
    ExpectChange((*log)[4], luxPolygon_HighlightIndex, luxFA_Shape_Graphic, 7);

    log->clear();
    for (LONG bad : {-3, 0x1000000, -2147483647 - 1}) {
        ExpectRefused(polygon->put_VertexAdornmentColor(0, bad), E_INVALIDARG, ids_Lux_InvalidArgEnum_1,
                      {"vertex adornment color"}, "put_VertexAdornmentColor");
    }
    ExpectRefused(polygon->put_HighlightColor(0x123456), E_INVALIDARG, ids_Lux_InvalidArgEnum_1, {"highlight color"},
                  "put_HighlightColor");
    ExpectRefused(polygon->put_HighlightIndex(-2), E_INVALIDARG, ids_Lux_InvalidArgValue_1, {"HighlightIndex"},
                  "put_HighlightIndex");
    ExpectRefused(polygon->put_FillMode(static_cast<LuxPolygonFillConstants>(2)), E_INVALIDARG,
                  ids_Lux_InvalidArgEnum_1, {"FillMode"}, "put_FillMode");
    EXPECT_TRUE(log->empty());
    LuxPolygonVertexAdornmentConstants adornment{};
    LONG highlight = 0, index = 0;
    polygon->get_VertexAdornment(&adornment);
    polygon->get_HighlightColor(&highlight);
    polygon->get_HighlightIndex(&index);
    EXPECT_EQ(adornment, luxPolygonVertexAdornmentSolidCircle);
    EXPECT_EQ(highlight, luxColorMagenta);
    EXPECT_EQ(index, 7);
    EXPECT_EQ(ColorsOf(polygon.get()), (std::vector<LONG>{-2, 0x123456, 0xFFFFFF, -2}));

    // The request count never goes below 0; a relinquish at 0 changes and raises nothing.
    LONG requested = -1;
    ASSERT_EQ(polygon->HighlightRelinquish(), S_OK);
    ASSERT_EQ(polygon->HighlightRequest(), S_OK);
    ASSERT_EQ(polygon->HighlightRequest(), S_OK);
    ASSERT_EQ(polygon->HighlightRelinquish(), S_OK);
    polygon->get_HighlightRequested(&requested);
    EXPECT_EQ(requested, 1);
    ASSERT_EQ(polygon->HighlightRelinquish(), S_OK);
    ASSERT_EQ(polygon->HighlightRelinquish(), S_OK);
    polygon->get_HighlightRequested(&requested);
    EXPECT_EQ(requested, 0);
    ASSERT_EQ(log->size(), 4u);
    const double counts[] = {1, 2, 1, 0};
    for (int k = 0; k < 4; ++k)
        ExpectChange((*log)[k], luxPolygon_HighlightRequested, luxFA_Shape_Graphic, counts[k]);
}

TEST_F(PolygonTest, FillModesDecideTheMaskOfASelfCrossingPolygon) {
    // A pentagram whose points lie off every pixel centre's row and column.
    const Vertices star{{60.3, 5.2}, {90.1, 95.7}, {12.4, 38.9}, {108.6, 40.3}, {29.8, 96.1}};
    auto polygon = NewPolygon(star);
    auto log = ListenAll(polygon.get());
    const Pixels evenOdd = MaskOf(polygon.get());
    EXPECT_EQ(evenOdd, CentresInside(star, false));
    ASSERT_EQ(polygon->put_FillMode(luxPolygonFillWindingNumber), S_OK);
    ASSERT_EQ(polygon->put_FillMode(luxPolygonFillWindingNumber), S_OK);
    const Pixels winding = MaskOf(polygon.get());
    EXPECT_EQ(winding, CentresInside(star, true));
    EXPECT_GT(winding.size(), evenOdd.size() + 500);  // the pentagon in the middle
    EXPECT_TRUE(winding.count({60, 55}) && !evenOdd.count({60, 55}));
    ASSERT_EQ(log->size(), 1u);
    ExpectChange((*log)[0], luxPolygon_FillMode, luxFA_Shape_Geometry, luxPolygonFillWindingNumber);
    // A simple concave polygon has the same mask either way.
    const Vertices arrow{{10.2, 10.7}, {80.4, 45.1}, {10.9, 90.3}, {35.6, 50.2}};
    auto simple = NewPolygon(arrow);
    EXPECT_EQ(MaskOf(simple.get()), CentresInside(arrow, false));
    ASSERT_EQ(simple->put_FillMode(luxPolygonFillWindingNumber), S_OK);
    EXPECT_EQ(MaskOf(simple.get()), CentresInside(arrow, true));
}

TEST_F(PolygonTest, MeasuresAndTheirDegenerateFailures) {
    auto polygon = NewPolygon({{2, 4}, {8, 4}, {8, 6}, {2, 6}});  // 6 x 2
    double x = 0, y = 0, s = 0, sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
    ASSERT_EQ(polygon->MeanVertex(&x, &y), S_OK);
    EXPECT_EQ(std::make_pair(x, y), std::make_pair(5.0, 5.0));
    ASSERT_EQ(polygon->AreaCenter(&x, &y), S_OK);
    EXPECT_NEAR(x, 5, 1e-12);
    EXPECT_NEAR(y, 5, 1e-12);
    ASSERT_EQ(polygon->ArcCenter(&x, &y), S_OK);
    EXPECT_NEAR(x, 5, 1e-12);
    EXPECT_NEAR(y, 5, 1e-12);
    ASSERT_EQ(polygon->AreaMoments2(&s, &sx, &sy, &sxx, &syy, &sxy), S_OK);
    EXPECT_NEAR(s, 12, 1e-12);
    EXPECT_NEAR(sx, 60, 1e-12);
    EXPECT_NEAR(sy, 60, 1e-12);
    EXPECT_NEAR(sxx, 2 * (512 - 8) / 3.0, 1e-9);   // integral of x^2 over [2, 8] times 2
    EXPECT_NEAR(syy, 6 * (216 - 64) / 3.0, 1e-9);  // integral of y^2 over [4, 6] times 6
    EXPECT_NEAR(sxy, 300, 1e-9);
    ASSERT_EQ(polygon->ArcMoments1(&s, &sx, &sy), S_OK);
    EXPECT_NEAR(s, 16, 1e-12);
    EXPECT_NEAR(sx, 80, 1e-12);
    LONG nearest = -1;
    ASSERT_EQ(polygon->NearestVertex(5, 5, &nearest), S_OK);  // all four equally near: the lowest
    EXPECT_EQ(nearest, 0);
    ASSERT_EQ(polygon->NearestVertex(7.9, 5.9, &nearest), S_OK);
    EXPECT_EQ(nearest, 2);

    const auto degenerate = [](HRESULT got, const char* source) {
        EXPECT_EQ(got, static_cast<HRESULT>(e_LuxShape_DegeneratePolygon));
        const RecordedError error = TakeErrorInfo();
        EXPECT_NE(error.description.find("polygon is degenerate"), std::string::npos) << error.description;
        EXPECT_EQ(error.source, source);
    };
    auto line = NewPolygon({{1, 1}, {5, 1}});
    degenerate(line->AreaCenter(&x, &y), "AreaCenter");
    ASSERT_EQ(line->ArcCenter(&x, &y), S_OK);
    EXPECT_EQ(std::make_pair(x, y), std::make_pair(3.0, 1.0));
    ASSERT_EQ(line->AreaMoments1(&s, &sx, &sy), S_OK);  // sums do not fail: zeros
    EXPECT_EQ(s, 0);
    auto point = NewPolygon({{4, 4}, {4, 4}, {4, 4}});
    degenerate(point->ArcCenter(&x, &y), "ArcCenter");
    degenerate(point->AreaCenter(&x, &y), "AreaCenter");
    auto empty = NewPolygon({});
    degenerate(empty->MeanVertex(&x, &y), "MeanVertex");
    degenerate(empty->NearestVertex(0, 0, &nearest), "NearestVertex");
    double perimeter = -1;
    empty->get_Perimeter(&perimeter);
    EXPECT_EQ(perimeter, 0);
}

TEST_F(PolygonTest, CopiesAndMapsCarryTheVertexGraphicsWithTheBasicGraphicsFlag) {
    auto polygon = NewPolygon({{0, 0}, {10, 0}, {0, 20}});
    ASSERT_EQ(polygon->put_FillMode(luxPolygonFillWindingNumber), S_OK);
    ASSERT_EQ(polygon->put_VertexAdornment(luxPolygonVertexAdornmentSolidSquare), S_OK);
    ASSERT_EQ(polygon->put_VertexAdornmentColor(1, luxPolygonVertexColorCyan), S_OK);
    ASSERT_EQ(polygon->put_HighlightIndex(2), S_OK);
    ASSERT_EQ(polygon->HighlightRequest(), S_OK);
    ASSERT_EQ(polygon->put_SelectedSpaceName(Bstr("@\\Part").get()), S_OK);
    const auto check = [&](ILuxPolygon* copy, bool graphics) {
        LuxPolygonFillConstants fill{};
        LuxPolygonVertexAdornmentConstants adornment{};
        LONG index = 0, requested = -1;
        copy->get_FillMode(&fill);
        copy->get_VertexAdornment(&adornment);
        copy->get_HighlightIndex(&index);
        copy->get_HighlightRequested(&requested);
        EXPECT_EQ(fill, luxPolygonFillWindingNumber);  // geometry
        EXPECT_EQ(SpaceName(copy), "@\\Part");
        EXPECT_EQ(adornment, graphics ? luxPolygonVertexAdornmentSolidSquare : luxPolygonVertexAdornmentNone);
        EXPECT_EQ(ColorsOf(copy), (std::vector<LONG>{-2, graphics ? luxPolygonVertexColorCyan : -2, -2}));
        EXPECT_EQ(index, graphics ? 2 : -1);
        EXPECT_EQ(requested, 0);  // never copied
    };
    for (auto flags : {luxCopyShapeGeometryOnly, luxCopyShapeBasicGraphics, luxCopyShapeAll}) {
        SCOPED_TRACE(flags);
        const bool graphics = flags & luxCopyShapeBasicGraphics;
        ComPtr<ILuxPolygon> copy;
        ASSERT_EQ(polygon->Copy(flags, copy.Out()), S_OK);
        EXPECT_EQ(VerticesOf(copy.get()), VerticesOf(polygon.get()));
        check(copy.get(), graphics);
        ComPtr<ILuxPolygon> mapped;
        ASSERT_EQ(polygon->MapLinear(Linear(2, 0, 0, 3, 1, -1).get(), flags, mapped.Out()), S_OK);
        EXPECT_EQ(VerticesOf(mapped.get()), (Vertices{{1, -1}, {21, -1}, {1, 59}}));
        check(mapped.get(), graphics);
        ComPtr<ILuxShape> shape;
        ASSERT_EQ(polygon->Map(As<ILuxTransform2D>(Linear(0, -1, 1, 0, 0, 0).get()).get(), flags, shape.Out()), S_OK);
        auto rotated = As<ILuxPolygon>(shape.get());
        ASSERT_TRUE(rotated);
        EXPECT_EQ(VerticesOf(rotated.get()), (Vertices{{0, 0}, {0, 10}, {-20, 0}}));
        check(rotated.get(), graphics);
    }
    // The original is untouched by what was made from it.
    auto copyOfColors = ColorsOf(polygon.get());
    EXPECT_EQ(copyOfColors[1], luxPolygonVertexColorCyan);
    ComPtr<IDispatch> model;
    ExpectFailed(polygon->MakeShapeModel(1, 1, VARIANT_TRUE, model.Out()), e_Lux_NotImplemented,
                 "shape models", "MakeShapeModel");
    EXPECT_FALSE(model);
}

TEST_F(PolygonTest, DragsAndFitsMoveEveryVertexAndRaiseBulkChanged) {
    auto polygon = NewPolygon({{0, 0}, {10, 0}, {0, 20}});
    auto log = ListenAll(polygon.get());
    VARIANT none{};
    ASSERT_EQ(polygon->put_GraphicDOFEnable(luxPolygonDOFVertexPositions), S_OK);  // no position bit
    log->clear();
    ASSERT_EQ(As<ILuxGraphicInteractive>(polygon.get())->DragStop(0, 0, 5, 5, VARIANT_TRUE, none), S_OK);
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{0, 0}, {10, 0}, {0, 20}}));
    EXPECT_TRUE(log->empty());
    ASSERT_EQ(polygon->put_GraphicDOFEnable(luxPolygonDOFAll), S_OK);
    log->clear();
    ASSERT_EQ(As<ILuxGraphicInteractive>(polygon.get())->DragStop(0, 0, 5, -1, VARIANT_TRUE, none), S_OK);
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{5, -1}, {15, -1}, {5, 19}}));
    ASSERT_EQ(log->size(), 2u);
    ExpectChange((*log)[0], luxState_MoreThanOneStateIDChanged, luxFA_Shape_Geometry, NAN);
    EXPECT_EQ((*log)[1].kind, luxPolygonEvents_BulkChanged);
    EXPECT_EQ((*log)[1].args, std::vector<double>{3});
    log->clear();
    ASSERT_EQ(polygon->FitToBoundingBox(NewRectangle(100, 200, 20, 10).get()), S_OK);
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{100, 200}, {120, 200}, {100, 210}}));
    ASSERT_EQ(log->size(), 2u);
    EXPECT_EQ((*log)[1].kind, luxPolygonEvents_BulkChanged);
    log->clear();
    ASSERT_EQ(polygon->FitToBoundingBox(NewRectangle(100, 200, 20, 10).get()), S_OK);  // already there
    EXPECT_TRUE(log->empty());
}

TEST_F(PolygonTest, PersistenceRoundTripsInBothFormatsWithTheKeysInOrder) {
    auto polygon = NewPolygon({{-3.25, 1e-7}, {0.125, 1234.5}, {77, -8}, {5, 5}});
    ASSERT_EQ(polygon->put_FillMode(luxPolygonFillWindingNumber), S_OK);
    ASSERT_EQ(polygon->put_VertexAdornment(luxPolygonVertexAdornmentSolidCircle), S_OK);
    ASSERT_EQ(polygon->put_VertexAdornmentColor(3, luxPolygonVertexColorNone), S_OK);
    ASSERT_EQ(polygon->put_VertexAdornmentColor(0, 0xABCDEF), S_OK);
    ASSERT_EQ(polygon->put_HighlightColor(luxColorRed), S_OK);
    ASSERT_EQ(polygon->put_HighlightIndex(3), S_OK);
    ASSERT_EQ(polygon->put_SelectedSpaceName(Bstr("@\\Fixture").get()), S_OK);
    for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        SCOPED_TRACE(format);
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(polygon.get()).get(), format, luxPersistOptionAll, &bytes), S_OK);
        ComPtr<IDispatch> object;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, object.Out()), S_OK);
        auto loaded = As<ILuxPolygon>(object.get());
        ASSERT_TRUE(loaded);
        EXPECT_EQ(VerticesOf(loaded.get()), VerticesOf(polygon.get()));
        EXPECT_EQ(ColorsOf(loaded.get()), ColorsOf(polygon.get()));
        LuxPolygonFillConstants fill{};
        LuxPolygonVertexAdornmentConstants adornment{};
        LONG color = 0, index = 0;
        loaded->get_FillMode(&fill);
        loaded->get_VertexAdornment(&adornment);
        loaded->get_HighlightColor(&color);
        loaded->get_HighlightIndex(&index);
        EXPECT_EQ(fill, luxPolygonFillWindingNumber);
        EXPECT_EQ(adornment, luxPolygonVertexAdornmentSolidCircle);
        EXPECT_EQ(color, luxColorRed);
        EXPECT_EQ(index, 3);
        EXPECT_EQ(SpaceName(loaded.get()), "@\\Fixture");
    }
    std::vector<uint8_t> bytes;
    ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(polygon.get()).get(), luxPersistFormatXML, luxPersistOptionAll, &bytes),
              S_OK);
    const std::string xml(bytes.begin(), bytes.end());
    size_t at = 0;
    for (const char* key : {"SelectedSpaceName", "GraphicDOFEnable", "<FillMode ", "<VertexAdornment ", "<Vertices ",
                            "<VertexAdornmentColors ", "<HighlightColor ", "<HighlightIndex "}) {
        const size_t found = xml.find(key, at);
        ASSERT_NE(found, std::string::npos) << key << " after " << at << " in\n" << xml;
        at = found + 1;
    }
}

TEST_F(PolygonTest, LoadsOfInvalidStateAreRefusedAndLeaveThePolygonAsItWas) {
    const Vertices start{{1, 2}, {3, 4}, {5, 7}};
    auto polygon = NewPolygon(start);
    ASSERT_EQ(polygon->put_VertexAdornmentColor(2, luxPolygonVertexColorRed), S_OK);
    auto log = ListenAll(polygon.get());
    const auto intArray = [](std::vector<int32_t> values) {
        SAFEARRAY* array = SafeArrayCreateVector(VT_I4, 0, static_cast<ULONG>(values.size()));
        for (LONG i = 0; i < static_cast<LONG>(values.size()); ++i) SafeArrayPutElement(array, &i, &values[i]);
        VARIANT v{};
        v.vt = VT_ARRAY | VT_I4;
        v.parray = array;
        return Variant::Attach(v);
    };
    const auto load = [&](const char* key, Variant value) {
        auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
        if (std::string_view(key) != "FillMode") archive->AddEntry("FillMode", Variant(int32_t{1}));
        archive->AddEntry("Vertices", std::string_view(key) == "Vertices" ? std::move(value)
                                                                          : Flat({{9, 9}, {19, 9}, {9, 19}}));
        archive->AddEntry("VertexAdornmentColors",
                          std::string_view(key) == "VertexAdornmentColors" ? std::move(value) : intArray({-2, -1, 5}));
        if (std::string_view(key).starts_with("Highlight") || std::string_view(key) == "VertexAdornment" ||
            std::string_view(key) == "FillMode")
            archive->AddEntry(key, std::move(value));
        return As<ILuxPersistArchive>(polygon.get())->Persist(archive.get(), luxPersistOptionAll);
    };
    const std::pair<const char*, Variant> refused[] = {
        {"Vertices", Flat({{1, 2}, {3, NAN}})},
        {"Vertices", ArrayOf(VT_R8, {5}, {1, 2, 3, 4, 5})},
        {"Vertices", ArrayOf(VT_R8, {3, 2}, {1, 2, 3, 4, 5, 6})},  // not what a polygon writes
        {"Vertices", Variant("a square")},
        {"VertexAdornmentColors", intArray({-2, -1})},                // not one a vertex
        {"VertexAdornmentColors", intArray({-2, -3, 0})},
        {"VertexAdornmentColors", intArray({-2, 0x1000000, 0})},
        {"FillMode", Variant(int32_t{2})},
        {"VertexAdornment", Variant(int32_t{2})},
        {"HighlightColor", Variant(int32_t{0x123456})},
        {"HighlightIndex", Variant(int32_t{-2})},
    };
    for (const auto& [key, value] : refused) {
        SCOPED_TRACE(key);
        EXPECT_EQ(load(key, value), static_cast<HRESULT>(e_Lux_BadFileFormat));
        const RecordedError error = TakeErrorInfo();
        EXPECT_NE(error.description.find(key), std::string::npos) << error.description;
        EXPECT_EQ(VerticesOf(polygon.get()), start);
        EXPECT_EQ(ColorsOf(polygon.get()), (std::vector<LONG>{-2, -2, luxPolygonVertexColorRed}));
        LuxPolygonFillConstants fill{};
        polygon->get_FillMode(&fill);
        EXPECT_EQ(fill, luxPolygonFillEvenOdd);
    }
    EXPECT_TRUE(log->empty());
    // A good load takes everything; it raises Change alone.
    ASSERT_EQ(load("HighlightIndex", Variant(int32_t{1})), S_OK);
    EXPECT_EQ(VerticesOf(polygon.get()), (Vertices{{9, 9}, {19, 9}, {9, 19}}));
    EXPECT_EQ(ColorsOf(polygon.get()), (std::vector<LONG>{-2, -1, 5}));
    LuxPolygonFillConstants fill{};
    LONG index = 0;
    polygon->get_FillMode(&fill);
    polygon->get_HighlightIndex(&index);
    EXPECT_EQ(fill, luxPolygonFillWindingNumber);
    EXPECT_EQ(index, 1);
    ASSERT_EQ(log->size(), 1u);
    EXPECT_EQ((*log)[0].kind, kChange);
}

}  // namespace
}  // namespace tessaly::test
