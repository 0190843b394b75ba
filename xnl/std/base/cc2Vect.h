// A two-dimensional vector of doubles: a position (a point is the vector from the origin)
// or a displacement. Shapes, transforms and scan conversion all pass their coordinates as
// cc2Vect; the name cc2Point belongs to the point shape.
//
// Angles are radians in [-pi, pi), measured from the x axis towards the y axis: a vector
// along -x has the angle -pi whichever sign its zero y carries (and so has one so close
// above -x that its angle rounds to pi).
#pragma once

class cc2Vect {
public:
    constexpr cc2Vect() noexcept = default;
    constexpr cc2Vect(double x, double y) noexcept : x_(x), y_(y) {}

    constexpr double X() const noexcept { return x_; }
    constexpr double Y() const noexcept { return y_; }
    constexpr void X(double x) noexcept { x_ = x; }
    constexpr void Y(double y) noexcept { y_ = y; }

    constexpr cc2Vect operator+(const cc2Vect& other) const noexcept { return {x_ + other.x_, y_ + other.y_}; }
    constexpr cc2Vect operator-(const cc2Vect& other) const noexcept { return {x_ - other.x_, y_ - other.y_}; }
    constexpr cc2Vect operator-() const noexcept { return {-x_, -y_}; }
    constexpr cc2Vect operator*(double factor) const noexcept { return {x_ * factor, y_ * factor}; }
    constexpr cc2Vect operator/(double divisor) const noexcept { return {x_ / divisor, y_ / divisor}; }
    friend constexpr cc2Vect operator*(double factor, const cc2Vect& v) noexcept { return v * factor; }
    constexpr cc2Vect& operator+=(const cc2Vect& other) noexcept { return *this = *this + other; }
    constexpr cc2Vect& operator-=(const cc2Vect& other) noexcept { return *this = *this - other; }
    constexpr cc2Vect& operator*=(double factor) noexcept { return *this = *this * factor; }
    constexpr cc2Vect& operator/=(double divisor) noexcept { return *this = *this / divisor; }
    // Exact comparison of both coordinates (so +0 equals -0, and NaN equals nothing).
    constexpr bool operator==(const cc2Vect& other) const noexcept = default;

    constexpr double Dot(const cc2Vect& other) const noexcept { return x_ * other.x_ + y_ * other.y_; }
    // The z component of the three-dimensional cross product: positive when `other` lies
    // counter-clockwise of this vector (with y pointing up), twice the signed area of the
    // triangle they span.
    constexpr double Cross(const cc2Vect& other) const noexcept { return x_ * other.y_ - y_ * other.x_; }
    // Without overflow or underflow in between: the length of (1e200, 1e200) is finite.
    double Length() const noexcept;
    constexpr double LengthSquared() const noexcept { return Dot(*this); }
    double Distance(const cc2Vect& other) const noexcept { return (*this - other).Length(); }
    // In [-pi, pi); 0 for the zero vector.
    double Angle() const noexcept;
    // The vector turned by a quarter turn counter-clockwise: (-y, x).
    constexpr cc2Vect Perpendicular() const noexcept { return {-y_, x_}; }

private:
    double x_ = 0.0;
    double y_ = 0.0;
};
