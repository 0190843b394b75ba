#include "com/shape/CLuxPolygon.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "com/core/MessageTable.h"
#include "com/core/ccCOMError.h"
#include "com/core/impl/PaletteColor.h"
#include "com/shape/PolygonVertexArray.h"
#include "com/shape/ShapeFactory.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "persist/ccArchive.h"
#include "platform/ClassTable.h"
#include "platform/SafeArray.h"
#include "xnl/std/except/ccStdError.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace tessaly::shape {

namespace {

const ClassRegistrar<CLuxPolygon> registrar;
const ShapeFactoryRegistrar<CLuxPolygon> factoryEntry("ccGenPoly");

constexpr int32_t kMaxVertices = static_cast<int32_t>(PolygonVertexArray::kMaxVertices);

void CheckFinite(double value, const char* argument) {
    if (!std::isfinite(value)) [[unlikely]]
        throw ccStdError::BadArgument(argument, core::ids_Core_InvalidArg_1, {argument});
}

[[noreturn]] void RefuseValue(const char* argument) {
    throw ccStdError::BadArgument(argument, ids_Lux_InvalidArgValue_1, {argument});
}

// A vertex index: 0 <= index < count (or <= count where `end` is allowed).
size_t CheckedIndex(LONG index, size_t count, bool endAllowed = false) {
    const size_t limit = endAllowed ? count + 1 : count;
    if (index < 0 || static_cast<size_t>(index) >= limit) [[unlikely]]
        throw ccStdError::BadArgument("Index", ids_Lux_InvalidArgIndex_2, {"vertex index", "NumVertices"});
    return static_cast<size_t>(index);
}

bool ValidVertexColor(int32_t value) noexcept {
    return value == luxPolygonVertexColorAuto || value == luxPolygonVertexColorNone ||
           (value >= 0 && value <= 0xFFFFFF);
}
bool ValidFillMode(int32_t value) noexcept {
    return value == luxPolygonFillEvenOdd || value == luxPolygonFillWindingNumber;
}

ccGenPoly::FillMode CoreFill(int32_t mode) noexcept {
    return mode == luxPolygonFillWindingNumber ? ccGenPoly::FillMode::Winding : ccGenPoly::FillMode::EvenOdd;
}
int32_t FillModeOf(const ccGenPoly& poly) noexcept {
    return poly.Fill() == ccGenPoly::FillMode::Winding ? luxPolygonFillWindingNumber : luxPolygonFillEvenOdd;
}

VARIANT Number(double value) noexcept {
    VARIANT v{};
    v.vt = VT_R8;
    v.dblVal = value;
    return v;
}
VARIANT Integer(int32_t value) noexcept {
    VARIANT v{};
    v.vt = VT_I4;
    v.lVal = value;
    return v;
}

// The core's refusal of a measure that needs extent, as the polygon's own failure.
template <class Measure>
auto Measured(const char* method, const char* why, Measure&& measure) {
    try {
        return measure();
    } catch (const ccShapesError::DegenerateShape&) {
        throw core::ccCOMError(e_LuxShape_DegeneratePolygon, std::string("The polygon is degenerate: ") + why, method,
                               IID_ILuxPolygon);
    }
}

const char* const kVerticesKey = "Vertices";
const char* const kColorsKey = "VertexAdornmentColors";

// The enumeration's values are not consecutive (None 0, SolidSquare 3, SolidCircle 4).
const int32_t kVertexAdornments[] = {luxPolygonVertexAdornmentNone, luxPolygonVertexAdornmentSolidSquare,
                                     luxPolygonVertexAdornmentSolidCircle};
enum Setting : size_t { kVertexAdornment };
const core::EnumeratedSetting kSettings[] = {
    {"VertexAdornment", luxPolygon_VertexAdornment, luxPolygonVertexAdornmentNone, 0, 0, kVertexAdornments,
     "is not a vertex adornment", "Adornment", "vertex adornment"},
};

[[noreturn]] void RefuseStored(const char* key, const std::string& why) {
    throw ccArchive::BadContent(std::string(key) + " " + why, ids_Lux_ReadInvalidProperty_1, {key});
}

// An int32 value stored under `key`, checked by `valid`; false when absent.
template <class Valid>
bool ReadStoredInt(core::ArchiveAccess& archive, const char* key, int32_t& out, Valid&& valid, const char* what) {
    Variant value;
    if (!archive.Read(key, value)) return false;
    if (FAILED(value.ChangeType(VT_I4)))
        throw ccArchive::BadType(std::string(key) + " is not an integer", ids_Lux_ReadInvalidProperty_1, {key});
    out = value.get().lVal;
    if (!valid(out)) RefuseStored(key, what);
    return true;
}

}  // namespace

std::span<const core::EnumeratedSetting> CLuxPolygon::EnumeratedGraphics() { return kSettings; }

CLuxPolygon::CLuxPolygon()
    : poly_(new ccGenPoly(std::vector<cc2Vect>{{0, 0}, {100, 0}, {100, 100}, {0, 100}})) {
    vertexGraphics_.colors.assign(4, luxPolygonVertexColorAuto);
}

ccGenPoly& CLuxPolygon::WritableLocked() { return *poly_.MakeUnique(); }

void CLuxPolygon::FitColorsLocked(size_t count) { vertexGraphics_.colors.resize(count, luxPolygonVertexColorAuto); }

ccShapePtrh_const CLuxPolygon::CoreShape() const {
    core::ObjectLock::Guard guard(Lock());
    return ccShapePtrh_const(poly_);
}

int32_t CLuxPolygon::SetFromCoreShape(const ccShape& shape) {
    const auto* poly = dynamic_cast<const ccGenPoly*>(&shape);
    if (!poly) throw ccStdError::InternalError(std::string("a LuxPolygon cannot hold a ") + shape.TypeName());
    for (const cc2Vect& vertex : poly->Vertices()) {
        CheckFinite(vertex.X(), "X");
        CheckFinite(vertex.Y(), "Y");
    }
    ccGenPolyPtrh next(poly->Clone());
    core::ObjectLock::Guard guard(Lock());
    const bool verticesDiffer = poly_->Vertices() != next->Vertices();
    const bool fillDiffers = poly_->Fill() != next->Fill();
    if (!verticesDiffer && !fillDiffers) return luxState_Undefined;
    poly_ = std::move(next);
    FitColorsLocked(poly_->NumVertices());
    if (verticesDiffer) ++vertexRevision_;
    return verticesDiffer ? int32_t{luxState_MoreThanOneStateIDChanged} : int32_t{luxPolygon_FillMode};
}

void CLuxPolygon::CopyGeometryFrom(const CLuxPolygon& source) {
    ccGenPolyPtrh poly;
    {
        core::ObjectLock::Guard guard(source.Lock());
        poly = source.poly_;
    }
    core::ObjectLock::Guard guard(Lock());
    poly_ = std::move(poly);
    FitColorsLocked(poly_->NumVertices());
    ++vertexRevision_;
}

void CLuxPolygon::LendGraphicsTo(core::ShapeImplementation& made, int32_t copyFlags) const {
    Base::LendGraphicsTo(made, copyFlags);
    if (!(copyFlags & luxCopyShapeBasicGraphics)) return;
    auto* target = dynamic_cast<CLuxPolygon*>(&made);
    if (!target || target == this) return;
    VertexGraphics graphics;
    {
        core::ObjectLock::Guard guard(Lock());
        graphics = vertexGraphics_;
    }
    core::ObjectLock::Guard guard(target->Lock());
    target->vertexGraphics_ = std::move(graphics);
    target->FitColorsLocked(target->poly_->NumVertices());
}

ccShapePtrh CLuxPolygon::FittedToBox(const ccRect& box) const {
    // The vertices' bounding box stretched onto `box`; along an axis where the polygon has
    // no extent its vertices go to the box's centre line.
    ccGenPolyPtrh poly;
    {
        core::ObjectLock::Guard guard(Lock());
        poly = poly_;
    }
    const ccRectPtrh own = poly->BoundingBox();  // EmptyShape without vertices
    const double scaleX = own->Width() > 0 ? box.Width() / own->Width() : 0.0;
    const double scaleY = own->Height() > 0 ? box.Height() / own->Height() : 0.0;
    const cc2Vect from = own->Center(), to = box.Center();
    std::vector<cc2Vect> fitted;
    fitted.reserve(poly->NumVertices());
    for (const cc2Vect& v : poly->Vertices())
        fitted.emplace_back(to.X() + (v.X() - from.X()) * scaleX, to.Y() + (v.Y() - from.Y()) * scaleY);
    return ccShapePtrh(new ccGenPoly(std::move(fitted), poly->Fill()));
}

void CLuxPolygon::PersistShapeState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        // Lock held.
        int32_t fill = FillModeOf(*poly_);
        archive.Persist("FillMode", fill);
        PersistEnumeratedGraphics(archive);
        VARIANT vertices = PolygonVertexArray::ToVariant(poly_->Vertices());
        Variant held = Variant::Attach(vertices);
        archive.Write(kVerticesKey, held.get());
        SAFEARRAY* colors = SafeArrayCreateVector(VT_I4, 0, static_cast<ULONG>(vertexGraphics_.colors.size()));
        if (!colors) throw std::bad_alloc();
        VARIANT colorsValue{};
        colorsValue.vt = VT_ARRAY | VT_I4;
        colorsValue.parray = colors;
        Variant heldColors = Variant::Attach(colorsValue);
        if (!vertexGraphics_.colors.empty()) {
            void* data = nullptr;
            if (FAILED(SafeArrayAccessData(colors, &data))) throw std::bad_alloc();
            std::copy(vertexGraphics_.colors.begin(), vertexGraphics_.colors.end(), static_cast<int32_t*>(data));
            SafeArrayUnaccessData(colors);
        }
        archive.Write(kColorsKey, heldColors.get());
        archive.Persist("HighlightColor", vertexGraphics_.highlightColor);
        archive.Persist("HighlightIndex", vertexGraphics_.highlightIndex);
        return;
    }
    // Everything is read and checked before anything is assigned.
    int32_t fill = 0, highlightColor = 0, highlightIndex = 0;
    const bool hasFill = ReadStoredInt(archive, "FillMode", fill, ValidFillMode, "is not a fill mode");
    PersistEnumeratedGraphics(archive);
    std::optional<std::vector<cc2Vect>> vertices;
    {
        Variant value;
        if (archive.Read(kVerticesKey, value)) {
            // Only an array of doubles is what a polygon writes.
            if (value.vt() != (VT_ARRAY | VT_R8) || SafeArrayGetDim(value.get().parray) != 1)
                RefuseStored(kVerticesKey, "is not an array of coordinates");
            std::string why;
            vertices = PolygonVertexArray::Parse(value.get(), why);
            if (!vertices) RefuseStored(kVerticesKey, why);
        }
    }
    std::optional<std::vector<int32_t>> colors;
    {
        Variant value;
        if (archive.Read(kColorsKey, value)) {
            if (value.vt() != (VT_ARRAY | VT_I4) || SafeArrayGetDim(value.get().parray) != 1)
                RefuseStored(kColorsKey, "is not an array of colours");
            const size_t count = SafeArrayElementCount(value.get().parray);
            if (count > PolygonVertexArray::kMaxVertices) RefuseStored(kColorsKey, "holds too many colours");
            colors.emplace(count);
            if (count) {
                void* data = nullptr;
                if (FAILED(SafeArrayAccessData(value.get().parray, &data)))
                    RefuseStored(kColorsKey, "cannot be read");
                std::copy_n(static_cast<const int32_t*>(data), count, colors->begin());
                SafeArrayUnaccessData(value.get().parray);
            }
            for (int32_t color : *colors)
                if (!ValidVertexColor(color)) RefuseStored(kColorsKey, "holds a value that is not a vertex colour");
        }
    }
    // The colours belong to the vertices: one a vertex, of the stored list or (without one)
    // of the default square the reset leaves.
    const size_t vertexCount = vertices ? vertices->size() : 4;
    if (colors && colors->size() != vertexCount) RefuseStored(kColorsKey, "does not hold one colour a vertex");
    const bool hasHighlightColor = ReadStoredInt(archive, "HighlightColor", highlightColor, core::IsPaletteColor,
                                                 "is not a palette colour");
    const bool hasHighlightIndex = ReadStoredInt(
        archive, "HighlightIndex", highlightIndex, [](int32_t v) { return v >= -1; }, "is below -1");
    // The new polygon is made here, so that the commit only assigns.
    ccGenPolyPtrh loaded;
    if (vertices) loaded = ccGenPolyPtrh(new ccGenPoly(std::move(*vertices), CoreFill(hasFill ? fill : 0)));
    archive.OnCommit([this, loaded = std::move(loaded), hasFill, fill,
                      colors = std::move(colors), hasHighlightColor, highlightColor, hasHighlightIndex,
                      highlightIndex]() mutable noexcept {
        if (loaded) {
            poly_ = std::move(loaded);
        } else if (hasFill && FillModeOf(*poly_) != fill) {
            try {
                poly_.MakeUnique()->SetFill(CoreFill(fill));
            } catch (...) {  // only a clone's allocation can fail here: the fill stays
            }
        }
        if (colors) vertexGraphics_.colors = std::move(*colors);
        FitColorsLocked(poly_->NumVertices());
        if (hasHighlightColor) vertexGraphics_.highlightColor = highlightColor;
        if (hasHighlightIndex) vertexGraphics_.highlightIndex = highlightIndex;
        ++vertexRevision_;
    });
}

template <class Reader>
HRESULT CLuxPolygon::Read(const char* method, Reader&& read) const {
    return core::Guarded(method, IID_ILuxPolygon, [&] {
        core::ObjectLock::Guard guard(Lock());
        read(*poly_);
    });
}

template <class Edit>
HRESULT CLuxPolygon::EditAndAnnounce(Edit&& edit) {
    Announcement announcement;
    {
        core::ObjectLock::Guard guard(Lock());
        announcement = edit();
    }
    return Announce(announcement);
}

template <class Edit>
HRESULT CLuxPolygon::Modify(const char* method, Edit&& edit) {
    return core::Guarded(method, IID_ILuxPolygon, [&] { return EditAndAnnounce(std::forward<Edit>(edit)); });
}

HRESULT CLuxPolygon::Announce(const Announcement& a) {
    if (a.stateId == luxState_Undefined) return S_OK;
    const HRESULT raised = RaiseChange(a.stateId, a.value, a.areas);
    if (a.vertexEvent >= 0) FireVertexEvent(a);
    return raised;
}

bool CLuxPolygon::ChangeEventsSuspended() {
    LONG suspended = 0;
    return SUCCEEDED(get_EventDeliverySuspended(&suspended)) && suspended != 0;
}

void CLuxPolygon::FireVertexEvent(const Announcement& a) {
    // While Change waits for ResumeAndFireEvent, so do the vertex events: they are folded
    // into one BulkChanged that follows the resumed Change.
    if (ChangeEventsSuspended()) {
        core::ObjectLock::Guard guard(Lock());
        bulkPending_ = true;
        return;
    }
    switch (a.vertexEvent) {
        case luxPolygonEvents_VertexChanged:
            FireEvent(DIID_ILuxPolygonEvents, a.vertexEvent, a.index, a.x, a.y);
            break;
        case luxPolygonEvents_VertexAdded:
            FireEvent(DIID_ILuxPolygonEvents, a.vertexEvent, a.index, a.x, a.y, a.count);
            break;
        case luxPolygonEvents_VertexRemoved:
            FireEvent(DIID_ILuxPolygonEvents, a.vertexEvent, a.index, a.count);
            break;
        case luxPolygonEvents_BulkChanged:
            FireEvent(DIID_ILuxPolygonEvents, a.vertexEvent, a.count);
            break;
        default:
            break;
    }
}

HRESULT CLuxPolygon::ResumeAndFireEvent() {
    const HRESULT hr = Base::ResumeAndFireEvent();
    if (FAILED(hr) || ChangeEventsSuspended()) return hr;
    Announcement bulk;
    {
        core::ObjectLock::Guard guard(Lock());
        if (!bulkPending_) return hr;
        bulkPending_ = false;
        bulk.count = static_cast<int32_t>(poly_->NumVertices());
    }
    bulk.vertexEvent = luxPolygonEvents_BulkChanged;
    FireVertexEvent(bulk);
    return hr;
}

template <class Call>
HRESULT CLuxPolygon::WithBulkEvent(Call&& call) {
    uint64_t before;
    {
        core::ObjectLock::Guard guard(Lock());
        before = vertexRevision_;
    }
    const HRESULT hr = call();
    if (FAILED(hr)) return hr;
    Announcement bulk;
    {
        core::ObjectLock::Guard guard(Lock());
        if (vertexRevision_ == before) return hr;
        bulk.count = static_cast<int32_t>(poly_->NumVertices());
    }
    bulk.vertexEvent = luxPolygonEvents_BulkChanged;
    FireVertexEvent(bulk);
    return hr;
}

HRESULT CLuxPolygon::FitToImage(ILuxImage* Image, double XScale, double YScale) {
    return WithBulkEvent([&] { return Base::FitToImage(Image, XScale, YScale); });
}
HRESULT CLuxPolygon::FitToBoundingBox(ILuxRectangle* BoundingRectangle) {
    return WithBulkEvent([&] { return Base::FitToBoundingBox(BoundingRectangle); });
}
HRESULT CLuxPolygon::DragStop(double StartX, double StartY, double EndX, double EndY, VARIANT_BOOL PrimaryGraphic,
                              VARIANT MapInfo) {
    return WithBulkEvent([&] { return Base::DragStop(StartX, StartY, EndX, EndY, PrimaryGraphic, MapInfo); });
}

HRESULT CLuxPolygon::MakeShapeModel(double /*Weight*/, LONG /*Polarity*/, VARIANT_BOOL /*CopyShape*/,
                                    IDispatch** ShapeModel) {
    return RefuseShapeModel(ShapeModel, "a polygon");
}

// ---- the vertex list

HRESULT CLuxPolygon::get_NumVertices(LONG* NumVertices) {
    return Read("get_NumVertices", [&](const ccGenPoly& p) {
        core::RequireOut(NumVertices);
        *NumVertices = static_cast<LONG>(p.NumVertices());
    });
}
HRESULT CLuxPolygon::put_NumVertices(LONG NumVertices) {
    return Modify("put_NumVertices", [&] {
        if (NumVertices < 0 || NumVertices > kMaxVertices) RefuseValue("NumVertices");
        Announcement a;
        const size_t count = static_cast<size_t>(NumVertices);
        if (poly_->NumVertices() == count) return a;
        const cc2Vect fill = poly_->NumVertices() ? poly_->Vertices().back() : cc2Vect(0, 0);
        WritableLocked().Resize(count, fill);
        FitColorsLocked(count);
        ++vertexRevision_;
        a.stateId = luxPolygon_NumVertices;
        a.value = Integer(NumVertices);
        a.vertexEvent = luxPolygonEvents_BulkChanged;
        a.count = NumVertices;
        return a;
    });
}
HRESULT CLuxPolygon::get_VertexCapacity(LONG* Capacity) {
    return Read("get_VertexCapacity", [&](const ccGenPoly& p) {
        core::RequireOut(Capacity);
        *Capacity = static_cast<LONG>(std::min<size_t>(p.VertexCapacity(), std::numeric_limits<LONG>::max()));
    });
}
HRESULT CLuxPolygon::VertexReserve(LONG MinNumVertices) {
    return core::Guarded("VertexReserve", IID_ILuxPolygon, [&] {
        if (MinNumVertices < 0 || MinNumVertices > kMaxVertices) RefuseValue("MinNumVertices");
        core::ObjectLock::Guard guard(Lock());
        if (poly_->VertexCapacity() >= static_cast<size_t>(MinNumVertices)) return;
        WritableLocked().VertexReserve(static_cast<size_t>(MinNumVertices));
        vertexGraphics_.colors.reserve(static_cast<size_t>(MinNumVertices));
    });
}

HRESULT CLuxPolygon::get_VertexX(LONG Index, double* X) {
    return Read("get_VertexX", [&](const ccGenPoly& p) {
        core::RequireOut(X);
        *X = p.Vertex(CheckedIndex(Index, p.NumVertices())).X();
    });
}
HRESULT CLuxPolygon::get_VertexY(LONG Index, double* Y) {
    return Read("get_VertexY", [&](const ccGenPoly& p) {
        core::RequireOut(Y);
        *Y = p.Vertex(CheckedIndex(Index, p.NumVertices())).Y();
    });
}
HRESULT CLuxPolygon::GetVertex(LONG Index, double* X, double* Y) {
    return Read("GetVertex", [&](const ccGenPoly& p) {
        core::RequireOut(X, Y);
        const cc2Vect& vertex = p.Vertex(CheckedIndex(Index, p.NumVertices()));
        *X = vertex.X();
        *Y = vertex.Y();
    });
}

HRESULT CLuxPolygon::MoveVertex(const char* method, LONG Index, const double* X, const double* Y) {
    return Modify(method, [&] {
        if (X) CheckFinite(*X, "X");
        if (Y) CheckFinite(*Y, "Y");
        const size_t at = CheckedIndex(Index, poly_->NumVertices());
        const cc2Vect before = poly_->Vertex(at);
        const cc2Vect after(X ? *X : before.X(), Y ? *Y : before.Y());
        Announcement a;
        const bool xChanged = after.X() != before.X(), yChanged = after.Y() != before.Y();
        if (!xChanged && !yChanged) return a;
        WritableLocked().SetVertex(at, after);
        ++vertexRevision_;
        if (xChanged && yChanged) {
            a.stateId = luxState_MoreThanOneStateIDChanged;
        } else {
            a.stateId = xChanged ? int32_t{luxPolygon_VertexX} : int32_t{luxPolygon_VertexY};
            a.value = Number(xChanged ? after.X() : after.Y());
        }
        a.vertexEvent = luxPolygonEvents_VertexChanged;
        a.index = Index;
        a.x = after.X();
        a.y = after.Y();
        return a;
    });
}

HRESULT CLuxPolygon::put_VertexX(LONG Index, double X) { return MoveVertex("put_VertexX", Index, &X, nullptr); }
HRESULT CLuxPolygon::put_VertexY(LONG Index, double Y) { return MoveVertex("put_VertexY", Index, nullptr, &Y); }
HRESULT CLuxPolygon::SetVertex(LONG Index, double X, double Y) { return MoveVertex("SetVertex", Index, &X, &Y); }

HRESULT CLuxPolygon::AddVertex(double X, double Y, LONG Index) {
    return Modify("AddVertex", [&] {
        CheckFinite(X, "X");
        CheckFinite(Y, "Y");
        const size_t count = poly_->NumVertices();
        const size_t at = Index == -1 ? count : CheckedIndex(Index, count, true);
        if (count >= PolygonVertexArray::kMaxVertices) RefuseValue("NumVertices");
        WritableLocked().InsertVertex(at, cc2Vect(X, Y));
        vertexGraphics_.colors.insert(vertexGraphics_.colors.begin() + static_cast<ptrdiff_t>(at),
                                      luxPolygonVertexColorAuto);
        ++vertexRevision_;
        Announcement a;
        a.stateId = luxPolygon_NumVertices;
        a.count = static_cast<int32_t>(count + 1);
        a.value = Integer(a.count);
        a.vertexEvent = luxPolygonEvents_VertexAdded;
        a.index = static_cast<int32_t>(at);
        a.x = X;
        a.y = Y;
        return a;
    });
}

HRESULT CLuxPolygon::RemoveVertex(LONG Index) {
    return Modify("RemoveVertex", [&] {
        const size_t at = CheckedIndex(Index, poly_->NumVertices());
        WritableLocked().RemoveVertex(at);
        vertexGraphics_.colors.erase(vertexGraphics_.colors.begin() + static_cast<ptrdiff_t>(at));
        ++vertexRevision_;
        Announcement a;
        a.stateId = luxPolygon_NumVertices;
        a.count = static_cast<int32_t>(poly_->NumVertices());
        a.value = Integer(a.count);
        a.vertexEvent = luxPolygonEvents_VertexRemoved;
        a.index = Index;
        return a;
    });
}

HRESULT CLuxPolygon::GetVertices(VARIANT* CoordinatesXY) {
    return core::Guarded("GetVertices", IID_ILuxPolygon, [&] {
        core::RequireOut(CoordinatesXY);
        VariantInit(CoordinatesXY);
        ccGenPolyPtrh poly;
        {
            core::ObjectLock::Guard guard(Lock());
            poly = poly_;  // the array is made without the lock
        }
        *CoordinatesXY = PolygonVertexArray::ToVariant(poly->Vertices());
    });
}

HRESULT CLuxPolygon::SetVertices(VARIANT CoordinatesXY) {
    return core::Guarded("SetVertices", IID_ILuxPolygon, [&] {
        // Read without the lock: the array is the caller's.
        std::string why;
        std::optional<std::vector<cc2Vect>> vertices = PolygonVertexArray::Parse(CoordinatesXY, why);
        if (!vertices) RefuseValue("CoordinatesXY");
        return EditAndAnnounce([&] {
            Announcement a;
            if (poly_->Vertices() == *vertices) return a;
            const size_t count = vertices->size();
            WritableLocked().SetVertices(std::move(*vertices));
            FitColorsLocked(count);
            ++vertexRevision_;
            a.stateId = luxState_MoreThanOneStateIDChanged;
            a.vertexEvent = luxPolygonEvents_BulkChanged;
            a.count = static_cast<int32_t>(count);
            return a;
        });
    });
}

// ---- graphics of the vertices

HRESULT CLuxPolygon::get_VertexAdornment(LuxPolygonVertexAdornmentConstants* Adornment) {
    return GetEnumeratedGraphic("get_VertexAdornment", kVertexAdornment, Adornment);
}
HRESULT CLuxPolygon::put_VertexAdornment(LuxPolygonVertexAdornmentConstants Adornment) {
    return PutEnumeratedGraphic("put_VertexAdornment", kVertexAdornment, Adornment);
}
HRESULT CLuxPolygon::get_VertexAdornmentColor(LONG Index, LONG* Color) {
    return core::Guarded("get_VertexAdornmentColor", IID_ILuxPolygon, [&] {
        core::RequireOut(Color);
        core::ObjectLock::Guard guard(Lock());
        *Color = vertexGraphics_.colors[CheckedIndex(Index, poly_->NumVertices())];
    });
}
HRESULT CLuxPolygon::put_VertexAdornmentColor(LONG Index, LONG Color) {
    return Modify("put_VertexAdornmentColor", [&] {
        const size_t at = CheckedIndex(Index, poly_->NumVertices());
        if (!ValidVertexColor(Color))
            throw ccStdError::BadArgument("Color", ids_Lux_InvalidArgEnum_1, {"vertex adornment color"});
        Announcement a;
        if (vertexGraphics_.colors[at] == Color) return a;
        vertexGraphics_.colors[at] = Color;
        a.stateId = luxPolygon_VertexAdornmentColor;
        a.value = Integer(Color);
        a.areas = luxFA_Shape_Graphic;
        return a;
    });
}

HRESULT CLuxPolygon::get_HighlightColor(LONG* Color) {
    return core::Guarded("get_HighlightColor", IID_ILuxPolygon, [&] {
        core::RequireOut(Color);
        core::ObjectLock::Guard guard(Lock());
        *Color = vertexGraphics_.highlightColor;
    });
}
HRESULT CLuxPolygon::put_HighlightColor(LONG Color) {
    return Modify("put_HighlightColor", [&] {
        core::CheckPaletteColor(Color);
        Announcement a;
        if (vertexGraphics_.highlightColor == Color) return a;
        vertexGraphics_.highlightColor = Color;
        a.stateId = luxPolygon_HighlightColor;
        a.value = Integer(Color);
        a.areas = luxFA_Shape_Graphic;
        return a;
    });
}
HRESULT CLuxPolygon::get_HighlightIndex(LONG* Index) {
    return core::Guarded("get_HighlightIndex", IID_ILuxPolygon, [&] {
        core::RequireOut(Index);
        core::ObjectLock::Guard guard(Lock());
        *Index = vertexGraphics_.highlightIndex;
    });
}
HRESULT CLuxPolygon::put_HighlightIndex(LONG Index) {
    return Modify("put_HighlightIndex", [&] {
        if (Index < -1) RefuseValue("HighlightIndex");
        Announcement a;
        if (vertexGraphics_.highlightIndex == Index) return a;
        vertexGraphics_.highlightIndex = Index;
        a.stateId = luxPolygon_HighlightIndex;
        a.value = Integer(Index);
        a.areas = luxFA_Shape_Graphic;
        return a;
    });
}
HRESULT CLuxPolygon::get_HighlightRequested(LONG* Count) {
    return core::Guarded("get_HighlightRequested", IID_ILuxPolygon, [&] {
        core::RequireOut(Count);
        core::ObjectLock::Guard guard(Lock());
        *Count = highlightRequested_;
    });
}
HRESULT CLuxPolygon::HighlightRequest() {
    return Modify("HighlightRequest", [&] {
        Announcement a;
        if (highlightRequested_ == std::numeric_limits<int32_t>::max()) return a;  // saturates
        ++highlightRequested_;
        a.stateId = luxPolygon_HighlightRequested;
        a.value = Integer(highlightRequested_);
        a.areas = luxFA_Shape_Graphic;
        return a;
    });
}
HRESULT CLuxPolygon::HighlightRelinquish() {
    return Modify("HighlightRelinquish", [&] {
        Announcement a;
        if (highlightRequested_ == 0) return a;  // never below 0
        --highlightRequested_;
        a.stateId = luxPolygon_HighlightRequested;
        a.value = Integer(highlightRequested_);
        a.areas = luxFA_Shape_Graphic;
        return a;
    });
}

// ---- fill mode and measures

HRESULT CLuxPolygon::get_FillMode(LuxPolygonFillConstants* FillMode) {
    return Read("get_FillMode", [&](const ccGenPoly& p) {
        core::RequireOut(FillMode);
        *FillMode = static_cast<LuxPolygonFillConstants>(FillModeOf(p));
    });
}
HRESULT CLuxPolygon::put_FillMode(LuxPolygonFillConstants FillMode) {
    return Modify("put_FillMode", [&] {
        if (!ValidFillMode(FillMode)) throw ccStdError::BadArgument("FillMode", ids_Lux_InvalidArgEnum_1, {"FillMode"});
        Announcement a;
        if (FillModeOf(*poly_) == FillMode) return a;
        WritableLocked().SetFill(CoreFill(FillMode));
        a.stateId = luxPolygon_FillMode;
        a.value = Integer(FillMode);
        return a;
    });
}

HRESULT CLuxPolygon::get_Complex(VARIANT_BOOL* Complex) {
    return Read("get_Complex", [&](const ccGenPoly& p) {
        core::RequireOut(Complex);
        *Complex = p.IsComplex() ? VARIANT_TRUE : VARIANT_FALSE;
    });
}
HRESULT CLuxPolygon::get_Convex(VARIANT_BOOL* Convex) {
    return Read("get_Convex", [&](const ccGenPoly& p) {
        core::RequireOut(Convex);
        *Convex = p.IsConvex() ? VARIANT_TRUE : VARIANT_FALSE;
    });
}
HRESULT CLuxPolygon::get_Perimeter(double* Perimeter) {
    return Read("get_Perimeter", [&](const ccGenPoly& p) {
        core::RequireOut(Perimeter);
        *Perimeter = p.Perimeter();
    });
}
HRESULT CLuxPolygon::get_Area(double* Area) {
    return Read("get_Area", [&](const ccGenPoly& p) {
        core::RequireOut(Area);
        *Area = p.Area();
    });
}

HRESULT CLuxPolygon::NearestVertex(double X, double Y, LONG* Index) {
    return Read("NearestVertex", [&](const ccGenPoly& p) {
        core::RequireOut(Index);
        *Index = static_cast<LONG>(
            Measured("NearestVertex", "it has no vertices", [&] { return p.NearestVertex(cc2Vect(X, Y)); }));
    });
}
HRESULT CLuxPolygon::MeanVertex(double* X, double* Y) {
    return Read("MeanVertex", [&](const ccGenPoly& p) {
        core::RequireOut(X, Y);
        const cc2Vect mean = Measured("MeanVertex", "it has no vertices", [&] { return p.MeanVertex(); });
        *X = mean.X();
        *Y = mean.Y();
    });
}
HRESULT CLuxPolygon::ArcCenter(double* X, double* Y) {
    return Read("ArcCenter", [&](const ccGenPoly& p) {
        core::RequireOut(X, Y);
        const cc2Vect centre = Measured("ArcCenter", "its perimeter is 0", [&] { return p.ArcCenter(); });
        *X = centre.X();
        *Y = centre.Y();
    });
}
HRESULT CLuxPolygon::AreaCenter(double* X, double* Y) {
    return Read("AreaCenter", [&](const ccGenPoly& p) {
        core::RequireOut(X, Y);
        const cc2Vect centre = Measured("AreaCenter", "its area is 0", [&] { return p.AreaCenter(); });
        *X = centre.X();
        *Y = centre.Y();
    });
}
HRESULT CLuxPolygon::ArcMoments1(double* Sum, double* SumX, double* SumY) {
    return Read("ArcMoments1", [&](const ccGenPoly& p) {
        core::RequireOut(Sum, SumX, SumY);
        const ccGenPoly::Moments1 m = p.ArcMoments1();
        *Sum = m.sum, *SumX = m.sumX, *SumY = m.sumY;
    });
}
HRESULT CLuxPolygon::ArcMoments2(double* Sum, double* SumX, double* SumY, double* SumXX, double* SumYY,
                                 double* SumXY) {
    return Read("ArcMoments2", [&](const ccGenPoly& p) {
        core::RequireOut(Sum, SumX, SumY, SumXX, SumYY, SumXY);
        const ccGenPoly::Moments2 m = p.ArcMoments2();
        *Sum = m.sum, *SumX = m.sumX, *SumY = m.sumY, *SumXX = m.sumXX, *SumYY = m.sumYY, *SumXY = m.sumXY;
    });
}
HRESULT CLuxPolygon::AreaMoments1(double* Sum, double* SumX, double* SumY) {
    return Read("AreaMoments1", [&](const ccGenPoly& p) {
        core::RequireOut(Sum, SumX, SumY);
        const ccGenPoly::Moments1 m = p.AreaMoments1();
        *Sum = m.sum, *SumX = m.sumX, *SumY = m.sumY;
    });
}
HRESULT CLuxPolygon::AreaMoments2(double* Sum, double* SumX, double* SumY, double* SumXX, double* SumYY,
                                  double* SumXY) {
    return Read("AreaMoments2", [&](const ccGenPoly& p) {
        core::RequireOut(Sum, SumX, SumY, SumXX, SumYY, SumXY);
        const ccGenPoly::Moments2 m = p.AreaMoments2();
        *Sum = m.sum, *SumX = m.sumX, *SumY = m.sumY, *SumXX = m.sumXX, *SumYY = m.sumYY, *SumXY = m.sumXY;
    });
}

// ---- new polygons

HRESULT CLuxPolygon::ConvexHull(ILuxPolygon** Hull) {
    return core::Guarded("ConvexHull", IID_ILuxPolygon, [&] {
        core::RequireOut(Hull);
        *Hull = nullptr;
        ccGenPolyPtrh poly;
        {
            core::ObjectLock::Guard guard(Lock());
            poly = poly_;
        }
        const ccGenPolyPtrh hull = poly->ConvexHull();
        ComPtr<ILuxShape> shape = NewShapeFromCore(*hull);
        core::ShapeImplementation::Require(shape.get(), "Hull").TakeCommonState(CommonState(), luxCopyShapeGeometryOnly);
        ComPtr<ILuxPolygon> result = shape.As<ILuxPolygon>();
        if (!result) throw ccStdError::InternalError("the hull of a polygon is not a polygon");
        *Hull = result.Detach();
    });
}

HRESULT CLuxPolygon::MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags,
                               ILuxPolygon** Result) {
    return core::Guarded("MapLinear", IID_ILuxPolygon, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        core::RequireArgument(Transform, "Transform");
        const ComPtr<ILuxShape> mapped = MapThrough(transform::CLuxTransform2DLinear::ValueOf(Transform), CopyFlags);
        ComPtr<ILuxPolygon> polygon = mapped.As<ILuxPolygon>();
        if (!polygon) throw ccStdError::InternalError("a polygon mapped is not a polygon");
        *Result = polygon.Detach();
    });
}

HRESULT CLuxPolygon::Copy(LuxCopyShapeConstants CopyFlags, ILuxPolygon** Result) {
    return core::Guarded("Copy", IID_ILuxPolygon, [&] {
        core::RequireOut(Result);
        *Result = nullptr;
        *Result = CopyWith(CopyFlags).Detach();
    });
}

}  // namespace tessaly::shape
