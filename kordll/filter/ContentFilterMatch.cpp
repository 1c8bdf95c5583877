// ContentFilter: testing a record (CheckFocusable and its steps).

#include "kordll/filter/ContentFilter.h"
#include "kordll/filter/ContentFilterInternal.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/FocusableLink.h"
#include "kordll/record/FocusableReservation.h"
#include "kordll/record/Item.h"
#include "kordll/record/RecordIds.h"
#include "kordll/record/StoredWordTest.h"
#include "kordll/schema/GlobalRelationsCtrl.h"

namespace kordll {

namespace {

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

using content_filter_internal::AtTimeOfDay;

// --- The date test --------------------------------------------------------------------------

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

// --- The record test ------------------------------------------------------------------------

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

DBTaskItem* ContentFilter::PreTestTask(Focusable* record, const FieldMap& fields,
                                       DBTaskItem* task) {
  if (task == nullptr || task->allFields != 0 || cascade_ != nullptr || IsWordDependent() ||
      (status_ & kExactMatch)) {
    return nullptr;
  }
  // Only a record read by its own slot is passed over: one without a slot
  // would read the first record of the file that holds the word instead of
  // the first record of the file.
  if (record->GetDB() == nullptr || record->GetDBSlotIndex() < 0) return nullptr;
  // Without word dependence and a cascade the record is accepted exactly
  // when an item matches its field; with one word, only a field that holds
  // it can match (whole words and case folding find a subset of what a
  // folded search of the stored bytes finds).
  CString word;
  bool haveWord = false;
  std::vector<int> fieldIds;
  for (const auto& [field, items] : fields) {
    if (field < kFirstOwnField || record->GetFieldType(field) != Item::kTypeString) return nullptr;
    // A load keeps what the record holds of a field that the store holds
    // empty: that text is tested too, and the stored bytes cannot tell.
    if (!record->GetFieldString(field, 0).IsEmpty()) return nullptr;
    for (Item* item : items) {
      if (item == nullptr) continue;
      if (!item->IsString()) return nullptr;
      const CString text = item->GetItemString();
      if (haveWord && text != word) return nullptr;
      word = text;
      haveWord = true;
    }
    fieldIds.push_back(field);
  }
  if (!haveWord) return nullptr;
  const int caseSensitive = (status_ & kCaseSensitive) ? 1 : 0;
  PreTest* pre = preTest_.get();
  if (pre == nullptr || pre->word != word || pre->caseSensitive != caseSensitive ||
      pre->fieldIds != fieldIds || pre->tasks != task->tasks) {
    preTest_ = std::make_unique<PreTest>();
    pre = preTest_.get();
    pre->word = word;
    pre->caseSensitive = caseSensitive;
    pre->fieldIds = fieldIds;
    pre->tasks = task->tasks;
    pre->test = std::make_unique<StoredWordTest>(word, caseSensitive, fieldIds);
    pre->task = *task;
    pre->task.wordTest = pre->test.get();
    pre->task.passOverBySlot = 1;
  }
  return pre->test->Usable() ? &pre->task : nullptr;
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

  // The reservation of the record that this call holds and must give back.
  // Only what this call reserved is released, once: on leaving, or earlier
  // where a load or a cascade follows.
  FocusableReservation held;
  auto load = [&]() {
    if (record->IsFullyLoaded(1) == 0) record->LoadFocusable(nullptr);
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
    const COleDateTime date =
        (status_ & kReceivedDate) ? record->GetReceiveDateTime() : record->GetPublicationDateTime();
    if (IsDateValid(date) == 0) return 0;
  }
  // 6. Reading the fields the test needs. IsFullyLoaded(1) reserves a
  // loaded record; that reservation is given back like a partial load.
  if (fields != nullptr) {
    const int fullyLoaded = record->IsFullyLoaded(1);
    if (fullyLoaded != 0) held.Adopt(record);
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
      DBTaskItem* tested = PreTestTask(record, *fields, task);
      if (tested != nullptr) {
        // A load that never reaches the file must not find the answer of
        // the record before.
        tested->passedOver = 0;
        tested->slotPosition = task->slotPosition;
        if (record->LoadFocusable(tested) != 0) held.Adopt(record);
        // The filter's own task tells the slot read, as after a load
        // through it.
        task->slotPosition = tested->slotPosition;
      } else if (record->LoadFocusable(task) != 0) {
        held.Adopt(record);
      }
      // The stored fields certainly hold none of the word: the test of the
      // words below would refuse the record.
      if (tested != nullptr && tested->passedOver != 0) return 0;
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
            for (int f = kFirstOwnField; f < count && !found; ++f) {
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
          if (field >= kFirstOwnField && record->GetFieldType(field) == Item::kTypeString) {
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
        if (match == 0 && IsWordDependent()) return 0;
        if (match == 1 && !IsWordDependent()) {
          held.Release();
          if (cascade_ == nullptr) {
            // The load runs when loadOnAccept is 0 and not when it is 1:
            // the applications rely on this inversion.
            if (loadOnAccept == 0) load();
            return 1;
          }
          return cascadeAccepts() != 0 ? 1 : 0;
        }
      }
      // End-of-field rule.
      if (match == 1) break;
      if (IsWordDependent()) {
        // Only a field without items gets here.
        held.Release();
        if (loadOnAccept != 0) load();
        return 1;
      }
    }
  }
  // 8.
  held.Release();
  // 9. Cascade.
  if (cascade_ != nullptr) return cascadeAccepts();
  // 10.
  if (fields != nullptr && !fields->empty() && match == 0) return 0;
  // 11.
  if (loadOnAccept != 0) load();
  return 1;
}

}  // namespace kordll
