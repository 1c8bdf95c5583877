// SlotFile: the open file of a record or string database, with a page cache
// and write coalescing.
//
// The stores do many small reads and writes at computed offsets: a slot
// header here, an items status there, a few field areas. SlotFile keeps the
// pages it has read, serves reads from them, and collects the writes of one
// operation in those pages; Flush() then hands each run of changed pages to
// the operating system as one write. The bytes that reach the file are
// exactly the bytes written: a run may include unchanged bytes between two
// changes, which are written back as they are.
//
// Contract with the stores: every public operation of a store ends with
// Flush(), so that every byte it wrote is in the file (written to the
// operating system) when it returns. A failed flush drops the cache, so that
// later reads see what the file really holds. The cache lives while the file
// is open and is bounded (kMaxCachedBytes); it assumes that nobody else
// writes the file meanwhile, as the stores assume one writer.
//
// Every Flush is a change of its own, unless the store groups what it writes
// between Begin() and Commit() into one (a save with all its slots and
// marks). A change that fails half way refuses the rest of its writes until
// Commit, which then answers 0. By default that is all: the file keeps what
// reached it. With SetJournal on, changes are also undone as a whole when
// they do not complete: before bytes of the file are overwritten, their old
// contents go to a rollback journal beside the file (see StoreJournal.h),
// which Commit removes; a change that fails half way is undone at once from
// the journal, and one that was cut off (the process killed) is undone when
// the file is next opened. A file that was empty when a change began is not
// journaled. A journal found beside the file when it is opened (left by a
// run that had the journal on) is undone whatever the setting.
//
// Thread safety: every member is internally locked. Offsets are explicit,
// so no caller depends on a shared position.

#ifndef KORDLL_RECORD_SLOTFILE_H_
#define KORDLL_RECORD_SLOTFILE_H_

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <unordered_map>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/platform/WinFile.h"
#include "kordll/record/StoreJournal.h"

namespace kordll {

class SlotFile {
 public:
  enum Mode {
    kOpenRead,       // existing file, read-only
    kOpenReadWrite,  // existing file, read-write
    kCreate,         // new or emptied file, read-write
  };

  static constexpr int kPageSize = 4096;
  static constexpr int64_t kMaxCachedBytes = 8 << 20;

  SlotFile() = default;
  ~SlotFile();  // flushes and closes
  SlotFile(const SlotFile&) = delete;
  SlotFile& operator=(const SlotFile&) = delete;

  // Opens path. Returns 1, or 0 with the Win32 code in *error (may be null).
  int Open(const CString& path, Mode mode, int* error);
  // Flushes and closes; the cache is dropped.
  void Close();
  bool IsOpen();
  bool IsWritable();

  // The size of the file, pending writes included; -1 when not open.
  int64_t Size();

  // Reads up to count bytes at offset into buffer; *got (may be null) is the
  // count read, short at the end of the file. Returns 1, or 0 on failure.
  int ReadAt(uint64_t offset, void* buffer, uint32_t count, uint32_t* got);
  // The same, reading from the file exactly the bytes asked that the cache
  // does not hold: no page around them, no read ahead, and nothing kept.
  // For reads that jump over most of the file (the sub-table headers of a
  // mapping, the slots of single records), where reading more is waste.
  // It leaves the cache and the scan detection of ReadAt as they were.
  int ReadExact(uint64_t offset, void* buffer, uint32_t count, uint32_t* got);
  // Writes count bytes at offset (into the cache until Flush). Returns 1, or
  // 0 when the file is not open for writing or a write that had to go out
  // early failed.
  int WriteAt(uint64_t offset, const void* buffer, uint32_t count);
  // Hands every pending write to the operating system. Returns 1, or 0 when
  // a write failed (the cache is then dropped, and the change undone).
  int Flush();

  // Groups the writes until Commit into one change. Nested calls join the
  // change that is open.
  void Begin();
  // Flushes and ends the change begun by the outermost Begin: 1, or 0 when
  // it did not reach the file (it is then undone, as far as the journal
  // could be written back).
  int Commit();
  // With on set, changes from the next one on are journaled; off by
  // default.
  void SetJournal(bool on);
  // With on set, each journaled change also waits for the disk (the journal
  // before the file is written, the file before the journal goes), for a
  // power loss; off by default: the operating system holds what was handed
  // to it. Without the journal it has no effect.
  void SetFlushToDisk(bool on);
  // Moves the file from (its path) to target (the database is renamed), with what a change
  // cut off earlier left beside it: that is undone first, and a journal
  // that cannot be undone goes along with the file, to be undone at the
  // next opening there. The open file, if any, goes on under the new name.
  // Returns 1, or 0 when the file did not move. REQUIRES: no change under
  // way (the caller holds the store's locks).
  int MoveTo(const CString& from, const CString& target);

 private:
  struct Page {
    std::vector<unsigned char> data;  // kPageSize bytes, zero past the file's end
    int dirty_lo = kPageSize;         // changed range [dirty_lo, dirty_hi)
    int dirty_hi = 0;
  };

  // REQUIRES: mu_ held.
  Page* GetPage(uint64_t index, bool willOverwriteAll) {
    if (index == last_index_) return last_page_;
    return GetPageSlow(index, willOverwriteAll);
  }
  Page* GetPageSlow(uint64_t index, bool willOverwriteAll);
  std::unique_ptr<Page> NewPage();
  int FlushLocked();
  // The journal side of a change. REQUIRES: mu_ held.
  void StartChangeLocked();
  // Journals the pages captured since the last flush; false on failure.
  bool JournalLocked();
  // Ends the change: the journal goes. False when it could not.
  bool EndChangeLocked();
  // Writes the journaled old bytes back and cuts the file to its old size.
  void UndoLocked();
  // Undoes a journal left beside the file; false when it stays.
  bool RecoverLocked();
  void ResetChangeLocked();
  // Reads the window that starts at the page of offset. REQUIRES: mu_ held.
  bool LoadWindow(uint64_t offset);
  void DropCacheLocked();

  std::mutex mu_;
  // State below is protected by mu_.
  WinFile file_;
  bool open_ = false;
  bool writable_ = false;
  int64_t size_ = -1;       // logical size: the file's, grown by pending writes
  int64_t disk_size_ = -1;  // what the file holds now
  std::unordered_map<uint64_t, std::unique_ptr<Page>> pages_;
  std::vector<uint64_t> dirty_;  // indexes of pages with a dirty range
  uint64_t last_loaded_ = UINT64_MAX;
  // The page used last, so that the many small reads and writes within one
  // slot skip the map. Reset with the cache.
  uint64_t last_index_ = UINT64_MAX;
  Page* last_page_ = nullptr;
  // Pages of a dropped cache, kept for reuse (never more than the cache
  // holds), and the buffers of the reads and writes that go to the file.
  std::vector<std::unique_ptr<Page>> spare_;
  std::vector<unsigned char> read_buffer_;
  // A window of the file read in one piece when reads walk forward (a scan):
  // [window_start_, window_start_ + window_size_). It is kept current: every
  // write into its range is copied into it, and what the page cache holds is
  // laid over it when it is read. Empty when window_size_ is 0.
  std::vector<unsigned char> window_;
  uint64_t window_start_ = 0;
  uint64_t window_size_ = 0;
  uint64_t last_read_end_ = UINT64_MAX;  // where the previous read ended
  uint64_t walk_start_ = 0;              // where the current forward walk of reads began
  std::vector<unsigned char> run_buffer_;

  // The change under way.
  CString path_;
  bool to_disk_ = false;
  bool journal_wanted_ = false;  // SetJournal; taken up when a change starts
  bool journal_on_ = false;      // the change under way is journaled
  int depth_ = 0;                // Begin calls without their Commit
  bool changing_ = false;        // written since the change began
  bool failed_ = false;          // the change failed and was undone: writes refused
  bool hot_ = false;             // a journal that could not be undone lies beside the file
  int64_t change_size_ = 0;      // the file's size when the change began
  std::unique_ptr<StoreJournal> journal_;
  // Pages of the old file written in this change whose old bytes are not
  // journaled yet, and the old bytes of those that are.
  std::set<uint64_t> captured_;
  std::unordered_map<uint64_t, std::vector<unsigned char>> journaled_;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_SLOTFILE_H_
