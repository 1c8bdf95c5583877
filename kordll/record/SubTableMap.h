// SubTableMap: the sub-tables of one record file as the engine keeps them in
// memory, by id and by relation, with the free places of each.
//
// A global slot index is 40 x sub-table id + place. The map owns the infos;
// pointers to them stay valid until Clear. For each relation it keeps the
// sub-tables that may have a free place, in file order, so that finding a
// free slot does not walk every sub-table of a large file.
//
// Sub-tables can be known from the map file beside the record file before
// anything of them has been read: then only their count is known, and their
// shapes come from that file a page at a time when first needed. The info of
// a sub-table (slot states and field lengths) is read through the loader the
// first time anything asks for it. A sub-table whose header does not read,
// or does not say what its shape says, counts from then on as missing, and
// the map says that it can no longer be trusted.
//
// Not thread-safe: the engine holds its slot lock around every use.

#ifndef KORDLL_RECORD_SUBTABLEMAP_H_
#define KORDLL_RECORD_SUBTABLEMAP_H_

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

#include "kordll/record/AZeusDB.h"
#include "kordll/record/SubTableIndex.h"

namespace kordll {

class SubTableMap {
 public:
  using Shape = SubTableIndex::Entry;
  // Reads the header of the sub-table of this shape into the info; false
  // when it does not read or says something else.
  using Loader = std::function<bool(const Shape&, _struct_SubTableInfo*)>;
  // Gives the shapes of the sub-tables at file places first to first + n - 1;
  // false when they cannot be read.
  using ShapeReader = std::function<bool(size_t first, size_t n, Shape* out)>;

  void SetLoader(Loader loader) { loader_ = std::move(loader); }

  // The sub-table that holds the global slot index; null when there is none.
  _struct_SubTableInfo* Get(int slot);
  _struct_SubTableInfo* ById(int id);
  // Whether a sub-table of that id is known (its header is not read).
  bool Has(int id) { return Find(id) >= 0; }
  bool Empty() const { return count_ == 0; }
  size_t Count() const { return count_; }
  // Slots of all mapped sub-tables: the bound of every chain walk.
  int64_t TotalSlots() const { return static_cast<int64_t>(count_) * kSlots; }
  // Set once a sub-table known from the map file did not read as the map
  // said: the file should be mapped again from its headers.
  bool Distrusted() const { return distrusted_; }

  // Takes an info that was read from the file or just written to it.
  void Register(std::unique_ptr<_struct_SubTableInfo> info);
  // Takes, into an empty map, `count` sub-tables numbered 0 to count - 1 in
  // file order, whose shapes `reader` gives when first needed.
  void AdoptNumbered(size_t count, ShapeReader reader);
  // The shape of the sub-table at a file place below Count().
  const Shape& ShapeAt(size_t index) { return PageOf(index).shapes[index % kPage]; }
  // The shapes of all sub-tables, in file order.
  std::vector<Shape> Shapes();
  // Reads the info of every sub-table not read yet; false when one of them
  // did not read as its shape said (the map is then distrusted).
  bool LoadAll();
  // Drops every info.
  void Clear();
  // Copies of the infos in id order (every header is read).
  std::vector<_struct_SubTableInfo> Copies();

  // The first free place of the relation's sub-tables, in file order,
  // skipping full ones and those that `accept` refuses. Answers the global
  // slot index with *info and *place set, or -1.
  int FindFree(int relation, const std::function<bool(const _struct_SubTableInfo&)>& accept,
               _struct_SubTableInfo** info, int* place);
  // The first head from place `start` of sub-table `id` on, visiting the
  // sub-tables by id and stopping at the first id that is missing. Answers
  // the global slot index with *info and *place set, or -1 (both cleared).
  int NextHead(int id, int start, _struct_SubTableInfo** info, int* place);

  // Records the state of a place (0 free, 1 head, 2 continuation) in the
  // flags; a freed place makes the sub-table not full unless keepFull is
  // set (a slot found free by a read, whose state on disk still says taken).
  void SetState(_struct_SubTableInfo* info, int place, int state, bool keepFull = false);

 private:
  static constexpr int kSlots = 40;     // per sub-table, as the format fixes
  static constexpr size_t kPage = 256;  // sub-tables per page

  // The sub-tables of 256 file places.
  struct Page {
    std::array<Shape, kPage> shapes;
    std::array<std::unique_ptr<_struct_SubTableInfo>, kPage> infos;
    std::array<unsigned char, kPage> unreadable{};
  };

  // The page of a file place, made (and its shapes read) on first use.
  Page& PageOf(size_t index);
  // The file place of the sub-table, or -1.
  int64_t Find(int id);
  // The info of the sub-table at that place, read first if need be; null
  // when it does not read.
  _struct_SubTableInfo* Load(size_t index);
  // Makes the relation lists on first need: a file that is only read never
  // needs them.
  void BuildLists();
  void AddToList(size_t index);
  // Keeps available_ in step with what is known of the sub-table.
  void Refresh(size_t index);

  std::vector<std::unique_ptr<Page>> pages_;
  size_t count_ = 0;
  // Places below this one have their shapes in the map file.
  size_t numbered_ = 0;
  ShapeReader reader_;
  bool distrusted_ = false;
  // Every place below this one has been read by LoadAll.
  size_t read_through_ = 0;
  // Sub-tables whose id is not their place in file order, by id.
  std::unordered_map<int, size_t> moved_;
  bool lists_built_ = false;
  std::vector<int> list_index_;  // place in its relation's list, by file place
  std::map<int, std::vector<size_t>> by_relation_;
  // For each relation, the list places of sub-tables that may have a free
  // place: not read yet, or read and neither full nor without a free place.
  std::map<int, std::set<int>> available_;
  Loader loader_;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_SUBTABLEMAP_H_
