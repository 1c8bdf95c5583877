#include "kordll/settings/UserPreferences.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/Locations.h"

namespace kordll {

namespace {

std::atomic<UserPreferences*> g_currentUser{nullptr};

const char16_t kDefaultSkin[] = u"DefaultSkin.tsf";
// Stands for an empty proxy user name or password in field 24.
const char16_t kNoEntry[] = u"#@#";

// The first bit of bits (in the order given) that word has, or 0.
int FirstOf(int word, std::initializer_list<int> bits) {
  for (int bit : bits) {
    if (word & bit) return bit;
  }
  return 0;
}

}  // namespace

UserPreferences::UserPreferences(AZeusDB* db) : Focusable(kRelation, db) {
  SetFullyLoaded(1);
  InitUserPreferences();
}

UserPreferences::UserPreferences(AZeusDB* db, int slotIndex) : Focusable(kRelation, db) {
  SetDBSlotIndex(slotIndex);
}

UserPreferences::UserPreferences(Focusable* source) : Focusable(kRelation, nullptr) {
  SetFullyLoaded(1);
  SetUserPreferences(source);
}

UserPreferences::~UserPreferences() = default;

void UserPreferences::SetUserPreferences(Focusable* source) {
  if (source == nullptr || source == this) return;
  CopyFocusable(source, 0);
  SetFocusableRelation(kRelation);
  if (auto* other = dynamic_cast<UserPreferences*>(source)) {
    runningPath_ = other->runningPath_;
    proxyServer_ = other->proxyServer_;
    proxyUser_ = other->proxyUser_;
    proxyPassword_ = other->proxyPassword_;
    proxyPort_ = other->proxyPort_;
    melody_ = other->melody_;
  }
}

void UserPreferences::InitUserPreferences() {
  SetValueInt(kMaxSocketThreads, 20, 1);
  SetValueInt(kReadingPageSize, 10, 1);
  SetValueInt(kChannelNotifLevel, 5, 1);
  SetValueInt(kCategoryNotifLevel, 5, 1);
  SetValueInt(kAuthorNotifLevel, 5, 1);
  SetNotificationMelodyFileName(CString(u"Notify.wav"));
  for (int bit : {2, 32768, 64, 1024, 8}) SetNotificationBehaviour(bit, 0);
  SetVirtualChannelNotif(1);
  SetAlwaysAutoUpdate(1);
}

int UserPreferences::SaveUserPreferences() { return SaveFocusable(); }

void UserPreferences::PerformMaintenance(int) {
  if (NeedToSave() != 0) SaveUserPreferences();
}

// --- Identity ----------------------------------------------------------------

int UserPreferences::SetUserLogin(CString login) {
  if (!Locations::IsUsableLoginName(login)) return 0;
  return SetValueStr(kLogin, std::move(login), 1) != 0 ? 1 : 0;
}

CString UserPreferences::GetUserLogin() { return GetFieldString(kLogin, 0); }

void UserPreferences::SetUserPassword(CString password) {
  SetValueStr(kPassword, std::move(password), 1);
}

CString UserPreferences::GetUserPassword() { return GetFieldString(kPassword, 0); }

CString UserPreferences::GetUserFolder(CString login) {
  if (!Locations::IsUsableLoginName(login)) return CString();
  // The global path once the platform has set it, else the program folder
  // it is set from.
  CString root = GlobalResourceCtrl::GetGlobalKorPath();
  if (root.IsEmpty()) root = Locations::GetProgramFolder();
  if (root.IsEmpty()) return CString();
  return Locations::Join(root, login);
}

// --- Bit fields ----------------------------------------------------------------

int UserPreferences::ReadBits(int field) { return GetFieldInt(field); }

int UserPreferences::Word(int field) {
  const int bits = ReadBits(field);
  if (bits != -1) return bits;
  // Never written: it is stored as 0 from now on. Any other negative word
  // is read with the bits it has.
  SetValueInt(field, 0, 1);
  return 0;
}

int UserPreferences::CheckBits(int field, int mask) { return (Word(field) & mask) != 0 ? 1 : 0; }

int UserPreferences::CheckGeneralState(int mask) { return CheckBits(kGeneralState, mask); }
int UserPreferences::CheckUpdateBehaviour(int mask) { return CheckBits(kUpdateBehaviour, mask); }
int UserPreferences::CheckNotificationBehaviour(int mask) {
  return CheckBits(kNotificationBehaviour, mask);
}
int UserPreferences::CheckRankingBehaviour(int mask) { return CheckBits(kRankingBehaviour, mask); }
int UserPreferences::CheckInitializationState(int mask) {
  return CheckBits(kInitializationState, mask);
}

void UserPreferences::SetBit(int field, int bit, int on, int alsoClear) {
  const int stored = ReadBits(field);
  const int bits = std::max(stored, 0);
  const int changed = on != 0 ? ((bits | bit) & ~alsoClear) : (bits & ~bit);
  if (changed != stored) SetValueInt(field, changed, 1);
}

void UserPreferences::WriteBits(int field, int set, int clear, int groupCleared) {
  int bits = std::max(ReadBits(field), 0);
  bits &= ~groupCleared;
  bits |= set;
  bits &= ~clear;
  SetValueInt(field, bits, 1);
}

void UserPreferences::SetGeneralState(int set, int clear) {
  WriteBits(kGeneralState, set, clear, 0);
}

void UserPreferences::SetInitializationState(int set, int clear) {
  WriteBits(kInitializationState, set, clear, 0);
}

void UserPreferences::SetUpdateBehaviour(int set, int clear) {
  WriteBits(kUpdateBehaviour, set, clear, (set & 0xE0) ? 0xE0 : 0);
}

void UserPreferences::SetNotificationBehaviour(int set, int clear) {
  int group = 0;
  if ((set & 0x17) && !(set & 0x8)) group |= 0x17;
  if (set & 0x1E0) group |= 0x1E0;
  if (set & 0x1E00) group |= 0x1E00;
  WriteBits(kNotificationBehaviour, set, clear, group);
}

void UserPreferences::SetRankingBehaviour(int set, int clear) {
  int group = 0;
  for (int mask : {0x3F, 0xFC0, 0x1F000}) {
    if (set & mask) group |= mask;
  }
  WriteBits(kRankingBehaviour, set, clear, group);
}

// --- Numbers ----------------------------------------------------------------------

int UserPreferences::NotifLevel(int field) {
  const int level = GetFieldInt(field);
  if (level != 0) return level;
  SetValueInt(field, 5, 1);
  return 5;
}

int UserPreferences::GetTotalReadPostCount() { return std::max(GetFieldInt(kReadPostCount), 0); }

void UserPreferences::IncrementReadPostCount(int count) {
  const int64_t total = static_cast<int64_t>(GetTotalReadPostCount()) + count;
  SetValueInt(kReadPostCount, static_cast<int>(std::clamp<int64_t>(total, 0, INT_MAX)), 1);
}

int UserPreferences::GetUserReadPerformance() {
  int days = GetFieldInt(kLoginDays);
  if (days <= 0) days = 1;
  return GetTotalReadPostCount() / days;
}

// --- Rank mode and ranking values ---------------------------------------------------

int UserPreferences::GetRankMode() {
  if (CheckGeneralState(0x10)) return 1;
  if (CheckGeneralState(0x20)) return 2;
  return 0;
}

void UserPreferences::SetRankMode(int mode) {
  if (mode == 1) {
    SetGeneralState(0x10, 0x20);
  } else if (mode == 2) {
    SetGeneralState(0x20, 0x10);
  } else if (mode == 0) {
    SetGeneralState(0, 0x30);
  }
}

int UserPreferences::GetLinkCheckingAutoRankingValue() {
  const int bits = Word(kRankingBehaviour);
  const int mode = GetRankMode();
  if (!(bits & 0x3F) || mode == 0) return 0;
  const int first = FirstOf(bits, {0x1, 0x2, 0x8, 0x10});
  if (mode == 1) {
    // Mode 1 knows only the two middle ranks.
    return first == 0x2 ? 512 : first == 0x8 ? 1024 : 0;
  }
  switch (first) {
    case 0x1:
      return 256;
    case 0x2:
      return 512;
    case 0x8:
      return 1024;
    case 0x10:
      return 2048;
    default:
      return 0;
  }
}

int UserPreferences::GetReadingItemAutoRankingValue() {
  const int bits = Word(kRankingBehaviour);
  if (!(bits & 0xFC0) || GetRankMode() == 0) return 0;
  switch (FirstOf(bits, {0x40, 0x80, 0x200, 0x400})) {
    case 0x40:
      return 256;
    case 0x80:
      return 512;
    case 0x200:
      return 1024;
    case 0x400:
      return 2048;
    default:
      return 0;
  }
}

int UserPreferences::IsAutoDeleteRankingValueValid(int rank) {
  const int bits = Word(kRankingBehaviour);
  const int mode = GetRankMode();
  if (!(bits & 0x1F000) || mode == 0) return 0;
  if (mode == 1) return ((bits & 0x4000) && (rank & 0x200)) ? 1 : 0;
  return (((bits & 0x1000) && (rank & 0x100)) || ((bits & 0x4000) && (rank & 0x300)) ||
          ((bits & 0x8000) && (rank & 0x700)))
             ? 1
             : 0;
}

// --- Skin, melody, proxy ----------------------------------------------------------------

CString UserPreferences::GetSkin() {
  const CString skin = GetFieldString(kSkin, 0);
  return skin.IsEmpty() ? CString(kDefaultSkin) : skin;
}

int UserPreferences::SelectSkin(CString skin) {
  if (skin.IsEmpty()) return 0;
  SetValueStr(kSkin, std::move(skin), 1);
  return 1;
}

int UserPreferences::IsBuildInSkin() {
  const CString skin = GetFieldString(kSkin, 0);
  const int at = skin.Find(u'@');
  return (at >= 0 && _wtoi(skin.Left(at)) == 1) ? 1 : 0;
}

CString UserPreferences::GetSkinName() {
  const CString skin = GetFieldString(kSkin, 0);
  const int at = skin.Find(u'@');
  return at >= 0 ? skin.Mid(at + 1) : skin;
}

CString UserPreferences::GetNotificationMelodyFileName() {
  if (melody_.IsEmpty()) LoadProxyInfo();
  return melody_;
}

void UserPreferences::SetNotificationMelodyFileName(CString file) {
  melody_ = std::move(file);
  WritePackedField();
}

void UserPreferences::SetProxyServer(CString server, int port, CString user, CString password) {
  proxyServer_ = std::move(server);
  proxyPort_ = port;
  proxyUser_ = std::move(user);
  proxyPassword_ = std::move(password);
  WritePackedField();
}

void UserPreferences::WritePackedField() {
  const CString user = proxyUser_.IsEmpty() ? CString(kNoEntry) : proxyUser_;
  const CString password = proxyPassword_.IsEmpty() ? CString(kNoEntry) : proxyPassword_;
  SetValueStr(
      kMelodyAndProxy,
      CString::Formatted(u"%s|%s|%d|%s|%s", melody_, proxyServer_, proxyPort_, user, password), 1);
}

void UserPreferences::LoadProxyInfo() {
  const CString packed = GetFieldString(kMelodyAndProxy, 0);
  if (packed.Find(u'|') < 0) {
    melody_ = packed;
    return;
  }
  const std::vector<CString> parts = packed.Split(u'|');
  auto part = [&parts](size_t i) { return i < parts.size() ? parts[i] : CString(); };
  melody_ = part(0);
  proxyServer_ = part(1);
  if (parts.size() > 2) proxyPort_ = _wtoi(part(2));
  proxyUser_ = part(3) == CString(kNoEntry) ? CString() : part(3);
  proxyPassword_ = part(4) == CString(kNoEntry) ? CString() : part(4);
}

// --- The current user -----------------------------------------------------------------

void UserPreferences::SetCurrentUser(UserPreferences* user) { g_currentUser.store(user); }

UserPreferences* UserPreferences::GetCurrentUser() { return g_currentUser.load(); }

int UserPreferences::GetCurrentRankMode() {
  UserPreferences* user = GetCurrentUser();
  return user != nullptr ? user->GetRankMode() : 0;
}

void UserPreferences::SetCurrentRankMode(int mode) {
  if (UserPreferences* user = GetCurrentUser()) user->SetRankMode(mode);
}

CString UserPreferences::GetCurrentSkin() {
  UserPreferences* user = GetCurrentUser();
  return user != nullptr ? user->GetSkin() : CString(kDefaultSkin);
}

int UserPreferences::SelectCurrentSkin(CString skin) {
  UserPreferences* user = GetCurrentUser();
  return user != nullptr ? user->SelectSkin(std::move(skin)) : 0;
}

int UserPreferences::IsCurrentUserInitialized() {
  UserPreferences* user = GetCurrentUser();
  return user != nullptr ? user->IsUserInitialized() : 0;
}

}  // namespace kordll
