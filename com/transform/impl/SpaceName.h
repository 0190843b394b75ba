// The syntax of coordinate space names and paths, and how they compare.
//
// A name is a string of UTF-8 text; a path joins names with the separator "\" (on input
// "/" separates too). Names compare without regard to ASCII case, and only when their
// lengths are equal. The components ".", ".." and "..." are partial syntax: they are
// resolved against a starting space (ResolvePartialName) and refused anywhere else. "^"
// as the first component stands for the root, whatever the root is called.
//
// Every refusal throws SpaceTreeErrors::InvalidNameSyntax with the message ID of the rule
// that failed (see SpaceTreeErrors.h); the checks run in the order the functions list them.
#pragma once

#include <cstddef>
#include <string_view>

namespace tessaly::transform::spacename {

inline constexpr char kSeparator = '\\';
inline constexpr std::string_view kRootAlias = "^";

inline bool IsSeparator(char c) noexcept { return c == '\\' || c == '/'; }

// Same length and equal without regard to ASCII case.
bool SameName(std::string_view a, std::string_view b) noexcept;

// ".", ".." or "...".
bool IsPartialComponent(std::string_view component) noexcept;

// A name for a new space (AddSpace, AddSpaceEx, ChangeName), in this order:
// empty (NameMissing), a separator (NameHasSeparator), a blank at either end
// (NameHasSpaceAtEdge), a character that is not printable (NameHasCntrlChar), ".", "..",
// "...", "^" or "$" (NameIsReserved), a first character that is ASCII punctuation
// (NameStartsWithPunct). The library's own space names "@" (root) and "#" (pixels) are
// exempt from the last rule.
void CheckNewSpaceName(std::string_view name);
// The root's name (RootName put, and a loaded root): the same rules but the punctuation
// rule, since a root is not a user space ("@" is the usual root name).
void CheckRootName(std::string_view name);

// Iterates the components of a path, "\" and "/" alike separating them.
class PathComponents {
public:
    explicit PathComponents(std::string_view path) noexcept : rest_(path), done_(false) {}
    // The next component (possibly empty); false past the last.
    bool Next(std::string_view& component) noexcept;

private:
    std::string_view rest_;
    bool done_;
};

// Checks the syntax of a name to look up: empty (NameMissing), an empty first component
// (NameMissingAtStart), an empty later one (NameMissingInPath), then per component a blank
// at either end, a character that is not printable; then, unless `allowPartial`, a partial
// component (NameIsPartial). Returns the number of components.
size_t CheckPath(std::string_view path, bool allowPartial = false);

// Whether the path's first component is partial syntax ("." "..", "...").
bool StartsPartial(std::string_view path) noexcept;

}  // namespace tessaly::transform::spacename
