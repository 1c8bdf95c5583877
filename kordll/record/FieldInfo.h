// FieldInfo: the definition of one field of a record type.
//
// A plain value class: copy and assignment copy every member. It belongs to
// the RGDBTemplate that holds it.

#ifndef KORDLL_RECORD_FIELDINFO_H_
#define KORDLL_RECORD_FIELDINFO_H_

#include "kordll/platform/CString.h"

namespace kordll {

class FieldInfo {
 public:
  FieldInfo() = default;
  FieldInfo(const FieldInfo& other) = default;
  FieldInfo& operator=(const FieldInfo& other) = default;
  ~FieldInfo() = default;

  // Tag or key under which the field prints.
  CString decoration;
  // Default value as text.
  CString defaultValue;
  // 1: the value is wrapped in a CDATA section when printed.
  int cdata = 0;
  // Returned by RGDBTemplate::IsFieldIndexable.
  int indexable = 0;
  // Field id, equal to its index in the template.
  int id = -1;
  // Bytes the field has in a slot of a record file. Not a limit on the
  // value: longer text runs on into further slots.
  int size = 0;
  // Type id (see Item).
  int type = 0;
  // Copied with the rest; set and read by nobody.
  int reserved = 0;
  // Label and kind for editing, set by RGDBTemplate::SetFieldEditProperties.
  CString editLabel;
  // Edit kind: from the type when added (string 1, int and double 3, date
  // 4, bool 0), later as SetFieldEditProperties says.
  int editKind = 0;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_FIELDINFO_H_
