// Focusable: one record (one row of some relation) in memory.
//
// A record has a lazily filled array of field items (see Item) and a place
// in a record database (AZeusDB). Fields are asked for by small integer
// field id: 0 the GUID (held outside the item array), 1 the status word, 2
// the receive date, 3 the publication date. The record knows no other
// field's meaning; the relation's template does.
//
// Lifetime has two counters. Users of the body Reserve() and Release(): the
// last Release saves pending changes and unloads the body, leaving the
// header (GUID, slot index, relation, origin) in memory. Controllers hold
// the object with ReserveHeader(id) and ReleaseHeader(id). The last holder's
// call deletes the object; a record is never deleted directly once anybody
// holds it.
//
// The pattern of every reader: IsFullyLoaded(1); if that gives 0,
// LoadFocusable(null); then read the fields; then Release().
//
// Thread safety: each record has one re-entrant lock, taken by Reserve,
// Release, ReserveHeader, ReleaseHeader, IsFullyLoaded, LoadFocusable,
// SaveFocusable, DeleteFocusable and around the on-demand reads of status
// and dates. The typed getters and setters take no lock: a thread must hold
// a reference, or own the record, while it reads or writes fields. Lock
// order: record lock first, database locks inside it.
//
// Every accessor survives a record whose FocusableImpl was moved away
// (MoveFocusableImpl): getters give their fallback values, setters do
// nothing.
//
// Status word of a post: 1 read, 2 unread, 4 flagged; 256, 512, 1024 and
// 2048 rank values. Rank mode (settings field 11) 1 uses 512 and 1024, 2
// uses all four, any other value none.
//
// The virtual operations are declared in the order that derived classes
// override them.

#ifndef KORDLL_RECORD_FOCUSABLE_H_
#define KORDLL_RECORD_FOCUSABLE_H_

#include <string_view>
#include <vector>

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CPoint.h"
#include "kordll/platform/CString.h"

namespace kordll {

class AZeusDB;
class DBTaskItem;
class FocusableImpl;
class IIPanel;
class Item;
class PrintTemplate;

class Focusable {
 public:
  // Status bits of a post.
  static constexpr int kStatusRead = 1;
  static constexpr int kStatusUnread = 2;
  static constexpr int kStatusFlagged = 4;
  static constexpr int kStatusRank256 = 256;
  static constexpr int kStatusRank512 = 512;
  static constexpr int kStatusRank1024 = 1024;
  static constexpr int kStatusRank2048 = 2048;
  // Rank and flag together; the same with read.
  static constexpr int kRankFlagMask = 3844;
  static constexpr int kRankFlagReadMask = 3845;
  // Field ids above this are refused by the setters, so that a bad id
  // cannot make the item array grow without bound.
  static constexpr int kMaxFieldID = 32767;

  // A new record of relation in db (not owned; may be null). Slot index -1,
  // nothing loaded, no holder.
  Focusable(int relation, AZeusDB* db);
  Focusable(const Focusable&) = delete;
  Focusable& operator=(const Focusable&) = delete;

  // 1. Deletes the FocusableImpl and with it every item. Only the last
  // holder's Release or ReleaseHeader (or the owner of a never-held record)
  // may delete a record.
  virtual ~Focusable();
  // 2. A new print template describing the record for display, from its
  // relation; null without a catalogue or relation. For relations 4 and 11
  // the attribute "postranklevel" is added by rank mode. The caller owns it.
  virtual PrintTemplate* DecorateFocusable(int escape);
  // 3. A new print template for a backup, or null. The caller owns it.
  virtual PrintTemplate* PrintFocusableBackup();
  // 4. Ids of the controllers holding the header; null while none. Owned by
  // the record; valid while the caller holds the record's lock.
  virtual std::vector<int>* GetHeaderPossessors();
  // 5. Loads the fields task names (null: all) if the record has a
  // database, is not fully loaded and is not deleted. On success the record
  // is reserved for the caller (who owes a Release) and 1 is returned;
  // otherwise 0 and nothing is reserved.
  virtual int LoadFocusable(DBTaskItem* task);
  // 6. Removes the record's slot from its database; then database null and
  // slot index -1. 1 on success or when not savable; 0 on failure or
  // without a database.
  virtual int DeleteFocusable();
  // 7, 8. The receive or publication date at midnight; invalid if unknown.
  virtual COleDateTime GetReceiveDate();
  virtual COleDateTime GetPublicationDate();
  // 9, 10. The database, not owned.
  virtual void SetDB(AZeusDB* db);
  virtual AZeusDB* GetDB();
  // 11. Writes the record unless deleted. 1 on success, when not savable or
  // deleted, and also when the store answers a field write that failed half
  // way (its error code): the changed flags then stay set and the next save
  // retries. 0 when the store answers 0 or without a database.
  virtual int SaveFocusable();
  // 12. For a post with a link, asks panel 1 to show the link. Returns 1.
  virtual int OpenFocusable();
  // 13. For a post or relation 25, offers the property command for the
  // record; 1, else 0.
  virtual int OpenFocusableProperties(CPoint point, IIPanel* panel, int leftAligned);
  // 14-16. Indices into the panels' image list; -1 for none.
  virtual int GetFlagImage();
  virtual int GetStatusImage();
  virtual int GetFocusableImage();
  // 17-19. Kind tests by relation and status.
  virtual int IsPostFocusable();
  virtual int IsTreeItemFocusable();
  virtual int IsBoldFocusable();
  // 20. Reserved by a user of the body or held by a controller.
  virtual int IsInUse();
  // 21, 22.
  virtual int IsFocusableDeleted();
  virtual void SetFocusableDeleted(int deleted);
  // 23. Clears the bits clear, sets the bits set (a post keeps one rank or
  // flag at a time) and stores the status as changed. The result of the
  // store.
  virtual int ReSetFocusableStatus(int set, int clear);
  // 24. The status word. Without a status item and with a database it is
  // read from disk; an unreserved record keeps no item of it. 0 if unknown.
  virtual int GetFocusableStatus();
  // 25. SetValueInt(1, status, 1).
  virtual int SetFocusableStatus(int status);
  // 26. Whether all fields are in memory; with reserve not 0 and the answer
  // 1, the record is reserved for the caller (who owes a Release).
  virtual int IsFullyLoaded(int reserve);
  // 27-29. Hooks for derived classes; here nothing, 1, nothing.
  virtual void PreSaving();
  virtual int PreLoading();
  virtual void PerformMaintenance(int flag);
  // 30-36. Identity. The GUID is "R<controller>_G<serial>".
  virtual CString GetGUID();
  // Assigns and marks the record changed if guid differs.
  virtual void SetGUID(CString guid);
  // "R13_G<parent>" for relations 16 and 17, else "R7_G<parent>".
  virtual CString GetParentGUID();
  // The serial of the GUID; -1 for an empty or malformed GUID.
  virtual int GetFocusableID();
  virtual void SetFocusableID(int id);
  virtual int GetParentFocusableID();
  virtual void SetParentFocusableID(int id);
  // 37-39. Title and tags by relation; empty for other relations.
  virtual CString GetFocusableTitle();
  virtual CString GetFocusableTags_InStr();
  virtual void SetFocusableTags_InStr(CString tags);
  // 40. After a write: the record still needs saving if an item is still
  // marked changed.
  virtual void FocusableSaved();
  // 41. Below id 1 the record's changed flag, else the item's.
  virtual void ChangeItemChangeStatus(int id, int value);
  // 42.
  virtual int NeedToSave();
  // 43. A new record (no database) copied from this one. The caller owns it.
  virtual Focusable* CreateCopyFocusable(int full);
  // 44. Copies GUID, relation and field values of src (and with full, the
  // slot index, origin, possessors, reference count and changed flag).
  virtual void CopyFocusable(Focusable* src, int full);
  // 45. Swaps this record's state with other's. A plain record moved into
  // a typed one is left without state and must then be deleted.
  virtual void MoveFocusableImpl(Focusable* other);
  // 46. Below id 2 the record's changed flag, else the item's; 0 if absent.
  virtual int IsItemChanged(int id, int part);
  // 47, 48. -1 not stored, -2 refuses a read.
  virtual int GetDBSlotIndex();
  virtual void SetDBSlotIndex(int slotIndex);
  // 49-51. The controller the record came from; -1 for none.
  virtual void SetOriginedResourceControllerID(int id, int part);
  virtual int GetOriginedResourceControllerID();
  virtual int GetSourceResourceControllerID();
  // 52, 53.
  virtual void SetSavable(int savable);
  virtual int IsSavable();
  // 54. Marks the record and every item changed (parsing unparsed values
  // first), so that the next save writes everything.
  virtual void UpdateNeeded();
  // 55. The field as stored text: ints in decimal, dates as
  // "%m/%d/%y@%H:%M", doubles with six decimals, bools "1"/"0". Id 0 gives
  // the GUID; an absent field "". A double is printed, never stored, and a
  // double still in text form is left unparsed.
  virtual CString GetFieldString(int id, int part);
  // 56. 0 without state, 1 without items, else the item count plus 1.
  virtual int GetFieldCount(int part);
  // 57-60. Typed reads with fallbacks (see the table in Focusable.cpp).
  virtual int GetFieldInt(int id);
  virtual int GetFieldBool(int id);
  virtual double GetFieldDouble(int id);
  virtual COleDateTime GetFieldDate(int id);
  // 61-65. Typed reads into *out; 1 if a value was given, else 0.
  virtual int GetValueStr(int id, CString* out);
  virtual int GetValueInt(int id, int* out);
  virtual int GetValueDouble(int id, double* out);
  virtual int GetValueDate(int id, COleDateTime* out);
  virtual int GetValueBOOL(int id, int* out);
  // 66. One piece of stored text from the database. partial: the field runs
  // over more than one slot; first: this is the first slot of the chain;
  // last is not read here. text may be null (read as ""). Touches no
  // changed flag. 1 if stored, 0 if not.
  // Reads text up to its terminator and hands it to SetValuePiece, so that a
  // class overriding that one override serves both.
  virtual int SetValue(int id, int type, const char16_t* text, int partial, int first, int last);
  // SetValue for a piece whose length the caller knows (the store decodes
  // pieces of known length): the piece is taken whole, U+0000 included, and
  // copied once into the record. The same rules as SetValue otherwise.
  virtual int SetValuePiece(int id, int type, std::u16string_view piece, int partial, int first,
                            int last);
  // 67. SetValue without pieces.
  virtual int SetValue_wStr(int id, int type, CString text);
  // 68-72. Typed writes. A missing item is made of the setter's type; an
  // existing one takes the value as it stands, whatever its type, with no
  // comparison, and keeps its type: text goes into any item; a number or a
  // date goes into a typed item in that item's native form (an int or a
  // flag the whole part, a double the number, a date the day count, and
  // back), into a string item as its stored text. The item's text is not
  // emptied. The item's changed flag becomes
  // markChanged; the record's is set if markChanged is not 0. 1 if stored,
  // else 0.
  virtual int SetValueStr(int id, CString text, int markChanged);
  virtual int SetValueInt(int id, int value, int markChanged);
  virtual int SetValueDouble(int id, double value, int markChanged);
  virtual int SetValueDate(int id, COleDateTime value, int markChanged);
  virtual int SetValueBOOL(int id, int value, int markChanged);
  // 73-76. Field 3 and field 2; read from disk on demand like the status.
  virtual COleDateTime GetPublicationDateTime();
  virtual COleDateTime GetReceiveDateTime();
  virtual int SetPublicationDateTime(COleDateTime date);
  virtual int SetReceiveDateTime(COleDateTime date);
  // 77. Drops one reference. At count 0 with no holder the object is
  // deleted (*destroyed set to 1 if destroyed is not null) and 1 returned;
  // otherwise pending changes are saved, and at count 0 the body is
  // unloaded and 1 returned; else 0. A call at count 0 returns 1 and does
  // nothing.
  virtual int Release(int* destroyed = nullptr);
  // 78. Adds one reference. Returns the new count.
  virtual int Reserve();
  // 79, 80. A controller takes or drops the header. ReleaseHeader returns 1
  // when it deleted the object, else 0.
  virtual int ReserveHeader(int controller);
  virtual int ReleaseHeader(int controller);
  // 81. Id 0 compares a string item with the GUID, else the item's IsSame.
  virtual int IsFieldItemSame(int id, Item* item);
  // 82. 4, 0, 2, 2 for ids 0 to 3, else the template's type; -1 without one.
  virtual int GetFieldType(int id);
  // 83. 1 below id 1 or if the item exists.
  virtual int IsFieldActive(int id, int part);
  // 84-86.
  virtual int GetFocusableRelation();
  virtual void SetFocusableRelation(int relation);
  virtual void SetFullyLoaded(int fullyLoaded);
  // 87. Tells the panels of the originating controller (message with kind
  // 3): posted if post is not 0, else sent. The registry's result, or 0.
  // The origin is this record's own, never a derived class's answer, so a
  // link (whose base record has origin -1) sends nothing.
  virtual int BroadCastUpdate(int post, int message);

  // --- Post fields (relations 4, 8, 11, 26; titles also 16, 17, 25) ------
  CString GetPostTitle();
  void SetPostTitle(CString title);
  CString GetPostLink();
  CString GetPostDescription();
  CString GetPostEncodedContent();
  CString GetPostAuthorName();
  CString GetPostCategory();
  CString GetPostPublishedChannel();
  void SetPostPublishedChannel(CString channel);
  COleDateTime GetPostPublicationDate();
  COleDateTime GetPostReceivedDate();
  // Adds the names of field 5 (separated by "|", "&898989;" standing for a
  // "|" inside a name) to *out. The second argument is not read.
  void GetPostAuthorNames(CStringArray* out, CString unused);
  // Adds the categories of field 6 to *out, split at "|" or, if separator
  // is neither empty nor "|", at any of its characters.
  void GetPostCategories(CStringArray* out, CString separator);

  // The size of the private state object.
  static int GetFocusableImplSize();
  // Users of the body (0 without state).
  int GetReferenceCount();

  // Printing leaves a record as it was found and saves nothing. What a
  // print took, so that EndPrint can give it back.
  struct PrintHold {
    bool loaded = false;       // BeginPrint read the body and reserved it
    std::vector<Item*> found;  // the items the record held before, by place
  };
  // Makes the whole body readable for a print. A fully loaded record is
  // used as it is. Otherwise the body is read and reserved, and the items
  // the record already held (changes not saved yet among them) stand over
  // what is read. 1 when the body is there; 0 when it cannot be read (the
  // record is then unchanged).
  int BeginPrint(PrintHold* hold);
  // Gives back what BeginPrint took, without saving and without deleting
  // the record: the reservation goes, and unless somebody else reserved
  // the body meanwhile, the items read for the print go too and the
  // record is header only again, holding just what it held before.
  void EndPrint(PrintHold* hold);

  // The record of a GUID, from its controller; not reserved. Null for a
  // malformed GUID or without the controller.
  static Focusable* GetFocusable_wGUID(CString guid);
  // Brings the record at slotIndex of database dbID into memory, waiting
  // (pumping the calling thread's messages, 15 seconds at most) for its
  // controller to be created and to get an id. The record is registered
  // with the controller and not reserved. Null when it cannot be had.
  static Focusable* GetFocusable_wDBLocation(CString guid, int dbID, int slotIndex);
  // What a status change from oldStatus to newBits does to the counters of
  // a tree: added is set, removed is only added to (the caller sets it to 0
  // first).
  static void GetRemovedStatus(int oldStatus, int newBits, int& added, int& removed);

 protected:
  // The private state; null after it was moved away.
  FocusableImpl* impl_;

 private:
  // The item of field id (id >= 1), or null.
  Item* GetItem(int id) const;
  // Grows the item array so that field id has a place. False without
  // state or for an id out of range.
  bool EnsureItemPlace(int id);
  // The typed setters' common road: creates the item of type if absent.
  Item* PrepareItemForSet(int id, int type);
  // Reads field id alone from disk when no item is there (status, dates).
  void ReadFieldFromDB(int id);
  // The work of SetValue and SetValue_wStr on a piece of stored text.
  // piece is moved from.
  int SetStoredPiece(int id, int type, CString&& piece, int partial, int first, int last);
};

}  // namespace kordll

#endif  // KORDLL_RECORD_FOCUSABLE_H_
