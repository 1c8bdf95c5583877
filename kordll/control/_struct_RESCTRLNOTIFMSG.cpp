#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"

namespace kordll {

_struct_RESCTRLNOTIFMSG::_struct_RESCTRLNOTIFMSG() = default;

_struct_RESCTRLNOTIFMSG::~_struct_RESCTRLNOTIFMSG() {
  for (int i = 0; i < 2; ++i) {
    for (auto& entry : dateMaps[i]) {
      delete entry.second;
      entry.second = nullptr;
    }
  }
}

}  // namespace kordll
