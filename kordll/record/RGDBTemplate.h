// RGDBTemplate: the layout of a record of one relation.
//
// Fields are indexed by field id; an id that was never defined stays a null
// slot, so GetFieldCount() is the highest field id plus one, holes included.
// That count is the field count of a record on disk.
//
// A template belongs to its relation (or, before the catalogue exists, to
// whoever gave it to RelationsEntryPoints). It owns its FieldInfo objects.
// Templates are built once and then read without a lock from any thread.

#ifndef KORDLL_RECORD_RGDBTEMPLATE_H_
#define KORDLL_RECORD_RGDBTEMPLATE_H_

#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/record/FieldInfo.h"

namespace kordll {

class RGDBTemplate {
 public:
  // Field ids above this are refused by AddField, so that a bad id cannot
  // make the array grow without bound.
  static constexpr int kMaxFieldID = 32766;

  explicit RGDBTemplate(int relationID = -1);
  virtual ~RGDBTemplate();  // deletes every FieldInfo

  RGDBTemplate(const RGDBTemplate&) = delete;
  RGDBTemplate& operator=(const RGDBTemplate&) = delete;

  // Defines field id. Edit kind follows the type (string 1, int and double
  // 3, date 4, bool 0). The array grows with null slots up to id. Defining a
  // field twice replaces the first definition (which is freed). A negative
  // id or one above kMaxFieldID is ignored.
  void AddField(int id, int size, int type, CString defaultValue, CString decoration, int cdata,
                int indexable);
  // Changes the edit label and kind of field id. An id outside the array,
  // or a hole, is ignored.
  void SetFieldEditProperties(int id, CString label, int kind);

  int GetFieldCount() const { return static_cast<int>(fields_.size()); }
  // The field at id; null outside the array or for a hole. Owned by the
  // template.
  FieldInfo* GetField(int id) const;
  // The field id at index; -1 outside the array or for a hole.
  int GetFieldID(int index) const;
  // 0 outside the array or for a hole.
  int GetFieldSize(int id) const;
  int IsFieldIndexable(int id) const;
  // -1 outside the array or for a hole.
  int GetFieldType(int id) const;

  int GetRelationID() const { return relationID_; }
  void SetRelationID(int relationID) { relationID_ = relationID; }

 private:
  int relationID_;
  [[maybe_unused]] int reserved_ = 0;  // nothing reads it
  std::vector<FieldInfo*> fields_;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_RGDBTEMPLATE_H_
