// AZeusDB: the engine over one record database file (".kdb").
//
// A record database is a text file of fixed-size slots grouped in
// sub-tables of 40 slots each. Every sub-table belongs to one relation and
// gives each field position a byte length; a field longer than its area runs
// on in the same field of a further slot, and the slots of one record form a
// doubly linked chain. The bytes are fixed by the format (see KdbFormat.h);
// this class decides which of them change for each operation.
//
// The record interface is writeFocusableSlot, writeFocusablesSlot,
// readFocusableSlot and deleteFocusableSlot. Each opens and closes the file
// itself and returns 1 on success and 0 on failure; the reason stays in the
// last error (GetLastDBErrorMsgCode, GetLastDBErrorMsg). Nothing here throws.
// A damaged file makes operations fail with their error codes; it never
// crashes the caller, hangs, or makes the engine allocate without bound.
//
// Thread safety: any thread may call any public operation. Three re-entrant
// locks guard the state; the order, outer first, is: the record's own lock,
// then slot_lock_, then open_lock_, then header_lock_.
//   open_lock_   guards open_count_, the file handle and next_sub_table_id_.
//   header_lock_ guards the statistics (length_totals_, record_counts_),
//                db_id_ and header_read_.
//   slot_lock_   guards the sub-table maps, their flags, the file position
//                and the scratch buffers.
// The first mapping of a file runs before slot_lock_ is taken, so two
// threads that race on the very first use of a file must be kept apart by
// its owner (the owning controller maps the file at load time).

#ifndef KORDLL_RECORD_AZEUSDB_H_
#define KORDLL_RECORD_AZEUSDB_H_

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CString.h"
#include "kordll/record/SubTableIndex.h"

namespace kordll {

class DBTaskItem;
class FieldInfo;
class Focusable;
class RGDBTemplate;
class SlotFile;
class SubTableMap;

// One sub-table as the engine keeps it in memory. Owned by the AZeusDB that
// mapped or created it.
struct _struct_SubTableInfo {
  int id = -1;        // sub-table id; global slot index = 40 x id + place
  int slotCount = 0;  // 40 in practice
  int slotSize = -1;  // -1 until GetSlotSize() first sums the lengths
  int fieldCount = 0;
  int full = 0;                    // read from disk with no free state; skipped by findEmptySlot
  uint64_t firstSlotPosition = 0;  // file offset of slot 0
  int relation = 0;
  std::vector<unsigned char> headFlags;          // 1 for state '1'
  std::vector<unsigned char> continuationFlags;  // 1 for state '2'
  std::vector<unsigned short> lengths;           // one per field position
  // Bookkeeping of the engine, not stored: places with neither flag, and
  // the place of this info in its relation's list.
  int freePlaces = 0;
  int listIndex = -1;

  // Slot size: sum of lengths + field count + 28. Computed on first use.
  int GetSlotSize();
  // Bytes of the sub-table header: 42 + (slotCount + 2) + (6 x fieldCount + 1).
  int GetHeaderSize() const;
};

// The four numbers of a slot header, "[relation:next:sequence:previous]" on
// disk. reserved is always 0 and never stored.
struct _struct_SLOTHEADER {
  int reserved = 0;
  int relation = -1;
  int next = -1;
  int previous = -1;
  int sequence = -1;
};

class AZeusDB {
 public:
  // Last-error codes. These numbers are part of the interface and are
  // written nowhere on disk.
  enum {
    kErrNone = 0,
    kErrCorrupted = 2,  // "DB corrupted!"
    kErrRead = 3,       // "DB Read Error!"
    kErrTooLong = 5,    // a header text does not fit its place
    kErrEmptyRead = 6,  // "Empty Read!"
    kErrWrite = 8,      // "DB Write Error!"
    kErrNoData = 9,     // readItem only: the field has no data in this slot
    kErrNoEntry = 10,   // "No Valid Entry!"
    kErrNoTemplate = 11,
    kErrRelation = 12,
    kErrVersion = 13,
    kErrDeleted = 14,
  };

  // The file is directory + "/" + name + ".kdb" (no "/" is added when the
  // directory is empty or ends in "/" or "\"). The file is not touched here.
  // reserved is kept and never read; optimizeLengths, when not 0, sizes each
  // new sub-table from the statistics of the records written so far.
  AZeusDB(CString directory, CString name, int reserved, int optimizeLengths);
  AZeusDB(const AZeusDB&) = delete;
  AZeusDB& operator=(const AZeusDB&) = delete;
  // Writes the database header if its statistics changed (unless the
  // database was deleted, in which case the file is removed).
  virtual ~AZeusDB();

  // Adds one to the open count; the first opener opens the file (read-only
  // or read-write: a later writer may find a read-only handle) and creates
  // it when it does not exist, also for a read-only open. Returns the error
  // of reading the database header (13 for a wrong version, 2 or 3 for a
  // damaged one), 14 after deleteDB, otherwise 0. An existing file that
  // cannot be opened is left alone and gives 3.
  int openDB(int readOnly);
  // Subtracts one from the open count and closes the file at 0.
  void closeDB();
  // Removes the file if it is not open and marks the database deleted:
  // every later operation fails with error 14.
  void deleteDB();
  // Moves the file to directory + "//" + name + ".kdb" and keeps that path.
  // A journal left beside the file by a change cut off earlier is undone
  // first; one that cannot be undone moves along with the file.
  void renameDB(CString name, CString directory);
  // Recreates the file empty (header only). The sub-tables in memory are
  // dropped; the open count is left as it was.
  void clearDB();
  // The name given to the constructor.
  CString GetDBFile();

  // The database id stored in the header; -1 until one is set. Reads the
  // header first if it was never read.
  int GetDBID();
  // Stores the id; with writeNow not 0 it is written to the file at once.
  void SetDBID(int id, int writeNow);
  // Writes the database header now. Returns 1, or 0 on failure.
  int updateDBHeader();

  // Saves the fields of the record that the task covers (null task: the
  // changed fields). A null template means that of the record's relation in
  // the catalogue. A new record (slot index -1) is given a slot. Returns 1
  // on success, 0 on failure, and, when a field write fails half way, the
  // error code 8 itself: the record's changed flags then stay set so that
  // the next save tries again. On success the record's database is this.
  int writeFocusableSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task);
  // The same for many records under one hold of the slot lock. The result
  // is the bitwise AND of the single results, so a half-way failure (8)
  // counts as failure here. A failure does not stop the loop; the last
  // error is then that of the last record that failed, also when records
  // after it were saved. When the batch's bytes do not reach the file, no
  // record of it is saved, and a new one has slot index -1 again.
  int writeFocusablesSlot(CArray<Focusable*, Focusable*>* records, RGDBTemplate* tmpl,
                          DBTaskItem* task);
  // Reads the fields that the task wants (null task: all of them, and the
  // record becomes fully loaded). A record with slot index -1 and a task
  // scans: each call reads the next head after the task's slot position and
  // gives the record that slot index; the scan ends with 0 and error 10.
  int readFocusableSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task);
  // Frees the record's chain. The caller must not pass a record with slot
  // index -1.
  int deleteFocusableSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task);

  // The text of the last error, "" for codes without one.
  CString GetLastDBErrorMsg();
  int GetLastDBErrorMsgCode();

  // Converts text in the system's ANSI code page (windows-1252) to 16-bit
  // units; an empty result if the conversion fails. A null text gives "".
  static void ConvertCharToWString(char* text, std::u16string& out);

  // The rollback journal, the application's choice: off (0) by default.
  // Without it a save or delete that stops half way (a write failing, the
  // process killed) leaves the file as far as it got: the slots it reached
  // carry its bytes, and the next save of the record takes the chain up
  // from there. With it on, every save, delete and header write is one
  // change of the file: a change that is cut off is undone, at once or at
  // the latest when the file is next opened, through a journal beside the
  // file (its name with "-journal" added), so that a record saved again and
  // interrupted reads back as the save before. A journal left beside the
  // file is undone at its opening (and before renameDB moves it) whatever
  // the setting. Takes effect from the next change on.
  void SetJournal(int on);
  // With the journal on: when a save returns, its bytes are written to the
  // operating system; with flushToDisk not 0, each change also waits until
  // the disk holds it, so that it survives a power loss. This costs time
  // and is off by default. Without the journal it has no effect.
  void SetFlushToDisk(int flushToDisk);

  // Diagnostics for tests and tools; they take the lock of what they read.
  int GetOpenCount();
  int IsMapped();
  CString GetDBPath();
  // Copies of the mapped sub-tables in id order.
  std::vector<_struct_SubTableInfo> GetSubTableInfos();

 private:
  // One field of a save: mode 0 narrow text, 1 marked (string) text, 2 not
  // covered by this save.
  struct FieldPlan {
    int mode = 2;
    int position = 0;  // read position in text, for mode 1
    CString text;
  };

  // Results of the private helpers. Those the design names keep the
  // design's results: writeSlot, readSlot and deleteSlot answer 1 or 0 (and
  // writeSlot the code 8 of a failed field write), the lookups answer a slot
  // index or -1, and the rest 0 for success or the error code. The helpers
  // of the walks below follow the same rule: 0 for success, otherwise the
  // error code, which is also the last error; a lookup answers the slot
  // index or -1 with the last error set.
  struct SaveWalk;
  struct ReadWalk;

  int writeSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task);
  // What a save writes: a plan for each field position, and the ids of the
  // fields it covers.
  void planSave(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task,
                std::vector<FieldPlan>* plans, std::vector<int>* written);
  // The head slot of a save: the record's own, or a free one for a new
  // record (which is given its index).
  int locateSaveSlot(Focusable* record, RGDBTemplate* tmpl, const std::vector<FieldPlan>* plans,
                     _struct_SubTableInfo** info, int* place);
  // One slot of a save's walk: steps on to it, checks its header, writes
  // the areas and the items status, and links it into the chain.
  int writeChainSlot(Focusable* record, RGDBTemplate* tmpl, SaveWalk* walk);
  int stepToNext(SaveWalk* walk);
  int readWalkHeader(Focusable* record, SaveWalk* walk);
  int writeFieldAreas(SaveWalk* walk);
  // Cuts the chain behind a record that became shorter, or marks the slot
  // and writes its header with the link to the next one.
  int linkChainSlot(RGDBTemplate* tmpl, SaveWalk* walk);
  // The batch of writeFocusablesSlot under the slot lock; its result.
  int writeBatch(CArray<Focusable*, Focusable*>* records, DBTaskItem* task);
  // Adds the marks of the save just made to those of the batch.
  void keepPendingStates(std::map<uint64_t, char>* states, std::map<uint64_t, char>* heads);
  // Hands the batch to the system and tells its records; false on failure.
  bool endBatch(bool withheld);
  int readSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task);
  // The head a read starts at: the record's slot, or the next head of a scan.
  int locateReadHead(Focusable* record, DBTaskItem* task, _struct_SubTableInfo** info, int* place);
  // One slot of a read's walk: reads its front, checks its header, reads the
  // wanted areas, and steps on when a field goes on.
  int readChainSlot(Focusable* record, DBTaskItem* task, ReadWalk* walk);
  // readChainSlot's answer for a head that a scan's word test passed over;
  // never a last error.
  static constexpr int kPassedOver = -1;
  // Whether the head just read may hold the word of the walk's test.
  bool headMayHold(ReadWalk* walk, const unsigned char* bytes);
  int readWalkFront(Focusable* record, DBTaskItem* task, ReadWalk* walk,
                    const unsigned char** bytes);
  int readFieldAreas(Focusable* record, DBTaskItem* task, ReadWalk* walk,
                     const unsigned char* bytes);
  int deleteSlot(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task);
  // Reads one field's piece from area (the length bytes of its area, read
  // by the caller; null when the file ends before the area).
  int readItem(Focusable* record, FieldInfo* field, int length, int* status, int sequence,
               const unsigned char* area, int* more);
  int writeItem(CString* text, int length, int* status, int* more, int* changed);
  int writeItem_wstring(const CString& text, int* position, int length, int* status, int* more,
                        int* changed);
  // Decodes an area into out, which has room for length units. Returns the
  // count of units before the first U+0000 of the result: the text a reader
  // of the terminated string sees.
  size_t ConvertToWChar(const unsigned char* bytes, int length, int type, char16_t* out);
  int readItemsStatus(_struct_SubTableInfo* info, int place, std::vector<int>* status);
  int writeItemsStatus(_struct_SubTableInfo* info, int place, const std::vector<int>& status);
  int readSlotHeader(int slot, _struct_SLOTHEADER* header);
  int writeSlotHeader(int slot, const _struct_SLOTHEADER& header);
  int writeEmptySlot(int slot, int updateState);
  int deleteEntry(int slot, int wholeChain);
  int updateSubTableSlotStatus(_struct_SubTableInfo* info, int place, int state);
  int createDB();
  int mapDB();
  int readDBHeader();
  int writeDBHeader();
  // Reads the header of the sub-table at position; fieldsHint is the field
  // count it probably has (that of the sub-table before it).
  int readSubTable(uint64_t position, _struct_SubTableInfo* info, int fieldsHint);
  int writeEmptySubTable(_struct_SubTableInfo* info, int64_t position);
  // Where mapping stands while it walks the file.
  struct MapWalk {
    uint64_t position = 1000;  // behind the database header
    int fieldsHint = 1;
    int highestId = -1;
    int lastId = -1;
  };
  // Reads the header of a sub-table that the map file placed: true when it
  // says what the map says.
  bool loadSubTable(const SubTableIndex::Entry& shape, _struct_SubTableInfo* info);
  // Takes the sub-tables that the map file beside the file knows, once the
  // header of the last of them has been found where the map says. Answers
  // how many (0 without a usable map) and whether the map held exactly those.
  size_t mapFromIndex(MapWalk* walk, bool* whole);
  // Reads sub-table headers one behind the other from walk->position on
  // until one does not read, and answers that one's error.
  int walkSubTables(MapWalk* walk);
  // After mapping: brings the map file in step with the sub-tables known.
  void keepIndex(size_t fromIndex, bool whole);
  // After a new sub-table at that file place: adds it to the map file, or
  // makes the map file once the file has enough sub-tables to be worth one.
  void indexNewSubTable(size_t index);
  // Writes the map file anew from the sub-tables known.
  void writeIndex();
  // Maps the file when it is not mapped, or no longer trusts its map. A
  // change (a save or a delete) needs the relation and id of every
  // sub-table, which the map file only claims: forChange reads every header
  // first, so that a change is placed as the headers say.
  // REQUIRES: slot_lock_ held.
  void ensureMapped(bool forChange = false);
  int expandTable(RGDBTemplate* tmpl);
  void resetTable();
  int findEmptySlot(RGDBTemplate* tmpl, _struct_SubTableInfo** info,
                    const std::vector<FieldPlan>* plans, int* place);
  int findNextActiveSlot(_struct_SubTableInfo** info, int* place, DBTaskItem* task);
  _struct_SubTableInfo* getSubTable(int slot);
  uint64_t getSlotBytePosition(_struct_SubTableInfo* info, int place, int afterHeader,
                               int afterStatus);
  int64_t getSlotBytePosition_bySlotIndex(int slot, int afterHeader, int afterStatus);
  void getOptimumFieldLengths(RGDBTemplate* tmpl, std::vector<int>* lengths);
  void registerNewSubTableInfo(std::unique_ptr<_struct_SubTableInfo> info);
  // Writes the free slots that a file ending inside its last sub-table
  // lacks (a write of that sub-table stopped half way), so that what a save
  // adds lies inside the file. 0, or the error code. REQUIRES: slot_lock_
  // held, within the save's change.
  int completeCutSubTable();
  int getNextAvailableSubTableID();

  // The statistics pass of a save: counts a new record and adds the lengths
  // of the fields that the save covers. REQUIRES: header_lock_ not held by
  // another thread in a conflicting order (it is taken here).
  void countStatistics(Focusable* record, RGDBTemplate* tmpl, DBTaskItem* task);
  // The bytes, from the first field area of a slot, that a read with this
  // task takes.
  uint64_t wantedSpan(_struct_SubTableInfo* info, RGDBTemplate* tmpl, DBTaskItem* task);
  // Reads count bytes of a slot from position into slot_buffer_ (fewer at
  // the end of the file; slot_got_ says how many), exactly those bytes when
  // exact is set, else through the file's forward reading. 0 with error 3
  // when not even the slot header could be read.
  int readSlotFront(uint64_t position, uint64_t count, bool exact);
  // The slot header and the items status from bytes already read.
  int parseSlotHeader(const unsigned char* bytes, _struct_SLOTHEADER* header);
  void parseItemsStatus(const unsigned char* bytes, int f, std::vector<int>* status);
  // Drops the sub-tables in memory so that the next operation maps the file
  // again. REQUIRES: slot_lock_ held.
  void forgetMapping();
  // Flushes what the current operation has written to the operating system.
  int finishIO();
  // Ends a save: flushes its slots, then the state characters that free
  // slots and mark continuations, then those that mark heads, each step
  // after the one before reached the system. Returns 1, or 0 when a flush
  // failed (what had not gone out is dropped with the cache).
  // REQUIRES: slot_lock_ held.
  int commitSave();
  // Puts the state characters still waiting into the file cache, without
  // flushing: what a save that stopped early had decided. REQUIRES:
  // slot_lock_ held.
  void releasePendingStates();
  // The slot that a free slot's leftover header links on to, when that
  // header is what an interrupted save of this chain wrote there (the
  // relation, sequence and previous slot of this place in the walk), the
  // slot it links to still links back and is no head, and its sub-table
  // suits the plans as findEmptySlot requires: the next save of the chain
  // goes on through those slots rather than leaving them taken. -1
  // otherwise. REQUIRES: slot_lock_ held.
  int leftoverNext(int slot, int relation, int sequence, int previous,
                   const std::vector<FieldPlan>* plans);
  // Whether info can take the record of plans: no non-empty narrow text of
  // it falls in a field that info does not store.
  static bool Suits(const _struct_SubTableInfo& info, const std::vector<FieldPlan>* plans);
  // The slot count of the mapped file: the bound of every chain walk.
  int64_t totalSlots() const;
  void setError(int code) { last_error_ = code; }
  // Refuses an operation on a database whose name would put its file
  // outside its folder (error 3).
  bool refusedName() {
    if (!bad_name_) return false;
    setError(kErrRead);
    return true;
  }
  // Whether saves and deletes are refused: a refused name, or a file whose
  // opening or mapping found damage (its error is given again), so that a
  // damaged file is never made worse. A deleted database answers 14 in the
  // operations themselves.
  bool refusedWrite();

  // Immutable after construction.
  [[maybe_unused]] const int reserved_;  // kept as given; the engine never reads it
  const int optimize_lengths_;
  const CString name_;

  CCriticalSection slot_lock_;
  CCriticalSection open_lock_;
  CCriticalSection header_lock_;

  std::atomic<int> last_error_{0};  // written by whichever operation ran last

  // Guarded by open_lock_.
  int open_count_ = 0;
  int next_sub_table_id_ = 0;
  std::unique_ptr<SlotFile> file_;
  CString path_;
  std::atomic<int> deleted_{0};
  // The name is empty, ".", "..", or holds "/" or control characters: no
  // file is made, opened, moved or removed under it. renameDB to a safe
  // name lifts it.
  std::atomic<bool> bad_name_;
  // 2 or 3 when the header or a sub-table of the file was found damaged;
  // clearDB, which makes the file anew, resets it.
  std::atomic<int> damaged_{0};

  // Guarded by header_lock_.
  int header_read_ = 0;
  int header_dirty_ = 0;
  int db_id_ = -1;
  std::map<int, std::vector<int64_t>> length_totals_;  // sorted: same data, same bytes
  std::map<int, int> record_counts_;

  // Guarded by slot_lock_.
  int mapped_ = 0;
  // The id of the last sub-table when the mapped file ends inside it, else -1.
  int cut_table_ = -1;
  // Where the next sub-table goes. Written under the slot lock, except by
  // createDB, which runs under the open lock and must not take the slot lock
  // after it (the lock order is slot, then open); atomic for that one write.
  std::atomic<uint64_t> end_of_file_{1000};
  uint64_t position_ = 0;  // the one file position that item reads and writes use
  // Where the last read by slot ended, and how many such reads in a row went
  // forward from there.
  uint64_t exact_next_ = 0;
  int exact_streak_ = 0;
  // The sub-tables by id and by relation, with their free places.
  std::unique_ptr<SubTableMap> tables_;
  // Entries of the map file that are in step with tables_; kIndexNone while
  // there is no map file, kIndexOff when none is kept until the next mapping
  // (damage was found, or the map file could not be written).
  static constexpr int64_t kIndexNone = -1;
  static constexpr int64_t kIndexOff = -2;
  std::atomic<int64_t> index_count_{kIndexNone};
  std::vector<unsigned char> byte_buffer_;
  // Set while writeFocusablesSlot writes its records: their bytes are
  // flushed together at its end, and the records saved meanwhile (with the
  // field ids written) are told so only then.
  int batch_ = 0;
  std::vector<std::pair<Focusable*, std::vector<int>>> batch_saved_;
  std::vector<Focusable*> batch_new_;  // those of them that had no slot before
  // Set while a save writes: the state characters it changes wait here, by
  // file offset, until its slots are in the file, so that a save that stops
  // half way never leaves a state claiming a slot whose bytes are not there.
  // Continuations and frees go out before heads: a head is marked only when
  // its whole chain is.
  int defer_states_ = 0;
  std::map<uint64_t, char> pending_states_;
  std::map<uint64_t, char> pending_heads_;
  std::vector<unsigned char> slot_buffer_;  // the front of the slot being read
  std::vector<char> header_buffer_;         // the sub-table header being mapped
  // The lengths block of the sub-table mapped last, and its lengths.
  std::vector<char> last_lengths_text_;
  std::vector<int> last_lengths_;
  uint64_t slot_got_ = 0;  // bytes of it that the file held
  // Decoded pieces; grown to the longest area read, never shrunk or cleared.
  std::vector<char16_t> wide_buffer_;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_AZEUSDB_H_
