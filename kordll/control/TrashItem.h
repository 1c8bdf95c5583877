// TrashItem: the copy of a deleted record that waits in the trash bin.
//
// It keeps every field of the source record and remembers where the record
// came from: the source's GUID, the moment it was trashed and the id of the
// source's database. All three travel in the trash record's own GUID field as
// "<source GUID>|<date>|<database id>" (the date as "%m/%d/%y@%H:%M"), so a
// bin read back from a record database after a restart still knows them.
// Every "|" of the source GUID is written as "&898989;" and read back as
// "|"; a source GUID that already holds the literal "&898989;" therefore
// comes back with a "|" in its place.
//
// The database id is kept whole as an int, and written as its decimal text;
// a text beyond the int range reads as the int limit.
//
// Which records go to the bin, and when it is emptied, is the applications'
// choice; so is putting a rescued record back into its controller and
// database.
//
// Thread safety: none; one thread at a time, as for any record it owns.

#ifndef KORDLL_CONTROL_TRASHITEM_H_
#define KORDLL_CONTROL_TRASHITEM_H_

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"
#include "kordll/record/Focusable.h"

namespace kordll {

class TrashItem : public Focusable {
 public:
  // The status bit of a trashed record.
  static constexpr int kStatusTrashed = 0x10;

  // An empty trash record (relation -1, no database), to be read from a
  // database.
  TrashItem();
  // Takes source into the bin: copies its fields, makes the copy live with
  // the trashed bit, and notes now, the source's database id (-1 for a
  // source without a database) and its GUID. A null source gives an empty
  // trash record. The source is not changed.
  explicit TrashItem(Focusable* source);
  // Copy the fields and the three notes; the holders and the database are
  // not copied.
  TrashItem(const TrashItem& other);
  TrashItem& operator=(const TrashItem& other);
  ~TrashItem() override = default;

  // The source's GUID, unpacked from the GUID field on first use (and tried
  // again each time while it comes out empty). On a record just taken into
  // the bin it is the escaped form ("&898989;" for "|").
  CString GetGUID() override;
  COleDateTime GetTrashedDate();
  int GetRescueDBID();
  // Unpacks the GUID field: the first piece between "|" is the source GUID;
  // without one nothing else is read. A second piece, when there is one, is
  // the date, a third the database id; a piece that is missing leaves its
  // value as it was. Runs of "|" count as one.
  void LoadGUID();

  // Field 4 for relations 3, 4, 5, 6, 11 and 26; "" for the others.
  CString GetTrashItemTitle();
  CString GetFocusableTitle() override;
  // Field 8 (the channel that published it) for relations 4, 11 and 26;
  // "" for the others.
  CString GetSourceTitle();

  // A new live record with the fields and the source's GUID, owned by the
  // caller, for posts (relations 4 and 11); null for every other relation.
  // It has no database: GetRescueDBID names the one it belongs to.
  Focusable* RescueTrash();

 private:
  COleDateTime trashedDate_;
  int rescueDBID_ = 0;
  CString sourceGUID_;  // empty: not unpacked yet
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_TRASHITEM_H_
