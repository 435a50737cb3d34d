// tvxcore/geom/Geometry.h: the library's plain point and rectangle templates.
//
// They are aggregates of two or four coordinates and carry no invariant: a
// rectangle may be empty or inverted. Property lists store them as small arrays
// in member order (x, y for a point; left, top, right, bottom for a rectangle).
#pragma once

namespace tvxcore::geom {

// A point; value type, no lock.
template <typename T>
struct PointT {
  T x{};
  T y{};

  friend bool operator==(const PointT&, const PointT&) = default;
};

// A rectangle given by its edges; value type, no lock. Right and bottom are
// exclusive edges by convention, which nothing here enforces.
template <typename T>
struct RectT {
  T left{};
  T top{};
  T right{};
  T bottom{};

  T Width() const { return right - left; }
  T Height() const { return bottom - top; }
  friend bool operator==(const RectT&, const RectT&) = default;
};

}  // namespace tvxcore::geom
