// SubTableMap: the sub-tables of one record file as the engine keeps them in
// memory, by id and by relation, with the free places of each.
//
// A global slot index is 40 x sub-table id + place. The map owns the infos;
// pointers to them stay valid until Clear. For each relation it keeps the
// sub-tables that are not full and have a free place, in file order, so that
// finding a free slot does not walk every sub-table of a large file.
//
// Not thread-safe: the engine holds its slot lock around every use.

#ifndef KORDLL_RECORD_SUBTABLEMAP_H_
#define KORDLL_RECORD_SUBTABLEMAP_H_

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "kordll/record/AZeusDB.h"

namespace kordll {

class SubTableMap {
 public:
  // The sub-table that holds the global slot index; null when there is none.
  _struct_SubTableInfo* Get(int slot) const;
  _struct_SubTableInfo* ById(int id) const;
  bool Empty() const { return by_id_.empty(); }
  // Slots of all mapped sub-tables: the bound of every chain walk.
  int64_t TotalSlots() const { return static_cast<int64_t>(by_id_.size()) * kSlots; }

  // Takes an info that was read from the file or just written to it.
  void Register(std::unique_ptr<_struct_SubTableInfo> info);
  // Drops every info.
  void Clear();
  // Copies of the infos in id order.
  std::vector<_struct_SubTableInfo> Copies() const;

  // The first free place of the relation's sub-tables, in file order,
  // skipping full ones and those that `accept` refuses. Answers the global
  // slot index with *info and *place set, or -1.
  int FindFree(int relation, const std::function<bool(const _struct_SubTableInfo&)>& accept,
               _struct_SubTableInfo** info, int* place);
  // The first head from place `start` of sub-table `id` on, visiting the
  // sub-tables by id and stopping at the first id that is missing. Answers
  // the global slot index with *info and *place set, or -1 (both cleared).
  int NextHead(int id, int start, _struct_SubTableInfo** info, int* place) const;

  // Records the state of a place (0 free, 1 head, 2 continuation) in the
  // flags; a freed place makes the sub-table not full unless keepFull is
  // set (a slot found free by a read, whose state on disk still says taken).
  void SetState(_struct_SubTableInfo* info, int place, int state, bool keepFull = false);

 private:
  static constexpr int kSlots = 40;  // per sub-table, as the format fixes
  // Keeps available_ in step with the flags of info.
  void Refresh(_struct_SubTableInfo* info);

  std::map<int, std::unique_ptr<_struct_SubTableInfo>> by_id_;
  std::map<int, std::vector<_struct_SubTableInfo*>> by_relation_;
  // For each relation, the list places of infos that are not full and have
  // a free place.
  std::map<int, std::set<int>> available_;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_SUBTABLEMAP_H_
