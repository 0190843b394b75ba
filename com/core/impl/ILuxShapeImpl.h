// The shape layer of every shape class: ILuxShape (SelectedSpaceName, DistanceToPoint, Map,
// FitToImage, FitToBoundingBox, EnclosingRectangle) and the members of ILuxGraphic and
// ILuxGraphicInteractive that need the geometry, over the graphic layer ILuxGraphicImpl:
//
//     class CLuxThing : public ILuxShapeImpl<CLuxThing, ILuxThing, ILuxGraphicInteractive, LuxThingDOFConstants>
//
// (closed shapes derive from ILuxRegionImpl, which adds ILuxRegion). The class ID and the
// type library's ID come from the class's coclass (Derived::CoClass()).
//
// The class supplies only its parameters and these members (all public):
//
//     ccShapePtrh_const CoreShape() const override;       // from the parameters, under the lock
//     int32_t SetFromCoreShape(const ccShape& shape);     // takes the geometry of a core shape
//                                                         // (refusing another kind); answers the
//                                                         // state ID to announce: its property's,
//                                                         // luxState_MoreThanOneStateIDChanged, or
//                                                         // luxState_Undefined when nothing changed.
//                                                         // Raises nothing itself.
//     void CopyGeometryFrom(const Derived& source);       // the parameters (source's lock to read)
//     ccShapePtrh FittedToBox(const ccRect& box) const;   // the shape proportioned into a box
//     void PersistShapeState(ArchiveAccess& archive);     // its own keys, after the common ones;
//                                                         // PersistEnumeratedGraphics where its
//                                                         // enumerated settings' keys belong
//
// and may hide `ccShapePtrh FittedToImage(const ccShape& imageExtent, double xScale, double
// yScale) const`, whose default takes the bounding box of the image's extent scaled by
// XScale and YScale about its centre and hands it to FittedToBox.
//
// A class with enumerated graphic settings (adornments, display modes) describes them in
// `static std::span<const EnumeratedSetting> EnumeratedGraphics()` (EnumeratedGraphicSettings.h)
// and serves their properties with GetEnumeratedGraphic and PutEnumeratedGraphic. They are
// graphic settings: every shape made from this one (Copy, CopyBase, Map, MapGraphic,
// MapLinear, Clone, DragAnimate) takes them through LendGraphicsTo when the copy flags
// select luxCopyShapeBasicGraphics; a class with other graphic state of its own hides
// LendGraphicsTo and calls this one first. MakeShapeModel is refused by RefuseShapeModel.
//
// What the members do:
//  - SelectedSpaceName: the same string exactly: nothing. Otherwise checked with the
//    syntax of names to look up, partial names allowed (".", ".\Part", "..\Camera");
//    refused names fail with e_LuxSpaceTree_InvalidNameSyntax and keep the old name. Stored,
//    then Change(luxShape_SelectedSpaceName, the name, luxFA_Shape_SelectedSpaceName). The
//    coordinates are not converted: they are read in the new space from now on.
//  - Map: the core shape through a linear transform (any ILuxTransform2D whose Linear is
//    true; e_LuxTransform_NotLinear otherwise), as a new shape of the class the core result
//    belongs to (ShapeFactory: a rectangle through a rotation becomes an affine rectangle),
//    with this shape's SelectedSpaceName and what CopyFlags selects. The result keeps the
//    name although its coordinates are those of the transform's "to" space: the caller,
//    who knows what the transform means, renames it if it wants to.
//  - Copy flags: geometry and SelectedSpaceName always; luxCopyShapeBasicGraphics every
//    graphic setting but the DOF mask; luxCopyShapeDOFs the DOF mask (as a number, also
//    into a shape of another class); luxCopyShapeChildren nothing yet (no shape has
//    children); luxCopyShapeAll everything. What is not copied has the defaults of a new
//    object. Other bits are ignored.
//  - EnclosingRectangle: the bounding box in the shape's own space as a new LuxRectangle
//    (CopyFlags as above). GraphicRectangle(MapInfo): the same with no flags, of the shape
//    mapped first when MapInfo holds an ILuxTransform2D.
//  - FitToImage(Image, XScale, YScale): the image's pixel rectangle (0, 0, Width, Height)
//    mapped into the shape's selected space (resolved as RegionInImage tells; the transform
//    must be linear), fitted by the class (FittedToImage). XScale and YScale must be > 0
//    (ids_Lux_InvalidArgNotPositive_1); an image without pixels: e_LuxImage_NoPixels.
//  - FitToBoundingBox(BoundingRectangle): the class's FittedToBox of the rectangle's X, Y,
//    Width and Height (its SelectedSpaceName is not looked at). Null: E_INVALIDARG naming
//    "BoundingRectangle".
//  - These and DragStop raise one Change with the state ID SetFromCoreShape answers and
//    luxFA_Shape_Geometry; nothing when the geometry is unchanged.
//  - MapGraphic(Transform, MapInfo) is Map with luxCopyShapeAll (MapInfo is not used);
//    CopyBase(CopyFlags) a copy; DistanceFrom is DistanceToPoint.
//  - DragAnimate(Start, Now, PrimaryGraphic, MapInfo): a copy of the shape (everything
//    copied) moved by Now - Start when the DOF mask has the position bit, else unmoved;
//    raises Dragging(copy) on ILuxGraphicInteractiveEvents and answers the copy. DragStop
//    moves this shape by End - Start (same rule) and raises DraggingStopped(this shape).
//    MapInfo empty (or missing, or Nothing): the points are in the shape's own space; an
//    ILuxTransform2D: they are in its "to" space, and its inverse maps them back first.
//    Anything else: E_INVALIDARG naming "MapInfo". PrimaryGraphic is not used: there are
//    no handles, so a drag always moves the whole shape.
//  - Draw(RenderContext): shape::DrawShape (com/shape/ShapeDrawing.h): the outline in a
//    planar colour image, the shape's space looked up in that image's tree.
//
// Persistence: the common keys (ShapeCommonPersistence.h), then the class's own. Clone
// copies everything (CopyGeometryFrom and luxCopyShapeAll). Core failures reach the client
// through the guard with the method's name as the source; the object is left as it was.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "TessalyCore.h"
#include "com/core/impl/EnumeratedGraphicSettings.h"
#include "com/core/impl/ILuxGraphicImpl.h"
#include "com/core/impl/ShapeCommonPersistence.h"
#include "com/core/impl/ShapeImplementation.h"
#include "com/shape/ShapeDrawing.h"
#include "com/shape/ShapeFactory.h"
#include "xnl/std/base/cc2Vect.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccShape.h"

namespace tessaly::core {

// Refuses a SelectedSpaceName of bad syntax (partial names allowed).
void CheckShapeSpaceName(std::string_view name);
// The linear value of a transform that is linear; e_LuxTransform_NotLinear otherwise.
cc2XformLinear LinearValueRequired(ILuxTransform2D* transform);
// The transform MapInfo holds; null when it holds none (empty, missing, Nothing).
ComPtr<ILuxTransform2D> MapInfoTransform(const VARIANT& mapInfo);
// How far a drag from start to end moves the shape, in the shape's space.
cc2Vect DragOffset(double startX, double startY, double endX, double endY, const VARIANT& mapInfo);
// The rectangle held by any ILuxRectangle.
ccRectPtrh RectangleValueOf(ILuxRectangle* rectangle);
// `box` scaled by xScale and yScale about its centre.
ccRectPtrh ScaledAboutCentre(const ccRect& box, double xScale, double yScale);
// The pixel rectangle of `image` in the space a shape names (see FitToImage).
ccShapePtrh ImageExtentInSpace(ILuxImage* image, std::string_view shapeSpace);
// The new LuxRectangle holding `box`.
ComPtr<ILuxRectangle> NewRectangle(const ccRect& box);
// The refusal of MakeShapeModel: shape models are not part of this library. `shape` names
// the class with its article ("an ellipse").
[[noreturn]] void ThrowNoShapeModel(const char* shape);

template <class Derived, class PrimaryInterface, class Interactive, class DOFEnum>
class ILuxShapeImpl : public ILuxGraphicImpl<Derived, PrimaryInterface, Interactive, DOFEnum>,
                      public ShapeImplementation {
public:
    // ILuxShape and ILuxGraphic (one member serves both)
    HRESULT get_SelectedSpaceName(BSTR* SelectedSpaceName) override {
        return Guarded("get_SelectedSpaceName", IID_ILuxShape, [&] {
            RequireOut(SelectedSpaceName);
            ObjectLock::Guard guard(this->Lock());
            *SelectedSpaceName = Bstr(selectedSpaceName_).Detach();
        });
    }
    HRESULT put_SelectedSpaceName(BSTR SelectedSpaceName) override {
        return Guarded("put_SelectedSpaceName", IID_ILuxShape, [&] {
            const std::string_view name = BstrView(SelectedSpaceName);
            {
                ObjectLock::Guard guard(this->Lock());
                if (selectedSpaceName_ == name) return S_OK;
            }
            CheckShapeSpaceName(name);
            std::string stored(name);
            {
                ObjectLock::Guard guard(this->Lock());
                if (selectedSpaceName_ == stored) return S_OK;  // another thread was first
                selectedSpaceName_.swap(stored);
            }
            VARIANT value{};
            value.vt = VT_BSTR;
            value.bstrVal = SelectedSpaceName;  // lent for the call
            return this->RaiseChange(luxShape_SelectedSpaceName, value, luxFA_Shape_SelectedSpaceName);
        });
    }

    // ILuxShape
    HRESULT DistanceToPoint(double X, double Y, double* Distance) override {
        return Guarded("DistanceToPoint", IID_ILuxShape, [&] {
            RequireOut(Distance);
            *Distance = Self().CoreShape()->DistanceToPoint(cc2Vect(X, Y));
        });
    }
    HRESULT Map(ILuxTransform2D* Transform, LuxCopyShapeConstants CopyFlags, ILuxShape** NewShape) override {
        return Guarded("Map", IID_ILuxShape, [&] {
            RequireOut(NewShape);
            *NewShape = nullptr;
            RequireArgument(Transform, "Transform");
            *NewShape = MapThrough(LinearValueRequired(Transform), CopyFlags).Detach();
        });
    }
    HRESULT FitToImage(ILuxImage* Image, double XScale, double YScale) override {
        return Guarded("FitToImage", IID_ILuxShape, [&] {
            RequireArgument(Image, "Image");
            if (!(XScale > 0)) throw ccStdError::BadArgument("XScale", ids_Lux_InvalidArgNotPositive_1, {"XScale"});
            if (!(YScale > 0)) throw ccStdError::BadArgument("YScale", ids_Lux_InvalidArgNotPositive_1, {"YScale"});
            const ccShapePtrh extent = ImageExtentInSpace(Image, SelectedSpace());
            const ccShapePtrh fitted = Self().FittedToImage(*extent, XScale, YScale);
            return AnnounceGeometry(Self().SetFromCoreShape(*fitted));
        });
    }
    HRESULT FitToBoundingBox(ILuxRectangle* BoundingRectangle) override {
        return Guarded("FitToBoundingBox", IID_ILuxShape, [&] {
            RequireArgument(BoundingRectangle, "BoundingRectangle");
            const ccShapePtrh fitted = Self().FittedToBox(*RectangleValueOf(BoundingRectangle));
            return AnnounceGeometry(Self().SetFromCoreShape(*fitted));
        });
    }
    HRESULT EnclosingRectangle(LuxCopyShapeConstants CopyFlags, ILuxRectangle** Rectangle) override {
        return Guarded("EnclosingRectangle", IID_ILuxShape, [&] {
            RequireOut(Rectangle);
            *Rectangle = nullptr;
            *Rectangle = Enclosing(Self().CoreShape(), CopyFlags).Detach();
        });
    }

    // ILuxGraphic
    HRESULT GraphicRectangle(VARIANT MapInfo, ILuxRectangle** EnclosingRectangle_) override {
        return Guarded("GraphicRectangle", IID_ILuxGraphic, [&] {
            RequireOut(EnclosingRectangle_);
            *EnclosingRectangle_ = nullptr;
            ccShapePtrh_const shape = Self().CoreShape();
            if (const ComPtr<ILuxTransform2D> transform = MapInfoTransform(MapInfo))
                shape = shape->Map(LinearValueRequired(transform.get()));
            *EnclosingRectangle_ = Enclosing(shape, luxCopyShapeGeometryOnly).Detach();
        });
    }
    HRESULT MapGraphic(ILuxTransform2D* Transform, VARIANT /*MapInfo*/, ILuxGraphic** NewGraphic) override {
        return Guarded("MapGraphic", IID_ILuxGraphic, [&] {
            RequireOut(NewGraphic);
            *NewGraphic = nullptr;
            RequireArgument(Transform, "Transform");
            const ComPtr<ILuxShape> mapped = MapThrough(LinearValueRequired(Transform), luxCopyShapeAll);
            *NewGraphic = mapped.template As<ILuxGraphic>().Detach();
        });
    }
    HRESULT Draw(IDispatch* RenderContext) override {
        return Guarded("Draw", IID_ILuxGraphic, [&] {
            shape::DrawShape(static_cast<ILuxShape*>(&Self()), RenderContext);
        });
    }
    HRESULT CopyBase(LuxCopyShapeConstants CopyFlags, ILuxGraphic** NewGraphic) override {
        return Guarded("CopyBase", IID_ILuxGraphic, [&] {
            RequireOut(NewGraphic);
            *NewGraphic = nullptr;
            *NewGraphic = AsGraphic(CopyWith(CopyFlags).get());
        });
    }

    // ILuxGraphicInteractive
    HRESULT DistanceFrom(double XLoc, double YLoc, double* Distance) override {
        return Guarded("DistanceFrom", IID_ILuxGraphicInteractive, [&] {
            RequireOut(Distance);
            *Distance = Self().CoreShape()->DistanceToPoint(cc2Vect(XLoc, YLoc));
        });
    }
    HRESULT DragAnimate(double StartX, double StartY, double NowX, double NowY, VARIANT_BOOL /*PrimaryGraphic*/,
                        VARIANT MapInfo, ILuxGraphic** Animation) override {
        return Guarded("DragAnimate", IID_ILuxGraphicInteractive, [&] {
            RequireOut(Animation);
            *Animation = nullptr;
            const cc2Vect offset = DragOffset(StartX, StartY, NowX, NowY, MapInfo);
            ComPtr<Derived> copy = CopyWith(luxCopyShapeAll);
            if (MayMove(this->Graphics().dofMask) && !(offset == cc2Vect(0, 0)))
                copy->SetFromCoreShape(*copy->CoreShape()->Translate(offset));
            ComPtr<ILuxGraphic> graphic = ComPtr<ILuxGraphic>::Attach(AsGraphic(copy.get()));
            this->FireEvent(DIID_ILuxGraphicInteractiveEvents, luxGraphicInteractiveEvents_Dragging, graphic.get());
            *Animation = graphic.Detach();
        });
    }
    HRESULT DragStop(double StartX, double StartY, double EndX, double EndY, VARIANT_BOOL /*PrimaryGraphic*/,
                     VARIANT MapInfo) override {
        return Guarded("DragStop", IID_ILuxGraphicInteractive, [&] {
            const cc2Vect offset = DragOffset(StartX, StartY, EndX, EndY, MapInfo);
            if (MayMove(this->Graphics().dofMask) && !(offset == cc2Vect(0, 0))) {
                const ccShapePtrh moved = Self().CoreShape()->Translate(offset);
                const HRESULT raised = AnnounceGeometry(Self().SetFromCoreShape(*moved));
                if (FAILED(raised)) return raised;
            }
            ILuxGraphic* self = AsGraphicUnowned(&Self());
            this->FireEvent(DIID_ILuxGraphicInteractiveEvents, luxGraphicInteractiveEvents_DraggingStopped, self);
            return S_OK;
        });
    }

    // ShapeImplementation
    ShapeCommonState CommonState() const override {
        ObjectLock::Guard guard(this->Lock());
        return ShapeCommonState{selectedSpaceName_, this->graphics_};
    }
    void TakeCommonState(const ShapeCommonState& source, int32_t copyFlags) override {
        std::string name = source.selectedSpaceName;
        GraphicSettings graphics = this->Graphics();
        if (copyFlags & luxCopyShapeBasicGraphics) graphics.AssignBasicGraphics(source.graphics);
        if (copyFlags & luxCopyShapeDOFs) graphics.dofMask = source.graphics.dofMask;
        {
            ObjectLock::Guard guard(this->Lock());
            selectedSpaceName_.swap(name);
            std::swap(this->graphics_, graphics);
        }
    }
    void TakeEnumeratedGraphics(const EnumeratedGraphicSettings& source) override {
        ObjectLock::Guard guard(this->Lock());
        enumeratedGraphics_.TakeMatching(source);
    }

    // For the class and the library's code.
    std::string SelectedSpace() const {
        ObjectLock::Guard guard(this->Lock());
        return selectedSpaceName_;
    }
    // A new object of the class: this geometry, SelectedSpaceName, and what copyFlags selects.
    ComPtr<Derived> CopyWith(int32_t copyFlags) const {
        auto copy = ComPtr<Derived>::Attach(Derived::Create());
        if (!copy) throw std::bad_alloc();
        copy->CopyGeometryFrom(Self());
        copy->TakeCommonState(CommonState(), copyFlags);
        Self().LendGraphicsTo(*copy, copyFlags);
        return copy;
    }
    // A new shape: this one mapped through `transform`, with what copyFlags selects.
    ComPtr<ILuxShape> MapThrough(const cc2XformLinear& transform, int32_t copyFlags) const {
        const ccShapePtrh mapped = Self().CoreShape()->Map(transform);
        ComPtr<ILuxShape> result = shape::NewShapeFromCore(*mapped);
        ShapeImplementation& made = ShapeImplementation::Require(result.get(), "NewShape");
        made.TakeCommonState(CommonState(), copyFlags);
        Self().LendGraphicsTo(made, copyFlags);
        return result;
    }
    // Gives `made`, a new shape made from this one, the enumerated graphic settings it has
    // under the same names, when copyFlags selects the basic graphics.
    void LendGraphicsTo(ShapeImplementation& made, int32_t copyFlags) const {
        if (!(copyFlags & luxCopyShapeBasicGraphics) || &made == this) return;
        made.TakeEnumeratedGraphics(EnumeratedGraphics());
    }
    // A snapshot of the enumerated graphic settings.
    EnumeratedGraphicSettings EnumeratedGraphics() const {
        ObjectLock::Guard guard(this->Lock());
        return enumeratedGraphics_;
    }

    // Clone: everything.
    void CopyFrom(const Derived& source) {
        Self().CopyGeometryFrom(source);
        TakeCommonState(source.CommonState(), luxCopyShapeAll);
        source.LendGraphicsTo(*this, luxCopyShapeAll);
    }
    void PersistState(ArchiveAccess& archive) {
        if (archive.Saving()) {
            SaveShapeCommon(archive, ShapeCommonState{selectedSpaceName_, this->graphics_});  // lock held
        } else {
            auto loaded = std::make_shared<LoadedShapeCommon>(LoadShapeCommon(archive));
            archive.OnCommit([this, loaded]() noexcept { loaded->ApplyTo(selectedSpaceName_, this->graphics_); });
        }
        Self().PersistShapeState(archive);
    }

    // The default proportioning for FitToImage (a class may hide it).
    ccShapePtrh FittedToImage(const ccShape& imageExtent, double xScale, double yScale) const {
        const ccRectPtrh box = imageExtent.BoundingBox();
        return Self().FittedToBox(*ScaledAboutCentre(*box, xScale, yScale));
    }

protected:
    ILuxShapeImpl() = default;
    ~ILuxShapeImpl() override = default;

    // Announces a geometry change that SetFromCoreShape reported (nothing for
    // luxState_Undefined). Call it with the lock released.
    HRESULT AnnounceGeometry(int32_t stateId) {
        if (stateId == luxState_Undefined) return S_OK;
        return this->RaiseChange(stateId, luxFA_Shape_Geometry);
    }

    // The class's enumerated graphic setting `index` (of its table), as its enumeration.
    template <class Enum>
    HRESULT GetEnumeratedGraphic(const char* method, size_t index, Enum* value) {
        return Guarded(method, PrimaryInterface::iid, [&] {
            RequireOut(value);
            ObjectLock::Guard guard(this->Lock());
            *value = static_cast<Enum>(enumeratedGraphics_.Value(index));
        });
    }
    // Checks, compares and stores setting `index`, then raises Change(its state ID, the
    // value, luxFA_Shape_Graphic); a refused value changes nothing and raises nothing.
    HRESULT PutEnumeratedGraphic(const char* method, size_t index, int32_t value) {
        return Guarded(method, PrimaryInterface::iid, [&] {
            enumeratedGraphics_.Check(index, value);
            {
                ObjectLock::Guard guard(this->Lock());
                if (!enumeratedGraphics_.Store(index, value)) return S_OK;
            }
            VARIANT announced{};
            announced.vt = VT_I4;
            announced.lVal = value;
            return this->RaiseChange(enumeratedGraphics_.Table()[index].stateId, announced, luxFA_Shape_Graphic);
        });
    }
    // Writes or reads the enumerated settings' keys; from PersistShapeState (lock held).
    void PersistEnumeratedGraphics(ArchiveAccess& archive) {
        if (archive.Saving())
            enumeratedGraphics_.Save(archive);
        else
            enumeratedGraphics_.Load(archive);
    }
    // MakeShapeModel of the classes: refused, `shape` naming the class ("an ellipse").
    HRESULT RefuseShapeModel(IDispatch** model, const char* shape) {
        return Guarded("MakeShapeModel", PrimaryInterface::iid, [&] {
            RequireOut(model);
            *model = nullptr;
            ThrowNoShapeModel(shape);
        });
    }

    // Guarded by the object's lock.
    std::string selectedSpaceName_ = ".";
    EnumeratedGraphicSettings enumeratedGraphics_{TableOf()};

private:
    static std::span<const EnumeratedSetting> TableOf() {
        if constexpr (requires { Derived::EnumeratedGraphics(); })
            return Derived::EnumeratedGraphics();
        else
            return {};
    }
    Derived& Self() noexcept { return static_cast<Derived&>(*this); }
    const Derived& Self() const noexcept { return static_cast<const Derived&>(*this); }

    // The object's ILuxGraphic, with a reference for the caller.
    static ILuxGraphic* AsGraphic(Derived* object) noexcept {
        ILuxGraphic* graphic = AsGraphicUnowned(object);
        graphic->AddRef();
        return graphic;
    }
    static ILuxGraphic* AsGraphicUnowned(Derived* object) noexcept {
        return static_cast<ILuxGraphic*>(static_cast<ILuxGraphicInteractive*>(object));
    }

    ComPtr<ILuxRectangle> Enclosing(const ccShapePtrh_const& shape, int32_t copyFlags) const {
        const ccRectPtrh box = shape->BoundingBox();
        ComPtr<ILuxRectangle> rectangle = NewRectangle(*box);
        ShapeImplementation& made = ShapeImplementation::Require(rectangle.get(), "Rectangle");
        made.TakeCommonState(CommonState(), copyFlags);
        Self().LendGraphicsTo(made, copyFlags);
        return rectangle;
    }
};

}  // namespace tessaly::core
