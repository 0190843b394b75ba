// What every image class shares: the members of ILuxImage that concern coordinate spaces
// (SelectedSpaceName, CoordinateSpaceTree, GetTransform, PixelFromRootTransform), their
// events and persistence. The grey images (ccLuxGreyImageImpl) and the planar colour image
// add the pixels.
//
// Spaces. An image holds a coordinate space tree (a new image: a new tree whose root is
// "@"), the name of its selected space and the transform that maps root-space points
// into pixel space ("#"). The pixel space is the image's own: "#" is resolved by the image,
// not looked up in the tree, so one tree can be shared by images whose pixels map
// differently, and a tree given to an image is never modified by it. GetTransform(To,
// From) composes: "#" from "#" is the identity; a name other than "#" is looked up in the
// tree (its failures passed on), "@" and "^" naming the tree's root whatever it is called
// there; To "#" appends PixelFromRootTransform, From "#" its inverse. A tree with a space
// of its own called "#" cannot reach it through an image.
//
// SelectedSpaceName (a new image: "#") must be "#" or a name that finds exactly one space
// of the tree (e_LuxImage_BadSelectedSpaceName otherwise); it is checked when set, not
// again when the tree changes. CoordinateSpaceTree and PixelFromRootTransform are held by
// reference (putref): a change inside either re-raises Change(luxState_SubObjectEvent) on
// the image. Setting a property raises its own state ID; setting the value it already has
// raises nothing. A null tree is refused (E_INVALIDARG); GetTransform and the name check
// then cannot fail for want of one.
//
// Copies (Copy in every mode, Clone) get a copy of the tree and of the transform: a copy
// is not moved by fixturing done on the original afterwards.
//
// Persistence: "SelectedSpaceName", "CoordinateSpaceTree", "PixelFromRootTransform", then
// the class's pixels.
#pragma once

#include <string>

#include "TessalyCore.h"
#include "com/core/ccCOMError.h"
#include "com/core/impl/ArchiveAccess.h"
#include "com/core/impl/ChildEventForwarder.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "com/image/impl/ImageErrors.h"
#include "com/transform/CLuxCoordinateSpaceTree.h"
#include "com/transform/CLuxTransform2DComposed.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "persist/ccArchive.h"
#include "platform/Bstr.h"
#include "platform/ComPtr.h"

namespace tessaly::image {

// The spaces of an image, as one value: copied out under the lock, worked on outside it.
struct ImageSpaces {
    ComPtr<ILuxCoordinateSpaceTree> tree;
    ComPtr<ILuxTransform2D> pixelFromRoot;
    std::string selected = "#";

    // A new tree (root "@") and the identity.
    static ImageSpaces Fresh();
    // Copies of the tree and of the transform.
    ImageSpaces Copy() const;
    // The transform from `from` to `to` (the rules above).
    ComPtr<ILuxTransform2D> Transform(std::string_view to, std::string_view from) const;
    // Refuses a selected space name the tree does not know.
    void CheckSelected(std::string_view name) const;
};

template <class Derived, class... Interfaces>
class ccLuxImageImpl : public core::ILuxObjectImplBase<Derived, Interfaces..., ILuxImage> {
public:
    HRESULT get_SelectedSpaceName(BSTR* Name) override {
        return core::Guarded("get_SelectedSpaceName", IID_ILuxImage, [&] {
            core::RequireOut(Name);
            *Name = Bstr(Spaces().selected).Detach();
        });
    }
    HRESULT put_SelectedSpaceName(BSTR Name) override {
        return core::Guarded("put_SelectedSpaceName", IID_ILuxImage, [&] {
            const std::string name(BstrView(Name));
            Spaces().CheckSelected(name);
            {
                core::ObjectLock::Guard guard(this->Lock());
                if (spaces_.selected == name) return S_OK;
                spaces_.selected = name;
            }
            return this->RaiseChange(luxImage_SelectedSpaceName, luxFA_Misc);
        });
    }
    HRESULT get_CoordinateSpaceTree(ILuxCoordinateSpaceTree** Tree) override {
        return core::Guarded("get_CoordinateSpaceTree", IID_ILuxImage, [&] {
            core::RequireOut(Tree);
            *Tree = Spaces().tree.Detach();
        });
    }
    HRESULT putref_CoordinateSpaceTree(ILuxCoordinateSpaceTree* Tree) override {
        return core::Guarded("put_CoordinateSpaceTree", IID_ILuxImage, [&] {
            core::RequireArgument(Tree, "Tree");
            ComPtr<ILuxCoordinateSpaceTree> leaving(Tree);
            {
                core::ObjectLock::Guard guard(this->Lock());
                if (spaces_.tree.get() == Tree) return S_OK;
                children_.Unlink(spaces_.tree.get());
                std::swap(leaving, spaces_.tree);
                children_.Link(Tree);
            }
            return this->RaiseChange(luxImage_CoordinateSpaceTree, luxFA_Misc);
        });
    }
    HRESULT GetTransform(BSTR ToSpaceName, BSTR FromSpaceName, ILuxTransform2D** ToFromFrom) override {
        return core::Guarded("GetTransform", IID_ILuxImage, [&] {
            core::RequireOut(ToFromFrom);
            *ToFromFrom = nullptr;
            *ToFromFrom = Spaces().Transform(BstrView(ToSpaceName), BstrView(FromSpaceName)).Detach();
        });
    }
    HRESULT get_PixelFromRootTransform(ILuxTransform2D** Transform) override {
        return core::Guarded("get_PixelFromRootTransform", IID_ILuxImage, [&] {
            core::RequireOut(Transform);
            *Transform = Spaces().pixelFromRoot.Detach();
        });
    }
    HRESULT putref_PixelFromRootTransform(ILuxTransform2D* Transform) override {
        return core::Guarded("put_PixelFromRootTransform", IID_ILuxImage, [&] {
            core::RequireArgument(Transform, "Transform");
            ComPtr<ILuxTransform2D> leaving(Transform);
            {
                core::ObjectLock::Guard guard(this->Lock());
                if (spaces_.pixelFromRoot.get() == Transform) return S_OK;
                children_.Unlink(spaces_.pixelFromRoot.get());
                std::swap(leaving, spaces_.pixelFromRoot);
                children_.Link(Transform);
            }
            return this->RaiseChange(luxImage_PixelFromRootTransform, luxFA_Misc);
        });
    }

    // The spaces, taken under the lock.
    ImageSpaces Spaces() const {
        core::ObjectLock::Guard guard(this->Lock());
        return spaces_;
    }
    // Gives this image the selected space name, tree and transform of `other` (any image
    // class), shared: a view of the other's pixels sees the other's spaces.
    template <class Other>
    void TakeSpacesOf(const Other& other) {
        SetSpaces(other.Spaces());
    }

protected:
    ccLuxImageImpl() : spaces_(ImageSpaces::Fresh()) { LinkSpaces(); }
    ~ccLuxImageImpl() override = default;

    // Gives this (new, unseen) image copies of `source`'s spaces.
    void CopySpacesFrom(const ccLuxImageImpl& source) {
        ImageSpaces copy = source.Spaces().Copy();
        core::ObjectLock::Guard guard(this->Lock());
        children_.UnlinkAll();
        spaces_ = std::move(copy);
        LinkSpaces();
    }
    // Gives this image `spaces` as they are (shared).
    void SetSpaces(ImageSpaces spaces) {
        core::ObjectLock::Guard guard(this->Lock());
        children_.UnlinkAll();
        spaces_ = std::move(spaces);
        LinkSpaces();
    }
    void ResetSpaces() {
        ImageSpaces fresh = ImageSpaces::Fresh();
        children_.UnlinkAll();
        spaces_ = std::move(fresh);
        LinkSpaces();
    }

    void PersistSpaces(core::ArchiveAccess& archive) {
        if (archive.Saving()) {
            Bstr selected(spaces_.selected);
            archive.Persist("SelectedSpaceName", selected);
            WriteObject(archive, "CoordinateSpaceTree", spaces_.tree.get());
            WriteObject(archive, "PixelFromRootTransform", spaces_.pixelFromRoot.get());
            return;
        }
        ImageSpaces loaded;
        Variant value;
        const bool hasSelected = archive.Read("SelectedSpaceName", value);
        if (hasSelected) {
            if (FAILED(value.ChangeType(VT_BSTR)))
                throw ccArchive::BadType("SelectedSpaceName is not a string", ids_Lux_ReadInvalidProperty_1,
                                         {"SelectedSpaceName"});
            loaded.selected = std::string(BstrView(value.get().bstrVal));
        }
        const bool hasTree = ReadObject(archive, "CoordinateSpaceTree", loaded.tree);
        const bool hasTransform = ReadObject(archive, "PixelFromRootTransform", loaded.pixelFromRoot);
        archive.OnCommit([this, loaded = std::move(loaded), hasSelected, hasTree, hasTransform]() mutable noexcept {
            children_.UnlinkAll();
            if (hasSelected) spaces_.selected = std::move(loaded.selected);
            if (hasTree) spaces_.tree = std::move(loaded.tree);
            if (hasTransform) spaces_.pixelFromRoot = std::move(loaded.pixelFromRoot);
            LinkSpaces();
        });
    }

    // Whether the options select the pixels: an image's pixels are image content, written
    // only with input or output images.
    static bool PersistsPixels(const core::ArchiveAccess& archive) noexcept {
        return (archive.Options() & (luxPersistOptionInputImages | luxPersistOptionOutputImages)) != 0;
    }
    // An object property: written lent; read back as interface I (BadType for another
    // object), or as null for a stored Nothing when `nullable`. False when absent.
    static void WriteObject(core::ArchiveAccess& archive, const char* name, IDispatch* object) {
        VARIANT value;
        VariantInit(&value);
        value.vt = VT_DISPATCH;
        value.pdispVal = object;  // lent
        archive.Write(name, value);
    }
    template <class I>
    static bool ReadObject(core::ArchiveAccess& archive, const char* name, ComPtr<I>& object, bool nullable = false) {
        Variant value;
        if (!archive.Read(name, value)) return false;
        const VARIANT& held = value.get();
        const bool isObject = held.vt == VT_DISPATCH || held.vt == VT_UNKNOWN;
        if (nullable && (held.vt == VT_EMPTY || isObject) && !held.punkVal) return true;
        if (isObject && held.punkVal) held.punkVal->QueryInterface(I::iid, object.OutVoid());
        if (!object) throw ccArchive::BadType(std::string(name) + " is not of its type", ids_Lux_ReadInvalidObject_1, {name});
        return true;
    }

private:
    void LinkSpaces() noexcept {
        children_.Link(spaces_.tree.get());
        children_.Link(spaces_.pixelFromRoot.get());
    }

    ImageSpaces spaces_;
    core::ChildEventForwarder children_{*this};
};

}  // namespace tessaly::image
