#include "com/transform/CLuxCoordinateSpaceTree.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "com/core/CLuxStringCollection.h"
#include "com/core/CollectionErrors.h"
#include "com/core/ccCOMError.h"
#include "com/transform/CLuxTransform2DComposed.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "com/transform/impl/SpaceName.h"
#include "com/transform/impl/SpaceTreeErrors.h"
#include "persist/ccArchive.h"

namespace tessaly::transform {

namespace {

using core::Guarded;
using core::ObjectLock;
using core::RequireArgument;
using core::RequireOut;
using core::ThrowIfFailed;
using namespace spacename;

const ClassRegistrar<CLuxCoordinateSpaceTree> registrar;

constexpr const IID& kIid = ILuxCoordinateSpaceTree::iid;

// ---- arguments ----------------------------------------------------------------------------

int32_t CheckFormat(LuxSpaceTreePathnameConstants format) {
    if (format != luxSpaceTreePathnameNone && format != luxSpaceTreePathnameFull &&
        format != luxSpaceTreePathnamePartial)
        SpaceTreeErrors::ThrowBadArgument("PathnameFormat",
                                          "the format " + std::to_string(format) + " is not 0, 1 or 2");
    return format;
}

int32_t CheckDuplicates(LuxAddSpaceConstants duplicates) {
    if (duplicates != luxAddSpaceDuplicateIsError && duplicates != luxAddSpaceReplaceDuplicate &&
        duplicates != luxAddSpaceIgnoreDuplicate)
        SpaceTreeErrors::ThrowBadArgument("DuplicateHandling",
                                          "the value " + std::to_string(duplicates) + " is not 0, 1 or 2");
    return duplicates;
}

// The transform a space will hold: a copy (CopyBase) or the caller's object; the identity
// when none is given.
ComPtr<ILuxTransform2D> PrepareLink(ILuxTransform2D* given, bool copy) {
    if (!given) return ComPtr<ILuxTransform2D>(CLuxTransform2DLinear::FromValue(cc2XformLinear()).get());
    if (!copy) return ComPtr<ILuxTransform2D>(given);
    ComPtr<ILuxTransform2D> copied;
    ThrowIfFailed(given->CopyBase(copied.Out()));
    if (!copied) throw ccStdError::InternalError("CopyBase returned no transform");
    return copied;
}

void SetLink(SpaceNode& node, ComPtr<ILuxTransform2D> link) noexcept {
    node.linear = CLuxTransform2DLinear::ImplementationOf(link.get());
    node.parentFromThis = std::move(link);
}

// ---- walking the tree ---------------------------------------------------------------------

// The children of a space as (structure, indices): a tree node's are its grafted root's.
struct ChildList {
    StructurePtr inner;  // null: the children are in the space's own structure
    const std::vector<int32_t>* indices;
};

ChildList ChildrenOf(const SpaceRef& space) {
    if (StructurePtr inner = space.InnerStructure()) {
        const std::vector<int32_t>* indices = &inner->Root().children;
        return {std::move(inner), indices};
    }
    return {nullptr, &space.Node().children};
}

bool NodeNamed(const SpaceNode& node, std::string_view name) {
    if (!node.IsTree()) return SameName(node.name, name);
    return SameName(GraftedStructure(node)->Root().name, name);
}

// Moves `space` to its child named `name`: NotInTree when none is, NotUnique when several are.
void ToChild(SpaceRef& space, std::string_view name, std::string_view whole) {
    const ChildList children = ChildrenOf(space);
    const SpaceTreeStructure& holder = children.inner ? *children.inner : *space.Last().structure;
    int32_t found = -1;
    for (int32_t child : *children.indices) {
        if (!NodeNamed(holder.nodes[child], name)) continue;
        if (found >= 0)
            throw SpaceTreeErrors::NotUnique("two spaces of that parent are named " +
                                             core::CollectionErrors::Quote(name) + " (looking up " +
                                             core::CollectionErrors::Quote(whole) + ")");
        found = child;
    }
    if (found < 0)
        throw SpaceTreeErrors::NotInTree("no space " + core::CollectionErrors::Quote(whole) + " is in the tree");
    if (children.inner)
        space.Push(SpaceRef::Hop{children.inner, found});
    else
        space.Last().node = found;
}

// Every space at or below `start` (without `start` unless `withStart`) whose name is
// `name`, in depth-first order; stops after `limit` found.
void Search(const SpaceRef& start, std::string_view name, bool withStart, std::vector<SpaceRef>& found,
            size_t limit = SIZE_MAX) {
    std::vector<SpaceRef> pending;
    if (withStart) {
        pending.push_back(start);
    } else {
        std::vector<SpaceRef> children = start.Children();
        for (auto it = children.rbegin(); it != children.rend(); ++it) pending.push_back(std::move(*it));
    }
    while (!pending.empty() && found.size() < limit) {
        SpaceRef space = std::move(pending.back());
        pending.pop_back();
        if (NodeNamed(space.Node(), name)) found.push_back(space);
        std::vector<SpaceRef> children = space.Children();
        for (auto it = children.rbegin(); it != children.rend(); ++it) pending.push_back(std::move(*it));
    }
}

// Whether the first component names the root: "^", or the root's name.
bool NamesRoot(const SpaceTreeStructure& host, std::string_view first) noexcept {
    return first == kRootAlias || SameName(host.Root().name, first);
}

// The one space a lookup name (full path or simple name, not partial) names.
SpaceRef ResolveOne(const StructurePtr& host, std::string_view name) {
    const size_t count = CheckPath(name);
    PathComponents components(name);
    std::string_view component;
    components.Next(component);
    SpaceRef space(host);
    if (NamesRoot(*host, component)) {
        while (components.Next(component)) ToChild(space, component, name);
        return space;
    }
    if (count > 1) SpaceTreeErrors::ThrowSyntax(name, ids_Lux_PathnamesStartAtRoot);
    std::vector<SpaceRef> found;
    Search(space, component, false, found, 2);
    if (found.empty()) throw SpaceTreeErrors::NotInTree("no space is named " + core::CollectionErrors::Quote(name));
    if (found.size() > 1)
        throw SpaceTreeErrors::NotUnique("more than one space is named " + core::CollectionErrors::Quote(name));
    return std::move(found.front());
}

// Every space a lookup name names: a full path at most one (several only where siblings
// share a name), a simple name every space so named.
std::vector<SpaceRef> ResolveAll(const StructurePtr& host, std::string_view name) {
    const size_t count = CheckPath(name);
    PathComponents components(name);
    std::string_view component;
    components.Next(component);
    std::vector<SpaceRef> found;
    SpaceRef root(host);
    if (!NamesRoot(*host, component)) {
        if (count > 1) SpaceTreeErrors::ThrowSyntax(name, ids_Lux_PathnamesStartAtRoot);
        Search(root, component, false, found);
        return found;
    }
    found.push_back(std::move(root));
    while (components.Next(component) && !found.empty()) {
        std::vector<SpaceRef> next;
        for (const SpaceRef& space : found)
            for (SpaceRef& child : space.Children())
                if (SameName(child.Name(), component)) next.push_back(std::move(child));
        found = std::move(next);
    }
    return found;
}

// ---- formatting ---------------------------------------------------------------------------

// The names from `space` up to (not including) `stop`, or to the root and including it when
// `stop` is null; false when `stop` is not met.
bool NamesUpTo(SpaceRef space, const SpaceRef* stop, std::vector<std::string>& names) {
    for (;;) {
        if (stop && space.Same(*stop)) return true;
        names.push_back(space.Name());
        if (!space.ToParent()) return stop == nullptr;
    }
}

std::string Join(std::string_view head, const std::vector<std::string>& reversed) {
    size_t length = head.size();
    for (const std::string& name : reversed) length += name.size() + 1;
    std::string text;
    text.reserve(length);  // the exact length: one allocation
    text += head;
    for (auto it = reversed.rbegin(); it != reversed.rend(); ++it) {
        if (!text.empty()) text += kSeparator;
        text += *it;
    }
    return text;
}

std::string FullName(const SpaceRef& space) {
    std::vector<std::string> names;
    NamesUpTo(space, nullptr, names);
    return Join({}, names);
}

// `space` in `format`; a partial name is relative to `base` ("." for `base` itself).
std::string Format(const SpaceRef& space, int32_t format, const SpaceRef& base) {
    if (format == luxSpaceTreePathnameNone) return space.Name();
    if (format == luxSpaceTreePathnamePartial) {
        std::vector<std::string> names;
        if (space.Same(base)) return ".";
        if (NamesUpTo(space, &base, names)) return Join(".", names);
    }
    return FullName(space);
}

// The full name of node `at` of this tree's snapshot `structure`.
std::string FullNameIn(const StructurePtr& structure, int32_t at) {
    SpaceRef space(structure);
    space.Last().node = at;
    return FullName(space);
}

Bstr ToBstr(const std::string& text) { return Bstr(text); }

ComPtr<ILuxStringCollection> Collect(const std::vector<std::string>& names) {
    auto collection = ComPtr<core::CLuxStringCollection>::Attach(core::CLuxStringCollection::Create());
    if (!collection) throw std::bad_alloc();
    for (const std::string& name : names) {
        Bstr item(name);
        ThrowIfFailed(collection->Add(item.get(), nullptr, luxNoIndex));
    }
    return ComPtr<ILuxStringCollection>(collection.get());
}

// ---- editing a structure (a private copy) ---------------------------------------------------

std::shared_ptr<SpaceTreeStructure> Edit(const SpaceTreeStructure& present) {
    return std::make_shared<SpaceTreeStructure>(present);
}

// The child of `parent` whose name is `name` (tree nodes by their grafted root's name), or -1.
int32_t ChildNamed(const SpaceTreeStructure& structure, int32_t parent, std::string_view name,
                   int32_t except = -1) {
    for (int32_t child : structure.nodes[parent].children)
        if (child != except && NodeNamed(structure.nodes[child], name)) return child;
    return -1;
}

// Removes node `at` and its descendants, compacting the vector: `remap[old]` is the new
// index (-1 for a removed node). The objects the removed nodes held go to `leaving`.
std::vector<int32_t> RemoveSubtree(SpaceTreeStructure& structure, int32_t at, std::vector<IUnknown*>& leaving,
                                   std::vector<ComPtr<IUnknown>>& keep) {
    const size_t count = structure.nodes.size();
    std::vector<char> removed(count, 0);
    std::vector<int32_t> pending{at};
    while (!pending.empty()) {
        const int32_t node = pending.back();
        pending.pop_back();
        removed[node] = 1;
        for (int32_t child : structure.nodes[node].children) pending.push_back(child);
    }
    auto& siblings = structure.nodes[structure.nodes[at].parent].children;
    siblings.erase(std::find(siblings.begin(), siblings.end(), at));
    std::vector<int32_t> remap(count, -1);
    int32_t next = 0;
    for (size_t i = 0; i < count; ++i)
        if (!removed[i]) remap[i] = next++;
    std::vector<SpaceNode> kept;
    kept.reserve(static_cast<size_t>(next));
    for (size_t i = 0; i < count; ++i) {
        SpaceNode& node = structure.nodes[i];
        if (removed[i]) {
            for (IUnknown* object : {static_cast<IUnknown*>(node.parentFromThis.get()),
                                     static_cast<IUnknown*>(node.grafted.get())}) {
                if (!object) continue;
                leaving.push_back(object);
                keep.emplace_back(object);
            }
            continue;
        }
        if (node.parent >= 0) node.parent = remap[node.parent];
        for (int32_t& child : node.children) child = remap[child];
        kept.push_back(std::move(node));
    }
    structure.nodes = std::move(kept);
    return remap;
}

// Appends a node under `parent` (at `position` among its children, or last) and returns its index.
int32_t Attach(SpaceTreeStructure& structure, int32_t parent, SpaceNode node, size_t position = SIZE_MAX) {
    node.parent = parent;
    const auto index = static_cast<int32_t>(structure.nodes.size());
    structure.nodes.push_back(std::move(node));
    auto& siblings = structure.nodes[parent].children;
    siblings.insert(siblings.begin() + static_cast<std::ptrdiff_t>(std::min(position, siblings.size())), index);
    return index;
}

size_t PositionOf(const SpaceTreeStructure& structure, int32_t node) {
    const auto& siblings = structure.nodes[structure.nodes[node].parent].children;
    return static_cast<size_t>(std::find(siblings.begin(), siblings.end(), node) - siblings.begin());
}

// Whether `from` is `target` or holds it, through grafts at any depth.
bool Reaches(CLuxCoordinateSpaceTree* from, const CLuxCoordinateSpaceTree* target) {
    std::vector<CLuxCoordinateSpaceTree*> seen{from};
    for (size_t i = 0; i < seen.size(); ++i) {
        if (seen[i] == target) return true;
        const StructurePtr structure = seen[i]->Snapshot();
        for (const SpaceNode& node : structure->nodes)
            if (node.IsTree() && std::find(seen.begin(), seen.end(), node.graftedTree) == seen.end())
                seen.push_back(node.graftedTree);
    }
    return false;
}

// Where a change to a space's children is made: a grafted root's in the grafted tree
// ("^"), any other's in the tree that holds the space (null: this one).
struct Owner {
    CLuxCoordinateSpaceTree* tree;
    std::string path;
};
Owner ChildrenOwner(const SpaceRef& space) {
    const SpaceNode& node = space.Node();
    if (node.IsTree()) return {node.graftedTree, "^"};
    if (space.Depth() == 1) return {nullptr, {}};
    return {space.LinkOwner(), space.PathInLinkOwner()};
}
Owner LinkOwner(const SpaceRef& space) {
    if (space.Depth() == 1) return {nullptr, {}};
    return {space.LinkOwner(), space.PathInLinkOwner()};
}

// The new space's node.
SpaceNode NewNode(std::string_view name, ComPtr<ILuxTransform2D> link, const int32_t (&creators)[4],
                  CLuxCoordinateSpaceTree* graft) {
    SpaceNode node;
    if (graft) {
        node.graftedTree = graft;
        node.grafted = ComPtr<ILuxCoordinateSpaceTree>(static_cast<ILuxCoordinateSpaceTree*>(graft));
    } else {
        node.name = std::string(name);
    }
    SetLink(node, std::move(link));
    std::copy(std::begin(creators), std::end(creators), node.creators);
    return node;
}

// ---- persistence keys ---------------------------------------------------------------------

std::string Key(const char* kind, size_t index, const char* field) {
    return std::string(kind) + std::to_string(index) + "." + field;
}

template <class I>
ComPtr<I> ObjectFrom(const Variant& value, const std::string& key) {
    const VARIANT& v = value.get();
    IUnknown* object = (v.vt == VT_DISPATCH || v.vt == VT_UNKNOWN) ? v.punkVal : nullptr;
    ComPtr<I> typed;
    if (!object || FAILED(object->QueryInterface(I::iid, typed.OutVoid())) || !typed)
        throw ccArchive::BadContent("the value " + key + " is not the object it must be");
    return typed;
}

}  // namespace

StructurePtr GraftedStructure(const SpaceNode& treeNode) { return treeNode.graftedTree->Snapshot(); }

// ---- the object ----------------------------------------------------------------------------

CLuxCoordinateSpaceTree::CLuxCoordinateSpaceTree() : structure_(NewStructure(std::string(kDefaultRootName))) {}

CLuxCoordinateSpaceTree::~CLuxCoordinateSpaceTree() = default;

StructurePtr CLuxCoordinateSpaceTree::Snapshot() const {
    ObjectLock::Guard guard(Lock());
    return structure_;
}

bool CLuxCoordinateSpaceTree::Commit(const StructurePtr& expected, StructurePtr next, IUnknown* entering,
                                     IUnknown* entering2, const std::vector<IUnknown*>& leaving) {
    StructurePtr previous;  // released after the lock: it may hold the last reference to an object
    {
        ObjectLock::Guard guard(Lock());
        if (structure_ != expected) return false;
        previous = std::exchange(structure_, std::move(next));
        children_.Link(entering);
        children_.Link(entering2);
        for (IUnknown* object : leaving) children_.Unlink(object);
    }
    return true;
}

void CLuxCoordinateSpaceTree::LinkAllLocked() noexcept {
    children_.UnlinkAll();
    for (const SpaceNode& node : structure_->nodes) {
        children_.Link(node.parentFromThis.get());
        children_.Link(node.grafted.get());
    }
}

void CLuxCoordinateSpaceTree::Announce(DISPID event, const std::string& first, const std::string* second) {
    if (second)
        FireEvent(DIID_ILuxCoordinateSpaceTreeEvents, event, first, *second);
    else
        FireEvent(DIID_ILuxCoordinateSpaceTreeEvents, event, first);
    ThrowIfFailed(RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc));
}

void CLuxCoordinateSpaceTree::ResetState() noexcept {
    // Called with the lock held: the old snapshot goes when the load's commit has run.
    try {
        structure_ = NewStructure(std::string(kDefaultRootName));
    } catch (...) {
        // Out of memory: keep the present state; the load then fails to allocate too.
    }
    children_.UnlinkAll();
}

void CLuxCoordinateSpaceTree::CopyFrom(const CLuxCoordinateSpaceTree& source) {
    const StructurePtr original = source.Snapshot();
    auto copy = Edit(*original);
    // Every transform is copied; grafted trees stay shared, as grafting is by reference.
    for (SpaceNode& node : copy->nodes)
        if (node.parentFromThis) SetLink(node, PrepareLink(node.parentFromThis.get(), true));
    StructurePtr previous;
    {
        ObjectLock::Guard guard(Lock());
        previous = std::exchange(structure_, std::move(copy));
        LinkAllLocked();
    }
}

// ---- names ---------------------------------------------------------------------------------

HRESULT CLuxCoordinateSpaceTree::get_RootName(BSTR* Name) {
    return Guarded("get_RootName", kIid, [&] {
        RequireOut(Name);
        *Name = nullptr;
        *Name = ToBstr(Snapshot()->Root().name).Detach();
    });
}

void CLuxCoordinateSpaceTree::SetRootName(std::string_view newRoot) {
    CheckRootName(newRoot);
    for (;;) {
        const StructurePtr present = Snapshot();
        if (present->Root().name == newRoot) return;
        auto next = Edit(*present);
        next->nodes[0].name = std::string(newRoot);
        if (!Commit(present, std::move(next), nullptr, nullptr, {})) continue;
        break;
    }
    Bstr name(newRoot);
    VARIANT value{};
    value.vt = VT_BSTR;
    value.bstrVal = name.get();  // lent for the call
    ThrowIfFailed(RaiseChange(luxCoordinateSpaceTree_RootName, value, luxFA_Misc));
}

HRESULT CLuxCoordinateSpaceTree::put_RootName(BSTR Name) {
    return Guarded("put_RootName", kIid, [&] { SetRootName(BstrView(Name)); });
}

HRESULT CLuxCoordinateSpaceTree::ResolvePartialName(BSTR StartingSpaceName, BSTR NameToResolve,
                                                    BSTR* ResolvedName) {
    return Guarded("ResolvePartialName", kIid, [&] {
        RequireOut(ResolvedName);
        *ResolvedName = nullptr;
        const std::string_view start = BstrView(StartingSpaceName);
        const std::string_view name = BstrView(NameToResolve);
        CheckPath(start);
        const size_t count = CheckPath(name, true);
        if (!StartsPartial(name)) {
            CheckPath(name);  // partial components after a name are refused
            *ResolvedName = Bstr(name).Detach();
            return;
        }
        const StructurePtr host = Snapshot();
        SpaceRef space = ResolveOne(host, start);
        PathComponents components(name);
        std::string_view component;
        for (size_t i = 0; components.Next(component); ++i) {
            if (component == ".") continue;
            if (component == "..") {
                if (!space.ToParent())
                    throw SpaceTreeErrors::NotInTree("the root has no parent (resolving " +
                                                     core::CollectionErrors::Quote(name) + ")");
                continue;
            }
            if (component == "...") {
                // "...\Name": the one space called Name anywhere below the present one.
                std::string_view wanted;
                if (i + 2 != count || !components.Next(wanted) || IsPartialComponent(wanted))
                    SpaceTreeErrors::ThrowSyntax(name, ids_Lux_OneNameAfterTripleDot);
                std::vector<SpaceRef> found;
                Search(space, wanted, false, found, 2);
                if (found.empty())
                    throw SpaceTreeErrors::NotInTree("no space below the starting point is named " +
                                                     core::CollectionErrors::Quote(wanted));
                if (found.size() > 1)
                    throw SpaceTreeErrors::NotUnique("more than one space below the starting point is named " +
                                                     core::CollectionErrors::Quote(wanted));
                space = std::move(found.front());
                break;
            }
            ToChild(space, component, name);
        }
        *ResolvedName = ToBstr(FullName(space)).Detach();
    });
}

HRESULT CLuxCoordinateSpaceTree::LookUpName(BSTR SpaceName, LuxSpaceTreePathnameConstants PathnameFormat,
                                            BSTR* FoundName) {
    return Guarded("LookUpName", kIid, [&] {
        RequireOut(FoundName);
        *FoundName = nullptr;
        const int32_t format = CheckFormat(PathnameFormat);
        const SpaceRef space = ResolveOne(Snapshot(), BstrView(SpaceName));
        *FoundName = ToBstr(Format(space, format, space)).Detach();
    });
}

HRESULT CLuxCoordinateSpaceTree::ParentName(BSTR SpaceName, LuxSpaceTreePathnameConstants PathnameFormat,
                                            BSTR* ParentName) {
    return Guarded("ParentName", kIid, [&] {
        RequireOut(ParentName);
        *ParentName = nullptr;
        const int32_t format = CheckFormat(PathnameFormat);
        SpaceRef parent = ResolveOne(Snapshot(), BstrView(SpaceName));
        std::string name;
        if (parent.ToParent()) name = format == luxSpaceTreePathnamePartial ? ".." : Format(parent, format, parent);
        *ParentName = ToBstr(name).Detach();
    });
}

HRESULT CLuxCoordinateSpaceTree::ChildNames(BSTR SpaceName, LuxSpaceTreePathnameConstants PathnameFormat,
                                            ILuxStringCollection** Names) {
    return Guarded("ChildNames", kIid, [&] {
        RequireOut(Names);
        *Names = nullptr;
        const int32_t format = CheckFormat(PathnameFormat);
        const SpaceRef space = ResolveOne(Snapshot(), BstrView(SpaceName));
        std::vector<std::string> names;
        for (const SpaceRef& child : space.Children()) names.push_back(Format(child, format, space));
        *Names = Collect(names).Detach();
    });
}

HRESULT CLuxCoordinateSpaceTree::AllChildNames(BSTR SpaceName, LuxSpaceTreePathnameConstants PathnameFormat,
                                               VARIANT_BOOL ChildrenOnly, ILuxStringCollection** Names) {
    return Guarded("AllChildNames", kIid, [&] {
        RequireOut(Names);
        *Names = nullptr;
        const int32_t format = CheckFormat(PathnameFormat);
        const SpaceRef space = ResolveOne(Snapshot(), BstrView(SpaceName));
        std::vector<std::string> names;
        std::vector<SpaceRef> pending{space};
        bool first = true;
        while (!pending.empty()) {
            SpaceRef next = std::move(pending.back());
            pending.pop_back();
            if (!first || ChildrenOnly == VARIANT_FALSE) names.push_back(Format(next, format, space));
            first = false;
            std::vector<SpaceRef> children = next.Children();
            for (auto it = children.rbegin(); it != children.rend(); ++it) pending.push_back(std::move(*it));
        }
        *Names = Collect(names).Detach();
    });
}

HRESULT CLuxCoordinateSpaceTree::FindNames(BSTR SpaceName, ILuxStringCollection** Names) {
    return Guarded("FindNames", kIid, [&] {
        RequireOut(Names);
        *Names = nullptr;
        std::vector<std::string> names;
        for (const SpaceRef& space : ResolveAll(Snapshot(), BstrView(SpaceName))) names.push_back(FullName(space));
        *Names = Collect(names).Detach();
    });
}

HRESULT CLuxCoordinateSpaceTree::VerifyName(BSTR SpaceName, LuxSpaceTreePathnameConstants PathnameFormat,
                                            BSTR* FoundName, VARIANT_BOOL* Unique) {
    return Guarded("VerifyName", kIid, [&] {
        RequireOut(Unique);
        *Unique = VARIANT_FALSE;
        if (FoundName) *FoundName = nullptr;
        const int32_t format = CheckFormat(PathnameFormat);
        const std::vector<SpaceRef> found = ResolveAll(Snapshot(), BstrView(SpaceName));
        std::string name;
        if (found.size() == 1) name = Format(found.front(), format, found.front());
        if (FoundName) *FoundName = ToBstr(name).Detach();
        *Unique = found.size() == 1 ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxCoordinateSpaceTree::VerifyChild(BSTR ParentSpaceName, BSTR ChildSpaceName,
                                             LuxSpaceTreePathnameConstants PathnameFormat, VARIANT_BOOL ChildrenOnly,
                                             BSTR* FoundChildName, VARIANT_BOOL* IsChild) {
    return Guarded("VerifyChild", kIid, [&] {
        RequireOut(IsChild);
        *IsChild = VARIANT_FALSE;
        if (FoundChildName) *FoundChildName = nullptr;
        const int32_t format = CheckFormat(PathnameFormat);
        const StructurePtr host = Snapshot();
        const SpaceRef parent = ResolveOne(host, BstrView(ParentSpaceName));
        const std::string_view childName = BstrView(ChildSpaceName);
        const size_t count = CheckPath(childName);
        const bool withParent = ChildrenOnly == VARIANT_FALSE;
        std::vector<SpaceRef> found;
        if (count == 1 && !NamesRoot(*host, childName)) {
            // A simple name is looked for below the parent only.
            Search(parent, childName, withParent, found, 2);
        } else {
            for (SpaceRef& space : ResolveAll(host, childName))
                if (space.Within(parent) && (withParent || !space.Same(parent))) found.push_back(std::move(space));
        }
        std::string name;
        if (found.size() == 1) name = Format(found.front(), format, parent);
        if (FoundChildName) *FoundChildName = ToBstr(name).Detach();
        *IsChild = found.size() == 1 ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

std::vector<int32_t> CLuxCoordinateSpaceTree::CreatorIDs(std::string_view spaceName) const {
    const SpaceRef space = ResolveOne(Snapshot(), spaceName);
    const SpaceNode& node = space.Node();
    return {node.creators[0], node.creators[1], node.creators[2], node.creators[3]};
}

// ---- adding ----------------------------------------------------------------------------------

void CLuxCoordinateSpaceTree::AddNode(std::string_view parentPath, std::string_view newName,
                                      ComPtr<ILuxTransform2D> link, const int32_t (&creators)[4],
                                      int32_t duplicates, CLuxCoordinateSpaceTree* graft) {
    for (;;) {
        const StructurePtr present = Snapshot();
        const SpaceRef parent = ResolveOne(present, parentPath);
        const Owner owner = ChildrenOwner(parent);
        if (owner.tree) {
            owner.tree->AddNode(owner.path, newName, std::move(link), creators, duplicates, graft);
            return;
        }
        if (graft && Reaches(graft, this))
            SpaceTreeErrors::ThrowBadArgument("TreeToAdd", graft == this
                                                               ? "a tree cannot be grafted into itself"
                                                               : "the tree holds this tree: grafting it would make a cycle");
        const std::string name = graft ? graft->Snapshot()->Root().name : std::string(newName);
        const int32_t parentIndex = parent.Last().node;
        const int32_t existing = ChildNamed(*present, parentIndex, name);
        auto next = Edit(*present);
        std::vector<IUnknown*> leaving;
        std::vector<ComPtr<IUnknown>> keep;
        std::string replacedName;
        size_t position = SIZE_MAX;
        int32_t at = parentIndex;
        if (existing >= 0) {
            if (duplicates == luxAddSpaceIgnoreDuplicate) return;
            if (duplicates == luxAddSpaceDuplicateIsError)
                throw SpaceTreeErrors::DuplicateChildName("the space " + FullName(parent) +
                                                          " already has a child named " +
                                                          core::CollectionErrors::Quote(name));
            replacedName = FullNameIn(present, existing);
            position = PositionOf(*present, existing);
            at = RemoveSubtree(*next, existing, leaving, keep)[parentIndex];
        }
        SpaceNode node = NewNode(name, link, creators, graft);
        IUnknown* entering = node.parentFromThis.get();
        IUnknown* entering2 = node.grafted.get();
        const int32_t added = Attach(*next, at, std::move(node), position);
        StructurePtr committed = next;
        if (!Commit(present, std::move(next), entering, entering2, leaving)) continue;
        if (!replacedName.empty()) Announce(luxCoordinateSpaceTreeEvents_SubtreeDeleted, replacedName);
        Announce(graft ? luxCoordinateSpaceTreeEvents_TreeAdded : luxCoordinateSpaceTreeEvents_SpaceAdded,
                 FullNameIn(committed, added));
        return;
    }
}

HRESULT CLuxCoordinateSpaceTree::AddSpace(BSTR ParentSpaceName, BSTR NewSpaceName, ILuxTransform2D* ParentFromNew,
                                          VARIANT_BOOL CopyTransform, LuxAddSpaceConstants DuplicateHandling) {
    return Guarded("AddSpace", kIid, [&] {
        const std::string_view name = BstrView(NewSpaceName);
        CheckNewSpaceName(name);
        const int32_t duplicates = CheckDuplicates(DuplicateHandling);
        static constexpr int32_t kNoCreators[4] = {0, 0, 0, 0};
        AddNode(BstrView(ParentSpaceName), name, PrepareLink(ParentFromNew, CopyTransform != VARIANT_FALSE),
                kNoCreators, duplicates, nullptr);
    });
}

HRESULT CLuxCoordinateSpaceTree::AddSpaceEx(BSTR ParentSpaceName, BSTR NewSpaceName, ILuxTransform2D* ParentFromNew,
                                            LONG CreatorID1, LONG CreatorID2, LONG CreatorID3, LONG CreatorID4) {
    return Guarded("AddSpaceEx", kIid, [&] {
        const std::string_view name = BstrView(NewSpaceName);
        CheckNewSpaceName(name);
        const int32_t creators[4] = {CreatorID1, CreatorID2, CreatorID3, CreatorID4};
        AddNode(BstrView(ParentSpaceName), name, PrepareLink(ParentFromNew, true), creators,
                luxAddSpaceDuplicateIsError, nullptr);
    });
}

HRESULT CLuxCoordinateSpaceTree::AddTree(BSTR ParentSpaceName, ILuxCoordinateSpaceTree* TreeToAdd,
                                         ILuxTransform2D* ParentFromTreeRoot, VARIANT_BOOL CopyTransform,
                                         LuxAddSpaceConstants DuplicateHandling) {
    return Guarded("AddTree", kIid, [&] {
        RequireArgument(TreeToAdd, "TreeToAdd");
        RequireArgument(ParentFromTreeRoot, "ParentFromTreeRoot");
        CLuxCoordinateSpaceTree* graft = ImplementationOf(TreeToAdd);
        if (!graft) SpaceTreeErrors::ThrowBadArgument("TreeToAdd", "only a LuxCoordinateSpaceTree can be grafted");
        const int32_t duplicates = CheckDuplicates(DuplicateHandling);
        static constexpr int32_t kNoCreators[4] = {0, 0, 0, 0};
        AddNode(BstrView(ParentSpaceName), {}, PrepareLink(ParentFromTreeRoot, CopyTransform != VARIANT_FALSE),
                kNoCreators, duplicates, graft);
    });
}

// ---- the transform between two spaces -------------------------------------------------------

HRESULT CLuxCoordinateSpaceTree::GetTransform(BSTR ToSpaceName, BSTR FromSpaceName, ILuxTransform2D** ToFromFrom) {
    return Guarded("GetTransform", kIid, [&] {
        RequireOut(ToFromFrom);
        *ToFromFrom = nullptr;
        const StructurePtr host = Snapshot();
        SpaceRef to = ResolveOne(host, BstrView(ToSpaceName));
        SpaceRef from = ResolveOne(host, BstrView(FromSpaceName));
        auto depthOf = [](SpaceRef space) noexcept {
            size_t depth = 0;
            while (space.ToParent()) ++depth;
            return depth;
        };
        size_t toDepth = depthOf(to);
        size_t fromDepth = depthOf(from);
        const SpaceRef toStart = to;
        const SpaceRef fromStart = from;

        // First pass: when every link on the way is one of the library's linear transforms,
        // multiply their values: AncestorFromFrom and AncestorFromTo, then one result.
        bool linear = true;
        cc2XformLinear ancestorFromFrom;
        cc2XformLinear ancestorFromTo;
        auto up = [&](SpaceRef& space, cc2XformLinear& accumulated) {
            const SpaceNode& node = space.Node();
            if (node.linear)
                accumulated = node.linear->Value().Compose(accumulated);
            else
                linear = false;
            space.ToParent();
        };
        while (fromDepth > toDepth) up(from, ancestorFromFrom), --fromDepth;
        while (toDepth > fromDepth) up(to, ancestorFromTo), --toDepth;
        while (!from.Same(to)) {
            up(from, ancestorFromFrom);
            up(to, ancestorFromTo);
        }
        if (linear) {
            // One object for the result, handed out as its ILuxTransform2D.
            *ToFromFrom = CLuxTransform2DLinear::FromValue(ancestorFromTo.Inverse().Compose(ancestorFromFrom))
                              .Detach();
            return;
        }

        // Otherwise the canonical form of the sequence: the inverses of the To side's links
        // from To upwards, then the From side's links from the ancestor downwards (the
        // rightmost acts first). It shares none of the tree's transforms.
        std::vector<ComPtr<ILuxTransform2D>> inverses;
        for (SpaceRef space = toStart; !space.Same(to); space.ToParent()) {
            ComPtr<ILuxTransform2D> inverse;
            ThrowIfFailed(space.Node().parentFromThis->InvertBase(inverse.Out()));
            inverses.push_back(std::move(inverse));
        }
        std::vector<ILuxTransform2D*> sequence;
        for (const auto& inverse : inverses) sequence.push_back(inverse.get());
        const size_t toSide = sequence.size();
        for (SpaceRef space = fromStart; !space.Same(from); space.ToParent())
            sequence.push_back(space.Node().parentFromThis.get());
        std::reverse(sequence.begin() + static_cast<ptrdiff_t>(toSide), sequence.end());
        *ToFromFrom = CLuxTransform2DComposed::Canonical(sequence, true).Detach();
    });
}

// ---- changing ------------------------------------------------------------------------------

void CLuxCoordinateSpaceTree::Rename(std::string_view spacePath, std::string_view newName) {
    for (;;) {
        const StructurePtr present = Snapshot();
        const SpaceRef space = ResolveOne(present, spacePath);
        if (space.Node().IsTree()) {
            space.Node().graftedTree->Rename("^", newName);
            return;
        }
        if (const Owner owner = LinkOwner(space); owner.tree) {
            owner.tree->Rename(owner.path, newName);
            return;
        }
        const int32_t at = space.Last().node;
        if (at == 0)
            CheckRootName(newName);
        else
            CheckNewSpaceName(newName);
        if (present->nodes[at].name == newName) return;
        if (at != 0 && ChildNamed(*present, present->nodes[at].parent, newName, at) >= 0)
            throw SpaceTreeErrors::DuplicateChildName("a sibling of " + FullName(space) + " is named " +
                                                      core::CollectionErrors::Quote(newName));
        const std::string oldName = FullName(space);
        auto next = Edit(*present);
        next->nodes[at].name = std::string(newName);
        StructurePtr committed = next;
        if (!Commit(present, std::move(next), nullptr, nullptr, {})) continue;
        const std::string newFull = FullNameIn(committed, at);
        Announce(luxCoordinateSpaceTreeEvents_NameChanged, oldName, &newFull);
        return;
    }
}

HRESULT CLuxCoordinateSpaceTree::ChangeName(BSTR SpaceName, BSTR NewSpaceName) {
    return Guarded("ChangeName", kIid, [&] {
        const std::string_view newName = BstrView(NewSpaceName);
        CheckRootName(newName);  // the rules every name shares; a user space's are checked once found
        Rename(BstrView(SpaceName), newName);
    });
}

void CLuxCoordinateSpaceTree::Relink(std::string_view spacePath, ComPtr<ILuxTransform2D> link) {
    for (;;) {
        const StructurePtr present = Snapshot();
        const SpaceRef space = ResolveOne(present, spacePath);
        if (space.IsHostRoot())
            SpaceTreeErrors::ThrowBadArgument("ChildSpaceName", "the root has no transform into a parent");
        if (const Owner owner = LinkOwner(space); owner.tree) {
            owner.tree->Relink(owner.path, std::move(link));
            return;
        }
        const int32_t at = space.Last().node;
        if (present->nodes[at].parentFromThis.get() == link.get()) return;  // the same object: nothing changes
        auto next = Edit(*present);
        IUnknown* leaving = next->nodes[at].parentFromThis.get();
        const ComPtr<ILuxTransform2D> old = next->nodes[at].parentFromThis;  // released after the lock
        SetLink(next->nodes[at], link);
        if (!Commit(present, std::move(next), link.get(), nullptr, {leaving})) continue;
        Announce(luxCoordinateSpaceTreeEvents_TransformChanged, FullName(space));
        return;
    }
}

HRESULT CLuxCoordinateSpaceTree::ChangeTransform(BSTR ChildSpaceName, ILuxTransform2D* NewParentFromChild,
                                                 VARIANT_BOOL CopyTransform) {
    return Guarded("ChangeTransform", kIid, [&] {
        CheckPath(BstrView(ChildSpaceName));
        Relink(BstrView(ChildSpaceName), PrepareLink(NewParentFromChild, CopyTransform != VARIANT_FALSE));
    });
}

void CLuxCoordinateSpaceTree::Remove(std::string_view spacePath) {
    for (;;) {
        const StructurePtr present = Snapshot();
        const SpaceRef space = ResolveOne(present, spacePath);
        if (space.IsHostRoot()) SpaceTreeErrors::ThrowBadArgument("SpaceName", "the root space cannot be deleted");
        if (const Owner owner = LinkOwner(space); owner.tree) {
            owner.tree->Remove(owner.path);
            return;
        }
        const std::string oldName = FullName(space);
        auto next = Edit(*present);
        std::vector<IUnknown*> leaving;
        std::vector<ComPtr<IUnknown>> keep;
        RemoveSubtree(*next, space.Last().node, leaving, keep);
        if (!Commit(present, std::move(next), nullptr, nullptr, leaving)) continue;
        Announce(luxCoordinateSpaceTreeEvents_SubtreeDeleted, oldName);
        return;
    }
}

HRESULT CLuxCoordinateSpaceTree::DeleteSubtree(BSTR SpaceName) {
    return Guarded("DeleteSubtree", kIid, [&] { Remove(BstrView(SpaceName)); });
}

ComPtr<CLuxCoordinateSpaceTree> CLuxCoordinateSpaceTree::CopyOf(std::string_view spacePath) const {
    const StructurePtr present = Snapshot();
    const SpaceRef space = ResolveOne(present, spacePath);
    if (space.Node().IsTree()) return space.Node().graftedTree->CopyOf("^");
    if (const Owner owner = LinkOwner(space); owner.tree) return owner.tree->CopyOf(owner.path);
    const int32_t top = space.Last().node;
    auto copy = std::make_shared<SpaceTreeStructure>();
    copy->nodes.emplace_back();
    copy->nodes[0].name = present->nodes[top].name;
    // (source index, copy's parent index), depth first; every transform copied, grafted
    // trees shared.
    std::vector<std::pair<int32_t, int32_t>> pending;
    for (auto it = present->nodes[top].children.rbegin(); it != present->nodes[top].children.rend(); ++it)
        pending.emplace_back(*it, 0);
    while (!pending.empty()) {
        const auto [source, parent] = pending.back();
        pending.pop_back();
        SpaceNode node = present->nodes[source];
        node.children.clear();
        SetLink(node, PrepareLink(node.parentFromThis.get(), true));
        const int32_t added = Attach(*copy, parent, std::move(node));
        const auto& children = present->nodes[source].children;
        for (auto it = children.rbegin(); it != children.rend(); ++it) pending.emplace_back(*it, added);
    }
    auto tree = ComPtr<CLuxCoordinateSpaceTree>::Attach(Create());
    if (!tree) throw std::bad_alloc();
    {
        ObjectLock::Guard guard(tree->Lock());
        tree->structure_ = std::move(copy);
        tree->LinkAllLocked();
    }
    return tree;
}

HRESULT CLuxCoordinateSpaceTree::CopySubtree(BSTR SpaceName, ILuxCoordinateSpaceTree** Subtree) {
    return Guarded("CopySubtree", kIid, [&] {
        RequireOut(Subtree);
        *Subtree = nullptr;
        *Subtree = CopyOf(BstrView(SpaceName)).Detach();
    });
}

void CLuxCoordinateSpaceTree::Move(std::string_view spacePath, std::string_view newParentPath, int32_t duplicates) {
    for (;;) {
        const StructurePtr present = Snapshot();
        const SpaceRef space = ResolveOne(present, spacePath);
        const SpaceRef newParent = ResolveOne(present, newParentPath);
        if (space.IsHostRoot()) SpaceTreeErrors::ThrowBadArgument("SpaceName", "the root space cannot be moved");
        if (newParent.Within(space))
            SpaceTreeErrors::ThrowBadArgument("NewParentSpaceName",
                                              "a space cannot be moved below itself or one of its descendants");
        const Owner from = LinkOwner(space);
        const Owner into = ChildrenOwner(newParent);
        if (from.tree != into.tree)
            SpaceTreeErrors::ThrowBadArgument("NewParentSpaceName",
                                              "a space cannot be moved into or out of a grafted tree");
        if (from.tree) {
            from.tree->Move(from.path, into.path, duplicates);
            return;
        }
        int32_t at = space.Last().node;
        int32_t parent = newParent.Last().node;
        if (present->nodes[at].parent == parent) return;  // already there
        const std::string oldName = FullName(space);
        const std::string name = space.Name();
        const int32_t existing = ChildNamed(*present, parent, name);
        auto next = Edit(*present);
        std::vector<IUnknown*> leaving;
        std::vector<ComPtr<IUnknown>> keep;
        std::string replacedName;
        size_t position = SIZE_MAX;
        if (existing >= 0) {
            if (duplicates == luxAddSpaceIgnoreDuplicate) return;
            if (duplicates == luxAddSpaceDuplicateIsError)
                throw SpaceTreeErrors::DuplicateChildName("the space " + FullName(newParent) +
                                                          " already has a child named " +
                                                          core::CollectionErrors::Quote(name));
            replacedName = FullNameIn(present, existing);
            position = PositionOf(*present, existing);
            const std::vector<int32_t> remap = RemoveSubtree(*next, existing, leaving, keep);
            at = remap[at];
            parent = remap[parent];
        }
        auto& oldSiblings = next->nodes[next->nodes[at].parent].children;
        oldSiblings.erase(std::find(oldSiblings.begin(), oldSiblings.end(), at));
        next->nodes[at].parent = parent;
        auto& newSiblings = next->nodes[parent].children;
        newSiblings.insert(newSiblings.begin() + static_cast<std::ptrdiff_t>(std::min(position, newSiblings.size())),
                           at);
        StructurePtr committed = next;
        if (!Commit(present, std::move(next), nullptr, nullptr, leaving)) continue;
        if (!replacedName.empty()) Announce(luxCoordinateSpaceTreeEvents_SubtreeDeleted, replacedName);
        const std::string newName = FullNameIn(committed, at);
        Announce(luxCoordinateSpaceTreeEvents_SubtreeMoved, oldName, &newName);
        return;
    }
}

HRESULT CLuxCoordinateSpaceTree::MoveSubtree(BSTR SpaceName, BSTR NewParentSpaceName,
                                             LuxAddSpaceConstants DuplicateHandling) {
    return Guarded("MoveSubtree", kIid, [&] {
        const int32_t duplicates = CheckDuplicates(DuplicateHandling);
        Move(BstrView(SpaceName), BstrView(NewParentSpaceName), duplicates);
    });
}

// ---- persistence ---------------------------------------------------------------------------

void CLuxCoordinateSpaceTree::PersistState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        // Space nodes depth first (a parent before its children), the root as Space0; tree
        // nodes after them, each naming its parent's space index and its place among that
        // parent's children.
        const SpaceTreeStructure& structure = *structure_;
        std::vector<int32_t> spaceIndex(structure.nodes.size(), -1);
        std::vector<int32_t> spaces;
        std::vector<int32_t> trees;
        std::vector<int32_t> pending{0};
        while (!pending.empty()) {
            const int32_t at = pending.back();
            pending.pop_back();
            if (structure.nodes[at].IsTree()) {
                trees.push_back(at);
                continue;
            }
            spaceIndex[at] = static_cast<int32_t>(spaces.size());
            spaces.push_back(at);
            const auto& children = structure.nodes[at].children;
            for (auto it = children.rbegin(); it != children.rend(); ++it) pending.push_back(*it);
        }
        auto writeInt = [&](const std::string& key, int32_t number) {
            VARIANT value{};
            value.vt = VT_I4;
            value.lVal = number;
            archive.Write(key, value);
        };
        auto writeObject = [&](const std::string& key, IDispatch* object) {
            VARIANT value{};
            value.vt = VT_DISPATCH;
            value.pdispVal = object;  // lent: the archive takes its own reference
            archive.Write(key, value);
        };
        writeInt("NumSpaceNodes", static_cast<int32_t>(spaces.size()));
        writeInt("NumTreeNodes", static_cast<int32_t>(trees.size()));
        for (size_t i = 0; i < spaces.size(); ++i) {
            const SpaceNode& node = structure.nodes[spaces[i]];
            Bstr name(node.name);
            VARIANT text{};
            text.vt = VT_BSTR;
            text.bstrVal = name.get();
            archive.Write(Key("Space", i, "Name"), text);
            if (i == 0) continue;
            writeInt(Key("Space", i, "Parent"), spaceIndex[node.parent]);
            writeObject(Key("Space", i, "Transform"), node.parentFromThis.get());
            for (int c = 0; c < 4; ++c)
                writeInt(Key("Space", i, ("Creator" + std::to_string(c + 1)).c_str()), node.creators[c]);
        }
        for (size_t i = 0; i < trees.size(); ++i) {
            const SpaceNode& node = structure.nodes[trees[i]];
            writeInt(Key("Tree", i, "Parent"), spaceIndex[node.parent]);
            writeInt(Key("Tree", i, "Position"), static_cast<int32_t>(PositionOf(structure, trees[i])));
            writeObject(Key("Tree", i, "Transform"), node.parentFromThis.get());
            writeObject(Key("Tree", i, "Tree"), node.grafted.get());
        }
        return;
    }

    // Loading: every value is read and checked, the structure built aside and swapped in by
    // the commit. A count or index that does not fit what the archive holds is refused
    // before anything is allocated for it.
    Variant value;
    auto readInt = [&](const std::string& key, bool required, int32_t& number) {
        Variant read;
        if (!archive.Read(key, read)) {
            if (required) throw ccArchive::BadContent("the value " + key + " is missing");
            return false;
        }
        if (FAILED(read.ChangeType(VT_I4)))
            throw ccArchive::BadType("the value " + key + " is not a number", ids_Lux_ReadInvalidProperty_1, {key});
        number = read.get().lVal;
        return true;
    };
    int32_t spaceCount = 0;
    int32_t treeCount = 0;
    if (!readInt("NumSpaceNodes", false, spaceCount)) return;  // nothing stored: a new tree
    readInt("NumTreeNodes", true, treeCount);
    const size_t stored = archive.StoredCount();
    if (spaceCount < 1 || treeCount < 0 || (stored != 0 && static_cast<size_t>(spaceCount) + treeCount > stored))
        throw ccArchive::BadContent("the counts of space nodes (" + std::to_string(spaceCount) + ") and tree nodes (" +
                                    std::to_string(treeCount) + ") do not fit the archive");
    auto structure = std::make_shared<SpaceTreeStructure>();
    auto readName = [&](const std::string& key) {
        Variant read;
        if (!archive.Read(key, read)) throw ccArchive::BadContent("the value " + key + " is missing");
        if (read.vt() != VT_BSTR)
            throw ccArchive::BadType("the value " + key + " is not a name", ids_Lux_ReadInvalidProperty_1, {key});
        return std::string(BstrView(read.get().bstrVal));
    };
    auto readParent = [&](const std::string& kind, size_t i, int32_t limit) {
        int32_t parent = -1;
        readInt(Key(kind.c_str(), i, "Parent"), true, parent);
        if (parent < 0 || parent >= limit)
            throw ccArchive::BadContent("the parent " + std::to_string(parent) + " of " + kind + std::to_string(i) +
                                        " is not a space stored before it");
        return parent;
    };
    auto checkedName = [&](auto check, const std::string& name, const std::string& key) {
        try {
            check(name);
        } catch (const SpaceTreeErrors::Errors&) {
            throw ccArchive::BadContent("the name " + core::CollectionErrors::Quote(name) + " of " + key + " is not valid");
        }
    };
    {
        const std::string key = Key("Space", 0, "Name");
        std::string root = readName(key);
        checkedName(CheckRootName, root, key);
        structure->nodes.emplace_back();
        structure->nodes[0].name = std::move(root);
    }
    // Space i is node i: parents come first, so every parent index is below i.
    for (int32_t i = 1; i < spaceCount; ++i) {
        const std::string nameKey = Key("Space", i, "Name");
        std::string name = readName(nameKey);
        checkedName(CheckNewSpaceName, name, nameKey);
        const int32_t parent = readParent("Space", i, i);
        if (ChildNamed(*structure, parent, name) >= 0)
            throw ccArchive::BadContent("two children of space " + std::to_string(parent) + " are named " +
                                        core::CollectionErrors::Quote(name));
        const std::string transformKey = Key("Space", i, "Transform");
        if (!archive.Read(transformKey, value)) throw ccArchive::BadContent("the value " + transformKey + " is missing");
        SpaceNode node;
        node.name = std::move(name);
        SetLink(node, ObjectFrom<ILuxTransform2D>(value, transformKey));
        for (int c = 0; c < 4; ++c)
            readInt(Key("Space", i, ("Creator" + std::to_string(c + 1)).c_str()), false, node.creators[c]);
        Attach(*structure, parent, std::move(node));
    }
    for (int32_t i = 0; i < treeCount; ++i) {
        const int32_t parent = readParent("Tree", i, spaceCount);
        // Its place among its parent's children; trees of one parent come in the order of
        // their places, so inserting each at its own rebuilds the saved order.
        int32_t position = -1;
        readInt(Key("Tree", i, "Position"), false, position);
        const std::string transformKey = Key("Tree", i, "Transform");
        const std::string treeKey = Key("Tree", i, "Tree");
        if (!archive.Read(transformKey, value)) throw ccArchive::BadContent("the value " + transformKey + " is missing");
        SpaceNode node;
        SetLink(node, ObjectFrom<ILuxTransform2D>(value, transformKey));
        if (!archive.Read(treeKey, value)) throw ccArchive::BadContent("the value " + treeKey + " is missing");
        node.grafted = ObjectFrom<ILuxCoordinateSpaceTree>(value, treeKey);
        node.graftedTree = ImplementationOf(node.grafted.get());
        if (!node.graftedTree) throw ccArchive::BadContent("the value " + treeKey + " is not a LuxCoordinateSpaceTree");
        if (Reaches(node.graftedTree, this))
            throw ccArchive::BadContent("the tree " + treeKey + " holds this tree: the grafts would make a cycle");
        if (ChildNamed(*structure, parent, node.graftedTree->Snapshot()->Root().name) >= 0)
            throw ccArchive::BadContent("the root of " + treeKey + " has the name of another child of its parent");
        Attach(*structure, parent, std::move(node), position < 0 ? SIZE_MAX : static_cast<size_t>(position));
    }
    archive.OnCommit([this, structure = StructurePtr(std::move(structure))]() mutable noexcept {
        std::swap(structure_, structure);
        LinkAllLocked();
    });
}

}  // namespace tessaly::transform
