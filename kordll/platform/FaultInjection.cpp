#include "kordll/platform/FaultInjection.h"

#include <mutex>
#include <string>

namespace kordll {

std::atomic<bool> FaultInjection::armed_{false};

namespace {

struct Plan {
  bool armed = false;
  int skip = 0;
  int count = 0;  // FaultInjection::kForever: no end
  int injected = 0;
  std::string path_contains;
};

std::mutex& PlanMutex() {
  static std::mutex mu;
  return mu;
}

// Guarded by PlanMutex().
Plan plans[FaultInjection::kKindCount];

bool AnyArmed() {
  for (const Plan& p : plans) {
    if (p.armed) return true;
  }
  return false;
}

bool ValidKind(int kind) { return kind >= 0 && kind < FaultInjection::kKindCount; }

}  // namespace

void FaultInjection::Arm(Kind kind, int skip, int count, const CString& path_contains) {
  if (!ValidKind(kind)) return;
  std::lock_guard<std::mutex> l(PlanMutex());
  Plan& p = plans[kind];
  p.armed = count != 0;
  p.skip = skip < 0 ? 0 : skip;
  p.count = count < 0 ? kForever : count;
  p.injected = 0;
  p.path_contains = path_contains.ToUtf8();
  armed_.store(AnyArmed(), std::memory_order_relaxed);
}

void FaultInjection::Disarm(Kind kind) {
  if (!ValidKind(kind)) return;
  std::lock_guard<std::mutex> l(PlanMutex());
  plans[kind].armed = false;
  armed_.store(AnyArmed(), std::memory_order_relaxed);
}

void FaultInjection::DisarmAll() {
  std::lock_guard<std::mutex> l(PlanMutex());
  for (Plan& p : plans) p.armed = false;
  armed_.store(false, std::memory_order_relaxed);
}

int FaultInjection::Injected(Kind kind) {
  if (!ValidKind(kind)) return 0;
  std::lock_guard<std::mutex> l(PlanMutex());
  return plans[kind].injected;
}

bool FaultInjection::ShouldFailSlow(Kind kind, const CString& path) {
  if (!ValidKind(kind)) return false;
  std::lock_guard<std::mutex> l(PlanMutex());
  Plan& p = plans[kind];
  if (!p.armed) return false;
  if (!p.path_contains.empty() && path.ToUtf8().find(p.path_contains) == std::string::npos) {
    return false;
  }
  if (p.skip > 0) {
    --p.skip;
    return false;
  }
  if (p.count != kForever) {
    if (p.count == 0) return false;
    --p.count;
  }
  ++p.injected;
  return true;
}

}  // namespace kordll
