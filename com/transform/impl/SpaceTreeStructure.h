// What a coordinate space tree holds, as an immutable snapshot: the tree replaces its
// snapshot as a whole on every change, so a reader takes the present one (a counted
// pointer, under the tree's lock for an instant) and walks it with no lock held, and never
// holds two trees' locks at once, even when it walks into a tree grafted into another.
//
// Nodes are kept in a vector, the root at index 0; a node knows its parent and its children
// in order. A space node carries a name, the transform that maps its points into its
// parent ("ParentFromChild"; none for the root) and four creator identifiers. A tree node
// grafts another tree by reference: it carries the transform from the grafted tree's root
// into its parent, and stands for that root, whose name it shows and whose children are
// its children. A tree node has no children of its own.
//
// A space of the whole (grafts included) is reached by a SpaceRef: the chain of nodes that
// leads into it, one per snapshot, each but the last a tree node whose grafted tree's
// snapshot the next one walks. The root of a grafted tree is always named by the tree node
// that grafts it, never by its own index 0.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "TessalyCore.h"
#include "platform/ComPtr.h"

namespace tessaly::transform {

class CLuxCoordinateSpaceTree;
class CLuxTransform2DLinear;

struct SpaceNode {
    std::string name;  // a space's name (the root's is the RootName); empty for a tree node
    int32_t parent = -1;
    std::vector<int32_t> children;
    ComPtr<ILuxTransform2D> parentFromThis;  // null for the root
    // The library's own linear transform behind parentFromThis, when it is one: GetTransform
    // multiplies the values of such links directly.
    CLuxTransform2DLinear* linear = nullptr;
    int32_t creators[4] = {0, 0, 0, 0};
    ComPtr<ILuxCoordinateSpaceTree> grafted;  // tree nodes only
    CLuxCoordinateSpaceTree* graftedTree = nullptr;

    bool IsTree() const noexcept { return graftedTree != nullptr; }
};

struct SpaceTreeStructure {
    std::vector<SpaceNode> nodes;  // nodes[0] is the root

    const SpaceNode& Root() const noexcept { return nodes[0]; }
};

using StructurePtr = std::shared_ptr<const SpaceTreeStructure>;

// A new structure holding only a root of that name.
StructurePtr NewStructure(std::string rootName);

// The present snapshot of a grafted tree (implemented by the tree).
StructurePtr GraftedStructure(const SpaceNode& treeNode);

// Grafts nested deeper than this are refused: a guard against a cycle of grafts that a
// race between two threads grafting two trees into each other could leave.
inline constexpr size_t kMaxGraftDepth = 64;

class SpaceRef {
public:
    struct Hop {
        StructurePtr structure;
        int32_t node = 0;
    };

    SpaceRef() = default;
    explicit SpaceRef(StructurePtr host) { Push(Hop{std::move(host), 0}); }

    size_t Depth() const noexcept { return size_; }
    const Hop& operator[](size_t i) const noexcept { return i < kInline ? inline_[i] : more_[i - kInline]; }
    Hop& operator[](size_t i) noexcept { return i < kInline ? inline_[i] : more_[i - kInline]; }
    const Hop& Last() const noexcept { return (*this)[size_ - 1]; }
    Hop& Last() noexcept { return (*this)[size_ - 1]; }
    const SpaceNode& Node() const noexcept { return Last().structure->nodes[Last().node]; }
    bool IsHostRoot() const noexcept { return size_ == 1 && Last().node == 0; }

    void Push(Hop hop);
    void Pop() noexcept;

    // The space's name: a tree node shows its grafted tree's root name.
    std::string Name() const;
    // Moves to the parent; false at the host's root.
    bool ToParent() noexcept;
    // The children, in order.
    std::vector<SpaceRef> Children() const;
    // The snapshot whose root's children are this space's children (a tree node's grafted
    // tree), or null when they are the node's own.
    StructurePtr InnerStructure() const;

    // The same space.
    bool Same(const SpaceRef& other) const noexcept;
    // Whether this space lies at or below `ancestor`.
    bool Within(const SpaceRef& ancestor) const noexcept;

    // The tree whose snapshot holds the last node (null: the host, the tree walked from).
    CLuxCoordinateSpaceTree* LinkOwner() const noexcept;
    // The path of the last node within that tree: "^\A\B" ("^" for its root).
    std::string PathInLinkOwner() const;

private:
    static constexpr size_t kInline = 4;
    Hop inline_[kInline];
    std::vector<Hop> more_;
    size_t size_ = 0;
};

}  // namespace tessaly::transform
