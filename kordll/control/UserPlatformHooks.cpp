#include "kordll/control/UserPlatformHooks.h"

#include <mutex>
#include <utility>

namespace kordll {

namespace {

std::mutex& HooksMutex() {
  static std::mutex mutex;
  return mutex;
}

UserPlatformHooks& Installed() {
  static UserPlatformHooks hooks;
  return hooks;
}

}  // namespace

UserPlatformHooks UserPlatformHooks::Get() {
  std::lock_guard<std::mutex> hold(HooksMutex());
  return Installed();
}

UserPlatformHooks UserPlatformHooks::Install(UserPlatformHooks hooks) {
  std::lock_guard<std::mutex> hold(HooksMutex());
  std::swap(Installed(), hooks);
  return hooks;
}

}  // namespace kordll
