#include "kordll/record/FocusableImpl.h"

#include "kordll/record/Item.h"

namespace kordll {

FocusableImpl::~FocusableImpl() {
  DeleteItems();
  delete headerPossessors;
}

void FocusableImpl::DeleteItems() {
  for (Item* item : items) delete item;
  items.clear();
  items.shrink_to_fit();
}

}  // namespace kordll
