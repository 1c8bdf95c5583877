// DBTaskItem: which fields one load or save of a record covers.
//
// With allFields not 0 the operation covers every field and the list is not
// asked. Otherwise the list gives one task type per position: 1 save this
// field, 2 load this field, 3 filler (defined, no task). GetFieldTaskType
// answers 4 for any position past the end of the list, and a load stops
// there, so a task of a few low fields reads only the front of a slot.
//
// A save asks the task by the field's index in the template, a load by the
// field's id; in a template the two are equal.
//
// A short-lived object of the caller, used by one thread at a time.

#ifndef KORDLL_RECORD_DBTASKITEM_H_
#define KORDLL_RECORD_DBTASKITEM_H_

#include <vector>

namespace kordll {

class StoredWordTest;

class DBTaskItem {
 public:
  // Task types. Stored nowhere, but the engine compares against them.
  static constexpr int kTaskSave = 1;
  static constexpr int kTaskLoad = 2;
  static constexpr int kTaskFiller = 3;
  static constexpr int kTaskPastEnd = 4;
  // Positions above this are refused by DefineFieldTaskType, so that a bad
  // position cannot make the list grow without bound.
  static constexpr int kMaxPosition = 32766;

  // Null gives an empty task with slot position -1; otherwise copies the
  // slot position, the all-fields flag and the list of src.
  explicit DBTaskItem(const DBTaskItem* src = nullptr);
  DBTaskItem(const DBTaskItem& other) = default;
  DBTaskItem& operator=(const DBTaskItem& other) = default;
  virtual ~DBTaskItem();

  // Past the end: fills with 3 up to position, then appends type; at the
  // end: appends; inside: overwrites. A negative position, or one above
  // kMaxPosition, is ignored.
  void DefineFieldTaskType(int position, int type);
  // The task at position, 4 past the end (and for a negative position).
  int GetFieldTaskType(int position) const;
  // Removes the entry at position, closing the gap. 1, or 0 for a position
  // outside the list.
  int UnDefineFieldTask(int position);
  // 1 if the list has no entry.
  int IsDefinedTasksEmpty() const { return tasks.empty() ? 1 : 0; }
  int GetDefinedTaskCount() const { return static_cast<int>(tasks.size()); }

  // Read and written directly by the engine.
  // When not 0, the operation covers every field.
  int allFields = 0;
  // One task type per position.
  std::vector<int> tasks;
  // The slot index the operation used (-1 before), so that a scan with a
  // task can go on from it.
  int slotPosition = -1;
  // Not owned; null by default. A scan with a word test passes over the
  // records whose searched fields certainly do not hold its word, without
  // decoding them: the record it gives is the next one that may. The task
  // must load the searched fields.
  StoredWordTest* wordTest = nullptr;
  // When not 0, a read by slot asks the word test too: of a record whose
  // searched fields certainly do not hold the word it decodes nothing, as a
  // read that found none of its fields, and sets passedOver (the read
  // answers 1). Otherwise a read by slot reads the record whatever the test
  // would say.
  int passOverBySlot = 0;
  // Set by such a read that passed the record over; cleared by every read.
  int passedOver = 0;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_DBTASKITEM_H_
