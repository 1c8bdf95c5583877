// Preferences: the current record and its static access, the answers to the
// record core, login and running path, scrambled accounts, slide show
// orderings, computed ranking values, the notification sound and the
// carry-over from an older record. The search engine definitions are in
// PreferencesSearch.cpp.

#include "kordll/settings/Preferences.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <initializer_list>
#include <mutex>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/Locations.h"
#include "kordll/record/RegistryEntryPoints.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/settings/UserPreferences.h"
#include "kordll/toolkit/Utility.h"

namespace kordll {

namespace {

std::atomic<Preferences*> g_current{nullptr};

// Answers the record core's questions about settings from the current
// record, as "no settings" while there is none.
class PreferencesEntryPoints : public SettingsEntryPoints {
 public:
  int GetCurrentPreferencesIntValue(int field) override {
    return Preferences::GetCurrentPreferencesIntValue(field);
  }
  CString GetCurrentPreferencesStringValue(int field) override {
    return Preferences::GetCurrentPreferencesStringValue(field);
  }
  Preferences* GetCurrentPreferences() override { return Preferences::GetCurrentPreferences(); }
  CString GetCurrentPreferencesSection() override {
    Preferences* current = Preferences::GetCurrentPreferences();
    return current != nullptr ? current->GetSection() : CString();
  }
  CString GetCurrentLogin() override {
    Preferences* current = Preferences::GetCurrentPreferences();
    return current != nullptr ? current->GetSectionLogin() : CString();
  }
  int SetCurrentPreferencesIntValue(int field, int value) override {
    return Preferences::SetCurrentPreferencesIntValue(field, value);
  }
  CString GetCurrentUserRunningPath() override { return Preferences::GetCurrentUserRunningPath(); }
};

// The answers this library installs, and what was installed before them,
// put back while no record is current. Guarded by g_entryLock.
std::mutex g_entryLock;
PreferencesEntryPoints* g_entry = nullptr;  // never destroyed once made
SettingsEntryPoints* g_entryBefore = nullptr;

const char16_t kSectionPrefix[] = u"User-";

// The numbers of a text such as "2:0:1:"; empty pieces are skipped.
std::vector<int> ParseOrdering(const CString& text) {
  std::vector<int> numbers;
  int start = 0;
  while (start >= 0 && start < text.GetLength()) {
    const CString token = text.Tokenize(CString(u":"), start);
    if (start < 0) break;
    numbers.push_back(_wtoi(token));
  }
  return numbers;
}

// An old bit word as it is read: -1 stands for a word never written, any
// other negative word has the bits it shows.
int Bits(int word) { return word == -1 ? 0 : word; }

int BitOf(int word, int mask) { return (Bits(word) & mask) != 0 ? 1 : 0; }

// The first of bits that word has, as that number; otherwise all when any
// bit of all is set; otherwise 0.
int FirstOrAll(int word, std::initializer_list<int> bits, int all) {
  word = Bits(word);
  for (int bit : bits) {
    if (word & bit) return bit;
  }
  return (word & all) ? all : 0;
}

// 0, 1 or 2 for the first of three bits that word has; 0 for none.
int StateOf(int word, int bit0, int bit1, int bit2) {
  word = Bits(word);
  if (word & bit0) return 0;
  if (word & bit1) return 1;
  if (word & bit2) return 2;
  return 0;
}

}  // namespace

Preferences::Preferences(CString login, CString registryRoot, int relation)
    : INIFocusable(CString(kSectionPrefix) + login, relation, std::move(registryRoot)),
      login_(std::move(login)) {}

Preferences::~Preferences() {
  // A record going away while it is current leaves no dangling answer.
  Preferences* self = this;
  if (g_current.compare_exchange_strong(self, nullptr)) SetGlobalPreferences(nullptr);
  ReleaseSearchEngineDefinitions();
}

// --- The current record ----------------------------------------------------------------

void Preferences::SetGlobalPreferences(Preferences* prefs) {
  std::lock_guard<std::mutex> hold(g_entryLock);
  g_current.store(prefs);
  if (prefs != nullptr) {
    if (g_entry == nullptr) g_entry = new PreferencesEntryPoints();
    if (SettingsEntryPoints::Get() != g_entry)
      g_entryBefore = SettingsEntryPoints::Install(g_entry);
    GlobalRelationsCtrl::SetRunningPathSource(&Preferences::GetCurrentUserRunningPath);
  } else if (g_entry != nullptr && SettingsEntryPoints::Get() == g_entry) {
    SettingsEntryPoints::Install(g_entryBefore);
    g_entryBefore = nullptr;
  }
}

Preferences* Preferences::GetCurrentPreferences() { return g_current.load(); }

int Preferences::GetCurrentPreferencesIntValue(int field) {
  Preferences* current = GetCurrentPreferences();
  return current != nullptr ? current->GetFieldInt(field) : 0;
}

CString Preferences::GetCurrentPreferencesStringValue(int field) {
  Preferences* current = GetCurrentPreferences();
  return current != nullptr ? current->GetFieldString(field, 0) : CString();
}

COleDateTime Preferences::GetCurrentPreferencesDateValue(int field) {
  Preferences* current = GetCurrentPreferences();
  return current != nullptr ? current->GetFieldDate(field) : COleDateTime::Invalid();
}

int Preferences::GetCurrentPreferencesBoolValue(int field) {
  Preferences* current = GetCurrentPreferences();
  return current != nullptr ? current->GetFieldBool(field) : 0;
}

double Preferences::GetCurrentPreferencesDoubleValue(int field) {
  Preferences* current = GetCurrentPreferences();
  return current != nullptr ? current->GetFieldDouble(field) : 0.0;
}

int Preferences::SetCurrentPreferencesIntValue(int field, int value) {
  Preferences* current = GetCurrentPreferences();
  return current != nullptr ? current->SetValueInt(field, value, 1) : 0;
}

int Preferences::SetCurrentPreferencesStringValue(int field, CString value) {
  Preferences* current = GetCurrentPreferences();
  return current != nullptr ? current->SetValueStr(field, std::move(value), 1) : 0;
}

int Preferences::SetCurrentPreferencesDateValue(int field, COleDateTime value) {
  Preferences* current = GetCurrentPreferences();
  return current != nullptr ? current->SetValueDate(field, value, 1) : 0;
}

int Preferences::SetCurrentPreferencesBoolValue(int field, int value) {
  Preferences* current = GetCurrentPreferences();
  return current != nullptr ? current->SetValueBOOL(field, value, 1) : 0;
}

int Preferences::SetCurrentPreferencesDoubleValue(int field, double value) {
  Preferences* current = GetCurrentPreferences();
  return current != nullptr ? current->SetValueDouble(field, value, 1) : 0;
}

CString Preferences::GetCurrentUserRunningPath() {
  Preferences* current = GetCurrentPreferences();
  return current != nullptr ? current->GetUserRunningPath() : CString();
}

void Preferences::IncrementCurrentReadPostCount(int count) {
  Preferences* current = GetCurrentPreferences();
  if (current == nullptr) return;
  const int64_t total = static_cast<int64_t>(current->GetFieldInt(kTotalReadPostCount)) + count;
  current->SetValueInt(kTotalReadPostCount,
                       static_cast<int>(std::clamp<int64_t>(total, INT_MIN, INT_MAX)), 1);
}

// --- This record ------------------------------------------------------------------------

void Preferences::SetPreferences(Preferences* source, int clear) {
  if (source == nullptr) return;
  SetINIFocusable(source, clear);
  if (source != this) login_ = source->login_;
  if (!source->runningPath_.IsEmpty()) runningPath_ = source->runningPath_;
}

int Preferences::SetUserLogin(CString login) {
  if (!Locations::IsUsableLoginName(login)) return 0;
  // The section is taken over from a record that holds nothing else.
  INIFocusable moved(CString(kSectionPrefix) + login, GetFocusableRelation(), CString());
  SetINIFocusable(&moved, 0);
  login_ = login;
  return SetValueStr(kUserLogin, std::move(login), 1);
}

CString Preferences::GetBloglinesUserName() {
  return Utility::DecriptString(GetFieldString(kBloglinesUsername, 0));
}

CString Preferences::GetBloglinesPassword() {
  return Utility::DecriptString(GetFieldString(kBloglinesPassword, 0));
}

int Preferences::SetBloglinesUserName(CString name) {
  return SetValueStr(kBloglinesUsername, Utility::EncriptString(std::move(name)), 1);
}

int Preferences::SetBloglinesPassword(CString password) {
  return SetValueStr(kBloglinesPassword, Utility::EncriptString(std::move(password)), 1);
}

// --- Slide show orderings ------------------------------------------------------------------

void Preferences::ReadOrdering(int field, bool defaultOrder, std::vector<int>* held, bool* loaded) {
  if (*loaded) return;
  *loaded = true;
  const CString text = GetFieldString(field, 0);
  if (text.IsEmpty() && defaultOrder) {
    *held = {0, 1, 2, 3};
  } else {
    *held = ParseOrdering(text);
  }
}

int Preferences::WriteOrdering(int field, const std::vector<int>& order, std::vector<int>* held,
                               bool* loaded) {
  *held = order;
  *loaded = true;
  CString text;
  for (int number : order) text.AppendFormat(u"%d:", number);
  return SetValueStr(field, text, 1);
}

void Preferences::GetSlideShowResourceTypeOrdering(std::vector<int>* out) {
  ReadOrdering(kSlideShowResourceTypeOrdering, false, &typeOrdering_, &typeOrderingLoaded_);
  if (out != nullptr) *out = typeOrdering_;
}

void Preferences::GetSlideShowResourceOrdering(std::vector<int>* out) {
  ReadOrdering(kSlideShowResourceOrdering, true, &resourceOrdering_, &resourceOrderingLoaded_);
  if (out != nullptr) *out = resourceOrdering_;
}

int Preferences::SetSlideShowResourceTypeOrdering(const std::vector<int>& order) {
  return WriteOrdering(kSlideShowResourceTypeOrdering, order, &typeOrdering_, &typeOrderingLoaded_);
}

int Preferences::SetSlideShowResourceOrdering(const std::vector<int>& order) {
  return WriteOrdering(kSlideShowResourceOrdering, order, &resourceOrdering_,
                       &resourceOrderingLoaded_);
}

// --- Computed from the current record ----------------------------------------------------------

int Preferences::GetLinkCheckingAutoRankingValue() {
  Preferences* current = GetCurrentPreferences();
  if (current == nullptr) return 0;
  const int bits = current->GetFieldInt(kAutoRankWhenCheckingLink);
  if (bits == 0 || current->GetFieldInt(kRankMode) == 0) return 0;
  if (bits & 0x1) return 256;
  if (bits & 0x2) return 512;
  if (bits & 0x8) return 1024;
  if (bits & 0x10) return 2048;
  return 0;
}

int Preferences::GetReadingItemAutoRankingValue() {
  Preferences* current = GetCurrentPreferences();
  if (current == nullptr) return 0;
  const int bits = current->GetFieldInt(kAutoRankReadingItem);
  if (bits == 0 || current->GetFieldInt(kRankMode) == 0) return 0;
  if (bits & 0x40) return 256;
  if (bits & 0x80) return 512;
  if (bits & 0x200) return 1024;
  if (bits & 0x400) return 2048;
  return 0;
}

int Preferences::IsAutoDeleteRankingValueValid(int rank) {
  Preferences* current = GetCurrentPreferences();
  if (current == nullptr) return 0;
  const int bits = current->GetFieldInt(kAutoDeletePost);
  const int mode = current->GetFieldInt(kRankMode);
  if (bits == 0 || mode == 0) return 0;
  if (mode == 1) return ((bits & 0x4000) && (rank & 0x200)) ? 1 : 0;
  if (mode == 2) {
    return (((bits & 0x1000) && (rank & 0x100)) || ((bits & 0x4000) && (rank & 0x300)) ||
            ((bits & 0x8000) && (rank & 0x700)))
               ? 1
               : 0;
  }
  return 0;
}

void Preferences::PlayGeneralNotificationSound() {
  Preferences* current = GetCurrentPreferences();
  if (current == nullptr || RegistryEntryPoints::Get()->IsGlobalResourceValid() == 0) return;
  const CString melody = current->GetFieldString(kNotificationMelodyFile, 0);
  if (melody.IsEmpty()) return;
  // A "\" is part of a file name here; only "/" makes a path of its own.
  if (melody.Find(u'/') >= 0) {
    Utility::PlaySoundFile(melody);
    return;
  }
  // The registry's global path once the platform has set it, else the
  // program folder it is set from.
  CString global = GlobalResourceCtrl::GetGlobalKorPath();
  if (global.IsEmpty()) global = Locations::GetProgramFolder();
  const CString sounds = Locations::Join(global, u"SoundNotification");
  Utility::PlaySoundFile(Locations::Join(sounds, melody));
}

// --- Carry-over
// -----------------------------------------------------------------------------------

int Preferences::LoadUserPreferences(UserPreferences* old) {
  if (old == nullptr) return 0;
  bool reserved = false;
  if (old->IsFullyLoaded(0) == 0) {
    if (old->LoadFocusable(nullptr) != 1) return 0;
    reserved = true;
  }
  SetUserLogin(old->GetUserLogin());
  SetUserPassword(old->GetUserPassword());
  const int general = old->GetFieldInt(UserPreferences::kGeneralState);
  SetValueBOOL(10, BitOf(general, 0x2), 1);
  SetValueBOOL(7, BitOf(general, 0x4), 1);
  SetValueBOOL(6, BitOf(general, 0x8), 1);
  SetValueInt(kRankMode, BitOf(general, 0x10) ? 1 : BitOf(general, 0x20) ? 2 : 0, 1);
  SetValueBOOL(12, BitOf(general, 0x100), 1);
  SetValueBOOL(8, BitOf(general, 0x200) ? 0 : 1, 1);
  SetValueInt(9, BitOf(general, 0x400), 1);
  const int update = old->GetFieldInt(UserPreferences::kUpdateBehaviour);
  SetValueInt(13, StateOf(update, 0x1, 0x2, 0x4), 1);
  SetValueInt(17, StateOf(update, 0x20, 0x40, 0x80), 1);
  SetValueBOOL(16, BitOf(update, 0x10), 1);
  SetValueBOOL(20, BitOf(update, 0x100), 1);
  const int notify = old->GetFieldInt(UserPreferences::kNotificationBehaviour);
  SetValueBOOL(21, BitOf(notify, 0x1) ? 0 : 1, 1);
  SetValueBOOL(22, BitOf(notify, 0x20) ? 0 : 1, 1);
  SetValueBOOL(23, BitOf(notify, 0x200) ? 0 : 1, 1);
  SetValueBOOL(24, BitOf(notify, 0x8), 1);
  SetValueBOOL(26, BitOf(notify, 0x2000), 1);
  const int ranking = old->GetFieldInt(UserPreferences::kRankingBehaviour);
  SetValueInt(kAutoRankWhenCheckingLink, FirstOrAll(ranking, {0x1, 0x2, 0x8, 0x10}, 0x3F), 1);
  SetValueInt(kAutoRankReadingItem, FirstOrAll(ranking, {0x40, 0x80, 0x200, 0x400}, 0xFC0), 1);
  SetValueInt(kAutoDeletePost, FirstOrAll(ranking, {0x1000, 0x4000, 0x8000}, 0x1F000), 1);
  const int shown = old->GetFieldInt(UserPreferences::kInitializationState);
  for (int i = 0; i < 5; ++i) SetValueBOOL(32 + i, BitOf(shown, 1 << i), 1);
  SetValueInt(37, old->GetFieldInt(UserPreferences::kMaxSocketThreads), 1);
  SetValueInt(38, old->GetFieldInt(UserPreferences::kUpdateConditionPriority), 1);
  SetValueInt(39, old->GetFieldInt(UserPreferences::kStartupConditionPriority), 1);
  SetValueInt(40, old->GetFieldInt(UserPreferences::kLoginDays), 1);
  SetValueInt(41, old->GetFieldInt(UserPreferences::kReadingPageSize), 1);
  SetValueStr(kNotificationMelodyFile, old->GetNotificationMelodyFileName(), 1);
  old->LoadProxyInfo();
  SetValueStr(43, old->GetProxyUserName(), 1);
  SetValueStr(44, old->GetProxyPassword(), 1);
  SetValueStr(48, old->GetProxyServer(), 1);
  SetValueInt(49, old->GetProxyPort(), 1);
  // A login date never stored is written as no date.
  SetValueDate(45, old->GetFieldDate(UserPreferences::kLastLoginDate), 1);
  SetValueStr(46, old->GetSkinName(), 1);
  SetValueBOOL(47, old->IsBuildInSkin(), 1);
  SetValueInt(kTotalReadPostCount, old->GetFieldInt(UserPreferences::kReadPostCount), 1);
  if (reserved) old->Release(nullptr);
  return 1;
}

}  // namespace kordll
