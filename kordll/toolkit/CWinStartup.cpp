#include "kordll/toolkit/CWinStartup.h"

#include <string>
#include <vector>

#include "kordll/platform/Env.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/Registry.h"
#include "kordll/toolkit/CPath.h"

namespace kordll {

namespace {

// Marks an autostart entry as written here; one without it is the user's.
constexpr char kMark[] = "X-KorDLL-Startup=true";
// The longest file name the system takes, in bytes.
constexpr size_t kMaxFileName = 255;
// Longer entries are not ours to read.
constexpr int64_t kMaxEntrySize = 64 * 1024;
// The longest program path asked for.
constexpr int kMaxProgramPath = 4096;

CString UpToNul(const CString& text) {
  int nul = text.Find(char16_t(0));
  return nul < 0 ? text : text.Left(nul);
}

bool IsControl(char16_t c) { return c < 0x20 || (c >= 0x7F && c <= 0x9F); }

HKEY HiveOf(CWinStartup::StartupUser user) {
  return user != CWinStartup::kCurrentUser ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
}

RegHive RegHiveOf(CWinStartup::StartupUser user) {
  return user != CWinStartup::kCurrentUser ? RegHive::kLocalMachine : RegHive::kCurrentUser;
}

// One argument of an Exec line, quoted as desktop entries require.
std::string ExecArgument(const CString& text) {
  std::string arg = text.ToUtf8();
  std::string out;
  bool quote = arg.empty();
  for (char c : arg) {
    if (std::string(" \t\n\"'\\><~|&;$*?#()`").find(c) != std::string::npos) quote = true;
  }
  for (char c : arg) {
    if (c == '%') {
      out += "%%";  // a literal percent sign, not a field code
    } else if (quote && (c == '"' || c == '`' || c == '$' || c == '\\')) {
      out += '\\';
      out += c;
    } else {
      out += c;
    }
  }
  return quote ? "\"" + out + "\"" : out;
}

// The Exec line of a command: the program (found as Windows finds one in an
// unquoted command line, the shortest run of words naming a file, else the
// first word) as a path of this system, then the arguments. "" when the
// program names no file here (a network share) or the command holds control
// characters.
std::string ExecLine(const CString& command) {
  for (char16_t c : command.str()) {
    if (IsControl(c)) return std::string();
  }
  std::vector<CString> words;
  CPath line(CString("x ") + command, 0, 1);
  for (int i = 0; i < line.GetArgCount(); ++i) {
    CString word = line.GetArgument(i, 1);
    word.Remove(u'"');
    words.push_back(word);
  }
  if (words.empty()) return std::string();
  size_t program_words = 1;
  CString start = command;
  if (start.TrimLeft()[0] != u'"') {
    CString candidate;
    for (size_t i = 0; i < words.size(); ++i) {
      candidate += (i > 0 ? " " : "") + words[i];
      if (candidate.GetLength() > kMaxProgramPath) break;  // no file has a longer name
      if (FileSystem::IsFile(CPath::ToSystemPath(candidate))) {
        program_words = i + 1;
        break;
      }
    }
  }
  CString program;
  for (size_t i = 0; i < program_words; ++i) program += (i > 0 ? " " : "") + words[i];
  CString system_program = CPath::ToSystemPath(program);
  if (system_program.IsEmpty()) return std::string();
  std::string exec = ExecArgument(system_program);
  for (size_t i = program_words; i < words.size(); ++i) {
    exec += ' ';
    exec += ExecArgument(words[i]);
  }
  // The value itself escapes its backslashes.
  std::string value;
  for (char c : exec) value += c == '\\' ? std::string("\\\\") : std::string(1, c);
  return value;
}

std::string EntryText(const CString& name, const std::string& exec) {
  return "[Desktop Entry]\nType=Application\nName=" + name.ToUtf8() + "\nExec=" + exec +
         "\nX-GNOME-Autostart-enabled=true\n" + kMark + "\n";
}

enum class EntryState { kMissing, kOurs, kForeign };

EntryState StateOf(const CString& path, std::string* content) {
  content->clear();
  if (!FileSystem::Exists(path)) return EntryState::kMissing;
  if (!FileSystem::IsFile(path) || FileSystem::IsSymlink(path)) return EntryState::kForeign;
  if (!FileSystem::ReadWholeFile(path, content, kMaxEntrySize)) return EntryState::kForeign;
  return content->find(std::string("\n") + kMark + "\n") != std::string::npos
             ? EntryState::kOurs
             : EntryState::kForeign;
}

// Writes the entry of `name` for `command`, where the folder lets it.
bool WriteEntry(const CString& path, const CString& name, const CString& command) {
  std::string exec = ExecLine(command);
  if (exec.empty()) return false;
  CString folder = Locations::GetAutostartFolder();
  if (!FileSystem::CreateDirectoryTree(folder) || !Locations::IsPathInside(folder, path)) {
    return false;
  }
  return FileSystem::WriteWholeFile(path, EntryText(name, exec)) != 0;
}

bool QueryCommand(CWinStartup::StartupUser user, const CString& name, CString* command) {
  RegValue value;
  if (Registry::Current()->QueryValue(RegHiveOf(user), CWinStartup::kRunKey, name, &value) !=
          ERROR_SUCCESS ||
      !RegValue::IsStringType(value.type)) {
    return false;
  }
  *command = UpToNul(value.text);
  return true;
}

}  // namespace

CString CWinStartup::GetEntryPath(const CString& name) {
  if (name.IsEmpty() || name == "." || name == ".." || name.Find(char16_t(0)) >= 0) {
    return CString();
  }
  for (char16_t c : name.str()) {
    if (c == u'/' || c == u'\\' || IsControl(c)) return CString();
  }
  CString file = name + ".desktop";
  std::string system_name;
  if (!FileSystem::ToSystemPath(file, &system_name) || system_name.size() > kMaxFileName) {
    return CString();
  }
  CString folder = Locations::GetAutostartFolder();
  if (folder.IsEmpty()) return CString();
  CString path = Locations::Join(folder, file);
  return Locations::IsPathInside(folder, path) ? path : CString();
}

int CWinStartup::GetCurrentAppPath(HINSTANCE, unsigned short* buffer, int size) {
  if (buffer == nullptr || size <= 0) return 0;
  std::string resolved;
  if (Env::Current()->ResolvePath("/proc/self/exe", &resolved) != ERROR_SUCCESS) return 0;
  CString path = CString::FromUtf8(resolved);
  if (path.GetLength() + 1 > size) return 0;
  for (int i = 0; i < path.GetLength(); ++i) buffer[i] = path[i];
  buffer[path.GetLength()] = 0;
  return path.GetLength();
}

int CWinStartup::AddApp(HINSTANCE module, const CString& name, StartupUser user, int deskbar) {
  std::vector<unsigned short> buffer(kMaxProgramPath);
  int length = GetCurrentAppPath(module, buffer.data(), kMaxProgramPath);
  if (length <= 0) return 0;
  CString command(std::u16string(buffer.begin(), buffer.begin() + length));
  command += deskbar ? " /deskbar" : " /background";
  return AddApp(name, command, user);
}

int CWinStartup::AddApp(const CString& name, const CString& command, StartupUser user) {
  const CString key_name = UpToNul(name);
  const CString text = UpToNul(command);
  CString path = GetEntryPath(key_name);
  if (path.IsEmpty() || text.IsEmpty()) return 0;
  std::string before;
  EntryState state = StateOf(path, &before);
  if (state == EntryState::kForeign) return 0;
  if (!WriteEntry(path, key_name, text)) return 0;

  // The value is the text's units without a terminator.
  HKEY key = nullptr;
  int ok = RegCreateKeyEx(HiveOf(user), kRunKey, 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                          nullptr) == ERROR_SUCCESS;
  if (ok) {
    ok = RegSetValueEx(key, key_name, 0, REG_SZ, reinterpret_cast<const uint8_t*>(text.c_str()),
                       static_cast<uint32_t>(text.GetLength() * 2)) == ERROR_SUCCESS;
    RegCloseKey(key);
  }
  if (!ok) {
    // Put the entry back as it was.
    if (state == EntryState::kOurs) {
      FileSystem::WriteWholeFile(path, before);
    } else {
      FileSystem::DeleteFile(path);
    }
  }
  return ok;
}

int CWinStartup::RemoveApp(const CString& name, StartupUser user) {
  const CString key_name = UpToNul(name);
  HKEY key = nullptr;
  int ok = RegOpenKeyEx(HiveOf(user), kRunKey, 0, KEY_SET_VALUE, &key) == ERROR_SUCCESS;
  if (ok) {
    ok = RegDeleteValue(key, key_name) == ERROR_SUCCESS;
    RegCloseKey(key);
  }
  CString path = GetEntryPath(key_name);
  if (path.IsEmpty()) return ok;
  std::string content;
  if (StateOf(path, &content) != EntryState::kOurs) return ok;
  // The entry follows whatever registration of the name is left.
  StartupUser other = user == kCurrentUser ? kAllUsers : kCurrentUser;
  CString command;
  if (QueryCommand(other, key_name, &command) || QueryCommand(user, key_name, &command)) {
    return WriteEntry(path, key_name, command) ? ok : 0;
  }
  return FileSystem::DeleteFile(path) ? ok : 0;
}

}  // namespace kordll
