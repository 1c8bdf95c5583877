// StoreJournal: the rollback journal of a store file, so that a change
// interrupted at any moment (the process killed, the disk failing half way)
// can be undone.
//
// Before a change overwrites bytes of the file, the bytes it will overwrite
// are written to the journal, a file beside the store ("<file>-journal"),
// and handed to the operating system. The change then writes the file; when
// all of it is there, the journal is removed: that removal is the moment the
// change counts as made. A journal found at the next opening is what a
// change left that never got that far: its old bytes are written back and
// the file is cut to the size it had, so that the file is again what it was
// before the change. The store file's own bytes never carry anything of the
// journal.
//
// Journal layout (private to this class; no other program reads it), all
// numbers little-endian:
//   header: "KORJRNL1", the file's size before the change (8 bytes), a
//           checksum of those 16 bytes (4 bytes)
//   then records: offset (8), length (4), checksum of offset, length and
//           bytes (4), the old bytes.
// A record that is cut short or fails its checksum ends the journal: it was
// being written when the change stopped, so the file was not yet touched
// there. A journal whose header does not check holds nothing to undo.
//
// With the disk flush on, the journal reaches the disk before the file is
// written, and the file before the journal is removed, so that a change
// survives a power loss whole or not at all; without it (the default) the
// promise is the one against the process being killed.
//
// All access goes through the Env (WinFile, FileSystem). Not thread-safe:
// the owning SlotFile serialises the calls.

#ifndef KORDLL_RECORD_STOREJOURNAL_H_
#define KORDLL_RECORD_STOREJOURNAL_H_

#include <cstdint>
#include <string>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/platform/WinFile.h"

namespace kordll {

class StoreJournal {
 public:
  // The old bytes of one range of the store file.
  struct Image {
    uint64_t offset = 0;
    std::vector<unsigned char> bytes;
  };

  static CString PathFor(const CString& storePath);

  explicit StoreJournal(const CString& storePath) : path_(PathFor(storePath)) {}
  ~StoreJournal();
  StoreJournal(const StoreJournal&) = delete;
  StoreJournal& operator=(const StoreJournal&) = delete;

  // Appends images, making the journal with its header (the file had
  // originalSize bytes) on the first call of a change. 1, or 0 when the
  // journal could not be made or written: the change must then not touch
  // the store file.
  int Append(uint64_t originalSize, const std::vector<Image>& images, bool toDisk);
  // Whether a journal of the current change exists.
  bool Started() const { return file_.IsOpen(); }
  // Ends the change: the journal goes. 1, or 0 when it is still there (and
  // would undo the change at the next opening).
  int Remove();

  // Undoes what a journal left at storePath describes, writing through
  // store (open for writing) and removing the journal. 1 when there was no
  // journal or it was undone, 0 when the store could not be written back
  // (the journal stays). *undone (may be null) says whether bytes were
  // written back.
  static int Recover(const CString& storePath, WinFile* store, bool toDisk, bool* undone);
  // Whether a journal lies beside storePath.
  static bool Exists(const CString& storePath);
  // Removes a journal beside storePath (a file made anew has nothing to
  // undo).
  static void Discard(const CString& storePath);

 private:
  static uint32_t Checksum(const unsigned char* bytes, size_t size, uint32_t seed);

  const CString path_;
  WinFile file_;
  uint64_t end_ = 0;  // where the next record goes
  std::vector<unsigned char> buffer_;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_STOREJOURNAL_H_
