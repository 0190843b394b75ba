#include "com/transform/impl/SpaceName.h"

#include "TessalyCore.h"
#include "com/transform/impl/SpaceTreeErrors.h"

namespace tessaly::transform::spacename {

namespace {

char Lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Control characters of ASCII (and DEL). Bytes of multi-byte UTF-8 sequences are >= 0x80
// and count as printable: names may be written in any script.
bool IsControl(char c) noexcept {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

bool IsPunctuation(char c) noexcept {
    const auto byte = static_cast<unsigned char>(c);
    return (byte >= 0x21 && byte <= 0x2F) || (byte >= 0x3A && byte <= 0x40) || (byte >= 0x5B && byte <= 0x60) ||
           (byte >= 0x7B && byte <= 0x7E);
}

// The checks every component undergoes, new or looked up.
void CheckComponent(std::string_view whole, std::string_view component) {
    if (component.front() == ' ' || component.back() == ' ')
        SpaceTreeErrors::ThrowSyntax(whole, ids_Lux_NameHasSpaceAtEdge);
    for (char c : component)
        if (IsControl(c)) SpaceTreeErrors::ThrowSyntax(whole, ids_Lux_NameHasCntrlChar);
}

void CheckSingleName(std::string_view name, bool userSpace) {
    if (name.empty()) SpaceTreeErrors::ThrowSyntax(name, ids_Lux_NameMissing);
    for (char c : name)
        if (IsSeparator(c)) SpaceTreeErrors::ThrowSyntax(name, ids_Lux_NameHasSeparator);
    CheckComponent(name, name);
    if (IsPartialComponent(name) || name == kRootAlias || name == "$")
        SpaceTreeErrors::ThrowSyntax(name, ids_Lux_NameIsReserved);
    if (userSpace && IsPunctuation(name.front()) && name != "@" && name != "#")
        SpaceTreeErrors::ThrowSyntax(name, ids_Lux_NameStartsWithPunct);
}

}  // namespace

bool SameName(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (a[i] != b[i] && Lower(a[i]) != Lower(b[i])) return false;
    return true;
}

bool IsPartialComponent(std::string_view component) noexcept {
    return component == "." || component == ".." || component == "...";
}

void CheckNewSpaceName(std::string_view name) { CheckSingleName(name, true); }

void CheckRootName(std::string_view name) { CheckSingleName(name, false); }

bool PathComponents::Next(std::string_view& component) noexcept {
    if (done_) return false;
    size_t end = 0;
    while (end < rest_.size() && !IsSeparator(rest_[end])) ++end;
    component = rest_.substr(0, end);
    if (end == rest_.size()) {
        done_ = true;
        rest_ = {};
    } else {
        rest_.remove_prefix(end + 1);
    }
    return true;
}

size_t CheckPath(std::string_view path, bool allowPartial) {
    if (path.empty()) SpaceTreeErrors::ThrowSyntax(path, ids_Lux_NameMissing);
    PathComponents components(path);
    std::string_view component;
    size_t count = 0;
    while (components.Next(component)) {
        if (component.empty())
            SpaceTreeErrors::ThrowSyntax(path, count == 0 ? ids_Lux_NameMissingAtStart : ids_Lux_NameMissingInPath);
        CheckComponent(path, component);
        if (!allowPartial && IsPartialComponent(component)) SpaceTreeErrors::ThrowSyntax(path, ids_Lux_NameIsPartial);
        ++count;
    }
    return count;
}

bool StartsPartial(std::string_view path) noexcept {
    PathComponents components(path);
    std::string_view first;
    return components.Next(first) && IsPartialComponent(first);
}

}  // namespace tessaly::transform::spacename
