#include "kordll/talk/SocketStatus.h"

#include <climits>

namespace kordll {

int SocketStatus::GetProgressPercentage() const {
  if (contentLength_ == 0) return 0;
  double percent = static_cast<double>(downloadedLength_) * 100.0 / contentLength_;
  if (percent >= static_cast<double>(INT_MAX)) return INT_MAX;
  if (percent <= static_cast<double>(INT_MIN)) return INT_MIN;
  return static_cast<int>(percent);
}

}  // namespace kordll
