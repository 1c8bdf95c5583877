// CPoint: a screen position, as the window system's point type was.
//
// A plain value: x and y in pixels of the screen.

#ifndef KORDLL_PLATFORM_CPOINT_H_
#define KORDLL_PLATFORM_CPOINT_H_

namespace kordll {

struct CPoint {
  CPoint() = default;
  CPoint(int px, int py) : x(px), y(py) {}

  friend bool operator==(const CPoint& a, const CPoint& b) { return a.x == b.x && a.y == b.y; }

  int x = 0;
  int y = 0;
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_CPOINT_H_
