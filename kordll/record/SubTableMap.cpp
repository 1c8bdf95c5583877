#include "kordll/record/SubTableMap.h"

#include <algorithm>

#include "kordll/record/KdbFormat.h"

namespace kordll {

static_assert(KdbFormat::kSlotsPerSubTable == 40);

SubTableMap::Page& SubTableMap::PageOf(size_t index) {
  const size_t p = index / kPage;
  if (pages_.size() <= p) pages_.resize(p + 1);
  if (!pages_[p]) {
    pages_[p] = std::make_unique<Page>();
    const size_t first = p * kPage;
    if (first < numbered_) {
      Page& page = *pages_[p];
      const size_t n = std::min(kPage, numbered_ - first);
      const bool read = reader_ && reader_(first, n, page.shapes.data());
      // Places of the map file are numbered: a shape that says another id
      // is not one the map file should hold.
      for (size_t i = 0; i < n; ++i) {
        if (!read || page.shapes[i].id != static_cast<int>(first + i)) {
          page.shapes[i] = Shape();
          page.unreadable[i] = 1;
          distrusted_ = true;
        }
      }
    }
  }
  return *pages_[p];
}

int64_t SubTableMap::Find(int id) {
  // Sub-tables are nearly always numbered in file order from 0.
  if (id >= 0 && static_cast<size_t>(id) < count_ && ShapeAt(id).id == id) return id;
  if (moved_.empty()) return -1;
  auto it = moved_.find(id);
  return it == moved_.end() ? -1 : static_cast<int64_t>(it->second);
}

_struct_SubTableInfo* SubTableMap::Get(int slot) {
  if (slot < 0) return nullptr;
  return ById(slot / KdbFormat::kSlotsPerSubTable);
}

_struct_SubTableInfo* SubTableMap::ById(int id) {
  const int64_t index = Find(id);
  return index < 0 ? nullptr : Load(static_cast<size_t>(index));
}

void SubTableMap::Register(std::unique_ptr<_struct_SubTableInfo> info) {
  const size_t index = count_++;
  Page& page = PageOf(index);
  Shape& shape = page.shapes[index % kPage];
  shape.firstSlotPosition = info->firstSlotPosition;
  shape.id = info->id;
  shape.relation = info->relation;
  shape.fieldCount = info->fieldCount;
  shape.slotSize = info->GetSlotSize();
  if (shape.id < 0 || static_cast<size_t>(shape.id) != index) moved_[shape.id] = index;
  page.infos[index % kPage] = std::move(info);
  if (lists_built_) AddToList(index);
}

void SubTableMap::AdoptNumbered(size_t count, ShapeReader reader) {
  Clear();
  count_ = count;
  numbered_ = count;
  reader_ = std::move(reader);
}

std::vector<SubTableMap::Shape> SubTableMap::Shapes() {
  std::vector<Shape> out;
  out.reserve(count_);
  for (size_t i = 0; i < count_; ++i) out.push_back(ShapeAt(i));
  return out;
}

bool SubTableMap::LoadAll() {
  // Places below read_through_ were all read: only the rest are asked, so
  // that asking before every save costs nothing once the file is read.
  for (; read_through_ < count_ && !distrusted_; ++read_through_) Load(read_through_);
  return !distrusted_;
}

void SubTableMap::Clear() {
  pages_.clear();
  count_ = 0;
  numbered_ = 0;
  read_through_ = 0;
  reader_ = nullptr;
  distrusted_ = false;
  moved_.clear();
  list_index_.clear();
  by_relation_.clear();
  available_.clear();
  lists_built_ = false;
}

std::vector<_struct_SubTableInfo> SubTableMap::Copies() {
  std::vector<_struct_SubTableInfo> out;
  for (size_t i = 0; i < count_; ++i) {
    if (const _struct_SubTableInfo* info = Load(i)) out.push_back(*info);
  }
  std::sort(
      out.begin(), out.end(),
      [](const _struct_SubTableInfo& a, const _struct_SubTableInfo& b) { return a.id < b.id; });
  return out;
}

_struct_SubTableInfo* SubTableMap::Load(size_t index) {
  Page& page = PageOf(index);
  const size_t k = index % kPage;
  if (page.infos[k]) return page.infos[k].get();
  if (page.unreadable[k]) return nullptr;
  auto info = std::make_unique<_struct_SubTableInfo>();
  if (loader_ && loader_(page.shapes[k], info.get())) {
    if (lists_built_) info->listIndex = list_index_[index];
    page.infos[k] = std::move(info);
  } else {
    page.unreadable[k] = 1;
    distrusted_ = true;
  }
  Refresh(index);
  return page.infos[k].get();
}

void SubTableMap::BuildLists() {
  if (lists_built_) return;
  lists_built_ = true;
  list_index_.reserve(count_);
  for (size_t i = 0; i < count_; ++i) AddToList(i);
}

void SubTableMap::AddToList(size_t index) {
  Page& page = PageOf(index);
  std::vector<size_t>& list = by_relation_[page.shapes[index % kPage].relation];
  if (list_index_.size() <= index) list_index_.resize(index + 1, -1);
  list_index_[index] = static_cast<int>(list.size());
  if (page.infos[index % kPage]) page.infos[index % kPage]->listIndex = list_index_[index];
  list.push_back(index);
  Refresh(index);
}

void SubTableMap::Refresh(size_t index) {
  if (!lists_built_) return;
  Page& page = PageOf(index);
  const size_t k = index % kPage;
  const _struct_SubTableInfo* info = page.infos[k].get();
  const bool may_have_room =
      info != nullptr ? !info->full && info->freePlaces > 0 : page.unreadable[k] == 0;
  std::set<int>& available = available_[page.shapes[k].relation];
  if (may_have_room) {
    available.insert(list_index_[index]);
  } else {
    available.erase(list_index_[index]);
  }
}

int SubTableMap::FindFree(int relation,
                          const std::function<bool(const _struct_SubTableInfo&)>& accept,
                          _struct_SubTableInfo** info, int* place) {
  BuildLists();
  auto list_it = by_relation_.find(relation);
  if (list_it == by_relation_.end()) return -1;
  const std::vector<size_t>& list = list_it->second;
  std::set<int>& available = available_[relation];
  // Only sub-tables that may have a free place are visited, in list order,
  // as a walk of the whole list would. Reading one that was known by its
  // shape alone may take it out of the set, so the walk goes on from the
  // next list place rather than from an iterator.
  for (auto it = available.begin(); it != available.end();) {
    const int index = *it;
    _struct_SubTableInfo* candidate = Load(list[index]);
    if (candidate != nullptr && !candidate->full && accept(*candidate)) {
      for (int p = 0; p < candidate->slotCount; ++p) {
        if (!candidate->headFlags[p] && !candidate->continuationFlags[p]) {
          *info = candidate;
          *place = p;
          return KdbFormat::kSlotsPerSubTable * candidate->id + p;
        }
      }
    }
    it = available.upper_bound(index);
  }
  return -1;
}

int SubTableMap::NextHead(int id, int start, _struct_SubTableInfo** info, int* place) {
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
  const int64_t index = Find(info->id);
  if (index >= 0) Refresh(static_cast<size_t>(index));
}

}  // namespace kordll
