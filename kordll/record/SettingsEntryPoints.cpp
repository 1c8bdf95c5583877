#include "kordll/record/SettingsEntryPoints.h"

#include <atomic>

namespace kordll {

namespace {

std::atomic<SettingsEntryPoints*> g_installed{nullptr};

SettingsEntryPoints& Default() {
  static SettingsEntryPoints* fallback = new SettingsEntryPoints();  // never destroyed
  return *fallback;
}

}  // namespace

SettingsEntryPoints::~SettingsEntryPoints() = default;

SettingsEntryPoints* SettingsEntryPoints::Get() {
  SettingsEntryPoints* entry = g_installed.load(std::memory_order_acquire);
  return entry != nullptr ? entry : &Default();
}

SettingsEntryPoints* SettingsEntryPoints::Install(SettingsEntryPoints* entry) {
  return g_installed.exchange(entry, std::memory_order_acq_rel);
}

int SettingsEntryPoints::GetCurrentPreferencesIntValue(int) { return 0; }

CString SettingsEntryPoints::GetCurrentPreferencesStringValue(int) { return CString(); }

Preferences* SettingsEntryPoints::GetCurrentPreferences() { return nullptr; }

CString SettingsEntryPoints::GetCurrentPreferencesSection() { return CString(); }

CString SettingsEntryPoints::GetCurrentLogin() { return CString(); }

int SettingsEntryPoints::SetCurrentPreferencesIntValue(int, int) { return 0; }

CString SettingsEntryPoints::GetCurrentUserRunningPath() { return CString(); }

}  // namespace kordll
