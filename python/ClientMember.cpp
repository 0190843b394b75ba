#include "ClientMember.h"

#include <array>
#include <charconv>
#include <cstdio>

namespace tessaly::python {

namespace {

bool IsPythonName(std::string_view text) {
    static constexpr std::array<std::string_view, 35> kKeywords = {
        "False", "None",   "True",    "and",      "as",       "assert", "async",  "await",    "break",
        "class", "continue", "def",   "del",      "elif",     "else",   "except", "finally",  "for",
        "from",  "global", "if",      "import",   "in",       "is",     "lambda", "nonlocal", "not",
        "or",    "pass",   "raise",   "return",   "try",      "while",  "with",   "yield"};
    if (text.empty() || (text[0] >= '0' && text[0] <= '9')) return false;
    for (char c : text)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_')) return false;
    for (std::string_view keyword : kKeywords)
        if (text == keyword) return false;
    return true;
}

std::string Quoted(std::string_view text) {
    std::string out = "'";
    for (unsigned char c : text) {
        if (c == '\\' || c == '\'') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20 || c == 0x7F) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", c);
            out += escape;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "'";
}

bool IsNumber(std::string_view text) {
    if (text.empty()) return false;
    std::string_view digits = text[0] == '-' ? text.substr(1) : text;
    int64_t integer = 0;
    auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), integer);
    if (ec == std::errc() && end == digits.data() + digits.size()) return true;
    double real = 0;
    auto [realEnd, realEc] = std::from_chars(text.data(), text.data() + text.size(), real);
    return realEc == std::errc() && realEnd == text.data() + text.size();
}

// The default of an optional parameter as a Python literal; None when it has none.
std::string PythonDefault(const ParamInfo& param) {
    if (!(param.flags & PARAMFLAG_FHASDEFAULT) || !param.defaultValue) return "None";
    const std::string_view text = param.defaultValue;
    if (text == "VARIANT_TRUE") return "True";
    if (text == "VARIANT_FALSE") return "False";
    if (param.vt == VT_DISPATCH || param.vt == VT_UNKNOWN) return "None";
    if (param.vt != VT_BSTR && IsNumber(text)) return std::string(text);
    return Quoted(text);
}

// "Item: VARIANT, Key: BSTR = ''" for the parameters a caller passes.
std::string ParameterList(const MemberInfo& info, uint16_t count, bool typed) {
    std::string out;
    for (uint16_t k = 0; k < count; ++k) {
        const ParamInfo& param = info.params[k];
        if (ClientMember::IsOutOnly(param)) continue;
        if (!out.empty()) out += ", ";
        out += param.name;
        if (typed) {
            out += ": ";
            out += param.typeName;
        }
        if (ClientMember::IsOptional(param)) out += (typed ? " = " : "=") + PythonDefault(param);
    }
    return out;
}

// What a call returns: the retval, then every [out] parameter.
std::string Returns(const MemberInfo& info) {
    std::string out;
    int count = 0;
    for (uint16_t k = 0; k < info.paramCount; ++k) {
        const ParamInfo& param = info.params[k];
        if (!(param.flags & PARAMFLAG_FOUT)) continue;
        std::string item = param.typeName;
        if (!(param.flags & PARAMFLAG_FRETVAL)) item = std::string(param.name) + ": " + item;
        if (param.flags & PARAMFLAG_FRETVAL)
            out = out.empty() ? item : item + ", " + out;
        else
            out += out.empty() ? item : ", " + item;
        ++count;
    }
    if (count == 0) return "None";
    return count == 1 ? out : "(" + out + ")";
}

std::string RetvalType(const MemberInfo& info) {
    return ClientMember::HasRetval(info) ? info.params[info.paramCount - 1].typeName : "None";
}

}  // namespace

ClientMember::ClientMember(std::string_view className, std::string_view name, DISPID dispid, const MemberInfo* get,
                           const MemberInfo* put, const MemberInfo* putref, const MemberInfo* func)
    : name_(name),
      qualifiedName_(std::string(className) + "." + std::string(name)),
      dispid_(dispid),
      get_(get),
      put_(put),
      putref_(putref),
      func_(func) {
    Describe();
}

uint16_t ClientMember::VisibleCount(const MemberInfo& info) noexcept {
    return static_cast<uint16_t>(info.paramCount - (HasRetval(info) ? 1 : 0));
}

bool ClientMember::HasRetval(const MemberInfo& info) noexcept {
    return info.paramCount > 0 && (info.params[info.paramCount - 1].flags & PARAMFLAG_FRETVAL);
}

bool ClientMember::IsOutOnly(const ParamInfo& param) noexcept {
    return (param.flags & PARAMFLAG_FOUT) && !(param.flags & PARAMFLAG_FIN);
}

bool ClientMember::IsOptional(const ParamInfo& param) noexcept {
    return param.flags & (PARAMFLAG_FOPT | PARAMFLAG_FHASDEFAULT);
}

const MemberInfo* ClientMember::Writer(bool objectValue, uint16_t& flags) const noexcept {
    if (putref_ && (objectValue || !put_)) {
        flags = DISPATCH_PROPERTYPUTREF;
        return putref_;
    }
    flags = DISPATCH_PROPERTYPUT;
    return put_;
}

void ClientMember::Describe() {
    const MemberInfo* writer = put_ ? put_ : putref_;
    const MemberInfo* primary = func_ ? func_ : get_ ? get_ : writer;
    if (func_) {
        access_ = Access::Method;
    } else if (get_) {
        bool required = false;
        for (uint16_t k = 0; k < VisibleCount(*get_); ++k)
            required = required || (!IsOutOnly(get_->params[k]) && !IsOptional(get_->params[k]));
        access_ = required ? Access::Indexed : Access::Value;
    } else {
        access_ = writer && VisibleCount(*writer) > 1 ? Access::Indexed : Access::WriteOnly;
    }

    const char* mode = get_ && writer ? "read/write" : get_ ? "read-only" : "write-only";
    switch (access_) {
    case Access::Method: {
        doc_ = name_ + "(" + ParameterList(*func_, VisibleCount(*func_), true) + ") -> " + Returns(*func_);
        bool pythonNames = true;
        for (uint16_t k = 0; k < VisibleCount(*func_); ++k)
            pythonNames = pythonNames && (IsOutOnly(func_->params[k]) || IsPythonName(func_->params[k].name));
        if (pythonNames) {
            const std::string list = ParameterList(*func_, VisibleCount(*func_), false);
            textSignature_ = "($self" + (list.empty() ? std::string() : ", " + list) + ")";
        }
        break;
    }
    case Access::Indexed: {
        const MemberInfo& indexed = get_ ? *get_ : *writer;
        const uint16_t indices = get_ ? VisibleCount(*get_) : static_cast<uint16_t>(VisibleCount(*writer) - 1);
        const std::string type =
            get_ ? RetvalType(*get_) : std::string(writer->params[VisibleCount(*writer) - 1].typeName);
        doc_ = name_ + "[" + ParameterList(indexed, indices, true) + "] -> " + type + ", " + mode;
        break;
    }
    case Access::Value: {
        const uint16_t optional = VisibleCount(*get_);
        doc_ = name_ + (optional ? "(" + ParameterList(*get_, optional, true) + ")" : std::string()) + " -> " +
               RetvalType(*get_) + ", " + mode;
        break;
    }
    case Access::WriteOnly:
        doc_ = name_ + " = " + (writer ? writer->params[VisibleCount(*writer) - 1].typeName : "?") + ", " + mode;
        break;
    }
    if (primary && primary->helpString && *primary->helpString) {
        doc_ += "\n\n";
        doc_ += primary->helpString;
    }
}

}  // namespace tessaly::python
