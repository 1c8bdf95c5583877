#include "kordll/record/SubTableMap.h"

#include "kordll/record/KdbFormat.h"

namespace kordll {

static_assert(KdbFormat::kSlotsPerSubTable == 40);

_struct_SubTableInfo* SubTableMap::Get(int slot) const {
  if (slot < 0) return nullptr;
  return ById(slot / KdbFormat::kSlotsPerSubTable);
}

_struct_SubTableInfo* SubTableMap::ById(int id) const {
  auto it = by_id_.find(id);
  return it == by_id_.end() ? nullptr : it->second.get();
}

void SubTableMap::Register(std::unique_ptr<_struct_SubTableInfo> info) {
  std::vector<_struct_SubTableInfo*>& list = by_relation_[info->relation];
  info->listIndex = static_cast<int>(list.size());
  list.push_back(info.get());
  _struct_SubTableInfo* raw = info.get();
  by_id_[raw->id] = std::move(info);
  Refresh(raw);
}

void SubTableMap::Clear() {
  by_relation_.clear();
  available_.clear();
  by_id_.clear();
}

std::vector<_struct_SubTableInfo> SubTableMap::Copies() const {
  std::vector<_struct_SubTableInfo> out;
  for (const auto& [id, info] : by_id_) out.push_back(*info);
  return out;
}

void SubTableMap::Refresh(_struct_SubTableInfo* info) {
  std::set<int>& available = available_[info->relation];
  if (!info->full && info->freePlaces > 0) {
    available.insert(info->listIndex);
  } else {
    available.erase(info->listIndex);
  }
}

int SubTableMap::FindFree(int relation,
                          const std::function<bool(const _struct_SubTableInfo&)>& accept,
                          _struct_SubTableInfo** info, int* place) {
  auto list_it = by_relation_.find(relation);
  if (list_it == by_relation_.end()) return -1;
  const std::vector<_struct_SubTableInfo*>& list = list_it->second;
  // Only sub-tables that are not full and have a free place can give one;
  // they are visited in list order, as a walk of the whole list would.
  const std::set<int> candidates = available_[relation];
  for (int index : candidates) {
    _struct_SubTableInfo* candidate = list[index];
    if (candidate == nullptr || candidate->full || !accept(*candidate)) continue;
    for (int p = 0; p < candidate->slotCount; ++p) {
      if (!candidate->headFlags[p] && !candidate->continuationFlags[p]) {
        *info = candidate;
        *place = p;
        return KdbFormat::kSlotsPerSubTable * candidate->id + p;
      }
    }
  }
  return -1;
}

int SubTableMap::NextHead(int id, int start, _struct_SubTableInfo** info, int* place) const {
  for (;; ++id, start = 0) {
    _struct_SubTableInfo* candidate = ById(id);
    if (candidate == nullptr) {
      *info = nullptr;
      *place = -1;
      return -1;
    }
    for (int p = start; p < candidate->slotCount; ++p) {
      if (candidate->headFlags[p]) {
        *info = candidate;
        *place = p;
        return KdbFormat::kSlotsPerSubTable * id + p;
      }
    }
  }
}

void SubTableMap::SetState(_struct_SubTableInfo* info, int place, int state, bool keepFull) {
  const bool was_free = !info->headFlags[place] && !info->continuationFlags[place];
  info->headFlags[place] = state == 1;
  info->continuationFlags[place] = state == 2;
  if (state == 0 && !keepFull) info->full = 0;
  const bool is_free = state == 0;
  if (was_free != is_free) info->freePlaces += is_free ? 1 : -1;
  Refresh(info);
}

}  // namespace kordll
