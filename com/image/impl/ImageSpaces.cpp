#include "com/image/impl/ccLuxImageImpl.h"

#include <array>

#include "com/core/CollectionErrors.h"

namespace tessaly::image {

namespace {

bool IsPixelSpace(std::string_view name) noexcept { return name == "#"; }

// The tree's root whatever it is called there.
std::string_view InTree(std::string_view name) noexcept { return name == "@" ? std::string_view("^") : name; }

}  // namespace

ImageSpaces ImageSpaces::Fresh() {
    ImageSpaces spaces;
    auto tree = ComPtr<transform::CLuxCoordinateSpaceTree>::Attach(transform::CLuxCoordinateSpaceTree::Create());
    if (!tree) throw std::bad_alloc();
    spaces.tree = ComPtr<ILuxCoordinateSpaceTree>(tree.get());
    auto identity = transform::CLuxTransform2DLinear::FromValue(cc2XformLinear());
    spaces.pixelFromRoot = ComPtr<ILuxTransform2D>(static_cast<ILuxTransform2D*>(identity.get()));
    return spaces;
}

ImageSpaces ImageSpaces::Copy() const {
    ImageSpaces copy;
    copy.selected = selected;
    ComPtr<ILuxCoordinateSpaceTree> tree;
    core::ThrowIfFailed(this->tree->CopySubtree(Bstr("^").get(), tree.Out()));
    copy.tree = std::move(tree);
    core::ThrowIfFailed(pixelFromRoot->CopyBase(copy.pixelFromRoot.Out()));
    return copy;
}

ComPtr<ILuxTransform2D> ImageSpaces::Transform(std::string_view to, std::string_view from) const {
    const bool toPixels = IsPixelSpace(to);
    const bool fromPixels = IsPixelSpace(from);
    if (toPixels && fromPixels) {
        auto identity = transform::CLuxTransform2DLinear::FromValue(cc2XformLinear());
        return ComPtr<ILuxTransform2D>(static_cast<ILuxTransform2D*>(identity.get()));
    }
    ComPtr<ILuxTransform2D> inTree;
    core::ThrowIfFailed(tree->GetTransform(Bstr(toPixels ? std::string_view("^") : InTree(to)).get(),
                                           Bstr(fromPixels ? std::string_view("^") : InTree(from)).get(),
                                           inTree.Out()));
    if (!toPixels && !fromPixels) return inTree;
    // Leftmost acts last: pixel-from-root after the tree's part, or the tree's part after
    // root-from-pixel.
    ComPtr<ILuxTransform2D> rootFromPixel;
    if (fromPixels) core::ThrowIfFailed(pixelFromRoot->InvertBase(rootFromPixel.Out()));
    std::array<ILuxTransform2D*, 2> members = toPixels ? std::array{pixelFromRoot.get(), inTree.get()}
                                                       : std::array{inTree.get(), rootFromPixel.get()};
    return transform::CLuxTransform2DComposed::Canonical(members, true);
}

void ImageSpaces::CheckSelected(std::string_view name) const {
    if (IsPixelSpace(name)) return;
    VARIANT_BOOL unique = VARIANT_FALSE;
    Bstr found;
    const HRESULT result = tree->VerifyName(Bstr(InTree(name)).get(), luxSpaceTreePathnameFull, found.Out(), &unique);
    if (FAILED(result) || unique == VARIANT_FALSE)
        throw ImageErrors::BadSelectedSpaceName(
            "the tree has no single space named " + core::CollectionErrors::Quote(name));
}

}  // namespace tessaly::image
