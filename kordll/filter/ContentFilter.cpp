// ContentFilter: lifetime, what is looked for, status, mask and dates, and
// the questions about what the filter holds. Matching, the stored text and
// the sentences are in ContentFilterMatch.cpp, ContentFilterText.cpp and
// ContentFilterSentence.cpp.

#include "kordll/filter/ContentFilter.h"

#include <algorithm>

#include "kordll/filter/ContentFilterInternal.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/DateItem.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/Item.h"

namespace kordll {

using content_filter_internal::AtTimeOfDay;

// --- Construction and copying ---------------------------------------------------

ContentFilter::ContentFilter() {
  start_ = COleDateTime::Invalid();
  end_ = COleDateTime::Invalid();
  // A new filter is built inactive and made active by its first setter.
  status_ = kInactive;
  SetMatchWholeWordOnly(1);
}

ContentFilter::ContentFilter(ContentFilter* source) : ContentFilter() {
  SetContentFilter(source, 0);
}

ContentFilter::ContentFilter(const ContentFilter& other) : ContentFilter() {
  SetContentFilter(const_cast<ContentFilter*>(&other), 0);
}

ContentFilter& ContentFilter::operator=(const ContentFilter& other) {
  if (this != &other) SetContentFilter(const_cast<ContentFilter*>(&other), 0);
  return *this;
}

ContentFilter::~ContentFilter() { RemoveAllFilteredFields(); }

void ContentFilter::DeleteItems(ItemArray* items) {
  for (Item* item : *items) delete item;
  items->clear();
}

void ContentFilter::DeleteFields(FieldMap* fields) {
  for (auto& [field, items] : *fields) DeleteItems(&items);
  fields->clear();
}

void ContentFilter::StoreCopy(int relation, const FieldMap& fields) {
  FieldMap copy;
  for (const auto& [field, items] : fields) {
    ItemArray copied;
    for (Item* item : items) {
      if (item == nullptr) continue;
      if (Item* made = item->CreateCopyItem()) copied.push_back(made);
    }
    if (!copied.empty()) copy.emplace(field, std::move(copied));
  }
  StoreFields(relation, std::move(copy));
}

void ContentFilter::StoreFields(int relation, FieldMap fields) {
  auto it = filteredFields_.find(relation);
  if (it != filteredFields_.end()) {
    DeleteFields(&it->second);
    it->second = std::move(fields);
  } else {
    filteredFields_.emplace(relation, std::move(fields));
  }
}

void ContentFilter::SetContentFilter(ContentFilter* source, int keepExisting) {
  if (source == nullptr || source == this) return;
  if (keepExisting == 0) {
    RemoveAllFilteredFields();
    keywords_.clear();
  }
  keywords_.insert(keywords_.end(), source->keywords_.begin(), source->keywords_.end());
  for (const auto& [relation, fields] : source->filteredFields_) StoreCopy(relation, fields);
  for (const auto& [relation, task] : source->taskItems_) {
    if (task == nullptr) continue;
    auto it = taskItems_.find(relation);
    if (it != taskItems_.end()) {
      *it->second = *task;
    } else {
      taskItems_.emplace(relation, new DBTaskItem(*task));
    }
  }
  notificationFilter_ = source->notificationFilter_;
  changed_ = source->changed_;
  dateInterval_ = source->dateInterval_;
  mask_ = source->mask_;
  status_ = source->status_;
  start_ = source->start_;
  end_ = source->end_;
  definition_ = source->definition_;
  cascade_ = source->cascade_;
  if (keepExisting == 0) resources_.clear();
  resources_.insert(resources_.end(), source->resources_.begin(), source->resources_.end());
  if (cascade_ == this) cascade_ = nullptr;
}

void ContentFilter::ResetContentFilter() {
  mask_ = 0;
  status_ = kInactive;
  definition_.Empty();
  cascade_ = nullptr;
  dateInterval_ = 0;
  changed_ = 0;
  start_ = COleDateTime::Invalid();
  end_ = COleDateTime::Invalid();
}

void ContentFilter::RemoveAllFilteredFields() {
  for (auto& [relation, fields] : filteredFields_) DeleteFields(&fields);
  filteredFields_.clear();
  for (auto& [relation, task] : taskItems_) delete task;
  taskItems_.clear();
}

// --- What is looked for -----------------------------------------------------------

void ContentFilter::AddItem(Item* item, int relation, int field) {
  filteredFields_[relation][field].push_back(item);
  if (relation != -1 && field != -1) {
    DBTaskItem*& task = taskItems_[relation];
    if (task == nullptr) task = new DBTaskItem(nullptr);
    task->DefineFieldTaskType(field, DBTaskItem::kTaskLoad);
  }
  changed_ = 1;
}

int ContentFilter::AddFilteredStringItem(CString text, int relation, int field,
                                         int removeAllFirst) {
  status_ &= ~kInactive;
  if (removeAllFirst != 0) RemoveAllFilteredFields();
  Item* item = Item::CreateTypedItem(Item::kTypeString, CString());
  if (item == nullptr) return 0;
  item->SetText(text);
  if (std::find(keywords_.begin(), keywords_.end(), text) == keywords_.end()) {
    keywords_.push_back(text);
  }
  AddItem(item, relation, field);
  return 1;
}

int ContentFilter::AddFilteredIntItem(int value, int relation, int field, int removeAllFirst) {
  status_ &= ~kInactive;
  if (removeAllFirst != 0) RemoveAllFilteredFields();
  auto* item = static_cast<IntItem*>(Item::CreateTypedItem(Item::kTypeInt, CString()));
  if (item == nullptr) return 0;
  item->SetValue(value);
  const CString text = CString::Formatted(CString(u"%d"), value);
  if (std::find(keywords_.begin(), keywords_.end(), text) == keywords_.end()) {
    keywords_.push_back(text);
  }
  AddItem(item, relation, field);
  return 1;
}

int ContentFilter::AddFilteredDateItem(COleDateTime date, int relation, int field,
                                       int removeAllFirst) {
  status_ &= ~kInactive;
  if (removeAllFirst != 0) RemoveAllFilteredFields();
  auto* item = static_cast<DateItem*>(Item::CreateTypedItem(Item::kTypeDate, CString()));
  if (item == nullptr) return 0;
  item->SetValue(date);
  AddItem(item, relation, field);
  return 1;
}

void ContentFilter::RemoveFilteredStringItem(CString text, int relation, int field) {
  status_ &= ~kInactive;
  auto rel = filteredFields_.find(relation);
  if (rel == filteredFields_.end()) return;
  FieldMap& fields = rel->second;
  auto entry = fields.find(field);
  if (entry != fields.end()) {
    // The index moves on after a removal too, so that of two equal
    // neighbours the second stays: two calls remove two adjacent words.
    for (size_t i = 0; i < keywords_.size(); ++i) {
      if (keywords_[i] == text) keywords_.erase(keywords_.begin() + static_cast<long>(i));
    }
    ItemArray& items = entry->second;
    for (size_t i = 0; i < items.size();) {
      Item* item = items[i];
      if (item == nullptr || text.IsEmpty() || item->GetItemString() == text) {
        delete item;
        items.erase(items.begin() + static_cast<long>(i));
      } else {
        ++i;
      }
    }
    if (items.empty()) {
      fields.erase(entry);
      auto task = taskItems_.find(relation);
      if (relation != -1 && task != taskItems_.end() && task->second != nullptr) {
        task->second->UnDefineFieldTask(field);
        if (task->second->IsDefinedTasksEmpty()) {
          delete task->second;
          taskItems_.erase(task);
        }
      }
    }
  }
  changed_ = 1;
}

void ContentFilter::AddResourceToFilter(int resource) {
  if (std::find(resources_.begin(), resources_.end(), resource) == resources_.end()) {
    resources_.push_back(resource);
  }
}

void ContentFilter::RemoveResourceToFilter(int resource) {
  auto it = std::find(resources_.begin(), resources_.end(), resource);
  if (it != resources_.end()) resources_.erase(it);
}

// --- Status and mask ------------------------------------------------------------------

int ContentFilter::ReSetFilterStatus(int set, int clear) {
  const int before = status_;
  status_ &= ~kInactive;
  status_ |= set;
  status_ &= ~clear;
  if (status_ == before) return 0;
  changed_ = 1;
  return 1;
}

int ContentFilter::SetFilterOut(int filterOut) {
  const int before = status_;
  if (filterOut != 0) {
    status_ |= kFilterOut;
  } else {
    status_ &= ~kFilterOut;
  }
  if (status_ == before) return 0;
  changed_ = 1;
  return 1;
}

void ContentFilter::SetCaseSensivity(int caseSensitive) {
  const int before = status_;
  if (caseSensitive != 0) {
    status_ |= kCaseSensitive;
  } else {
    status_ &= ~kCaseSensitive;
  }
  if (status_ != before) changed_ = 1;
}

int ContentFilter::SetFilterActivity(int active) {
  const int before = status_;
  if (active != 0) {
    status_ &= ~kInactive;
  } else {
    status_ |= kInactive;
  }
  if (status_ == before) return 0;
  changed_ = 1;
  return 1;
}

void ContentFilter::SetMatchWholeWordOnly(int wholeWord) {
  status_ &= ~kInactive;
  if (wholeWord != 0) {
    status_ |= kWholeWordOnly;
  } else {
    status_ &= ~kWholeWordOnly;
  }
}

int ContentFilter::ReSetContentFilterMask(int set, int clear) {
  const int before = mask_;
  status_ &= ~kInactive;
  mask_ &= kMaskStatus16;
  mask_ |= set;
  if (set == kMaskUnread) mask_ &= ~(kMaskRead | kMaskFlagged);
  if (set == kMaskRead) mask_ &= ~(kMaskUnread | kMaskFlagged);
  if (set == kMaskFlagged) mask_ &= ~(kMaskRead | kMaskUnread);
  if (set == kMaskShowAll) clear &= ~(kMaskRead | kMaskUnread);
  mask_ &= ~clear;
  return mask_ != before ? 1 : 0;
}

void ContentFilter::SetCascadeFilter(ContentFilter* next) {
  // The present pointer is tested, not next: a filter passed itself is
  // taken here, and dropped by the next call.
  cascade_ = cascade_ == this ? nullptr : next;
}

// --- Dates ---------------------------------------------------------------------------------

int ContentFilter::SetDateInterval(COleDateTime start, COleDateTime end) {
  const COleDateTime oldStart = start_;
  const COleDateTime oldEnd = end_;
  status_ &= ~kInactive;
  if (status_ & kKeepDateTimes) {
    start_ = start;
    end_ = end;
  } else {
    start_ = AtTimeOfDay(start, 0, 0, 0);
    end_ = AtTimeOfDay(end, 23, 59, 59);
  }
  // Only two invalid dates leave the date test as it was; a null date (kept
  // as given under bit 1024) switches it on like a valid one.
  if (IsFilterDateValuesSet()) dateInterval_ = 1;
  return !(start_ == oldStart) || !(end_ == oldEnd) ? 1 : 0;
}

int ContentFilter::SetDateInterval(COleDateTime* start, COleDateTime* end) {
  const COleDateTime oldStart = start_;
  const COleDateTime oldEnd = end_;
  status_ &= ~kInactive;
  start_ = start != nullptr ? AtTimeOfDay(*start, 0, 0, 0) : COleDateTime::Invalid();
  end_ = end != nullptr ? AtTimeOfDay(*end, 23, 59, 59) : COleDateTime::Invalid();
  if (IsFilterDateValuesSet()) dateInterval_ = 1;
  return !(start_ == oldStart) || !(end_ == oldEnd) ? 1 : 0;
}

int ContentFilter::IsFilterDateValuesSet() const {
  return start_.GetStatus() != COleDateTime::invalid || end_.GetStatus() != COleDateTime::invalid
             ? 1
             : 0;
}

// --- Questions --------------------------------------------------------------------------------

int ContentFilter::IsSame(ContentFilter* other) {
  if (other == nullptr) return 0;
  if (mask_ != other->mask_ || dateInterval_ != other->dateInterval_ ||
      notificationFilter_ != other->notificationFilter_ || status_ != other->status_) {
    return 0;
  }
  auto sameDate = [](const COleDateTime& a, const COleDateTime& b) {
    if (a.GetStatus() != b.GetStatus()) return false;
    if (a.GetStatus() == COleDateTime::invalid) return true;
    return a == b;
  };
  if (!sameDate(start_, other->start_) || !sameDate(end_, other->end_)) return 0;
  for (auto& [relation, otherFields] : other->filteredFields_) {
    auto mine = filteredFields_.find(relation);
    if (mine == filteredFields_.end()) return 0;
    FieldMap& fields = mine->second;
    if (fields.size() != otherFields.size()) return 0;
    for (auto& [field, otherItems] : otherFields) {
      auto items = fields.find(field);
      if (items == fields.end() || items->second.size() != otherItems.size()) return 0;
      const ItemArray& mineItems = items->second;
      for (size_t i = 0; i < mineItems.size(); ++i) {
        Item* item = mineItems[i];
        // Copies keep the order of their items: the item at the same place
        // answers at once, and only a differently ordered filter pays for
        // the search among all of other's items.
        // (The arrays have the same size here.)
        if (item == nullptr) return 0;
        if (item->IsSame(otherItems[i])) continue;
        bool equal = false;
        for (Item* candidate : otherItems) {
          if (item->IsSame(candidate)) {
            equal = true;
            break;
          }
        }
        if (!equal) return 0;
      }
    }
  }
  for (int resource : resources_) {
    if (std::find(other->resources_.begin(), other->resources_.end(), resource) ==
        other->resources_.end()) {
      return 0;
    }
  }
  return 1;
}

int ContentFilter::IsSpecificFieldFilterIsDefined(int relation) {
  auto it = filteredFields_.find(relation);
  if (it == filteredFields_.end()) return 0;
  const FieldMap& fields = it->second;
  if (fields.size() == 1 && fields.begin()->first != -1) return 1;
  return fields.size() >= 2 ? 1 : 0;
}

int ContentFilter::IsFieldChecked(int relation, int field) {
  auto it = filteredFields_.find(relation);
  return it != filteredFields_.end() && it->second.count(field) != 0 ? 1 : 0;
}

const ContentFilter::ItemArray* ContentFilter::GetFilteredFieldItems(int relation,
                                                                     int field) const {
  auto it = filteredFields_.find(relation);
  if (it == filteredFields_.end()) return nullptr;
  auto items = it->second.find(field);
  return items != it->second.end() ? &items->second : nullptr;
}

void ContentFilter::GetFilterKeywords(CArray<CString, CString>* out) const {
  if (out == nullptr) return;
  out->insert(out->end(), keywords_.begin(), keywords_.end());
}

std::vector<int> ContentFilter::GetTaskRelations() const {
  std::vector<int> relations;
  for (const auto& [relation, task] : taskItems_) relations.push_back(relation);
  return relations;
}

const DBTaskItem* ContentFilter::GetTaskItem(int relation) const {
  auto it = taskItems_.find(relation);
  return it != taskItems_.end() ? it->second : nullptr;
}

int ContentFilter::CountItems() const {
  size_t count = 0;
  for (const auto& [relation, fields] : filteredFields_) {
    for (const auto& [field, items] : fields) count += items.size();
  }
  return static_cast<int>(std::min<size_t>(count, kMaxItems + 1));
}

}  // namespace kordll
