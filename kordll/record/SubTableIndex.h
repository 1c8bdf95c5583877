// SubTableIndex: where each sub-table of a record file lies, kept in a file
// beside it ("<file>-map"), so that opening a large file does not read the
// header of every sub-table before the first record can be read.
//
// The record file itself has no index: the place of a sub-table follows
// from the sizes of all that come before it. The map file remembers, for
// each sub-table in file order, what its header says of its shape: id,
// relation, field count, slot size and the offset of its first slot. Since
// a sub-table header is written once and never changes, and the file only
// grows by whole sub-tables at its end, those facts stay true as long as the
// file is not made anew; the states of the slots, which do change, are not
// in the map and are always read from the record file.
//
// The map is a cache and never an authority:
//  - entries are numbered by their place (the map describes only files
//    whose sub-table ids run 0, 1, 2... in file order), and the last one
//    must end within the record file;
//  - the engine reads a sub-table's own header before it uses the sub-table;
//    one whose header does not say what the map says is not used, and the
//    file is mapped again from its headers;
//  - a record file that grew beyond the map (a writer that did not keep it)
//    is mapped on from where the map ends, and a map that cannot be written
//    is simply missing next time, which costs one full mapping.
//
// Layout (private to this class; no other program reads it), little-endian:
//   header: "KORMAP01"
//   entries of 24 bytes: first slot offset (8), id (4), relation (4),
//   field count (4), slot size (4).
//
// All access goes through the Env (WinFile, FileSystem). Not thread-safe:
// the engine calls it under its slot lock.

#ifndef KORDLL_RECORD_SUBTABLEINDEX_H_
#define KORDLL_RECORD_SUBTABLEINDEX_H_

#include <cstdint>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/platform/WinFile.h"

namespace kordll {

class SubTableIndex {
 public:
  // What the map keeps of one sub-table.
  struct Entry {
    uint64_t firstSlotPosition = 0;
    int id = -1;
    int relation = 0;
    int fieldCount = 0;
    int slotSize = 0;
  };

  static CString PathFor(const CString& storePath);

  // Looks at the map beside storePath: how many entries it has, the last of
  // them, and whether its size is exactly that of those entries (so that
  // more can be appended). False when there is no usable map: none, another
  // kind of file, more entries than the record file of storeSize bytes has
  // room for, or a last entry that is not numbered by its place or ends
  // beyond the record file.
  static bool Inspect(const CString& storePath, int64_t storeSize, size_t* count, Entry* last,
                      bool* whole);
  // Reads n entries from place `first` on; false when they do not read or
  // one of them cannot describe a sub-table.
  static bool ReadEntries(const CString& storePath, size_t first, size_t n, Entry* out);
  // Writes the map anew with these entries, which must be numbered by
  // their place.
  static bool Write(const CString& storePath, const std::vector<Entry>& entries);
  // Adds one entry behind the `count` entries the map holds.
  static bool Append(const CString& storePath, const Entry& entry, size_t count);
  // Removes the map (the record file was made anew or went).
  static void Discard(const CString& storePath);
  // The map goes with its record file; one left at the target goes first.
  static void Move(const CString& from, const CString& to);

 private:
  static bool ReadRange(WinFile* file, size_t first, size_t n, Entry* out);
  // Whether the entry can describe a sub-table at all.
  static bool Plausible(const Entry& entry);
};

}  // namespace kordll

#endif  // KORDLL_RECORD_SUBTABLEINDEX_H_
