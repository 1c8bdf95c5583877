// The settings step of `kordll demo`: a user's settings made in the profile,
// one changed, and read again after the platform restarted (the settings
// record, the application object and the registry all dropped and made
// anew over the same registry file). The user's section is removed at the
// end, and also at the start in case an earlier run was cut short, so every
// run goes alike and the data root is not touched.

#include <memory>
#include <ostream>
#include <string>

#include "kordll/platform/CString.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/Registry.h"
#include "kordll/record/Focusable.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/settings/Preferences.h"
#include "tools/DemoWalk.h"

namespace {

using kordll::CString;
using kordll::Preferences;

const char16_t kLogin[] = u"demo";

// One start of the platform: the registry of the profile folder, the
// application object over it, and the user's settings made current.
class Platform {
 public:
  Platform()
      : registry_(kordll::Locations::GetProfileFolder().ToUtf8()),
        app_(CString(u"Tidrel"), CString(u"Demo"), &registry_),
        prefs_(CString(kLogin), CString(), Preferences::kNewsRelation) {
    kordll::CWinApp::SetCurrent(&app_);
    Preferences::SetGlobalPreferences(&prefs_);
  }
  ~Platform() {
    Preferences::SetGlobalPreferences(nullptr);
    kordll::CWinApp::SetCurrent(nullptr);
  }
  kordll::CWinApp& app() { return app_; }
  Preferences& prefs() { return prefs_; }

 private:
  kordll::Registry registry_;
  kordll::CWinApp app_;
  Preferences prefs_;
};

int RankOfAFlaggedPost() {
  int added = 0, removed = 0;
  kordll::Focusable::GetRemovedStatus(0, kordll::Focusable::kStatusFlagged, added, removed);
  return added & ~kordll::Focusable::kStatusFlagged;
}

void Settings(kordll_tool::Walk& walk) {
  walk.Step("A user's settings, kept in the profile across a restart");
  std::ostream& out = walk.out();
  std::unique_ptr<kordll::GlobalRelationsCtrl> catalogue;
  if (kordll::GlobalRelationsCtrl::GetGlobalRelationsCtrl() == nullptr)
    catalogue = std::make_unique<kordll::GlobalRelationsCtrl>();
  kordll::CWinApp* before = kordll::CWinApp::Current();
  {
    Platform first;
    const CString section = first.prefs().GetSection();
    first.app().DeleteProfileSection(section);
    out << "  settings of \"demo\" in " << first.app().GetSectionKey(section).ToUtf8()
        << " (relation 12)\n";
    out << "  RankMode " << Preferences::GetCurrentPreferencesIntValue(Preferences::kRankMode)
        << " (the default): a flagged post gets rank " << RankOfAFlaggedPost() << "\n";
    walk.Expect(first.prefs().SetUserLogin(CString(kLogin)) == 1 &&
                    Preferences::SetCurrentPreferencesIntValue(Preferences::kRankMode, 2) == 1,
                "the profile did not take the settings");
    out << "  RankMode set to 2: a flagged post gets rank " << RankOfAFlaggedPost() << "\n";
  }
  {
    Platform second;
    const int mode = Preferences::GetCurrentPreferencesIntValue(Preferences::kRankMode);
    const CString login = second.prefs().GetUserLogin();
    out << "  after the restart: RankMode " << mode << ", UserLogin \"" << login.ToUtf8()
        << "\", a flagged post gets rank " << RankOfAFlaggedPost() << "\n";
    walk.Expect(mode == 2 && login == CString(kLogin) && RankOfAFlaggedPost() == 2048,
                "the settings did not survive the restart");
    walk.Expect(second.app().DeleteProfileSection(second.prefs().GetSection()) == 1,
                "the user's settings could not be removed");
    out << "  the user's settings removed again\n";
  }
  kordll::CWinApp::SetCurrent(before);
}

const kordll_tool::DemoStepRegistration kSettings{70, &Settings};

}  // namespace
