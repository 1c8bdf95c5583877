#include "kordll/toolkit/Utility.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/platform/FileFind.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/Locations.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/SettingsEntryPoints.h"

namespace kordll {

CString Utility::m_sOSVersion;

namespace {

// The folder below the program folder that holds the shared sounds.
constexpr char16_t kSoundFolder[] = u"SoundNotification";

// The marker in front of every scrambled text.
constexpr std::u16string_view kScrambleMarker = u"::[";
// The scrambling key. Texts scrambled with it are stored in profiles: it must
// never change.
constexpr std::u16string_view kScrambleKey = u"quillbarrow";
static_assert(kScrambleKey.size() == 11);

// The sub-section of a settings section that holds the keyboard shortcuts.
constexpr char16_t kShortcutSection[] = u"\\KeyboardShortcuts";

// Folders deeper than this below the one being deleted are not entered.
constexpr int kMaxFolderDepth = 256;

std::mutex& OSVersionLock() {
  static std::mutex* mu = new std::mutex();  // never destroyed
  return *mu;
}

// The first two numbers of a kernel release ("6.8.0-45-generic" gives
// "6.8"), or "" when it does not start with them.
CString MajorMinor(const std::string& release) {
  size_t i = 0;
  auto digits = [&]() {
    const size_t start = i;
    while (i < release.size() && release[i] >= '0' && release[i] <= '9') ++i;
    return i > start;
  };
  if (!digits() || i >= release.size() || release[i] != '.') return CString();
  ++i;
  if (!digits()) return CString();
  return CString::FromUtf8(std::string_view(release).substr(0, i));
}

// A date that is not valid sorts before every valid one and level with any
// other date that is not valid.
bool IsBefore(const COleDateTime& a, const COleDateTime& b) {
  const bool a_valid = a.GetStatus() == COleDateTime::valid;
  const bool b_valid = b.GetStatus() == COleDateTime::valid;
  if (!b_valid) return false;
  if (!a_valid) return true;
  return a < b;
}

COleDateTime DateOf(Focusable* record, int byPublication) {
  if (record == nullptr) {
    COleDateTime none;
    none.SetStatus(COleDateTime::invalid);
    return none;
  }
  return byPublication ? record->GetPublicationDateTime() : record->GetReceiveDateTime();
}

int DeleteFolder(const CString& path, int depth) {
  if (depth > kMaxFolderDepth) return 0;
  std::vector<FindEntry> entries;
  if (!FileFind::List(path, CString("*"), &entries)) return 0;
  for (const FindEntry& entry : entries) {
    const CString child = Locations::Join(path, entry.name);
    if (entry.is_folder) {
      // A real folder, never a link to one: the walk stays inside the tree.
      if (!DeleteFolder(child, depth + 1)) return 0;
    } else if (!FileSystem::DeleteFile(child)) {
      return 0;
    }
  }
  return FileSystem::RemoveDirectory(path);
}

// The profile section of the shortcuts, or "" without current settings.
CString ShortcutSection() {
  const CString section = SettingsEntryPoints::Get()->GetCurrentPreferencesSection();
  if (section.IsEmpty()) return CString();
  return section + kShortcutSection;
}

bool IsNoShortcut(int shortcut) { return shortcut % 1000 == 0 || shortcut <= 1000; }

}  // namespace

// ---- Sounds and messages -----------------------------------------------------

void Utility::PlaySoundFile(CString path) {
  if (path.IsEmpty()) return;
  if (path.Find(u'/') < 0) {
    path = Locations::Join(Locations::Join(Locations::GetProgramFolder(), kSoundFolder), path);
  }
  Host::Current()->PlaySound(path, SND_FILENAME | SND_ASYNC);
}

void Utility::PeekAndPump() {
  MSG msg;
  while (PeekMessage(&msg, kPeekNoRemove)) {
    if (!PumpMessage()) {
      PostQuitMessage(0);
      return;
    }
  }
}

// ---- Images ------------------------------------------------------------------

int Utility::GetTrueColorImageList(CImageList*, unsigned, int) { return 0; }

// ---- Scrambling --------------------------------------------------------------

int Utility::IsStringEncripted(CString) { return 0; }

CString Utility::EncriptString(CString text) {
  std::u16string out(kScrambleMarker);
  out.reserve(out.size() + text.view().size());
  size_t key = 0;
  for (char16_t unit : text.view()) {
    out.push_back(static_cast<char16_t>((unit ^ kScrambleKey[key]) + 1));
    if (++key == kScrambleKey.size()) key = 0;
  }
  return CString(std::move(out));
}

CString Utility::DecriptString(CString text) {
  std::u16string_view view = text.view();
  if (view.substr(0, kScrambleMarker.size()) != kScrambleMarker) return CString();
  view.remove_prefix(kScrambleMarker.size());
  std::u16string out;
  out.reserve(view.size());
  size_t key = 0;
  for (char16_t unit : view) {
    out.push_back(static_cast<char16_t>(static_cast<char16_t>(unit - 1) ^ kScrambleKey[key]));
    if (++key == kScrambleKey.size()) key = 0;
  }
  return CString(std::move(out));
}

int Utility::EncriptChar(int, int) { return 0; }

int Utility::DecriptChar(int, int) { return 0; }

// ---- Records and folders -----------------------------------------------------

void Utility::QuickSortFocusables_wDate(CArray<Focusable*, Focusable*>* list, int low, int high,
                                        int ascending, int byPublication) {
  if (list == nullptr || low < 0 || high < low || static_cast<size_t>(high) >= list->size()) {
    return;
  }
  CArray<Focusable*, Focusable*>& a = *list;
  // Each pass partitions [low, high] around the middle element's date. The
  // two parts are disjoint, so sorting the smaller one by recursion and the
  // larger one in this loop gives the same order as sorting both by
  // recursion, with a depth that stays logarithmic.
  while (low < high) {
    const int middle = static_cast<int>((static_cast<int64_t>(low) + high) >> 1);
    const COleDateTime pivot = DateOf(a[middle], byPublication);
    int i = low;
    int j = high;
    while (i <= j) {
      if (ascending) {
        while (IsBefore(DateOf(a[i], byPublication), pivot)) ++i;
        while (IsBefore(pivot, DateOf(a[j], byPublication))) --j;
      } else {
        while (IsBefore(pivot, DateOf(a[i], byPublication))) ++i;
        while (IsBefore(DateOf(a[j], byPublication), pivot)) --j;
      }
      if (i <= j) {
        if (i != j) std::swap(a[i], a[j]);
        ++i;
        --j;
      }
    }
    if (j - low < high - i) {
      if (low < j) QuickSortFocusables_wDate(list, low, j, ascending, byPublication);
      low = i;
    } else {
      if (i < high) QuickSortFocusables_wDate(list, i, high, ascending, byPublication);
      high = j;
    }
  }
}

int Utility::DeleteDirectory(LPCWSTR path) {
  if (path == nullptr) return 0;
  const CString folder(path);
  if (FileSystem::IsSymlink(folder)) return 0;
  return DeleteFolder(folder, 0);
}

int Utility::IsDots(LPCWSTR name) {
  if (name == nullptr) return 0;
  const std::u16string_view view(name);
  return view == u"." || view == u"..";
}

CString Utility::GetOSVersion() {
  std::lock_guard<std::mutex> lock(OSVersionLock());
  if (!m_sOSVersion.IsEmpty()) return m_sOSVersion;
  std::string release;
  if (FileSystem::ReadWholeFile(CString("/proc/sys/kernel/osrelease"), &release, 4096)) {
    const CString version = MajorMinor(release);
    if (!version.IsEmpty()) m_sOSVersion = CString("Linux ") + version;
  }
  return m_sOSVersion;
}

// ---- Keyboard shortcuts ------------------------------------------------------

void Utility::SetKeyboardShortcut(int commandId, int shortcut) {
  CWinApp* app = AfxGetApp();
  const CString section = ShortcutSection();
  if (app == nullptr || section.IsEmpty()) return;
  app->WriteProfileString(section, CString::Formatted(u"%d", commandId),
                          CString::Formatted(u"%d", shortcut));
}

int Utility::GetKeyboardShortcut_wCommandID(int commandId) {
  CWinApp* app = AfxGetApp();
  const CString section = ShortcutSection();
  if (app == nullptr || section.IsEmpty()) return -1;
  return _wtoi(app->GetProfileString(section, CString::Formatted(u"%d", commandId), u"-1"));
}

int Utility::GetKeyboardShortcut_inMOD(int shortcut) {
  if (shortcut % 1000 == 0) return -1;
  if (shortcut > 3000) return 3;
  if (shortcut > 2000) return 2;
  if (shortcut > 1000) return 1;
  return -1;
}

unsigned Utility::GetVirtualKey(int shortcut) {
  if (shortcut % 1000 == 0) return 0;
  if (shortcut > 3000) return static_cast<unsigned>(shortcut - 3000);
  if (shortcut > 2000) return static_cast<unsigned>(shortcut - 2000);
  if (shortcut > 1000) return static_cast<unsigned>(shortcut - 1000);
  return 0;
}

CString Utility::GetKeyboardShortcut_inString(int shortcut) {
  if (IsNoShortcut(shortcut)) return CString();
  CString text = shortcut > 3000   ? CString("CTRL + ALT")
                 : shortcut > 2000 ? CString("CTRL")
                                   : CString("ALT");
  text += " + ";
  const unsigned key = GetVirtualKey(shortcut);
  if (key >= 48 && key <= 57) {
    text.AppendFormat(u"%d", static_cast<int>(key - 48));
  } else if (key >= 65 && key <= 90) {
    text += static_cast<char16_t>(key);
  }
  return text;
}

// ---- Text --------------------------------------------------------------------

CString Utility::ClearWhiteSpaces(CString text) {
  std::u16string out;
  out.reserve(text.view().size());
  for (char16_t unit : text.view()) {
    if (unit == u'\n' || unit == u'\t' || unit == u'\r') unit = u' ';
    if (unit == u' ' && !out.empty() && out.back() == u' ') continue;
    out.push_back(unit);
  }
  return CString(std::move(out));
}

}  // namespace kordll
