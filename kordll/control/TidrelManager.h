// TidrelManager: the application-wide object that the global registry of
// controllers (GlobalResourceCtrl) makes with itself and deletes with
// itself.
//
// The library gives it no behaviour of its own: it is the place where an
// application hangs state that must live exactly as long as the registry.
// Reach it through GlobalResourceCtrl::GetTidrelManager(); never delete it.
//
// Thread safety: the object itself holds nothing; derived state guards
// itself.

#ifndef KORDLL_CONTROL_TIDRELMANAGER_H_
#define KORDLL_CONTROL_TIDRELMANAGER_H_

namespace kordll {

class TidrelManager {
 public:
  TidrelManager();
  TidrelManager(const TidrelManager&) = delete;
  TidrelManager& operator=(const TidrelManager&) = delete;
  // Deleted by the registry that made it.
  virtual ~TidrelManager();
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_TIDRELMANAGER_H_
