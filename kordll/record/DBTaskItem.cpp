#include "kordll/record/DBTaskItem.h"

#include <cstddef>

namespace kordll {

DBTaskItem::DBTaskItem(const DBTaskItem* src) {
  if (src == nullptr) return;
  allFields = src->allFields;
  tasks = src->tasks;
  slotPosition = src->slotPosition;
}

DBTaskItem::~DBTaskItem() = default;

void DBTaskItem::DefineFieldTaskType(int position, int type) {
  if (position < 0 || position > kMaxPosition) return;
  const int count = GetDefinedTaskCount();
  if (position < count) {
    tasks[position] = type;
    return;
  }
  // Positions skipped on the way are defined as fillers.
  tasks.resize(static_cast<size_t>(position), kTaskFiller);
  tasks.push_back(type);
}

int DBTaskItem::GetFieldTaskType(int position) const {
  if (position < 0 || position >= GetDefinedTaskCount()) return kTaskPastEnd;
  return tasks[position];
}

int DBTaskItem::UnDefineFieldTask(int position) {
  if (position < 0 || position >= GetDefinedTaskCount()) return 0;
  tasks.erase(tasks.begin() + position);
  return 1;
}

}  // namespace kordll
