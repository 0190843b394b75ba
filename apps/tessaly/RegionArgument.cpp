#include "RegionArgument.h"

#include <charconv>
#include <cmath>
#include <numbers>
#include <span>
#include <sstream>
#include <vector>

#include "com/core/ccCOMError.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "xnl/std/shapes/ccAffineRectangle.h"

namespace tessaly::cli {

namespace {

constexpr std::array<const char*, 6> kAffineFields = {"CX", "CY", "LX", "LY", "ROT", "SKEW"};
constexpr std::array<const char*, 4> kRectFields = {"X", "Y", "W", "H"};

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

}  // namespace

std::optional<RegionArgument> RegionArgument::Parse(std::string_view text, std::string& problem) {
    const size_t colon = text.find(':');
    const std::string_view kindName = text.substr(0, colon);
    RegionArgument region;
    std::span<const char* const> names;
    if (kindName == "affine") {
        region.kind_ = Kind::Affine;
        names = kAffineFields;
    } else if (kindName == "rect") {
        region.kind_ = Kind::Rect;
        names = kRectFields;
    } else {
        problem = "unknown region kind '" + std::string(kindName) + "' (affine or rect)";
        return std::nullopt;
    }
    const std::vector<std::string_view> fields =
        colon == std::string_view::npos ? std::vector<std::string_view>{} : SplitFields(text.substr(colon + 1));
    if (fields.size() != names.size()) {
        std::string syntax;
        for (const char* name : names) syntax += (syntax.empty() ? "" : ",") + std::string(name);
        problem = std::string(kindName) + " takes " + std::to_string(names.size()) + " fields " + syntax + ", not " +
                  std::to_string(fields.size());
        return std::nullopt;
    }
    const std::string field = "field ";
    for (size_t i = 0; i < fields.size(); ++i) {
        const std::optional<double> value = Number(fields[i]);
        const std::string where = field + names[i] + " of " + std::string(kindName) + ": '" + std::string(fields[i]) + "'";
        if (!value) {
            problem = where + " is not a number";
            return std::nullopt;
        }
        region.values_[i] = *value;
    }
    // The sizes: LX, LY of an affine rectangle, W, H of a rectangle.
    const size_t firstSize = 2;
    for (size_t i = firstSize; i < firstSize + 2; ++i)
        if (!(region.values_[i] > 0.0)) {
            problem = field + names[i] + " of " + std::string(kindName) + ": '" + std::string(fields[i]) +
                      "' must be greater than 0";
            return std::nullopt;
        }
    if (region.kind_ == Kind::Affine) {
        try {
            ccAffineRectangle::ValidatedSkew(Radians(region.values_[5]));
        } catch (const ccAffineRectangle::BadSkew&) {
            problem = field + "SKEW of affine: '" + std::string(fields[5]) +
                      "' makes the sides parallel (a skew must stay away from +-90 degrees)";
            return std::nullopt;
        }
    }
    return region;
}

ComPtr<ILuxShape> RegionArgument::MakeShape(const std::string& space) const {
    const auto& v = values_;
    ComPtr<ILuxShape> shape;
    if (kind_ == Kind::Affine) {
        ComPtr<ILuxRectangleAffine> affine;
        core::ThrowIfFailed(tessaly::CreateObject("Tessaly.LuxRectangleAffine", IID_ILuxRectangleAffine, affine.OutVoid()));
        core::ThrowIfFailed(affine->SetCenterLengthsRotationSkew(v[0], v[1], v[2], v[3], Radians(v[4]), Radians(v[5])));
        shape = ComPtr<ILuxShape>(affine.get());
    } else {
        ComPtr<ILuxRectangle> rect;
        core::ThrowIfFailed(tessaly::CreateObject("Tessaly.LuxRectangle", IID_ILuxRectangle, rect.OutVoid()));
        core::ThrowIfFailed(rect->SetXYWidthHeight(v[0], v[1], v[2], v[3]));
        shape = ComPtr<ILuxShape>(rect.get());
    }
    core::ThrowIfFailed(shape->put_SelectedSpaceName(Bstr(space).get()));
    return shape;
}

std::string RegionArgument::Describe() const {
    const auto& v = values_;
    if (kind_ == Kind::Affine)
        return "affine rectangle: centre (" + Format(v[0]) + ", " + Format(v[1]) + "), sides " + Format(v[2]) + " x " +
               Format(v[3]) + ", rotation " + Format(v[4]) + " deg, skew " + Format(v[5]) + " deg";
    return "rectangle: corner (" + Format(v[0]) + ", " + Format(v[1]) + "), size " + Format(v[2]) + " x " +
           Format(v[3]);
}

}  // namespace tessaly::cli
