// Lets tree nodes, which live below this layer, file error records: the
// hooks are installed when the library is loaded.

#include "kordll/control/TreeItem.h"
#include "kordll/platform/Clock.h"
#include "kordll/talk/ErrorMsg.h"

namespace kordll {

namespace {

ErrorMsg* Make(int code, const CString& text) { return new ErrorMsg(code, text); }

void Stamp(ErrorMsg* error, const CString& caption, int id) {
  error->errorTime = Clock::Now();
  error->erroneousResource = caption;
  error->erroneousResourceID = id;
}

void End(ErrorMsg* error) { delete error; }

const TreeItem::ErrorHooks kHooks = {Make, Stamp, End};

[[maybe_unused]] const bool kHooksInstalled = (TreeItem::SetErrorHooks(&kHooks), true);

}  // namespace

}  // namespace kordll
