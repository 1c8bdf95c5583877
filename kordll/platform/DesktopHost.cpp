#include "kordll/platform/DesktopHost.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"

extern char** environ;

namespace kordll {

namespace {

// What ShellExecute answers when the opener was started.
constexpr intptr_t kStarted = 42;
// Addresses longer than this are refused rather than handed on.
constexpr int kMaxAddress = 65536;

bool StartsWithNoCase(const CString& text, const char* prefix) {
  CString p(prefix);
  return text.GetLength() >= p.GetLength() && text.Left(p.GetLength()).CompareNoCase(p) == 0;
}

bool HasControlCharacter(const CString& text) {
  for (char16_t ch : text.str()) {
    if (ch < 0x20 || ch == 0x7F) return true;
  }
  return false;
}

bool IsExecutableFile(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

// Starts program with one argument, stdin from /dev/null, and no other open
// descriptor of this process. Answers the child's id, or -1.
pid_t Start(const std::string& program, const std::string& argument) {
  posix_spawn_file_actions_t actions;
  if (posix_spawn_file_actions_init(&actions) != 0) return -1;
  // Without both actions the promise above would not hold: then the child
  // is not started at all.
  if (posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0) != 0 ||
      posix_spawn_file_actions_addclosefrom_np(&actions, 3) != 0) {
    posix_spawn_file_actions_destroy(&actions);
    return -1;
  }
  std::string program_copy = program;
  std::string argument_copy = argument;
  char* argv[] = {program_copy.data(), argument_copy.data(), nullptr};
  pid_t pid = -1;
  int rc = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  return rc == 0 ? pid : -1;
}

int Wait(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Waits for the child on a thread of its own. When no thread can be made
// (std::thread throws std::system_error) the child is waited for here and
// now instead: the caller is held up, but no finished child lingers and
// nothing is thrown at it.
void ReapLater(pid_t pid) {
  try {
    std::thread([pid] { Wait(pid); }).detach();
  } catch (...) {
    Wait(pid);
  }
}

}  // namespace

DesktopHost::DesktopHost(const CString& opener, std::vector<CString> players)
    : opener_(opener), players_(std::move(players)) {}

CString DesktopHost::FindProgram(const CString& name) {
  std::string n;
  if (!FileSystem::ToSystemPath(name, &n)) return CString();
  if (n.find('/') != std::string::npos) return IsExecutableFile(n) ? name : CString();
  std::string path = Locations::GetVariable("PATH").ToUtf8();
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find(':', start);
    if (end == std::string::npos) end = path.size();
    std::string dir = path.substr(start, end - start);
    // Only absolute entries: an empty or relative one would search the
    // current folder.
    if (!dir.empty() && dir[0] == '/') {
      std::string candidate = dir + "/" + n;
      if (IsExecutableFile(candidate)) return CString::FromUtf8(candidate);
    }
    start = end + 1;
  }
  return CString();
}

CString DesktopHost::OpenableTarget(const CString& file, intptr_t* answer) {
  intptr_t refused = SE_ERR_ACCESSDENIED;
  CString target;
  if (StartsWithNoCase(file, "http://") || StartsWithNoCase(file, "https://")) {
    if (!HasControlCharacter(file) && file.GetLength() <= kMaxAddress) target = file;
  } else if (!file.IsEmpty() && !HasControlCharacter(file)) {
    // Windows paths ("C:\Tidrel Downloads\name") name the download
    // folder. The opener always gets an absolute path, so that nothing it is
    // given can read as an address ("file:", "javascript:") or an option.
    CString mapped = Locations::MapDrivePath(file);
    CString folder = Locations::NormalizePath(Locations::GetDownloadFolder());
    CString path =
        Locations::NormalizePath(mapped[0] == u'/' ? mapped : Locations::Join(folder, mapped));
    if (!folder.IsEmpty() && (path == folder || Locations::IsPathInside(folder, path))) {
      if (FileSystem::Exists(path)) {
        target = path;
      } else {
        refused = SE_ERR_FNF;
      }
    }
  }
  if (answer != nullptr) *answer = target.IsEmpty() ? refused : kStarted;
  return target;
}

intptr_t DesktopHost::ShellExecute(const CString& operation, const CString& file, const CString&,
                                   const CString&, int) {
  try {
    return Open(operation, file);
  } catch (...) {  // no memory for the texts: the opener was not started
    return SE_ERR_NOASSOC;
  }
}

intptr_t DesktopHost::Open(const CString& operation, const CString& file) {
  if (!operation.IsEmpty() && operation.CompareNoCase("open") != 0 &&
      operation.CompareNoCase("explore") != 0) {
    return SE_ERR_NOASSOC;
  }
  intptr_t answer = 0;
  CString target = OpenableTarget(file, &answer);
  if (target.IsEmpty()) return answer;
  CString program = FindProgram(opener_);
  std::string argument;
  if (program.IsEmpty() || !FileSystem::ToSystemPath(target, &argument)) return SE_ERR_NOASSOC;
  pid_t pid = Start(program.ToUtf8(), argument);
  if (pid < 0) return SE_ERR_NOASSOC;
  ReapLater(pid);
  return kStarted;
}

int DesktopHost::PlaySound(const CString& path, unsigned flags) {
  try {
    return Play(path, flags);
  } catch (...) {  // no memory for the texts: nothing was played
    return 0;
  }
}

int DesktopHost::ShowNotice(const HostNotice& notice) {
  try {
    return notices_.Show(notice);
  } catch (...) {  // no memory or no thread for the notice: not shown
    return 0;
  }
}

int DesktopHost::Play(const CString& path, unsigned flags) {
  if (path.IsEmpty() || !FileSystem::IsFile(path)) return 0;
  std::string argument;
  if (!FileSystem::ToSystemPath(path, &argument)) return 0;
  // A relative name must not read as an option of the player.
  if (argument[0] != '/') argument = "./" + argument;
  for (const CString& player : players_) {
    CString program = FindProgram(player);
    if (program.IsEmpty()) continue;
    pid_t pid = Start(program.ToUtf8(), argument);
    if (pid < 0) return 0;
    if ((flags & SND_ASYNC) != 0) {
      ReapLater(pid);
      return 1;
    }
    return Wait(pid) == 0 ? 1 : 0;
  }
  return 0;
}

}  // namespace kordll
