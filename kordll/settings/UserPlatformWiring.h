// UserPlatformWiring: gives the user platform (KorUserResourcesCtrl) its
// accounts as Preferences records of this layer, and the scheduler
// (PeriodicUpdateManager) to start at log-in.
//
// The application calls InstallUserPlatformWiring once before it creates the
// user platform; it fills every hook of UserPlatformHooks.

#ifndef KORDLL_SETTINGS_USERPLATFORMWIRING_H_
#define KORDLL_SETTINGS_USERPLATFORMWIRING_H_

namespace kordll {

// Installs the hooks. Safe to call more than once.
void InstallUserPlatformWiring();

}  // namespace kordll

#endif  // KORDLL_SETTINGS_USERPLATFORMWIRING_H_
