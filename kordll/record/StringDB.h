// StringDB: long texts in a string database file (".sdb").
//
// The file is a 20-byte header "[version:id:D]" followed by a flat array of
// slots, each a 19-byte header "[status:next:previous]" and D bytes of marked
// text (see MarkedText.h) whose last byte is a newline. A text is addressed
// by the index of its first slot; a longer text runs on through a doubly
// linked chain of slots. Slot states: 0 free, 1 last or only slot of a
// text, 2 the text goes on in next; in memory also 3, reserved: handed out by
// GetNextAvailableSlotIndex and not yet written.
//
// Errors are kept in the last error with the codes of AZeusDB: 2 malformed
// header, 3 read, 5 header text too long, 8 write, 10 no such entry, 13
// version, 14 deleted. Nothing throws; a damaged file makes operations fail,
// never crash or hang.
//
// Thread safety: one re-entrant lock. It is held for every public
// operation, so that a slot can be reserved from another thread while a
// text is written.

#ifndef KORDLL_RECORD_STRINGDB_H_
#define KORDLL_RECORD_STRINGDB_H_

#include <list>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/ThreadAnnotations.h"

namespace kordll {

class SlotFile;

struct _struct_STRINGSLOTHEADER {
  int status = 0;
  int next = -1;
  int previous = -1;
};

class StringDB {
 public:
  // The file is directory + "/" + name + ".sdb"; nothing is touched here.
  // slotSize is the usable size of a slot: D, the data size, is one more
  // (a slot's last byte is its newline). D is kept within 7 to 9999 and a
  // grow count below 1 counts as 1, so that every slot can hold a character
  // and every growth adds a slot.
  StringDB(CString directory, CString name, int slotSize, int growCount);
  StringDB(const StringDB&) = delete;
  StringDB& operator=(const StringDB&) = delete;
  // Removes the file if the database was deleted while open.
  virtual ~StringDB();

  // Adds one to the open count; the first opener opens the file, creating
  // it when it does not exist. Returns the error of reading the header, or 0.
  int openDB(int readOnly);
  void closeDB();
  // Makes the file anew (header only) and clears the deleted state.
  int createDB();
  // Makes the file anew; the slots in memory stay as they were.
  void clearDB();
  // Removes the file if it is not open; every later slot operation fails
  // with 14 until createDB.
  void deleteDB();
  // 1 if the file is open or can be opened.
  int IsDBExist();

  // Writes text from the slot *slot on (-1: a free slot, whose index is
  // stored in *slot). Returns the number of slots used, 0 on failure.
  int WriteStringSlot(int* slot, CString text);
  // Appends the text that starts at slot to text (not cleared first).
  // Returns the number of slots read, 0 on failure.
  int ReadStringSlot(int slot, CString& text);
  // Frees the chain from slot on. With wholeChain 0 the last slot of a
  // chain is not freed by itself. Returns the number of slots freed.
  int DeleteStringSlot(int slot, int wholeChain);
  // Reserves a free slot, appending slots if needed; -1 on failure.
  int GetNextAvailableSlotIndex();
  int GetTotalSlotCount();
  int GetLastDBErrorMsgCode();

  // UTF-8 (code page 65001) to 16-bit units; invalid bytes become U+FFFD.
  static void ConvertCharToWString(char const* text, std::u16string& out);

  // The rollback journal, the application's choice: off (0) by default.
  // Without it a write that stops half way (a write failing, the process
  // killed) leaves the chain as far as it got. With it on, every write,
  // delete and growth is one change of the file: a change that is cut off
  // is undone, at once or at the latest when the file is next opened,
  // through a journal beside the file (its name with "-journal" added), so
  // that a text written again and interrupted reads back as the write
  // before. A journal left beside the file is undone at its opening
  // whatever the setting. Takes effect from the next change on.
  void SetJournal(int on);
  // With the journal on: when a write returns, its bytes are written to the
  // operating system; with flushToDisk not 0, each change also waits until
  // the disk holds it, so that it survives a power loss. This costs time
  // and is off by default. Without the journal it has no effect.
  void SetFlushToDisk(int flushToDisk);
  // Diagnostics for tests and tools.
  int GetSlotDataSize();
  CString GetDBPath();
  // The state of a slot in memory, or -1 when it has none.
  int GetSlotState(int slot);

 private:
  int readDBHeader() REQUIRES(lock_);
  int writeDBHeader() REQUIRES(lock_);
  int mapDB();  // takes lock_ itself
  // Reserves a free slot of the mapped file, growing it when none is left;
  // -1 on failure. REQUIRES: lock_ held and the file open.
  int takeFreeSlot() REQUIRES(lock_);
  uint64_t getSlotBytePosition(int index, int afterHeader) REQUIRES(lock_);
  int writeSlotHeader(int index, const _struct_STRINGSLOTHEADER& header, int noSeek)
      REQUIRES(lock_);
  int readSlotHeader(int index, _struct_STRINGSLOTHEADER* header) REQUIRES(lock_);
  int writeEmptySlot(int index, int noSeek) REQUIRES(lock_);
  int appendEmptyTable(int target) REQUIRES(lock_);
  int writeSlot(const CString& text, int* position, int index) REQUIRES(lock_);
  int readSlot(CString* text, int index) REQUIRES(lock_);
  int _WriteStringSlot(int* slot, const CString& text) REQUIRES(lock_);
  // Before a write: the file mapped, a slot taken for *slot when it is -1,
  // and that slot reserved and within the table. 1, or 0 with the error set.
  int startWrite(int* slot) REQUIRES(lock_);
  // Grows the table to hold index when needed; false (error set) when the
  // growth failed or did not reach it.
  bool reachSlot(int index) REQUIRES(lock_);
  int _ReadStringSlot(int slot, CString* text) REQUIRES(lock_);
  int _DeleteStringSlot(int slot, int wholeChain) REQUIRES(lock_);
  void freeListAppend(int index) REQUIRES(lock_);
  void freeListRemove(int index) REQUIRES(lock_);
  // After a write that did not reach the file, memory may be ahead of it:
  // the slots are counted and their states read again from the file by the
  // next operation.
  void forgetMapping() REQUIRES(lock_);
  // Whether the part bytes of slot index, which ends the file, are the
  // front of a free slot. REQUIRES: the file open.
  bool partlyWrittenEmptySlot(int64_t index, int64_t part) REQUIRES(lock_);
  void setError(int code) REQUIRES(lock_) { last_error_ = code; }

  CCriticalSection lock_;
  // State below is protected by lock_.
  CString path_ GUARDED_BY(lock_);
  CString directory_ GUARDED_BY(lock_);
  int last_error_ GUARDED_BY(lock_) = 0;
  int grow_count_ GUARDED_BY(lock_);
  int open_count_ GUARDED_BY(lock_) = 0;
  int version_ GUARDED_BY(lock_) = 11;
  int db_id_ GUARDED_BY(lock_) = 0;
  int data_size_ GUARDED_BY(lock_);  // D
  int slot_count_ GUARDED_BY(lock_) = 0;
  int deleted_ GUARDED_BY(lock_) = 0;
  int file_removed_ GUARDED_BY(lock_) = 0;
  int mapped_ GUARDED_BY(lock_) = 0;
  int header_read_ GUARDED_BY(lock_) = 0;
  int bad_geometry_ GUARDED_BY(lock_) = 0;  // the header's slot size was out of range
  // The name would put the file outside its folder: nothing is done on disk.
  const bool bad_name_;
  // Refuses an operation on a database whose name is not safe (error 3).
  bool refusedName() REQUIRES(lock_) {
    if (!bad_name_) return false;
    setError(3);
    return true;
  }
  std::unique_ptr<SlotFile> file_ GUARDED_BY(lock_);
  std::map<int, int> status_ GUARDED_BY(lock_);
  // Free slots in the order they are reused, front first; each slot is
  // listed once, and can be taken out from anywhere at constant cost.
  std::list<int> free_list_ GUARDED_BY(lock_);
  std::unordered_map<int, std::list<int>::iterator> free_index_ GUARDED_BY(lock_);
  std::vector<unsigned char> byte_buffer_ GUARDED_BY(lock_);
  std::u16string wide_buffer_ GUARDED_BY(lock_);
};

}  // namespace kordll

#endif  // KORDLL_RECORD_STRINGDB_H_
