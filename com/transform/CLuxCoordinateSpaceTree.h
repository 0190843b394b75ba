// LuxCoordinateSpaceTree: a tree of named coordinate spaces. Every space but the root holds
// the transform that maps its points into its parent; GetTransform composes them into the
// mapping between any two spaces. Another tree may be grafted in by reference (AddTree):
// its spaces are then reached through both trees, and a change made to it is seen by both.
//
// Names, paths and their syntax: com/transform/impl/SpaceName.h and docs/space-trees.md.
//
// The state is an immutable snapshot (SpaceTreeStructure) replaced as a whole by every
// change: readers take it for an instant under the lock and walk it with no lock held; a
// change is worked out on the snapshot outside the lock and committed only if the snapshot
// is still the present one (otherwise it is worked out again). So no two trees' locks are
// ever held at once, even when a call walks into grafted trees.
//
// A change to a space inside a grafted tree is made by that tree (the call is passed on
// with the space's path in it), which fires the specific event; this tree hears of it as
// Change(-2, info, areas) like any change of an object it holds.
//
// Events, each fired after the change with the lock released and carrying full path names:
// the specific event (SpaceAdded, TreeAdded, NameChanged, TransformChanged, SubtreeDeleted,
// SubtreeMoved), then Change(-1, empty, luxFA_Misc). RootName put fires Change with
// luxCoordinateSpaceTree_RootName and the new name. The transforms and grafted trees the tree
// holds pass their Change on as Change(-2, info, areas) (ChildEventForwarder).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "TessalyCore.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "com/transform/impl/SpaceTreeStructure.h"

namespace tessaly::transform {

class CLuxCoordinateSpaceTree : public core::ILuxObjectImplBase<CLuxCoordinateSpaceTree, ILuxCoordinateSpaceTree> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxCoordinateSpaceTree; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxCoordinateSpaceTree;

    // The root of a new tree is called "@".
    static constexpr std::string_view kDefaultRootName = "@";

    CLuxCoordinateSpaceTree();

    // The present snapshot.
    StructurePtr Snapshot() const;

    void CopyFrom(const CLuxCoordinateSpaceTree& source);
    void PersistState(core::ArchiveAccess& archive);
    void ResetState() noexcept;

    HRESULT get_RootName(BSTR* Name) override;
    HRESULT put_RootName(BSTR Name) override;
    HRESULT ResolvePartialName(BSTR StartingSpaceName, BSTR NameToResolve, BSTR* ResolvedName) override;
    HRESULT LookUpName(BSTR SpaceName, LuxSpaceTreePathnameConstants PathnameFormat, BSTR* FoundName) override;
    HRESULT ParentName(BSTR SpaceName, LuxSpaceTreePathnameConstants PathnameFormat, BSTR* ParentName) override;
    HRESULT ChildNames(BSTR SpaceName, LuxSpaceTreePathnameConstants PathnameFormat,
                       ILuxStringCollection** Names) override;
    HRESULT AllChildNames(BSTR SpaceName, LuxSpaceTreePathnameConstants PathnameFormat, VARIANT_BOOL ChildrenOnly,
                          ILuxStringCollection** Names) override;
    HRESULT FindNames(BSTR SpaceName, ILuxStringCollection** Names) override;
    HRESULT VerifyName(BSTR SpaceName, LuxSpaceTreePathnameConstants PathnameFormat, BSTR* FoundName,
                       VARIANT_BOOL* Unique) override;
    HRESULT VerifyChild(BSTR ParentSpaceName, BSTR ChildSpaceName, LuxSpaceTreePathnameConstants PathnameFormat,
                        VARIANT_BOOL ChildrenOnly, BSTR* FoundChildName, VARIANT_BOOL* IsChild) override;
    HRESULT AddSpace(BSTR ParentSpaceName, BSTR NewSpaceName, ILuxTransform2D* ParentFromNew,
                     VARIANT_BOOL CopyTransform, LuxAddSpaceConstants DuplicateHandling) override;
    HRESULT AddSpaceEx(BSTR ParentSpaceName, BSTR NewSpaceName, ILuxTransform2D* ParentFromNew, LONG CreatorID1,
                       LONG CreatorID2, LONG CreatorID3, LONG CreatorID4) override;
    HRESULT AddTree(BSTR ParentSpaceName, ILuxCoordinateSpaceTree* TreeToAdd, ILuxTransform2D* ParentFromTreeRoot,
                    VARIANT_BOOL CopyTransform, LuxAddSpaceConstants DuplicateHandling) override;
    HRESULT GetTransform(BSTR ToSpaceName, BSTR FromSpaceName, ILuxTransform2D** ToFromFrom) override;
    HRESULT ChangeName(BSTR SpaceName, BSTR NewSpaceName) override;
    HRESULT ChangeTransform(BSTR ChildSpaceName, ILuxTransform2D* NewParentFromChild,
                            VARIANT_BOOL CopyTransform) override;
    HRESULT DeleteSubtree(BSTR SpaceName) override;
    HRESULT CopySubtree(BSTR SpaceName, ILuxCoordinateSpaceTree** Subtree) override;
    HRESULT MoveSubtree(BSTR SpaceName, BSTR NewParentSpaceName, LuxAddSpaceConstants DuplicateHandling) override;

    // The four creator identifiers of a space (for tests and for the library's tools);
    // throws as a lookup does.
    std::vector<int32_t> CreatorIDs(std::string_view spaceName) const;

protected:
    ~CLuxCoordinateSpaceTree() override;

private:
    // The steps of the changes, on this tree; each throws its refusal before anything
    // changes and fires its events after the commit.
    void AddNode(std::string_view parentPath, std::string_view newName, ComPtr<ILuxTransform2D> link,
                 const int32_t (&creators)[4], int32_t duplicates, CLuxCoordinateSpaceTree* graft);
    void Rename(std::string_view spacePath, std::string_view newName);
    void Relink(std::string_view spacePath, ComPtr<ILuxTransform2D> link);
    void Remove(std::string_view spacePath);
    ComPtr<CLuxCoordinateSpaceTree> CopyOf(std::string_view spacePath) const;
    void Move(std::string_view spacePath, std::string_view newParentPath, int32_t duplicates);
    void SetRootName(std::string_view newRoot);

    // Replaces the snapshot `expected` by `next` and links or unlinks the objects that
    // enter or leave; false (and nothing done) when the snapshot changed meanwhile.
    bool Commit(const StructurePtr& expected, StructurePtr next, IUnknown* entering, IUnknown* entering2,
                const std::vector<IUnknown*>& leaving);
    // Links every transform and grafted tree of the present snapshot (lock held).
    void LinkAllLocked() noexcept;
    // Fires a specific event with its names, then Change(-1, empty, luxFA_Misc).
    void Announce(DISPID event, const std::string& first, const std::string* second = nullptr);

    StructurePtr structure_;
    // Passes on the Change of the transforms and grafted trees held (see ChildEventForwarder).
    core::ChildEventForwarder children_{*this};
};

}  // namespace tessaly::transform
