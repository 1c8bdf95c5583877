#include "kordll/record/FocusableLinkImpl.h"

namespace kordll {

FocusableLinkImpl::~FocusableLinkImpl() {
  delete headerPossessors;
  delete pieces;
}

}  // namespace kordll
