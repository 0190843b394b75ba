// LuxPolygon: a closed shape given by an ordered list of vertices, each joined to the next
// and the last to the first; a region and an interactive graphic (ILuxRegionImpl). The
// core shape is a ccGenPoly, which does the mathematics (area, perimeter, moments, hull,
// the inside test and the scan converter under both fill modes); this class holds it,
// checks what it is given, raises Change and the vertex events of ILuxPolygonEvents, and
// persists it.
//
// A new polygon is the square (0, 0), (100, 0), (100, 100), (0, 100) under the even-odd
// rule: as a region the pixels 0..99 x 0..99, the same as a new LuxRectangle, so that a fresh
// one drawn over an image is visible. Write NumVertices = 0 (or SetVertices with an empty
// array) to start from an empty list.
//
// Vertices. Every coordinate is finite: a NaN or infinite X or Y is refused with
// E_INVALIDARG, ids_Core_InvalidArg_1 naming the argument. Indices run 0 .. NumVertices - 1;
// out of range: E_INVALIDARG, ids_Lux_InvalidArgIndex_2 with "vertex index" and
// "NumVertices". AddVertex also takes NumVertices and -1 (both append). A polygon holds at
// most PolygonVertexArray::kMaxVertices (16777216) vertices: writing a negative or larger
// NumVertices, or adding beyond it, is refused with E_INVALIDARG, ids_Lux_InvalidArgValue_1
// naming "NumVertices" (VertexReserve: naming "MinNumVertices"). Writing a larger
// NumVertices appends copies of the last vertex ((0, 0) when the list is empty), so the
// outline does not change until they are moved. SetVertices takes what PolygonVertexArray
// accepts; anything else is refused with E_INVALIDARG, ids_Lux_InvalidArgValue_1 naming
// "CoordinatesXY".
//
// Per-vertex colours (VertexAdornmentColor) follow their index: a vertex added or made by
// extending the list starts at luxPolygonVertexColorAuto; SetVertices keeps the colours of
// the indices that remain. A colour is Auto (-2), None (-1) or any colour 0..0xFFFFFF;
// anything else is refused with E_INVALIDARG, ids_Lux_InvalidArgEnum_1 naming "vertex
// adornment color". VertexAdornment outside its enumeration: the same naming "vertex
// adornment"; FillMode: naming "FillMode".
//
// Highlighting. HighlightColor takes the sixteen palette values only (PaletteColor); it
// starts at luxColorYellow. HighlightIndex is -1 (nothing highlighted, the default) or any
// index >= 0; one beyond the list highlights nothing, and removing vertices does not move
// it. Below -1: E_INVALIDARG, ids_Lux_InvalidArgValue_1 naming "HighlightIndex".
// HighlightRequest raises the request count by one, HighlightRelinquish lowers it; at 0
// HighlightRelinquish succeeds and changes nothing, so an unmatched relinquish never
// disables a later request. The count is neither copied nor persisted.
//
// Measures. Perimeter is 0 below 2 vertices and Area 0 below 3 (ccGenPoly says how a
// complex polygon is measured). The moment sums never fail (zeros for a polygon without
// extent); AreaCenter without area, ArcCenter without perimeter, MeanVertex and NearestVertex
// without vertices fail with e_LuxShape_DegeneratePolygon (0x8004E304) and a text that says
// why. NearestVertex answers the lowest index among equally near vertices. ConvexHull
// answers a new LuxPolygon (this SelectedSpaceName and fill mode, graphics at defaults).
// CreateRLE of a polygon with fewer than 3 vertices is an empty mask (no pixel is inside).
// EnclosingRectangle, FitToBoundingBox and the like of a polygon without vertices fail with
// ccShapesError::EmptyShape.
//
// Events. A call that changes nothing raises nothing; a refused call changes nothing and
// raises nothing. After a change, with no lock held, Change first, then the vertex event:
//   SetVertex             Change(luxPolygon_VertexX or _VertexY with the value, or
//                         luxState_MoreThanOneStateIDChanged), then VertexChanged
//   put VertexX/VertexY   Change(luxPolygon_VertexX/_VertexY, the value), VertexChanged
//   AddVertex             Change(luxPolygon_NumVertices, the new count), VertexAdded
//   RemoveVertex          Change(luxPolygon_NumVertices, the new count), VertexRemoved
//   put NumVertices       Change(luxPolygon_NumVertices, the new count), BulkChanged
//   SetVertices           Change(luxState_MoreThanOneStateIDChanged), BulkChanged
//   DragStop, FitToImage, FitToBoundingBox that move vertices: their Change, BulkChanged
// all with luxFA_Shape_Geometry; put FillMode: Change(luxPolygon_FillMode, value,
// luxFA_Shape_Geometry), no vertex event. VertexAdornment, VertexAdornmentColor,
// HighlightColor, HighlightIndex and the request count are graphic settings:
// Change(their state ID, the value, luxFA_Shape_Graphic). A load raises Change only.
// While change events are suspended no vertex event is fired either; ResumeAndFireEvent
// (once the count is back at 0) fires the merged Change and then one BulkChanged when any
// vertex event was held back.
//
// Copy flags: the adornment, the per-vertex colours and the highlight colour and index are
// graphic settings, copied with luxCopyShapeBasicGraphics (Copy, CopyBase, Map, MapLinear,
// MapGraphic, Clone). Map and MapLinear answer a new LuxPolygon.
//
// A drag moves every vertex when the DOF mask has luxPolygonDOFPosition. Vertex handles
// (LuxPolygonVertexHandle) are not made by this class yet, so luxPolygonDOFVertexPositions
// is stored and persisted but has no effect.
//
// MakeShapeModel: shape models are not part of this library; e_Lux_NotImplemented.
//
// Persistence: the common shape keys (ILuxShapeImpl), then "FillMode", "VertexAdornment"
// (int32), "Vertices" (one array of doubles X0, Y0, X1, Y1, ...), "VertexAdornmentColors"
// (one int32 a vertex), "HighlightColor", "HighlightIndex" (int32). A stored value outside
// what the properties accept (an odd or oversized coordinate array, a coordinate that is
// not finite, colours not one a vertex, an enumeration value out of range) is refused with
// ccArchive::BadContent naming the key, and the object keeps its state.
#pragma once

#include <cstdint>
#include <vector>

#include "TessalyCore.h"
#include "com/core/impl/ILuxRegionImpl.h"
#include "platform/ComPtr.h"
#include "xnl/std/shapes/ccGenPoly.h"

namespace tessaly::shape {

class CLuxPolygon : public core::ILuxRegionImpl<CLuxPolygon, ILuxPolygon, ILuxGraphicInteractive, LuxPolygonDOFConstants> {
    using Base = core::ILuxRegionImpl<CLuxPolygon, ILuxPolygon, ILuxGraphicInteractive, LuxPolygonDOFConstants>;

public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxPolygon; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxPolygon;

    CLuxPolygon();

    // What the shape layer asks of the class (see ILuxShapeImpl).
    ccShapePtrh_const CoreShape() const override;
    int32_t SetFromCoreShape(const ccShape& shape);
    void CopyGeometryFrom(const CLuxPolygon& source);
    ccShapePtrh FittedToBox(const ccRect& box) const;
    void PersistShapeState(core::ArchiveAccess& archive);
    // VertexAdornment.
    static std::span<const core::EnumeratedSetting> EnumeratedGraphics();
    // The enumerated settings, and the vertex colours and highlight to a polygon.
    void LendGraphicsTo(core::ShapeImplementation& made, int32_t copyFlags) const;

    // ILuxShape and ILuxGraphicInteractive members that move the vertices.
    HRESULT FitToImage(ILuxImage* Image, double XScale, double YScale) override;
    HRESULT FitToBoundingBox(ILuxRectangle* BoundingRectangle) override;
    HRESULT DragStop(double StartX, double StartY, double EndX, double EndY, VARIANT_BOOL PrimaryGraphic,
                     VARIANT MapInfo) override;
    // ILuxChangeEventConfiguration: the vertex events held back while suspended follow the
    // resumed Change as one BulkChanged.
    HRESULT ResumeAndFireEvent() override;

    // ILuxPolygon
    HRESULT MakeShapeModel(double Weight, LONG Polarity, VARIANT_BOOL CopyShape, IDispatch** ShapeModel) override;
    HRESULT get_NumVertices(LONG* NumVertices) override;
    HRESULT put_NumVertices(LONG NumVertices) override;
    HRESULT get_VertexCapacity(LONG* Capacity) override;
    HRESULT get_VertexX(LONG Index, double* X) override;
    HRESULT put_VertexX(LONG Index, double X) override;
    HRESULT get_VertexY(LONG Index, double* Y) override;
    HRESULT put_VertexY(LONG Index, double Y) override;
    HRESULT get_VertexAdornment(LuxPolygonVertexAdornmentConstants* Adornment) override;
    HRESULT put_VertexAdornment(LuxPolygonVertexAdornmentConstants Adornment) override;
    HRESULT get_VertexAdornmentColor(LONG Index, LONG* Color) override;
    HRESULT put_VertexAdornmentColor(LONG Index, LONG Color) override;
    HRESULT get_Complex(VARIANT_BOOL* Complex) override;
    HRESULT get_Perimeter(double* Perimeter) override;
    HRESULT get_FillMode(LuxPolygonFillConstants* FillMode) override;
    HRESULT put_FillMode(LuxPolygonFillConstants FillMode) override;
    HRESULT get_Convex(VARIANT_BOOL* Convex) override;
    HRESULT get_Area(double* Area) override;
    HRESULT VertexReserve(LONG MinNumVertices) override;
    HRESULT AddVertex(double X, double Y, LONG Index) override;
    HRESULT RemoveVertex(LONG Index) override;
    HRESULT GetVertex(LONG Index, double* X, double* Y) override;
    HRESULT SetVertex(LONG Index, double X, double Y) override;
    HRESULT GetVertices(VARIANT* CoordinatesXY) override;
    HRESULT SetVertices(VARIANT CoordinatesXY) override;
    HRESULT Copy(LuxCopyShapeConstants CopyFlags, ILuxPolygon** Result) override;
    HRESULT MapLinear(ILuxTransform2DLinear* Transform, LuxCopyShapeConstants CopyFlags, ILuxPolygon** Result) override;
    HRESULT NearestVertex(double X, double Y, LONG* Index) override;
    HRESULT MeanVertex(double* X, double* Y) override;
    HRESULT ArcCenter(double* X, double* Y) override;
    HRESULT ArcMoments1(double* Sum, double* SumX, double* SumY) override;
    HRESULT ArcMoments2(double* Sum, double* SumX, double* SumY, double* SumXX, double* SumYY, double* SumXY) override;
    HRESULT ConvexHull(ILuxPolygon** Hull) override;
    HRESULT AreaCenter(double* X, double* Y) override;
    HRESULT AreaMoments1(double* Sum, double* SumX, double* SumY) override;
    HRESULT AreaMoments2(double* Sum, double* SumX, double* SumY, double* SumXX, double* SumYY, double* SumXY) override;
    HRESULT get_HighlightColor(LONG* Color) override;
    HRESULT put_HighlightColor(LONG Color) override;
    HRESULT get_HighlightIndex(LONG* Index) override;
    HRESULT put_HighlightIndex(LONG Index) override;
    HRESULT get_HighlightRequested(LONG* Count) override;
    HRESULT HighlightRequest() override;
    HRESULT HighlightRelinquish() override;

protected:
    ~CLuxPolygon() override = default;

private:
    // The graphic settings of the vertices besides VertexAdornment (copied with
    // luxCopyShapeBasicGraphics).
    struct VertexGraphics {
        std::vector<int32_t> colors;  // one a vertex
        int32_t highlightColor = luxColorYellow;
        int32_t highlightIndex = -1;
    };
    // What a change announces once the lock is released: Change, then the vertex event
    // (kind < 0: none).
    struct Announcement {
        int32_t stateId = luxState_Undefined;
        VARIANT value{};  // numbers only: nothing to free
        int32_t areas = luxFA_Shape_Geometry;
        int32_t vertexEvent = -1;
        int32_t index = 0;
        double x = 0, y = 0;
        int32_t count = 0;
    };

    // Runs `edit` (which checks, then changes the state, under the lock, and answers what to
    // announce) and raises what it answers.
    template <class Edit>
    HRESULT Modify(const char* method, Edit&& edit);
    // The same inside a guarded body.
    template <class Edit>
    HRESULT EditAndAnnounce(Edit&& edit);
    // Moves one vertex: the coordinates given (null: kept).
    HRESULT MoveVertex(const char* method, LONG Index, const double* X, const double* Y);
    HRESULT Announce(const Announcement& announcement);
    // The vertex event of an announcement, or a note for ResumeAndFireEvent while change
    // events are suspended. No lock held.
    void FireVertexEvent(const Announcement& announcement);
    bool ChangeEventsSuspended();
    // Reads under the lock.
    template <class Reader>
    HRESULT Read(const char* method, Reader&& read) const;
    // The polygon to change, alone in its handle; lock held.
    ccGenPoly& WritableLocked();
    // Calls a member of the shape layer and raises BulkChanged when it changed the vertices.
    template <class Call>
    HRESULT WithBulkEvent(Call&& call);
    // The colours resized to `count` vertices, new ones Auto; lock held.
    void FitColorsLocked(size_t count);

    // Guarded by the lock. poly_ is never null; it is shared with CoreShape's callers and
    // copied before a change when they still hold it.
    ccGenPolyPtrh poly_;
    VertexGraphics vertexGraphics_;
    int32_t highlightRequested_ = 0;
    // Counts the changes of the vertex list, so that the shape layer's moves can be told.
    uint64_t vertexRevision_ = 0;
    // A vertex event was held back while change events were suspended.
    bool bulkPending_ = false;
};

}  // namespace tessaly::shape
