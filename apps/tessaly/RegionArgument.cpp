#include "RegionArgument.h"

#include <charconv>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <utility>
#include <sstream>
#include <vector>

#include "com/core/ccCOMError.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "xnl/std/shapes/ccAffineRectangle.h"

namespace tessaly::cli {

namespace {

struct KindInfo {
    const char* name;
    RegionArgument::Kind kind;
    std::vector<std::string> fields;  // empty for a polygon: its fields are X1, Y1, X2, ...
    const char* progId;
    const char* className;
};

const std::vector<KindInfo>& Kinds() {
    using Kind = RegionArgument::Kind;
    static const std::vector<KindInfo> kinds = {
        {"affine", Kind::Affine, {"CX", "CY", "LX", "LY", "ROT", "SKEW"}, "Tessaly.LuxRectangleAffine", "LuxRectangleAffine"},
        {"rect", Kind::Rect, {"X", "Y", "W", "H"}, "Tessaly.LuxRectangle", "LuxRectangle"},
        {"circle", Kind::Circle, {"CX", "CY", "R"}, "Tessaly.LuxCircle", "LuxCircle"},
        {"ellipse", Kind::Ellipse, {"CX", "CY", "RX", "RY", "ROT"}, "Tessaly.LuxEllipse", "LuxEllipse"},
        {"annulus", Kind::Annulus, {"CX", "CY", "R", "START", "SPAN", "SCALE"}, "Tessaly.LuxCircularAnnulusSection",
         "LuxCircularAnnulusSection"},
        {"polygon", Kind::Polygon, {}, "Tessaly.LuxPolygon", "LuxPolygon"},
    };
    return kinds;
}

const KindInfo& InfoOf(RegionArgument::Kind kind) {
    for (const KindInfo& info : Kinds())
        if (info.kind == kind) return info;
    throw std::logic_error("a region kind without an entry");
}

constexpr size_t kMinPolygonVertices = 3;

double Radians(double degrees) { return degrees * std::numbers::pi / 180.0; }

std::vector<std::string_view> SplitFields(std::string_view text) {
    std::vector<std::string_view> fields;
    size_t start = 0;
    while (true) {
        const size_t comma = text.find(',', start);
        fields.push_back(text.substr(start, comma == std::string_view::npos ? std::string_view::npos : comma - start));
        if (comma == std::string_view::npos) return fields;
        start = comma + 1;
    }
}

// A finite number written whole ("12", "-3.5", "1e2"; not "", "1x", "nan", "inf").
std::optional<double> Number(std::string_view field) {
    double value = 0.0;
    const char* end = field.data() + field.size();
    const auto [stop, error] = std::from_chars(field.data(), end, value);
    if (field.empty() || error != std::errc() || stop != end || !std::isfinite(value)) return std::nullopt;
    return value;
}

std::string Format(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

std::string PolygonFieldName(size_t index) {
    return (index % 2 == 0 ? "X" : "Y") + std::to_string(index / 2 + 1);
}

// What is wrong with the number of fields, or "".
std::string CountProblem(const KindInfo& info, size_t count) {
    if (info.kind == RegionArgument::Kind::Polygon) {
        if (count % 2 != 0)
            return "polygon takes X,Y pairs X1,Y1,X2,Y2,...: " + std::to_string(count) + " fields leave " +
                   PolygonFieldName(count) + " missing";
        if (count < 2 * kMinPolygonVertices)
            return "polygon takes at least " + std::to_string(kMinPolygonVertices) + " vertices X1,Y1,X2,Y2,X3,Y3, not " +
                   std::to_string(count / 2);
        return {};
    }
    if (count == info.fields.size()) return {};
    std::string syntax;
    for (const std::string& name : info.fields) syntax += (syntax.empty() ? "" : ",") + name;
    return std::string(info.name) + " takes " + std::to_string(info.fields.size()) + " fields " + syntax + ", not " +
           std::to_string(count);
}

// The checks on values that parsed as numbers: (field index, what is wrong) or nullopt.
std::optional<std::pair<size_t, std::string>> ValueProblem(RegionArgument::Kind kind, const std::vector<double>& v) {
    using Kind = RegionArgument::Kind;
    std::vector<size_t> positive;  // sizes and radii
    switch (kind) {
        case Kind::Affine:
        case Kind::Rect:
        case Kind::Ellipse: positive = {2, 3}; break;
        case Kind::Circle:
        case Kind::Annulus: positive = {2}; break;
        case Kind::Polygon: break;
    }
    for (size_t i : positive)
        if (!(v[i] > 0.0)) return std::pair{i, std::string("must be greater than 0")};
    if (kind == Kind::Affine) {
        try {
            ccAffineRectangle::ValidatedSkew(Radians(v[5]));
        } catch (const ccAffineRectangle::BadSkew&) {
            return std::pair{size_t{5}, std::string("makes the sides parallel (a skew must stay away from +-90 degrees)")};
        }
    }
    if (kind == Kind::Annulus) {
        if (v[4] == 0.0) return std::pair{size_t{4}, std::string("must not be 0 (its sign gives the direction)")};
        if (!(v[5] > 0.0) || v[5] == 1.0)
            return std::pair{size_t{5}, std::string("must be greater than 0 and not 1 (the end arc is the start arc scaled by it)")};
    }
    return std::nullopt;
}

template <class Interface>
ComPtr<Interface> Create(const KindInfo& info, REFIID iid) {
    ComPtr<Interface> object;
    core::ThrowIfFailed(tessaly::CreateObject(info.progId, iid, object.OutVoid()));
    return object;
}

}  // namespace

std::optional<RegionArgument> RegionArgument::Parse(std::string_view text, std::string& problem) {
    const size_t colon = text.find(':');
    const std::string kindName(text.substr(0, colon));
    const KindInfo* info = nullptr;
    std::string known;
    for (const KindInfo& candidate : Kinds()) {
        if (candidate.name == kindName) info = &candidate;
        known += (known.empty() ? "" : ", ") + std::string(candidate.name);
    }
    if (!info) {
        problem = "unknown region kind '" + kindName + "' (" + known + ")";
        return std::nullopt;
    }
    // The annulus and polygon classes may be missing from a build; say so rather than fail later.
    const ClassEntry* entry = ClassTable::Find(info->progId);
    if (!entry || !entry->create) {
        problem = kindName + " regions need the class " + info->className + ", which this build of the library does not have";
        return std::nullopt;
    }
    RegionArgument region;
    region.kind_ = info->kind;
    const std::vector<std::string_view> fields =
        colon == std::string_view::npos ? std::vector<std::string_view>{} : SplitFields(text.substr(colon + 1));
    if (std::string count = CountProblem(*info, fields.size()); !count.empty()) {
        problem = std::move(count);
        return std::nullopt;
    }
    auto where = [&](size_t i) {
        const std::string name = info->kind == Kind::Polygon ? PolygonFieldName(i) : info->fields[i];
        return "field " + name + " of " + kindName + ": '" + std::string(fields[i]) + "'";
    };
    region.values_.resize(fields.size());
    for (size_t i = 0; i < fields.size(); ++i) {
        const std::optional<double> value = Number(fields[i]);
        if (!value) {
            problem = where(i) + " is not a number";
            return std::nullopt;
        }
        region.values_[i] = *value;
    }
    if (const auto wrong = ValueProblem(region.kind_, region.values_)) {
        problem = where(wrong->first) + " " + wrong->second;
        return std::nullopt;
    }
    return region;
}

ComPtr<ILuxShape> RegionArgument::MakeShape(const std::string& space) const {
    const auto& v = values_;
    const KindInfo& info = InfoOf(kind_);
    ComPtr<ILuxShape> shape;
    switch (kind_) {
        case Kind::Affine: {
            const auto affine = Create<ILuxRectangleAffine>(info, IID_ILuxRectangleAffine);
            core::ThrowIfFailed(affine->SetCenterLengthsRotationSkew(v[0], v[1], v[2], v[3], Radians(v[4]), Radians(v[5])));
            shape = ComPtr<ILuxShape>(affine.get());
            break;
        }
        case Kind::Rect: {
            const auto rect = Create<ILuxRectangle>(info, IID_ILuxRectangle);
            core::ThrowIfFailed(rect->SetXYWidthHeight(v[0], v[1], v[2], v[3]));
            shape = ComPtr<ILuxShape>(rect.get());
            break;
        }
        case Kind::Circle: {
            const auto circle = Create<ILuxCircle>(info, IID_ILuxCircle);
            core::ThrowIfFailed(circle->SetCenterRadius(v[0], v[1], v[2]));
            shape = ComPtr<ILuxShape>(circle.get());
            break;
        }
        case Kind::Ellipse: {
            const auto ellipse = Create<ILuxEllipse>(info, IID_ILuxEllipse);
            core::ThrowIfFailed(ellipse->SetCenterXYRadiusXYRotation(v[0], v[1], v[2], v[3], Radians(v[4])));
            shape = ComPtr<ILuxShape>(ellipse.get());
            break;
        }
        case Kind::Annulus: {
            const auto section = Create<ILuxCircularAnnulusSection>(info, IID_ILuxCircularAnnulusSection);
            core::ThrowIfFailed(section->SetCenterRadiusAngleStartAngleSpanRadialScale(v[0], v[1], v[2], Radians(v[3]),
                                                                                       Radians(v[4]), v[5]));
            shape = ComPtr<ILuxShape>(section.get());
            break;
        }
        case Kind::Polygon: {
            const auto polygon = Create<ILuxPolygon>(info, IID_ILuxPolygon);
            core::ThrowIfFailed(polygon->put_NumVertices(0));  // a new polygon comes with vertices of its own
            for (size_t i = 0; i + 1 < v.size(); i += 2) core::ThrowIfFailed(polygon->AddVertex(v[i], v[i + 1], -1));
            shape = ComPtr<ILuxShape>(polygon.get());
            break;
        }
    }
    core::ThrowIfFailed(shape->put_SelectedSpaceName(Bstr(space).get()));
    return shape;
}

std::string RegionArgument::Describe() const {
    const auto& v = values_;
    auto point = [&](size_t i) { return "(" + Format(v[i]) + ", " + Format(v[i + 1]) + ")"; };
    switch (kind_) {
        case Kind::Affine:
            return "affine rectangle: centre " + point(0) + ", sides " + Format(v[2]) + " x " + Format(v[3]) +
                   ", rotation " + Format(v[4]) + " deg, skew " + Format(v[5]) + " deg";
        case Kind::Rect:
            return "rectangle: corner " + point(0) + ", size " + Format(v[2]) + " x " + Format(v[3]);
        case Kind::Circle:
            return "circle: centre " + point(0) + ", radius " + Format(v[2]);
        case Kind::Ellipse:
            return "ellipse: centre " + point(0) + ", radii " + Format(v[2]) + " x " + Format(v[3]) + ", rotation " +
                   Format(v[4]) + " deg";
        case Kind::Annulus:
            return "annulus section: centre " + point(0) + ", radius " + Format(v[2]) + ", start " + Format(v[3]) +
                   " deg, span " + Format(v[4]) + " deg, radial scale " + Format(v[5]);
        case Kind::Polygon: {
            std::string text = "polygon: " + std::to_string(v.size() / 2) + " vertices";
            for (size_t i = 0; i + 1 < v.size(); i += 2) text += " " + point(i);
            return text;
        }
    }
    return {};
}

}  // namespace tessaly::cli
