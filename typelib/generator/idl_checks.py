"""Checks over a whole resolved library that no single declaration can make: state IDs
against the DISPIDs of the members they name, and the names and DISPIDs that meet in one
coclass, where one IDispatch serves every interface the class names.

Each failure is an IdlError at the declaration that breaks the rule.
"""

from __future__ import annotations

from typing import Optional

from idl_ast import IMPLTYPEFLAG_FSOURCE, CoClass, Enum, EnumMember, IdlError, Interface, Library, Member

# An enumeration of state IDs is named <Prefix><Stem>StateIDs; its members are
# <prefix><Stem>_<Member>, and each one's value is the DISPID of that member of
# I<Prefix><Stem> (or of an interface a coclass names beside it).
STATE_ID_SUFFIX = "StateIDs"

# Enumerations ending in StateIDs that name no member: the reserved state IDs.
RESERVED_STATE_ID_ENUMS = {"LuxStateIDs"}

# State IDs that deliberately differ from the DISPID of the member they name, each with
# the value it keeps. Events and archives carry these numbers, so they never change.
STATE_ID_ALLOWANCES = {
    # The tool's record-enable masks announce their changes under their earlier numbers;
    # the properties themselves are 0x101D00C to 0x101D00E.
    "luxTool_LastRunRecordEnableBase": 0x101D004,
    "luxTool_LastRunRecordDiagEnableBase": 0x101D005,
    "luxTool_CurrentRecordEnableBase": 0x101D006,
    # The records a tool makes: no property has these names; the IDs are those of
    # CreateCurrentRecord and CreateLastRunRecord.
    "luxTool_CurrentRecord": 0x101D014,
    "luxTool_LastRunRecord": 0x101D015,
    # The interactive graphic's DOF mask: property 0x10110AE, state ID kept at 0x101101B,
    # which the rectangles also announce under their own names.
    "luxGraphicInteractive_GraphicDOFEnableBase": 0x101101B,
    "luxRectangle_GraphicDOFEnable": 0x101101B,
    "luxRectangleAffine_GraphicDOFEnable": 0x101101B,
    # A region's run-length mask: no property has this name; the ID is that of CreateRLE.
    "luxRegion_RLE": 0x101901D,
    # The unit-circle state of the elliptical shapes is announced under the DISPID of the
    # method that reads it.
    "luxEllipse_UnitCircleTransform": 0x10190A1,
    "luxEllipticalArc_UnitCircleParams": 0x1033010,
    "luxEllipticalAnnulusSection_UnitCircleParams": 0x103302C,
}


def check_library(library: Library, interfaces: dict[str, Interface]) -> None:
    """`interfaces` holds every interface the library can name, its imports' included."""
    coclasses = all_coclasses(library)
    for e in library.enums:
        if e.name.endswith(STATE_ID_SUFFIX) and e.name not in RESERVED_STATE_ID_ENUMS:
            for m in e.members:
                check_state_id(e, m, interfaces, coclasses)
    for c in library.coclasses:
        check_coclass(c, interfaces)


def all_coclasses(library: Library) -> list[CoClass]:
    found = list(library.coclasses)
    for imported in library.imports:
        found += [c for c in all_coclasses(imported) if c not in found]
    return found


def chain(iface: Interface, interfaces: dict[str, Interface]) -> list[Interface]:
    """The interface and its bases, most derived first."""
    levels = [iface]
    while levels[-1].base in interfaces:
        levels.append(interfaces[levels[-1].base])
    return levels


def find_interface(name: str, interfaces: dict[str, Interface]) -> Optional[Interface]:
    folded = name.lower()
    for key, iface in interfaces.items():
        if key.lower() == folded:
            return iface
    return None


def check_state_id(e: Enum, m: EnumMember, interfaces: dict[str, Interface], coclasses: list[CoClass]) -> None:
    stem, sep, member_name = m.name.partition("_")
    if not sep or not stem or not member_name:
        raise IdlError(m.location, f"state ID {m.name} of {e.name} is not named <stem>_<Member>")
    if m.name in STATE_ID_ALLOWANCES:
        kept = STATE_ID_ALLOWANCES[m.name]
        if m.value != kept:
            raise IdlError(m.location, f"state ID {m.name} is {m.value:#x}; it keeps {kept:#x}")
        return
    # The interface the member's stem names (luxObject_Tag: ILuxObject), else the one the
    # enumeration is named after (LuxAcqFifoStateIDs: ILuxAcqFifo).
    owner = find_interface("I" + stem, interfaces) or find_interface("I" + e.name[:-len(STATE_ID_SUFFIX)], interfaces)
    if owner is None:
        raise IdlError(m.location, f"state ID {m.name} names no interface I{stem[:1].upper()}{stem[1:]}")
    # The member may come from the interface's bases or from another interface of a class
    # that names it (a rectangle's Color is its graphic's).
    searched = chain(owner, interfaces)
    for c in coclasses:
        names = [item.name for item in c.interfaces if not item.flags & IMPLTYPEFLAG_FSOURCE]
        if any(owner in chain(interfaces[n], interfaces) for n in names if n in interfaces):
            for n in names:
                if n in interfaces:
                    searched += [i for i in chain(interfaces[n], interfaces) if i not in searched]
    dispids = sorted({x.dispid for i in searched for x in i.members if x.name == member_name})
    if not dispids:
        raise IdlError(m.location, f"state ID {m.name} names no member {member_name} of {owner.name}")
    if m.value not in dispids:
        shown = " or ".join(f"{d:#x}" for d in dispids)
        raise IdlError(m.location, f"state ID {m.name} is {m.value:#x} but the DISPID of {member_name} is {shown}")


def check_coclass(c: CoClass, interfaces: dict[str, Interface]) -> None:
    """One name, one DISPID across every interface the class's IDispatch serves: its
    non-source interfaces other than [local] ones, with their bases. The same interface
    reached twice, and the get/put/putref of one property, are one member."""
    by_name: dict[str, tuple[Member, Interface]] = {}
    by_dispid: dict[int, tuple[Member, Interface]] = {}
    visited: set[str] = set()
    for item in c.interfaces:
        listed = interfaces.get(item.name)
        # Dispatch never reaches a [local] interface, nor the bases it is listed for.
        if item.flags & IMPLTYPEFLAG_FSOURCE or listed is None or listed.kind == "Local":
            continue
        for iface in chain(listed, interfaces):
            if iface.name in visited:
                continue
            visited.add(iface.name)
            for member in iface.members:
                first = by_name.setdefault(member.name.lower(), (member, iface))
                if first[0].dispid != member.dispid:
                    raise IdlError(item.location, f"coclass {c.name}: {member.name} is DISPID {member.dispid:#x} in "
                                                  f"{iface.name} but {first[0].dispid:#x} in {first[1].name}")
                first = by_dispid.setdefault(member.dispid, (member, iface))
                if first[0].name.lower() != member.name.lower():
                    raise IdlError(item.location, f"coclass {c.name}: DISPID {member.dispid:#x} is {member.name} in "
                                                  f"{iface.name} but {first[0].name} in {first[1].name}")
