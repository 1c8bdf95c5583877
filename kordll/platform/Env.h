// Env: the library's one door to the operating system for files, folders,
// the clock, the time zone and timed waits.
//
// WinFile, FileSystem, FileFind, Clock and TimeZone answer their callers
// through the Env installed for the process; nothing else in the library
// touches these services. Env::Default() is the machine (PosixEnv.cpp). A
// test installs another one with ScopedEnv: an in-memory file system, a
// clock moved by hand (ManualClock), or an EnvWrapper that overrides one
// call and forwards the rest.
//
// Paths are the system spelling of a name (UTF-8, checked and converted by
// FileSystem::ToSystemPath). Every operation that can fail answers a Win32
// code of WinError.h, ERROR_SUCCESS on success, with the meaning the Win32
// call of the same purpose has; nothing throws and nothing touches the
// thread's last error (the callers set it).
//
// Thread safety: every Env must allow any call from any thread. The
// installed Env is swapped atomically; an Env must outlive its installation
// and every EnvFile it opened.

#ifndef KORDLL_PLATFORM_ENV_H_
#define KORDLL_PLATFORM_ENV_H_

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kordll/platform/COleDateTime.h"

namespace kordll {

// What a name is, as Env::Stat reports it.
struct EnvStat {
  bool is_folder = false;
  bool is_file = false;     // a regular file
  bool is_symlink = false;  // only when links are not followed
  int64_t size = 0;         // bytes of a regular file, else 0
  int64_t last_write = 0;   // seconds since 1970, UTC
  int64_t last_access = 0;
  int64_t change_time = 0;
  uint64_t device = 0;  // device and node together name the file itself:
  uint64_t node = 0;    // two names with the same pair are one file
};

// One open regular file. It has no position of its own: every transfer names
// its offset (WinFile keeps the position). Deleting the object closes the
// file. Calls answer a Win32 code. Thread-safe for calls on distinct ranges.
class EnvFile {
 public:
  virtual ~EnvFile() = default;

  // Reads up to count bytes at offset into buffer; *read gets the number
  // read, fewer than asked at the end of the file. On failure *read holds
  // what was read before it.
  virtual int ReadAt(int64_t offset, void* buffer, uint32_t count, uint32_t* read) = 0;
  // Writes count bytes at offset, extending the file (a gap reads as zero
  // bytes). *written gets what reached the file, also on failure.
  virtual int WriteAt(int64_t offset, const void* buffer, uint32_t count, uint32_t* written) = 0;
  virtual int GetSize(int64_t* size) = 0;
  // Cuts or extends the file to `size` bytes.
  virtual int Truncate(int64_t size) = 0;
  // Writes the file's data through to the disk.
  virtual int Flush() = 0;
  // Closes the file and answers whether the system accepted everything
  // written (some file systems report a failed write only here). The file is
  // closed either way, and the object may then only be destroyed. A file
  // not closed this way is closed by the destructor, which cannot report.
  virtual int Close() { return 0; }  // ERROR_SUCCESS
};

// An open file that forwards every call to the file it owns, so that a
// wrapping Env can change one call of its files and keep the rest.
class EnvFileWrapper : public EnvFile {
 public:
  explicit EnvFileWrapper(std::unique_ptr<EnvFile> base) : base_(std::move(base)) {}

  int ReadAt(int64_t offset, void* buffer, uint32_t count, uint32_t* read) override {
    return base_->ReadAt(offset, buffer, count, read);
  }
  int WriteAt(int64_t offset, const void* buffer, uint32_t count, uint32_t* written) override {
    return base_->WriteAt(offset, buffer, count, written);
  }
  int GetSize(int64_t* size) override { return base_->GetSize(size); }
  int Truncate(int64_t size) override { return base_->Truncate(size); }
  int Flush() override { return base_->Flush(); }
  int Close() override { return base_->Close(); }

 protected:
  EnvFile* base() { return base_.get(); }

 private:
  std::unique_ptr<EnvFile> base_;
};

class Env {
 public:
  Env() = default;
  virtual ~Env() = default;
  Env(const Env&) = delete;
  Env& operator=(const Env&) = delete;

  // The machine. Never deleted.
  static Env* Default();
  // The Env installed for the process (Default() unless a test installed
  // another).
  static Env* Current();
  // Installs env (nullptr: the machine) and answers the one installed
  // before. The caller keeps ownership. Clock listeners are told (see
  // Clock::AddListener), since time may have jumped.
  static Env* SetForTesting(Env* env);

  // ---- files ----
  // Opens `path` with access GENERIC_READ and/or GENERIC_WRITE and one of
  // the creation dispositions of WinFile.h, storing the file in *file.
  // Answers ERROR_SUCCESS, or ERROR_ALREADY_EXISTS when CREATE_ALWAYS or
  // OPEN_ALWAYS found the file there (both with *file set), else the failure
  // WinFile::Open documents (*file left empty, no file made).
  virtual int OpenFile(const std::string& path, uint32_t access, int disposition,
                       std::unique_ptr<EnvFile>* file) = 0;

  // ---- folders and names ----
  // Makes one folder: ERROR_ALREADY_EXISTS for a taken name,
  // ERROR_PATH_NOT_FOUND for a missing parent.
  virtual int CreateFolder(const std::string& path) = 0;
  // Removes an empty folder: ERROR_DIR_NOT_EMPTY, ERROR_DIRECTORY for a
  // name that is not a folder (a link to one included).
  virtual int RemoveFolder(const std::string& path) = 0;
  // The names in a folder, without "." and "..", in no particular order.
  // ERROR_PATH_NOT_FOUND when it is missing or not a folder.
  virtual int ListFolder(const std::string& path, std::vector<std::string>* names) = 0;
  // What is at `path`, following a link there or not. A missing name gives
  // ERROR_FILE_NOT_FOUND (also below a missing folder), a part of the path
  // that is a file ERROR_PATH_NOT_FOUND.
  virtual int Stat(const std::string& path, bool follow_link, EnvStat* stat) = 0;
  // Renames a file or folder, refusing an existing target
  // (ERROR_ALREADY_EXISTS); see FileSystem::MoveFile.
  virtual int MoveFile(const std::string& from, const std::string& to) = 0;
  // Copies a regular file; see FileSystem::CopyFile.
  virtual int CopyFile(const std::string& from, const std::string& to, bool fail_if_exists) = 0;
  // Removes a file or link, never a folder (ERROR_ACCESS_DENIED).
  virtual int DeleteFile(const std::string& path) = 0;
  // Makes a symbolic link holding `target`. ERROR_NOT_SUPPORTED where the
  // file system has none.
  virtual int CreateSymbolicLink(const std::string& link, const std::string& target) = 0;
  // Removes the folder and everything below it without following links; see
  // FileSystem::DeleteFolderTree. The default walks with ListFolder, Stat,
  // DeleteFile and RemoveFolder.
  virtual int DeleteFolderTree(const std::string& path);
  // The absolute path of an existing name with every symbolic link, "." and
  // ".." resolved (realpath); a missing part or a dangling link fails.
  virtual int ResolvePath(const std::string& path, std::string* resolved) = 0;
  // Makes a fresh folder whose name is `prefix` followed by six characters,
  // storing its path in *made.
  virtual int CreateTempFolder(const std::string& prefix, std::string* made) = 0;

  // ---- the clock ----
  // The local wall-clock date and time now; universal time now.
  virtual COleDateTime LocalNow() = 0;
  virtual COleDateTime UtcNow() = 0;
  // Milliseconds from an arbitrary fixed start; never goes backwards while
  // this Env is installed.
  virtual int64_t MonotonicMillis() = 0;
  // Lets the calling thread pass ms milliseconds of this Env's time.
  virtual void SleepMillis(int64_t ms) = 0;
  // Waits on cv (lock held, as std::condition_variable::wait) until it is
  // notified or this Env's MonotonicMillis reaches deadline_ms (no deadline
  // when negative). May wake early: callers check their condition and the
  // time again. Answers true once the deadline has passed.
  virtual bool WaitUntil(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
                         int64_t deadline_ms) = 0;

  // ---- the time zone ----
  // The zone setting (TZ): true with *tz set when there is one.
  virtual bool GetTimeZoneSetting(std::string* tz) = 0;
  // Sets the zone setting, or removes it for nullptr.
  virtual void SetTimeZoneSetting(const std::string* tz) = 0;
  // Reads the zone afresh: minutes, UTC minus local standard time.
  virtual int ReadTimeZoneBias() = 0;

 protected:
  // A copy done with this Env's own OpenFile, ReadAt and WriteAt, for Envs
  // with no faster way: refuses what FileSystem::CopyFile refuses and
  // removes a target it made when it fails.
  int CopyFileByChunks(const std::string& from, const std::string& to, bool fail_if_exists);
};

// Forwards every call to a base Env, so that a subclass overrides only what
// it changes. The base must outlive the wrapper.
class EnvWrapper : public Env {
 public:
  explicit EnvWrapper(Env* base) : base_(base) {}
  Env* base() const { return base_; }

  int OpenFile(const std::string& path, uint32_t access, int disposition,
               std::unique_ptr<EnvFile>* file) override {
    return base_->OpenFile(path, access, disposition, file);
  }
  int CreateFolder(const std::string& path) override { return base_->CreateFolder(path); }
  int RemoveFolder(const std::string& path) override { return base_->RemoveFolder(path); }
  int ListFolder(const std::string& path, std::vector<std::string>* names) override {
    return base_->ListFolder(path, names);
  }
  int Stat(const std::string& path, bool follow_link, EnvStat* stat) override {
    return base_->Stat(path, follow_link, stat);
  }
  int MoveFile(const std::string& from, const std::string& to) override {
    return base_->MoveFile(from, to);
  }
  int CopyFile(const std::string& from, const std::string& to, bool fail_if_exists) override {
    return base_->CopyFile(from, to, fail_if_exists);
  }
  int DeleteFile(const std::string& path) override { return base_->DeleteFile(path); }
  int CreateSymbolicLink(const std::string& link, const std::string& target) override {
    return base_->CreateSymbolicLink(link, target);
  }
  int DeleteFolderTree(const std::string& path) override { return base_->DeleteFolderTree(path); }
  int ResolvePath(const std::string& path, std::string* resolved) override {
    return base_->ResolvePath(path, resolved);
  }
  int CreateTempFolder(const std::string& prefix, std::string* made) override {
    return base_->CreateTempFolder(prefix, made);
  }
  COleDateTime LocalNow() override { return base_->LocalNow(); }
  COleDateTime UtcNow() override { return base_->UtcNow(); }
  int64_t MonotonicMillis() override { return base_->MonotonicMillis(); }
  void SleepMillis(int64_t ms) override { base_->SleepMillis(ms); }
  bool WaitUntil(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
                 int64_t deadline_ms) override {
    return base_->WaitUntil(cv, lock, deadline_ms);
  }
  bool GetTimeZoneSetting(std::string* tz) override { return base_->GetTimeZoneSetting(tz); }
  void SetTimeZoneSetting(const std::string* tz) override { base_->SetTimeZoneSetting(tz); }
  int ReadTimeZoneBias() override { return base_->ReadTimeZoneBias(); }

 private:
  Env* const base_;
};

// Installs env for the life of this object, then puts back the Env that was
// installed before. Scopes must end in the reverse order of their start.
class ScopedEnv {
 public:
  explicit ScopedEnv(Env* env) : previous_(Env::SetForTesting(env)) {}
  ~ScopedEnv() { Env::SetForTesting(previous_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  Env* previous_;
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_ENV_H_
