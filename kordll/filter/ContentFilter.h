// ContentFilter: one user's rule that decides whether a record passes.
//
// A filter combines five tests that CheckFocusable runs in a fixed order:
// the filter's activity, the status mask (read, unread, flagged), the
// record's relation, a date interval, and words or typed values looked for
// in the record's fields; an accepted record may be handed on to a second
// filter (the cascade). Searches, notification rules and accept or reject
// rules of retrieved posts are all filters, told apart by status bits.
//
// What is looked for is kept per relation and per field: relation -1 means
// every relation, field -1 every field. Fields 0 to 3 (GUID, status and the
// two dates) are system fields that a text search never looks into. For
// each relation with named fields the filter keeps a task item naming
// the fields to read from the database, so that a record that is not fully
// loaded is read only as far as the test needs, and given up right after.
//
// A filter is stored as one line of text (GetFilter, SetFilter; SetFilterOld
// reads the older form) and told to the user as one sentence
// (CreateStringDefinition, GetFilterDefinition). The order of relations and
// fields in the text is ascending by id, so the same filter always gives the
// same text.
//
// Several answers are deliberately odd and are kept, since stored filters
// and the applications rely on them; each is told at its operation.
//
// Thread safety: none. CheckFocusable changes the filter (it builds task
// items on demand), so a filter belongs to one thread at a time; its user
// holds its own lock while testing. The cascade filter is not owned: its
// owner keeps it alive while it is set.

#ifndef KORDLL_FILTER_CONTENTFILTER_H_
#define KORDLL_FILTER_CONTENTFILTER_H_

#include <map>
#include <memory>
#include <vector>

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"

namespace kordll {

class DBTaskItem;
class Focusable;
class Item;

class ContentFilter {
 public:
  // Filter status bits. These numbers are stored in filter texts and must
  // not change.
  static constexpr int kWordDependent = 1;  // every word is required
  static constexpr int kCaseSensitive = 2;
  static constexpr int kWholeWordOnly = 4;
  static constexpr int kReceivedDate = 8;  // the date test reads the receive date
  static constexpr int kInactive = 16;     // the filter accepts everything
  static constexpr int kFilterOut = 32;    // matching posts are rejected by the caller
  static constexpr int kSearchFilter = 64;
  static constexpr int kExactMatch = 256;      // trimmed field text equals the word
  static constexpr int kKeepDateTimes = 1024;  // SetDateInterval keeps the times given
  // Filter mask values: the record status bits a filter shows.
  static constexpr int kMaskRead = 1;
  static constexpr int kMaskUnread = 2;
  static constexpr int kMaskFlagged = 4;
  static constexpr int kMaskStatus16 = 16;
  static constexpr int kMaskShowAll = 65519;  // every bit but 16
  // A chain of cascade filters longer than this is refused.
  static constexpr int kMaxCascadeDepth = 16;
  // In the present text form every keyword becomes an item of every listed
  // field, so a short hostile text could ask for billions of items. SetFilter
  // therefore stops and returns 0 (keeping what it read so far, as for any
  // malformed text) once the filter would hold more than this many items,
  // those it held before included. Only a filter beyond this size can tell:
  // a rule of a hundred words over all fields of both post relations makes
  // 200. The older form makes one item per entry and has no such limit.
  static constexpr int kMaxItems = 10000;

  // The items looked for in one field. The filter owns the items.
  using ItemArray = std::vector<Item*>;
  // Field id (-1: every field) to its items.
  using FieldMap = std::map<int, ItemArray>;

  // Active, whole-word, mask 65519 (show all), nothing looked for, no
  // dates, notification filter.
  ContentFilter();
  // A deep copy of source (SetContentFilter(source, 0)); null gives the
  // defaults. The cascade pointer is copied, not the cascade filter.
  explicit ContentFilter(ContentFilter* source);
  ContentFilter(const ContentFilter& other);
  ContentFilter& operator=(const ContentFilter& other);
  // Deletes every item and task item. The cascade filter is not touched.
  virtual ~ContentFilter();

  // --- Copy and reset ------------------------------------------------------

  // Copies source into this filter. With keepExisting 0 the fields,
  // keywords and resources are emptied first; otherwise the source's
  // keywords and resources are appended (duplicates kept) and each of its
  // relations replaces this filter's entry of that id. Flags, mask, status,
  // dates, cached text and cascade pointer are always taken over; a cascade
  // pointer equal to this filter becomes null. Null, or this filter itself,
  // does nothing.
  void SetContentFilter(ContentFilter* source, int keepExisting);
  // Mask 0 (not 65519), status 16 (inactive), no text, no cascade, date
  // test off and no dates, changed flag 0. Fields, keywords, task items and
  // resources stay.
  void ResetContentFilter();
  // Deletes every item and every task item. Keywords stay.
  void RemoveAllFilteredFields();

  // --- What is looked for ----------------------------------------------------

  // Each makes the filter active, empties it first when removeAllFirst is
  // not 0, and adds one item for field of relation (either may be -1). A
  // text or an integer (in decimal) also becomes a keyword unless an equal
  // one (case included) is there; a date adds no keyword. A given field
  // of a given relation is named in the relation's task item. Sets the
  // changed flag. 1, or 0 when no item could be made (before start-up).
  int AddFilteredStringItem(CString text, int relation, int field, int removeAllFirst);
  int AddFilteredIntItem(int value, int relation, int field, int removeAllFirst);
  int AddFilteredDateItem(COleDateTime date, int relation, int field, int removeAllFirst);
  // Makes the filter active. Nothing else happens when relation has no
  // entry. Otherwise, if field has items: removes keywords equal to text
  // (walking forward and skipping the entry after each removal, so that of
  // two equal neighbours the second stays: a quirk kept), and every item
  // whose text equals text (all items for an empty text). A field left
  // empty is removed, and with it its place in the relation's task item.
  // Sets the changed flag whenever the relation has an entry.
  void RemoveFilteredStringItem(CString text, int relation, int field);
  // The list of resources the filter is bound to; stored and compared, not
  // used in matching. Neither touches the changed flag.
  void AddResourceToFilter(int resource);     // unless present
  void RemoveResourceToFilter(int resource);  // the first occurrence

  // --- Status and mask --------------------------------------------------------

  // Makes the filter active, sets the bits of set and clears those of
  // clear. 1 and the changed flag set when the status changed, else 0.
  int ReSetFilterStatus(int set, int clear);
  // Bit 32; a real change sets the changed flag and returns 1.
  int SetFilterOut(int filterOut);
  // Bit 2; a real change sets the changed flag.
  void SetCaseSensivity(int caseSensitive);
  // Bit 16 cleared for non-zero, set for 0; a real change sets the changed
  // flag and returns 1.
  int SetFilterActivity(int active);
  // Makes the filter active and sets or clears bit 4. The changed flag
  // stays as it is.
  void SetMatchWholeWordOnly(int wholeWord);
  // Makes the filter active, keeps only bit 16 of the mask, ORs in set (set
  // 1, 2 or 4 alone clears the other two; 65519 keeps 1 and 2 from being
  // cleared) and clears clear. 1 if the mask changed. The changed flag
  // stays as it is, so a mask change alone does not reach GetFilter's
  // cached text (a quirk kept).
  int ReSetContentFilterMask(int set, int clear);
  // The filter that an accepted record is handed on to; not owned. If the
  // present cascade is this filter itself it becomes null and next is
  // dropped. Passing this filter itself is not refused here; CheckFocusable
  // refuses to cascade to itself.
  void SetCascadeFilter(ContentFilter* next);
  ContentFilter* GetCascadeFilter() const { return cascade_; }
  // Chooses the opening of GetFilterDefinition's sentence; compared by
  // IsSame, no effect on matching.
  void SetNotificationFilter(int notification) { notificationFilter_ = notification; }
  int IsNotificationFilter() const { return notificationFilter_; }

  // --- Dates -----------------------------------------------------------------

  // Makes the filter active and stores the interval: stretched to whole days
  // (start at 00:00:00, end at 23:59:59) unless status bit 1024 is set. An
  // invalid date stays invalid. The date test is switched on unless both
  // are invalid (then it stays as it was). 1 if a date changed. The changed
  // flag stays as it is.
  int SetDateInterval(COleDateTime start, COleDateTime end);
  // The same, always stretching to whole days; a null pointer counts as an
  // invalid date.
  int SetDateInterval(COleDateTime* start, COleDateTime* end);
  COleDateTime GetStartDate() const { return start_; }
  COleDateTime GetEndDate() const { return end_; }
  // At least one of the two dates is set (not invalid).
  int IsFilterDateValuesSet() const;
  // The date test is on.
  int IsDateIntervalSet() const { return dateInterval_; }

  // --- Questions ---------------------------------------------------------------

  // 1 if record passes, 0 if not (status bit 32 does not invert this: the
  // caller acts on it). A link is tested as its target. An orphan link (its
  // target was destroyed, or PreLoading has not found it) is tested as
  // itself and gives its fallback answers: status 0, relation 8, no dates,
  // no fields, never loaded; so a filter that asks for a status bit, a date
  // or a word refuses it, and one that asks for none of these accepts it. A
  // null record is refused. Fields that a record not fully
  // loaded lacks are read for the test and released again before the
  // answer; only a reservation this call made is released. With
  // loadOnAccept not 0 an accepted record is loaded (reserved for the
  // caller, who owes a Release) on the way out; but when a word matches in
  // a filter that is not word dependent and has no cascade, the record is
  // loaded if loadOnAccept is 0 and not loaded if it is 1 (a quirk kept).
  // A cascade filter asked to accept the record loads it (loadOnAccept 1).
  // A filter never cascades to itself, and a chain of cascades deeper than
  // 16 refuses the record.
  // REQUIRES: record is held (by a controller's header hold or a
  // reservation of the caller) for the length of the call: releasing the
  // partial load of a record nobody holds deletes it.
  int CheckFocusable(Focusable* record, int loadOnAccept);
  // The status mask test alone. Mask 65519 passes everything; a mask of
  // exactly 1, 2, 4 or 16 passes a record with that bit; any other mask
  // passes only a record whose status equals it.
  int CheckFocusableStatus(Focusable* record);
  // The day of date against the interval (1 when the date test is off; 0
  // for an invalid date when it is on).
  int IsDateValid(COleDateTime date);
  // The same, comparing date with its time.
  int IsDateTimeValid(COleDateTime date);
  // Whether word occurs in text; with status bit 4 only as a whole word,
  // where only ASCII letters and digits are word characters.
  int SearchWord(CString text, CString word);
  // 1 if the mask is 65519 or status shares bit 2, 1 or 4 with it.
  int IsFilterMaskValid(int status);
  // Whether other holds the same rule: mask, flags, status and dates equal,
  // every relation and field of other present here with as many items, each
  // of this filter's items equal to one of other's, and this filter's
  // resources among other's. One-way where the applications rely on it:
  // relations only this filter has, and resources only other has, do not
  // count. Keywords, cached text and cascade are not compared.
  int IsSame(ContentFilter* other);
  // 1 when relation has one field other than -1, or two fields or more.
  int IsSpecificFieldFilterIsDefined(int relation);
  int IsFieldChecked(int relation, int field);
  // The items of a field, or null. Owned by the filter; valid until the
  // filter changes.
  const ItemArray* GetFilteredFieldItems(int relation, int field) const;
  // Appends a copy of every keyword to *out, in order; null does nothing.
  void GetFilterKeywords(CArray<CString, CString>* out) const;
  // The relation entries, for readers that list what a filter holds.
  const std::map<int, FieldMap>& GetFilteredFields() const { return filteredFields_; }
  // The relation ids that have a task item.
  std::vector<int> GetTaskRelations() const;
  // The task item of relation, or null. Owned by the filter.
  const DBTaskItem* GetTaskItem(int relation) const;
  const std::vector<int>& GetResources() const { return resources_; }

  int GetFilterMask() const { return mask_; }
  int GetFilterStatus() const { return status_; }
  int IsFilterChanged() const { return changed_; }
  int IsShowAll() const { return mask_ == kMaskShowAll ? 1 : 0; }
  int IsShowRead() const { return mask_ == kMaskRead ? 1 : 0; }
  int IsShowUnread() const { return mask_ == kMaskUnread ? 1 : 0; }
  int IsShowFlagged() const { return mask_ == kMaskFlagged ? 1 : 0; }
  int IsWordDependent() const { return (status_ & kWordDependent) ? 1 : 0; }
  int IsFilterCaseSensitive() const { return (status_ & kCaseSensitive) ? 1 : 0; }
  int IsFilteringReceivedDate() const { return (status_ & kReceivedDate) ? 1 : 0; }
  int IsFilterActive() const { return (status_ & kInactive) ? 0 : 1; }
  int IsFilterOut() const { return (status_ & kFilterOut) ? 1 : 0; }
  int IsSearchFilter() const { return (status_ & kSearchFilter) ? 1 : 0; }

  // --- Stored text and sentences ---------------------------------------------

  // The stored text: "(status)(start:end)(mask)(keyword:...)(relation
  // entries)(resource,...)". While the changed flag is 0 the cached text is
  // returned as it stands; otherwise the text is rebuilt and cached, and the
  // flag stays set, so every later call rebuilds too. A date interval is
  // written but does not survive reading (see SetFilter).
  CString GetFilter();
  // Reads a stored text of either form, adding to what the filter holds (a
  // caller reloading a filter uses a fresh one). A text of the older form
  // ("[") is read by SetFilterOld, marked changed so that GetFilter writes
  // it in the present form, and 1 is returned whatever it gave. Returns 0
  // on a malformed text, leaving the sections read so far in the filter.
  // Quirks kept: the date section is split at its first ":", which for a
  // start date lies inside its time, and the date test stays off; task items
  // are not made, so a record is read whole where fields are needed; an
  // empty resource section sets the changed flag.
  int SetFilter(CString text);
  // Reads the older form "[status][start:end][mask][relation][field:type:
  // word|...][resource,...]". An old filter on posts (relation 4) or on all
  // relations acts on relations 4 and 11. 1, or 0 on a malformed text.
  int SetFilterOld(CString text);
  // The sentence of an accept, reject or search filter ("Accept retrieved
  // post only when word "x" occurs in any part of it."); "" without
  // keywords.
  CString CreateStringDefinition();
  // The sentence of a notification rule over relations 4 and 11 ("Notify me
  // when words "a", or "b" occur ."); "" when neither relation has an entry.
  CString GetFilterDefinition();

 private:
  // The test of CheckFocusable at a depth in a chain of cascades.
  int CheckFocusableAt(Focusable* record, int loadOnAccept, int depth);
  // Steps of the date tests after the record's date was checked: 1 with no
  // dates set, else whether date lies in the interval.
  int IsInInterval(const COleDateTime& date) const;
  // The text test of one field's text against one item.
  int TextMatches(const CString& fieldText, Item* item);
  // The task that loads the fields of a record of this filter with a test
  // of their stored bytes, when the filter accepts only a record in whose
  // fields its one word is found: a record whose stored fields certainly do
  // not hold that word is then refused without being decoded. Null when the
  // filter's rules need more than that (several words, a cascade, word
  // dependence, exact matches, fields that are not own string fields).
  DBTaskItem* PreTestTask(Focusable* record, const FieldMap& fields, DBTaskItem* task);
  // SearchWord without copying its arguments.
  int SearchIn(const CString& text, const CString& word) const;
  // Adds a made item to field of relation, with the task item (steps shared
  // by the three adders).
  void AddItem(Item* item, int relation, int field);
  // Replaces the entry of relation with a deep copy of fields.
  void StoreCopy(int relation, const FieldMap& fields);
  // Replaces the entry of relation with fields, deleting the items it held.
  void StoreFields(int relation, FieldMap fields);
  // The number of items held.
  int CountItems() const;
  // The common reading of sections 1 to 4 of both forms, with open and close
  // as the brackets: sections 1 to 3 into the filter, the text of section 4
  // into *fourth, and in *end the index of section 4's closing bracket. 0
  // when the text is malformed.
  int ReadHead(const CString& text, char16_t open, char16_t close, CString* fourth, int* end);
  // Section 6 of both forms: the resources between open at pos and the next
  // close.
  void ReadResources(const CString& text, int pos, char16_t close);
  // What comes before word i of n in a sentence's list: "a", "b" and "c";
  // "a", "b", "c", and "d"; "a", and "b" (kept as the sentences always were).
  static CString WordSeparator(int i, int n, const CString& join);
  // The sentence's list of quoted words joined by join.
  static CString WordList(const CStringArray& words, const CString& join);

  static void DeleteItems(ItemArray* items);
  static void DeleteFields(FieldMap* fields);

  // Relation id (-1: every relation) to its fields.
  std::map<int, FieldMap> filteredFields_;
  // The words as typed, and the decimal text of integer items.
  CArray<CString, CString> keywords_;
  // Relation id to the fields to read before testing. Owned.
  std::map<int, DBTaskItem*> taskItems_;
  int notificationFilter_ = 1;
  int changed_ = 0;
  // The date test is on.
  int dateInterval_ = 0;
  int mask_ = kMaskShowAll;
  int status_ = kWholeWordOnly;
  // Kept with the filter and used by nothing.
  CArray<int, int> unusedList_;
  // Ids of the resources the filter is bound to.
  CArray<int, int> resources_;
  COleDateTime start_;
  COleDateTime end_;
  // The text last read or written.
  CString definition_;
  // Not owned.
  ContentFilter* cascade_ = nullptr;
  // Room for the lowered field text and word of TextMatches, kept between
  // calls; they hold nothing of the filter's state.
  CString textBuffer_;
  CString wordBuffer_;
  // What PreTestTask made last, kept while the word, the case rule, the
  // fields and the task stay the same; never copied with the filter.
  struct PreTest;
  std::unique_ptr<PreTest> preTest_;
};

}  // namespace kordll

#endif  // KORDLL_FILTER_CONTENTFILTER_H_
