#include "kordll/filter/ContentFilter.h"

#include <algorithm>
#include <set>

#include "kordll/platform/CRuntime.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/DateItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/FocusableLink.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/Item.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/toolkit/KorlanDateTime.h"

namespace kordll {

namespace {

// A ":" inside a keyword of the stored text.
const CString kEscapedColon(u"&9877;");
const CString kColon(u":");
// How the sentences render a date.
const CString kSentenceDateFormat(u"%B %d, %Y");

// The four post fields a sentence names, in the order it names them.
struct NamedField {
  int id;
  const char16_t* name;
};
constexpr NamedField kNamedFields[] = {{7, u"body"}, {4, u"title"}, {5, u"author"},
                                       {6, u"category"}};

COleDateTime InvalidDate() {
  COleDateTime date;
  date.SetStatus(COleDateTime::invalid);
  return date;
}

bool IsValid(const COleDateTime& date) { return date.GetStatus() == COleDateTime::valid; }

// The date at hour:minute:second of its day; invalid when date is not
// valid, since its parts then form no date.
COleDateTime AtTimeOfDay(const COleDateTime& date, int hour, int minute, int second) {
  COleDateTime result;
  result.SetDateTime(date.GetYear(), date.GetMonth(), date.GetDay(), hour, minute, second);
  return result;
}

// isalnum of the C runtime in its default locale, for units up to 256.
bool IsWordUnit(char16_t ch) { return ch <= 256 && IsAlnumUnit(ch); }

// CString::MakeLower, unit by unit, with the ASCII units mapped here rather
// than one call each: most texts a filter reads are ASCII.
void LowerInPlace(CString* text) {
  for (char16_t& ch : text->str()) {
    if (ch < 128) {
      if (ch >= u'A' && ch <= u'Z') ch = static_cast<char16_t>(ch + 32);
    } else {
      ch = ToLowerUnit(ch);
    }
  }
}

}  // namespace

// --- Construction and copying ---------------------------------------------------

ContentFilter::ContentFilter() {
  start_ = InvalidDate();
  end_ = InvalidDate();
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
  auto it = filteredFields_.find(relation);
  if (it != filteredFields_.end()) {
    DeleteFields(&it->second);
    it->second = std::move(copy);
  } else {
    filteredFields_.emplace(relation, std::move(copy));
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
  start_ = InvalidDate();
  end_ = InvalidDate();
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
  start_ = start != nullptr ? AtTimeOfDay(*start, 0, 0, 0) : InvalidDate();
  end_ = end != nullptr ? AtTimeOfDay(*end, 23, 59, 59) : InvalidDate();
  if (IsFilterDateValuesSet()) dateInterval_ = 1;
  return !(start_ == oldStart) || !(end_ == oldEnd) ? 1 : 0;
}

int ContentFilter::IsFilterDateValuesSet() const {
  return start_.GetStatus() != COleDateTime::invalid ||
                 end_.GetStatus() != COleDateTime::invalid
             ? 1
             : 0;
}

int ContentFilter::IsDateValid(COleDateTime date) {
  if (dateInterval_ == 0) return 1;
  if (date.GetStatus() == COleDateTime::invalid) return 0;
  // Only an invalid date is refused before the cut. A null date passes that
  // test, and cut to its day it is invalid: it then passes an interval
  // without dates and fails every comparison.
  return IsInInterval(AtTimeOfDay(date, 0, 0, 0));
}

int ContentFilter::IsDateTimeValid(COleDateTime date) {
  if (dateInterval_ == 0) return 1;
  if (date.GetStatus() == COleDateTime::invalid) return 0;
  return IsInInterval(date);
}

int ContentFilter::IsInInterval(const COleDateTime& date) const {
  const bool startSet = start_.GetStatus() != COleDateTime::invalid;
  const bool endSet = end_.GetStatus() != COleDateTime::invalid;
  if (!startSet && !endSet) return 1;
  if (!startSet && date <= end_) return 1;
  if (!endSet && date >= start_) return 1;
  return date >= start_ && date <= end_ ? 1 : 0;
}

// --- Questions --------------------------------------------------------------------------------

int ContentFilter::CheckFocusableStatus(Focusable* record) {
  if (mask_ == kMaskShowAll) return 1;
  if (record == nullptr) return 0;
  const int s = record->GetFocusableStatus();
  if (mask_ == s) return 1;
  for (int bit : {kMaskUnread, kMaskRead, kMaskFlagged, kMaskStatus16}) {
    if (mask_ == bit && (s & bit)) return 1;
  }
  return 0;
}

int ContentFilter::IsFilterMaskValid(int status) {
  if (mask_ == kMaskShowAll) return 1;
  if (status & mask_ & kMaskUnread) return 1;
  if (status & mask_ & kMaskRead) return 1;
  if (status & mask_ & kMaskFlagged) return 1;
  return 0;
}

int ContentFilter::SearchWord(CString text, CString word) { return SearchIn(text, word); }

int ContentFilter::SearchIn(const CString& text, const CString& word) const {
  int p = text.Find(word);
  if (!(status_ & kWholeWordOnly)) return p >= 0 ? 1 : 0;
  const int length = text.GetLength();
  const int wordLength = word.GetLength();
  while (p >= 0) {
    const int before = p - 1;
    const int after = p + wordLength;
    if (p == 0) {
      // Past the end of the text stands the terminating zero: no letter.
      if (!IsWordUnit(text.GetAt(wordLength))) return 1;
    } else if (!IsWordUnit(text.GetAt(before))) {
      if (after >= length) return 1;
      if (!IsWordUnit(text.GetAt(after))) return 1;
    }
    // Part of a longer word: look further on.
    p = text.Find(word, p + 1);
  }
  return 0;
}

int ContentFilter::TextMatches(const CString& fieldText, Item* item) {
  if (fieldText.IsEmpty()) return 0;
  // The test runs once per field and record: the field's text is lowered in
  // a buffer of the filter that keeps its room from one record to the next,
  // so that the test itself allocates nothing for texts it has seen the
  // size of.
  textBuffer_.str().assign(fieldText.view());
  wordBuffer_ = item->GetItemString();
  if (!(status_ & kCaseSensitive)) {
    LowerInPlace(&textBuffer_);
    LowerInPlace(&wordBuffer_);
  }
  if (status_ & kExactMatch) {
    textBuffer_.Trim();
    wordBuffer_.Trim();
    return textBuffer_ == wordBuffer_ ? 1 : 0;
  }
  return SearchIn(textBuffer_, wordBuffer_);
}

int ContentFilter::CheckFocusable(Focusable* record, int loadOnAccept) {
  return CheckFocusableAt(record, loadOnAccept, 0);
}

int ContentFilter::CheckFocusableAt(Focusable* record, int loadOnAccept, int depth) {
  if (record == nullptr) return 0;
  // 1. A link is tested as its target. An orphan link has no record to stand
  // for: it is tested as itself, so that every question asked below gets
  // the link's fallback answer and nothing reaches a destroyed record.
  if (record->GetFocusableRelation() == FocusableLink::kLinkRelation) {
    if (auto* link = dynamic_cast<FocusableLink*>(record)) {
      if (Focusable* target = link->GetLinkedFocusable()) record = target;
    }
  }

  // Whether this call holds a reservation of the record that it must give
  // back. Only what this call reserved is released, once.
  bool reserved = false;
  auto load = [&]() {
    if (record->IsFullyLoaded(1) == 0) record->LoadFocusable(nullptr);
  };
  auto release = [&]() {
    if (reserved) {
      reserved = false;
      record->Release(nullptr);
    }
  };
  // A cascade that is this filter itself, or that would go deeper than the
  // limit, refuses: a chain of cascades must end.
  auto cascadeAccepts = [&]() {
    if (cascade_ == this || depth >= kMaxCascadeDepth) return 0;
    return cascade_->CheckFocusableAt(record, 1, depth + 1);
  };

  // 2. Activity.
  if (status_ & kInactive) {
    if (loadOnAccept != 0) load();
    return 1;
  }
  // 3. Status mask.
  if (CheckFocusableStatus(record) == 0) return 0;
  // 4. Relation.
  const int relation = record->GetFocusableRelation();
  FieldMap* fields = nullptr;
  bool allRelations = false;
  if (!filteredFields_.empty()) {
    auto it = filteredFields_.find(-1);
    allRelations = it != filteredFields_.end();
    if (!allRelations) it = filteredFields_.find(relation);
    if (it == filteredFields_.end()) return 0;
    fields = &it->second;
  }
  // 5. Dates.
  if (dateInterval_ != 0) {
    const COleDateTime date = (status_ & kReceivedDate) ? record->GetReceiveDateTime()
                                                        : record->GetPublicationDateTime();
    if (IsDateValid(date) == 0) return 0;
  }
  // 6. Reading the fields the test needs. IsFullyLoaded(1) reserves a
  // loaded record; that reservation is given back like a partial load.
  if (fields != nullptr) {
    const int fullyLoaded = record->IsFullyLoaded(1);
    if (fullyLoaded != 0) reserved = true;
    if (fullyLoaded == 0 && !fields->empty()) {
      DBTaskItem* task = nullptr;
      if (allRelations) {
        // Built once per record relation: every field of the item types
        // searched over all fields.
        DBTaskItem*& stored = taskItems_[relation];
        if (stored == nullptr) {
          stored = new DBTaskItem(nullptr);
          auto all = fields->find(-1);
          GlobalRelationsCtrl* catalogue = GlobalRelationsCtrl::GetGlobalRelationsCtrl();
          if (all != fields->end() && catalogue != nullptr) {
            for (Item* item : all->second) {
              if (item != nullptr) {
                catalogue->LoadRelationFields(relation, item->GetItemTypeID(), stored);
              }
            }
          }
        }
        task = stored;
      } else {
        auto it = taskItems_.find(relation);
        if (it != taskItems_.end()) task = it->second;
      }
      if (record->LoadFocusable(task) != 0) reserved = true;
    }
  }

  // 7. Words and values. The match flag is never cleared: in a word-
  // dependent filter the first item of the first field decides once it
  // matched.
  int match = 0;
  if (fields != nullptr) {
    for (auto& [field, items] : *fields) {
      for (size_t index = 0; index < items.size(); ++index) {
        Item* item = items[index];
        if (item == nullptr) continue;
        bool found = false;
        if (field == -1) {
          const int count = record->GetFieldCount(0);
          if (item->IsString()) {
            for (int f = 4; f < count && !found; ++f) {
              if (record->GetFieldType(f) != Item::kTypeString) continue;
              found = TextMatches(record->GetFieldString(f, 0), item) != 0;
            }
          } else {
            for (int f = 0; f < count && !found; ++f) {
              found = record->IsFieldItemSame(f, item) != 0;
            }
          }
          if (found) match = 1;
        } else {
          if (field >= 4 && record->GetFieldType(field) == Item::kTypeString) {
            found = TextMatches(record->GetFieldString(field, 0), item) != 0;
          } else {
            found = record->IsFieldItemSame(field, item) != 0;
          }
          // A match of a given field leaves the items at once, without the
          // item rules.
          if (found) {
            match = 1;
            break;
          }
        }
        // Item rules.
        if (match == 0 && IsWordDependent()) {
          release();
          return 0;
        }
        if (match == 1 && !IsWordDependent()) {
          release();
          if (cascade_ == nullptr) {
            // The load runs when loadOnAccept is 0 and not when it is 1:
            // the applications rely on this inversion.
            if (loadOnAccept == 0) load();
            return 1;
          }
          if (cascadeAccepts() != 0) return 1;
          release();
          return 0;
        }
      }
      // End-of-field rule.
      if (match == 1) break;
      if (IsWordDependent()) {
        // Only a field without items gets here.
        release();
        if (loadOnAccept != 0) load();
        return 1;
      }
    }
  }
  // 8.
  release();
  // 9. Cascade.
  if (cascade_ != nullptr) return cascadeAccepts();
  // 10.
  if (fields != nullptr && !fields->empty() && match == 0) return 0;
  // 11.
  if (loadOnAccept != 0) load();
  return 1;
}

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

// --- Stored text -----------------------------------------------------------------------------

CString ContentFilter::GetFilter() {
  if (changed_ == 0) return definition_;
  CString text;
  text.Format(u"(%d)(", status_);
  text += KorlanDateTime::DateTimeToSimpleString(start_, 0);
  text += u':';
  text += KorlanDateTime::DateTimeToSimpleString(end_, 0);
  text.AppendFormat(u")(%d)(", mask_);
  for (const CString& keyword : keywords_) {
    if (keyword.IsEmpty()) continue;
    CString escaped = keyword;
    escaped.Replace(kColon, kEscapedColon);
    text += escaped;
    text += u':';
  }
  text += u")(";
  for (const auto& [relation, fields] : filteredFields_) {
    text.AppendFormat(u"%d:", relation);
    bool any = false;
    for (const auto& [field, items] : fields) {
      if (items.empty() || items.front() == nullptr) continue;
      text.AppendFormat(u"%d:%d:", field, items.front()->GetItemTypeID());
      any = true;
    }
    if (!any) text += u"-1:4";
    text += u'|';
  }
  text += u")(";
  for (int resource : resources_) {
    if (resource > 0) text.AppendFormat(u"%d,", resource);
  }
  text += u')';
  definition_ = text;
  return text;
}

int ContentFilter::ReadHead(const CString& text, char16_t open, char16_t close, int* pos) {
  // The indices follow the text's own brackets; a missing closing bracket
  // gives -1 and the section is then cut by the clamped extraction, as it
  // always was. No loop depends on it.
  int end = text.Find(close);
  status_ = _wtoi(text.Mid(1, end - 1));

  int start = end + 1;
  if (text.GetAt(start) != open) return 0;
  end = text.Find(close, start);
  const int colon = text.Find(u':', start);
  if (colon < 0 || end < colon) return 0;
  const CString startText = text.Mid(start + 1, colon - start - 1);
  const CString endText = text.Mid(colon + 1, end - colon - 1);
  // The split takes the first ":", which for a start date lies inside its
  // time: a date interval does not survive the text, and the date test is
  // not switched on here.
  if (!startText.IsEmpty()) start_ = KorlanDateTime::StringToDateTime(startText, 0);
  if (!endText.IsEmpty()) end_ = KorlanDateTime::StringToDateTime(endText, 0);

  start = end + 1;
  if (text.GetAt(start) != open) return 0;
  end = text.Find(close, start);
  mask_ = _wtoi(text.Mid(start + 1, end - start - 1));
  *pos = end + 1;
  return 1;
}

void ContentFilter::ReadResources(const CString& text, int pos, char16_t close) {
  const int end = text.Find(close, pos);
  const CString section = text.Mid(pos + 1, end - pos - 1);
  if (section.IsEmpty()) {
    changed_ = 1;
    return;
  }
  TokenState state;
  CString token;
  for (int more = wcstok(&token, &section, CString(u","), state); more;
       more = wcstok(&token, nullptr, CString(u","), state)) {
    const int resource = _wtoi(token);
    if (resource > 0) resources_.push_back(resource);
  }
}

int ContentFilter::SetFilter(CString text) {
  if (text.GetAt(0) == u'[') {
    SetFilterOld(text);
    changed_ = 1;
    return 1;
  }
  if (text.GetAt(0) != u'(') return 0;
  int pos = 0;
  if (ReadHead(text, u'(', u')', &pos) == 0) return 0;

  // Section 4: keywords.
  if (text.GetAt(pos) != u'(') return 0;
  int end = text.Find(u')', pos);
  const CString words = text.Mid(pos + 1, end - pos - 1);
  if (!words.IsEmpty()) {
    TokenState state;
    CString token;
    for (int more = wcstok(&token, &words, kColon, state); more;
         more = wcstok(&token, nullptr, kColon, state)) {
      token.Replace(kEscapedColon, kColon);
      keywords_.push_back(token);
    }
  }

  // Section 5: relations with their fields and item types. Its opening
  // bracket is not looked at.
  pos = end + 1;
  end = text.Find(u')', pos);
  const CString entries = text.Mid(pos + 1, end - pos - 1);
  int items = CountItems();
  // The keywords that become items, gathered once: empty ones (which an
  // older text read before may have left) make none, and must not cost a
  // pass for every field listed.
  std::vector<const CString*> itemWords;
  for (const CString& keyword : keywords_) {
    if (!keyword.IsEmpty()) itemWords.push_back(&keyword);
  }
  int first = 0;
  while (first < entries.GetLength()) {
    int bar = entries.Find(u'|', first);
    if (bar < 0) bar = entries.GetLength();
    const CString entry = entries.Mid(first, bar - first);
    first = bar + 1;
    const int colon = entry.Find(u':');
    if (colon < 0 || entry.Find(u':', colon + 1) < 0) continue;
    const int relation = _wtoi(entry.Left(colon));
    FieldMap& fields = filteredFields_[relation];
    const CString rest = entry.Mid(colon + 1);
    TokenState state;
    CString fieldToken;
    CString typeToken;
    for (int more = wcstok(&fieldToken, &rest, kColon, state); more;
         more = wcstok(&fieldToken, nullptr, kColon, state)) {
      if (!wcstok(&typeToken, nullptr, kColon, state)) break;  // a lone last token
      const int type = _wtoi(typeToken);
      ItemArray& array = fields[_wtoi(fieldToken)];
      for (const CString* keyword : itemWords) {
        // Every keyword becomes an item of every listed field: a text that
        // would make more items than any rule needs is refused.
        if (++items > kMaxItems) return 0;
        if (Item* item = Item::CreateTypedItem(type, *keyword)) array.push_back(item);
      }
    }
  }

  // Section 6: resources.
  ReadResources(text, end + 1, u')');
  definition_ = text;
  return 1;
}

int ContentFilter::SetFilterOld(CString text) {
  if (text.GetAt(0) != u'[') return 0;
  int pos = 0;
  if (ReadHead(text, u'[', u']', &pos) == 0) return 0;

  // Section 4: the one relation; empty means every relation.
  if (text.GetAt(pos) != u'[') return 0;
  int end = text.Find(u']', pos);
  const CString relationText = text.Mid(pos + 1, end - pos - 1);
  int relation = relationText.IsEmpty() ? -1 : _wtoi(relationText);

  // Section 5: field, type and word, the word keeping any ":" it holds.
  FieldMap fields;
  pos = end + 1;
  end = text.Find(u']', pos);
  const CString entries = text.Mid(pos + 1, end - pos - 1);
  int first = 0;
  while (first < entries.GetLength()) {
    int bar = entries.Find(u'|', first);
    if (bar < 0) bar = entries.GetLength();
    const CString entry = entries.Mid(first, bar - first);
    first = bar + 1;
    const int colon = entry.Find(u':');
    const int second = colon < 0 ? -1 : entry.Find(u':', colon + 1);
    if (second < 0) continue;
    const int field = _wtoi(entry.Left(colon));
    const int type = _wtoi(entry.Mid(colon + 1, second - colon - 1));
    const CString word = entry.Mid(second + 1);
    keywords_.push_back(word);
    // One item per entry: what this form makes grows with the text alone,
    // so it needs no limit of its own.
    if (Item* item = Item::CreateTypedItem(type, word)) fields[field].push_back(item);
  }

  ReadResources(text, end + 1, u']');
  definition_ = text;
  // An old filter on posts, or on every relation, acts on both post
  // relations.
  if (relation == 4 || relation == -1) {
    relation = 4;
    StoreCopy(11, fields);
  }
  auto it = filteredFields_.find(relation);
  if (it != filteredFields_.end()) {
    DeleteFields(&it->second);
    it->second = std::move(fields);
  } else {
    filteredFields_.emplace(relation, std::move(fields));
  }
  return 1;
}

// --- Sentences --------------------------------------------------------------------------------

CString ContentFilter::WordSeparator(int i, int n, const CString& join) {
  if (i == n - 1 && i == 2) return u" " + join + u" ";
  if (i == n - 1 && i >= 1) return u", " + join + u" ";
  if (i < n - 1 && i >= 1 && n > 2) return CString(u", ");
  return CString();
}

CString ContentFilter::WordList(const CStringArray& words, const CString& join) {
  const int n = static_cast<int>(words.size());
  CString list;
  for (int i = 0; i < n; ++i) {
    list += WordSeparator(i, n, join);
    list += u'"';
    list += words[i];
    list += u'"';
  }
  return list;
}

CString ContentFilter::CreateStringDefinition() {
  CStringArray words;
  GetFilterKeywords(&words);
  const size_t n = words.size();
  if (n == 0) return CString();
  const CString list = WordList(words, CString(IsWordDependent() ? u"and" : u"or"));
  auto hasArray = [this](int relation, int field) {
    return GetFilteredFieldItems(relation, field) != nullptr;
  };
  std::vector<const NamedField*> present;
  for (const NamedField& named : kNamedFields) {
    if (hasArray(4, named.id) || hasArray(11, named.id)) present.push_back(&named);
  }

  CString sentence;
  if (status_ & kSearchFilter) {
    sentence = u"Searching ";
    sentence += n > 1 ? u"words " : u"word ";
    sentence += list;
    // The second test looks for absence, the opposite of the reject
    // sentence: the applications' texts rely on it.
    if (hasArray(4, -1) || !hasArray(11, -1)) {
      sentence += u" in ";
    } else {
      const size_t total = present.size();
      size_t named = 0;
      for (size_t i = 0; i < total; ++i) {
        const NamedField* field = present[i];
        if (named > 0) {
          sentence += u", ";
        } else if (field->id == 5) {
          // Before "author" the opening replaces what was built: kept as
          // the applications show it.
          sentence = u" in ";
        } else {
          sentence += u" in ";
        }
        if (total - i == 1 && total > 1) sentence += u"and ";
        sentence += field->name;
        ++named;
      }
      if (named >= 2) {
        sentence += u" fields of ";
      } else if (named == 1) {
        sentence += u" field of ";
      }
    }
    if (mask_ != kMaskShowAll) {
      if (mask_ & kMaskUnread) sentence += u"unread ";
      if (mask_ & kMaskRead) sentence += u"read ";
      if (mask_ & kMaskFlagged) sentence += u"starred ";
    }
    sentence += u"posts ";
    if (IsValid(start_) && IsValid(end_)) {
      sentence += (status_ & kReceivedDate) ? u"received " : u"published ";
      if (start_.GetYear() == end_.GetYear() && start_.GetMonth() == end_.GetMonth() &&
          start_.GetDay() == end_.GetDay()) {
        sentence += u"on ";
        sentence += start_.Format(kSentenceDateFormat);
      } else {
        sentence += u"between dates ";
        sentence += start_.Format(kSentenceDateFormat);
        sentence += u" and ";
        sentence += end_.Format(kSentenceDateFormat);
      }
    }
    return sentence;
  }

  sentence = (status_ & kFilterOut) ? u"Filter out retrieved post when "
                                    : u"Accept retrieved post only when ";
  sentence += n < 2 ? u"word " : u"words ";
  sentence += list;
  if (n > 1) {
    sentence += u" occur";
    if (IsWordDependent()) sentence += u" together";
  } else {
    sentence += u" occurs";
  }
  if (hasArray(4, -1) || hasArray(11, -1)) {
    sentence += u" in any part of it.";
    return sentence;
  }
  size_t named = 0;
  for (size_t i = 0; i < present.size(); ++i) {
    sentence += named > 0 ? u", " : u" in ";
    if (i == present.size() - 1 && named > 0) sentence += u"and ";
    sentence += present[i]->name;
    ++named;
  }
  if (named >= 2) {
    sentence += u" fields of the post.";
  } else if (named == 1) {
    sentence += u" field of the post.";
  }
  return sentence;
}

CString ContentFilter::GetFilterDefinition() {
  CString sentence = notificationFilter_ ? u"Notify me when " : u"Message related when ";
  auto it = filteredFields_.find(4);
  if (it == filteredFields_.end()) it = filteredFields_.find(11);
  if (it == filteredFields_.end()) return CString();
  // The words are those of the items (the keyword list is not used), each
  // once; an empty text counts as a word.
  std::set<CString> distinct;
  for (const auto& [field, items] : it->second) {
    for (Item* item : items) {
      if (item != nullptr) distinct.insert(item->GetItemString());
    }
  }
  const CStringArray words(distinct.begin(), distinct.end());
  const int n = static_cast<int>(words.size());
  sentence += n < 2 ? u"word " : u"words ";
  const bool together = (status_ & kWordDependent) != 0;
  const CString join(together ? u"and" : u"or");
  for (int i = 0; i < n; ++i) {
    sentence += WordSeparator(i, n, join);
    sentence += u'"';
    sentence += words[i];
    sentence += u'"';
    if (i == n - 1 && i > 0) {
      sentence += u" occur ";
      if (together) sentence += u" together";
      sentence += u".";
    } else if (i == 0 && n == 1) {
      sentence += u" occurs.";
    }
  }
  return sentence;
}

}  // namespace kordll
