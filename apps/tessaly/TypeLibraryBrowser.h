// `tessaly typelib`: lists what the type libraries linked into the program contain, or
// prints one interface, enumeration or coclass in full.
#pragma once

#include <ostream>
#include <string_view>
#include <vector>

#include "platform/TypeInfo.h"

namespace tessaly::cli {

class TypeLibraryBrowser {
public:
    explicit TypeLibraryBrowser(std::vector<const TypeLibraryInfo*> libraries);

    // Every interface, dispinterface, enumeration and coclass, one per line.
    void ListAll(std::ostream& out) const;
    // One entry by name (any case). False, with nothing printed, when no entry has the name.
    bool Describe(std::string_view name, std::ostream& out) const;

private:
    void DescribeInterface(const InterfaceInfo& iface, std::ostream& out) const;
    void DescribeEnum(const EnumInfo& info, std::ostream& out) const;
    void DescribeCoClass(const CoClassInfo& info, std::ostream& out) const;

    std::vector<const TypeLibraryInfo*> libraries_;
};

}  // namespace tessaly::cli
