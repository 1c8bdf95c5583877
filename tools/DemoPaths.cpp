// The paths step of `kordll demo`: a Windows command line taken apart, a way
// between two folders worked out both ways, where a drive path lies here,
// and this program registered to start at log-in and removed again (the Run
// value and the desktop's autostart entry together). Whatever the step made
// for the registration (the autostart folder, the Run key and its parents) is
// removed again, so every run goes alike and leaves things as it found them.

#include <ostream>
#include <string>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/Registry.h"
#include "kordll/toolkit/CPath.h"
#include "kordll/toolkit/CWinStartup.h"
#include "tools/DemoWalk.h"

namespace {

using kordll::CPath;
using kordll::CString;
using kordll::CWinStartup;
using kordll::FileSystem;
using kordll::Locations;
using kordll::RegHive;
using kordll::Registry;

const char16_t kName[] = u"KorDLL Demo";

std::string U(const CString& s) { return s.ToUtf8(); }

// The Run key and each of its parents, deepest first.
std::vector<CString> RunKeyChain() {
  std::vector<CString> chain;
  CString key = CWinStartup::kRunKey;
  for (;;) {
    chain.push_back(key);
    int cut = key.ReverseFind(u'\\');
    if (cut < 0) return chain;
    key = key.Left(cut);
  }
}

void TakeApart(kordll_tool::Walk& walk) {
  CPath line(CString(u"\"C:\\Program Files\\Tidrel\\tidrel.exe\" /background /size:2"), 0, 1);
  walk.out() << "  drive " << U(line.GetDrive()) << ", folders";
  for (int i = 0; i < line.GetDirCount(); ++i) walk.out() << " \"" << U(line.GetDir(i)) << "\"";
  walk.out() << ", title \"" << U(line.GetFileTitle()) << "\", extension \"" << U(line.GetExtName())
             << "\"\n";
  walk.out() << "  " << line.GetArgCount() << " arguments: " << U(line.GetArgument(0, 1))
             << " and size " << U(line.GetArgument(1, 0)) << "\n";
  CString joined =
      CPath(CString(u"..\\Marsek\\marsek.exe")).GetAbsolutePath(u"C:\\Program Files\\Tidrel");
  CString way = line.GetRelativePath(u"C:\\Program Files\\Marsek");
  walk.out() << "  joined: " << U(joined) << "; from Marsek's folder: " << U(way) << "\n";
  walk.Expect(joined == u"C:\\Program Files\\Marsek\\marsek.exe", "joining the relative path");
  walk.Expect(way == u"..\\Tidrel\\tidrel.exe", "the relative way");
  CString here = line.GetSystemPath();
  CString data = Locations::GetDataRoot();
  if (here.Left(data.GetLength()) == data) here = "<data root>" + here.Mid(data.GetLength());
  walk.out() << "  on this system: " << U(here) << "\n";
}

void StartUp(kordll_tool::Walk& walk) {
  Registry* registry = Registry::Current();
  kordll::RegValue before;
  if (registry->QueryValue(RegHive::kCurrentUser, CWinStartup::kRunKey, kName, &before) ==
      kordll::ERROR_SUCCESS) {
    walk.Expect(false, "a start-up entry \"KorDLL Demo\" exists already; left alone");
    return;
  }
  const CString folder = Locations::GetAutostartFolder();
  const bool had_folder = FileSystem::IsFolder(folder);
  std::vector<CString> new_keys;
  for (const CString& key : RunKeyChain()) {
    if (!registry->KeyExists(RegHive::kCurrentUser, key)) new_keys.push_back(key);
  }
  const CString entry = CWinStartup::GetEntryPath(kName);
  if (!walk.Expect(CWinStartup::AddApp(nullptr, kName, CWinStartup::kCurrentUser, 0) == 1,
                   "registering this program to start at log-in")) {
    return;
  }
  kordll::RegValue value;
  registry->QueryValue(RegHive::kCurrentUser, CWinStartup::kRunKey, kName, &value);
  std::string text;
  FileSystem::ReadWholeFile(entry, &text);
  bool switched =
      value.text.Right(12) == " /background" && text.find(" /background\n") != std::string::npos;
  walk.out() << "  registered: Run value and " << U(Locations::GetFileName(entry))
             << " in the autostart folder, both with /background: "
             << (walk.Expect(switched, "the switch in both places") ? "yes" : "no") << "\n";
  bool removed =
      CWinStartup::RemoveApp(kName, CWinStartup::kCurrentUser) == 1 && !FileSystem::Exists(entry);
  walk.out() << "  removed, value and entry both gone: "
             << (walk.Expect(removed, "removing the registration") ? "yes" : "no") << "\n";
  // Leave things as found.
  if (!had_folder) FileSystem::RemoveDirectory(folder);
  for (const CString& key : new_keys) registry->DeleteKey(RegHive::kCurrentUser, key);
}

void Paths(kordll_tool::Walk& walk) {
  walk.Step("Paths and start at log-in");
  TakeApart(walk);
  StartUp(walk);
}

const kordll_tool::DemoStepRegistration kPaths{80, &Paths};

}  // namespace
