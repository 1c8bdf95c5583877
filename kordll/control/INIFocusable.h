// INIFocusable: a record whose fields live in the application's profile
// rather than in a record database.
//
// Its layout comes from its relation like any other record's, but for each
// field the decoration name is the key of a profile value and the default
// value text is what a missing key reads as. Settings records (Preferences)
// derive from it, so the settings answer the same GetField... and
// SetValue... calls as every other record.
//
// Where the values live:
//   - The section, given to the constructor, is a section of the current
//     application's profile (CWinApp::Current()). It is kept as a buffer of
//     256 units holds it: cut at the first U+0000 and after 255 units. A
//     section with "\" names a sub-section.
//   - With a registry root, reads come instead from the key
//     "<root>\<section>" of the current user's hive of the application's
//     registry, so one application can read what another of the family
//     saved. Writes always go to the application's own profile.
//
// Savable or not (Focusable::SetSavable): a savable record (the default)
// writes each value through at once; a record that is not savable only
// collects values in memory, by type, until SaveFocusable. So a dialog can
// edit a copy without touching the stored settings. A value held in memory
// is read back before the store is asked.
//
// Reading never fails: a value of the wrong type, a text that is no number,
// a missing key or section all read as the field's default (or as the
// conversions below make of the text). Without an application, catalogue or
// relation the answers are empty: "", 0, false, an invalid date.
//
// Thread safety: as for every record, the getters and setters take no lock;
// a thread must own the record, or hold a reference, while it uses them.
// The profile itself is safe from any thread.

#ifndef KORDLL_CONTROL_INIFOCUSABLE_H_
#define KORDLL_CONTROL_INIFOCUSABLE_H_

#include <map>

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"
#include "kordll/record/Focusable.h"

namespace kordll {

class Relation;

class INIFocusable : public Focusable {
 public:
  // Units a section keeps, as a buffer of 256 with its terminator.
  static constexpr int kMaxSectionLength = 255;
  // Units a value read under a registry root may have: what a buffer of
  // 510 bytes holds besides the terminator. A longer value reads as empty
  // (so as the default).
  static constexpr int kMaxRootValueLength = 254;

  // A record of relation in the profile section section; registryRoot, if
  // not empty, is the key path (under the current user's hive) whose
  // "<root>\<section>" the values are read from. The record has no
  // database, is fully loaded at once, and is savable.
  INIFocusable(CString section, int relation, CString registryRoot);
  ~INIFocusable() override;

  // The section the values live in.
  CString GetSection() const { return section_; }
  // The registry root; "" for the application's profile.
  CString GetRegistryRoot() const { return registryRoot_; }

  // Takes source's section, and its values held in memory over this
  // record's; with clear not 0 this record's held values are dropped
  // first. A null source changes nothing.
  void SetINIFocusable(INIFocusable* source, int clear);

  // Writes every held value through the SetValue... calls, strings first,
  // then ints, bools, dates, doubles, and forgets it. A held double is
  // written through SetValueDate, as the date of that day count, so it
  // reaches the store as a date text. Every held value is forgotten
  // afterwards, also one whose write failed in the store; the answer is
  // then 0, otherwise 1. (On a record that is not savable the values have
  // nowhere to go and are dropped.)
  int SaveFocusable() override;
  // For each field of source's relation, copies source's value here through
  // the getters and setters. A string or a bool is skipped when it equals
  // both this relation's default and the value already here, so that
  // copying does not write defaults into the store.
  void CopyFocusable(Focusable* src, int full) override;
  // True while values are held in memory.
  int NeedToSave() override;

  // Reads, in this order: a value held in memory; the store under the
  // field's key (see the file comment); the default. An int of a key that
  // holds text, or a string of a key that holds a number, reads the
  // default. Bool: the text "1" is true, any other text false. Double: the
  // text as a C runtime float (0.0 when it is no number). Date: the stored
  // date text; an invalid date when it is no date. A field outside the
  // relation reads "" (so 0, false, 0.0, invalid).
  CString GetFieldString(int id, int part) override;
  int GetFieldInt(int id) override;
  int GetFieldBool(int id) override;
  double GetFieldDouble(int id) override;
  COleDateTime GetFieldDate(int id) override;

  // A savable record writes the value at once under (section, key) of the
  // application's profile: a string as it is, an int as a profile integer,
  // a bool as "1" or "0", a double as "%f", a date as its stored date text.
  // It answers 1 when the store took the value; 0 without an application,
  // without a key for the field, or when the store failed. A record that
  // is not savable holds the value in memory and answers 1. markChanged is
  // not read: what needs saving is what is held.
  int SetValueStr(int id, CString text, int markChanged) override;
  int SetValueInt(int id, int value, int markChanged) override;
  int SetValueDouble(int id, double value, int markChanged) override;
  int SetValueDate(int id, COleDateTime value, int markChanged) override;
  int SetValueBOOL(int id, int value, int markChanged) override;

 private:
  // What a write through to the profile came to.
  enum class WriteResult { kWritten, kNoPlace, kFailed };

  // The relation of this record in the catalogue, or null.
  Relation* GetOwnRelation();
  // The stored text of field id (store, or default), and whether the
  // application, catalogue and relation were there at all.
  CString ReadStoredText(int id, bool* available);
  // Writes text (or, with asInt, the integer) under the key of field id;
  // records the outcome in lastWrite_ and answers 1 when written.
  int WriteThrough(int id, const CString& text, bool asInt, int number);

  CString section_;
  CString registryRoot_;
  // Values held while the record is not savable, by field id.
  std::map<int, int> pendingInt_;
  std::map<int, CString> pendingString_;
  std::map<int, int> pendingBool_;
  std::map<int, COleDateTime> pendingDate_;
  std::map<int, double> pendingDouble_;
  // What the last write through came to, for SaveFocusable.
  WriteResult lastWrite_ = WriteResult::kWritten;
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_INIFOCUSABLE_H_
