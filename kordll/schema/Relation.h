// Relation: one record type of the system.
//
// A relation has an id, a catalogue name (the root tag of a decorated
// record; may be empty), a display title and the field layout that records
// of that type have (an RGDBTemplate). The catalogue, GlobalRelationsCtrl,
// holds one Relation per id.
//
// Building a relation: construct it with its catalogue name, set the id,
// then add the fields in order. The template is made by the first AddField
// call and takes the relation id that stands at that moment, so the id must
// be set before the first field.
//
// Copying a Relation copies the id, the two texts and the template pointer:
// the copy shares the template with the original. The template is freed
// when the last relation sharing it is destroyed.
//
// Thread safety: a relation is built by one thread before anybody reads it;
// afterwards every const reader and the print operations may be called from
// any thread (the print operations follow the locking rules of the record
// they print).

#ifndef KORDLL_SCHEMA_RELATION_H_
#define KORDLL_SCHEMA_RELATION_H_

#include <memory>

#include "kordll/platform/CString.h"

namespace kordll {

class Focusable;
class PrintTemplate;
class RGDBTemplate;

class Relation {
 public:
  // Empty title, no template, id -1.
  explicit Relation(CString name = CString());
  Relation(const Relation& other);
  Relation& operator=(const Relation& other);
  virtual ~Relation();

  int GetRelationID() const { return id_; }
  // Sets the relation id. The template, once made, keeps the id it was made
  // with; set the id before the first field.
  void SetRelationID(int id) { id_ = id; }
  const CString& GetRelationName() const { return name_; }
  void SetRelationName(CString name) { name_ = name; }
  const CString& GetRelationTitle() const { return title_; }
  void SetRelationTitle(CString title) { title_ = title; }

  // The layout of the relation; null until the first field is added. Owned
  // by the relation (and shared with its copies); lives as long as the last
  // of them.
  RGDBTemplate* GetRGDBTemplate() const { return layout_.get(); }

  // Adding fields. Each makes the template on first use (with the relation
  // id that stands then) and defines field id with the type, size, default
  // text and decoration name given. All return 1. A field id that the
  // template refuses (negative or absurdly large) is ignored by it.
  //
  // A string field (type 4) with its indexable and CDATA flags.
  int AddFieldString(int id, int size, int indexable, CString defaultValue, CString decoration,
                     int cdata);
  // An int field (type 0); the default is kept as its decimal text.
  int AddFieldInt(int id, int size, int defaultValue, CString decoration);
  // A bool field (type 3) of size 1; the default text is "1" for any
  // non-zero value, else "0".
  int AddFieldBool(int id, int defaultValue, CString decoration);
  // A date field (type 2) of size 30 with an empty default.
  int AddFieldDate(int id, CString decoration);
  // A double field (type 1) of size 10; the default text has six decimals.
  int AddFieldDouble(int id, double defaultValue, CString decoration);

  // Sets the edit label and edit kind of field id. An id outside the field
  // array (or a hole) is ignored; so is the call on a relation without
  // fields.
  void SetFieldEditProperties(int id, CString label, int kind);

  // The decoration name (tag or settings key) of field id; "" for an id
  // outside the field array, a hole, or a relation without fields.
  CString GetFieldDecorationName(int id) const;
  // The default value text of field id; "" in the same cases.
  CString GetFieldDefaultValueName(int id) const;

  // The record's fields as a backup: a new template named "R<relation id>"
  // holding one tag "<type>:<field id>" per non-empty field in field order
  // ("<" and ">" escaped, "&" left alone; slot 0 carries the GUID), and
  // "SysGUID" = "<database id>:<slot index>" when the record has a database.
  // Ints are printed as numbers, except in relation 8, whose int fields are
  // printed as their stored text.
  //
  // A record that is not fully loaded is loaded first; null if that fails
  // or record is null. The caller owns the result.
  PrintTemplate* PrintFocusableBackup(Focusable* record) const;

  // The record's fields for display: a new template named by the catalogue
  // name with one tag per decorated, non-empty field (dates as their age,
  // enclosures of relation 4 as a nested "enclosure" element, file sizes of
  // relation 18 as KBs or MBs) and the attributes "read", "trashed",
  // "deleted" and "statusvalue". With escape non-zero, values are made safe
  // for XML: CDATA fields are wrapped in one CDATA section, the others have
  // "&", "<" and ">" escaped unless they already hold a CDATA section. With
  // escape 0 values go in as they are.
  //
  // A record that is not fully loaded is loaded first; null if that fails
  // or record is null. The caller owns the result.
  PrintTemplate* DecorateFocusable(Focusable* record, int escape) const;

  // The size rule of printed byte counts: above 1,048,576 bytes "%1.1f MBs"
  // of the megabytes; otherwise "%d KBs" of the whole kilobytes, or "" when
  // that is 0 (so a count below 1,024 prints nothing).
  static CString FormatByteSize(long long bytes);

 private:
  // Makes the template on first use. Never fails.
  RGDBTemplate* EnsureTemplate();
  // Defines the field on the template (made if needed). Returns 1.
  int AddField(int id, int size, int type, CString defaultValue, CString decoration, int cdata,
               int indexable);

  // Shared with copies of this relation; freed with the last of them.
  std::shared_ptr<RGDBTemplate> layout_;
  int id_ = -1;
  CString name_;
  CString title_;
};

}  // namespace kordll

#endif  // KORDLL_SCHEMA_RELATION_H_
