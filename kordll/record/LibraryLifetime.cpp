#include "kordll/record/LibraryLifetime.h"

#include <utility>
#include <vector>

#include "kordll/platform/CCriticalSection.h"
#include "kordll/record/BoolItem.h"
#include "kordll/record/DateItem.h"
#include "kordll/record/DoubleItem.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/Item.h"

namespace kordll {

namespace {

using CacheStep = std::pair<void (*)(), void (*)()>;

struct LifetimeState {
  CCriticalSection lock;
  // State below is guarded by lock.
  bool attached = false;
  std::vector<CacheStep> registered;  // higher layers' caches, in order
};

LifetimeState& State() {
  static LifetimeState* state = new LifetimeState();  // never destroyed
  return *state;
}

// The library's own caches, in start-up order.
constexpr CacheStep kOwnCaches[] = {
    {&Item::InitializeItemCache, &Item::ReleaseItemCache},
    {&DoubleItem::InitializeDoubleItemCache, &DoubleItem::ReleaseDoubleItemCache},
    {&DateItem::InitializeDateItemCache, &DateItem::ReleaseDateItemCache},
    {&IntItem::InitializeIntItemCache, &IntItem::ReleaseIntItemCache},
    {&BoolItem::InitializeBoolItemCache, &BoolItem::ReleaseBoolItemCache},
};

// Runs attach when the shared library is loaded and detach when it is
// unloaded. The pools are constant-initialised, so they exist (empty)
// before this object is constructed whatever the order of files.
struct AutoAttach {
  AutoAttach() { KordllProcessAttach(); }
  ~AutoAttach() { KordllProcessDetach(); }
};
AutoAttach g_autoAttach;

}  // namespace

void KordllProcessAttach() {
  LifetimeState& state = State();
  CSingleLock hold(state.lock);
  // Each initializer creates its cache only when it is missing, so a second
  // attach is harmless; it also mends a cache released on its own.
  for (const CacheStep& step : kOwnCaches) step.first();
  for (const CacheStep& step : state.registered) step.first();
  state.attached = true;
}

void KordllProcessDetach() {
  LifetimeState& state = State();
  CSingleLock hold(state.lock);
  for (const CacheStep& step : kOwnCaches) step.second();
  for (const CacheStep& step : state.registered) step.second();
  state.attached = false;
}

int KordllIsAttached() {
  LifetimeState& state = State();
  CSingleLock hold(state.lock);
  return state.attached ? 1 : 0;
}

void KordllRegisterCache(void (*initialize)(), void (*release)()) {
  if (initialize == nullptr || release == nullptr) return;
  LifetimeState& state = State();
  CSingleLock hold(state.lock);
  for (const CacheStep& step : state.registered) {
    if (step.first == initialize && step.second == release) return;
  }
  state.registered.emplace_back(initialize, release);
  if (state.attached) initialize();
}

}  // namespace kordll
