#include "com/transform/impl/SpaceTreeStructure.h"

#include "com/transform/impl/SpaceTreeErrors.h"

namespace tessaly::transform {

StructurePtr NewStructure(std::string rootName) {
    auto structure = std::make_shared<SpaceTreeStructure>();
    structure->nodes.emplace_back();
    structure->nodes[0].name = std::move(rootName);
    return structure;
}

void SpaceRef::Push(Hop hop) {
    if (size_ >= kMaxGraftDepth)
        throw SpaceTreeErrors::NotInTree("grafted trees are nested deeper than " + std::to_string(kMaxGraftDepth) +
                                         " levels");
    if (size_ < kInline)
        inline_[size_] = std::move(hop);
    else
        more_.push_back(std::move(hop));
    ++size_;
}

void SpaceRef::Pop() noexcept {
    --size_;
    if (size_ < kInline)
        inline_[size_] = Hop{};
    else
        more_.pop_back();
}

std::string SpaceRef::Name() const {
    const SpaceNode& node = Node();
    if (!node.IsTree()) return node.name;
    return GraftedStructure(node)->Root().name;
}

bool SpaceRef::ToParent() noexcept {
    Hop& last = Last();
    const int32_t parent = last.structure->nodes[last.node].parent;
    if (parent < 0) return false;  // the host's root: grafted roots are never hops
    if (parent == 0 && size_ > 1) {
        Pop();  // the grafted tree's root is the tree node that grafts it
        return true;
    }
    last.node = parent;
    return true;
}

StructurePtr SpaceRef::InnerStructure() const {
    const SpaceNode& node = Node();
    return node.IsTree() ? GraftedStructure(node) : nullptr;
}

std::vector<SpaceRef> SpaceRef::Children() const {
    std::vector<SpaceRef> children;
    if (StructurePtr inner = InnerStructure()) {
        const std::vector<int32_t>& indices = inner->Root().children;
        children.reserve(indices.size());
        for (int32_t child : indices) {
            children.push_back(*this);
            children.back().Push(Hop{inner, child});
        }
        return children;
    }
    const std::vector<int32_t>& indices = Node().children;
    children.reserve(indices.size());
    for (int32_t child : indices) {
        children.push_back(*this);
        children.back().Last().node = child;
    }
    return children;
}

bool SpaceRef::Same(const SpaceRef& other) const noexcept {
    if (size_ != other.size_ || (*this)[0].structure != other[0].structure) return false;
    for (size_t i = 0; i < size_; ++i)
        if ((*this)[i].node != other[i].node) return false;
    return true;
}

bool SpaceRef::Within(const SpaceRef& ancestor) const noexcept {
    SpaceRef walk = *this;
    for (;;) {
        if (walk.Same(ancestor)) return true;
        if (!walk.ToParent()) return false;
    }
}

CLuxCoordinateSpaceTree* SpaceRef::LinkOwner() const noexcept {
    if (size_ == 1) return nullptr;
    const Hop& outer = (*this)[size_ - 2];
    return outer.structure->nodes[outer.node].graftedTree;
}

std::string SpaceRef::PathInLinkOwner() const {
    const Hop& last = Last();
    const SpaceTreeStructure& structure = *last.structure;
    std::vector<int32_t> chain;
    for (int32_t at = last.node; at > 0; at = structure.nodes[at].parent) chain.push_back(at);
    std::string path(1, '^');
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        const SpaceNode& node = structure.nodes[*it];
        path += '\\';
        path += node.IsTree() ? GraftedStructure(node)->Root().name : node.name;
    }
    return path;
}

}  // namespace tessaly::transform
