// FocusableLink: a record that stands for another record, so that one post
// can appear in a further list or database without being copied.
//
// A link is a record of relation 8 in a database of its own. On disk it
// holds only where its target lives: field 0 the target's GUID, field 1 the
// id of the target's database, field 2 the target's slot index (field 3
// stores nothing). In memory it behaves as the target: nearly every
// operation of Focusable is forwarded, and with no target each answers a
// fallback value (0, -1, "", an invalid date; setters do nothing). A link
// keeps its own identity only for what a list manages: its slot, its
// header holders and one status bit (64, "marked deleted").
//
// The second argument of GetFieldString, IsItemChanged and IsFieldActive,
// and the argument of GetFieldCount, say whose fields are meant: with 1
// (what the database passes) the link's stored fields, with 0 the target's.
//
// Lifetime. Reserve and Release are those of the target: a reader of a
// link holds the target. Release always answers 0 on a link, so its result
// never tells that the target went; the link then forgets the target.
// ReserveHeader and ReleaseHeader hold both the link and the target; a link
// that nobody holds any more deletes itself at once in ReleaseHeader, and
// one whose target was destroyed through it forgets the target. The target
// is never deleted or released by the link's destructor.
//
// States: built from a live record (the constructor or SetLinkedFocusable:
// target set); read from disk (SetFocusableLink: numbers known, target
// null); resolved (PreLoading found the target); orphan (the target was
// destroyed; the numbers stay, so a later PreLoading may find it again). A
// link read from disk must get SetFocusableLink and PreLoading before it is
// used as a record.
//
// A link never takes another link as its target.
//
// Copies of a link (copy construction, assignment) share the link's own
// state (FocusableLinkImpl); the last copy frees it.
//
// Thread safety: the link's lock is held only in ReserveHeader and
// ReleaseHeader, and around the calls into the target there (link lock,
// then the target's lock). Forwarded operations take the target's lock or
// none, as the target's own operations do.

#ifndef KORDLL_RECORD_FOCUSABLELINK_H_
#define KORDLL_RECORD_FOCUSABLELINK_H_

#include <memory>

#include "kordll/record/Focusable.h"
#include "kordll/record/RecordIds.h"

namespace kordll {

class FocusableLinkImpl;

class FocusableLink : public Focusable {
 public:
  // Bit of the link status: the link is marked deleted.
  static constexpr int kLinkDeleted = 64;
  // The relation of links.
  static constexpr int kLinkRelation = kRelationFocusableLink;

  // With a target (not owned): its GUID, its database's id (if it has a
  // database) and its slot index become the link's fields; the pointer is
  // kept only when keepPointer is not 0. The target is not reserved. A
  // target that is itself a link is not taken (the link stays empty).
  explicit FocusableLink(Focusable* target = nullptr, int keepPointer = 1);
  // Shares other's link state; the base part is copied.
  FocusableLink(const FocusableLink& other);
  FocusableLink& operator=(const FocusableLink& other);
  // Drops this copy's share of the link state. The target is not released.
  ~FocusableLink() override;

  // The constant size the link state has always reported.
  static int GetFocusableLinkImplSize();

  // --- Own operations ------------------------------------------------------

  // Takes GUID, database id (when the target has a database) and slot
  // index from target, keeps the pointer and reserves the target (the
  // caller owes that Release). The two numbers are also written to fields 1
  // and 2 of the base record (read by nobody). Returns 1; 0 and nothing
  // changed for a null target or a target that is a link.
  int SetLinkedFocusable(Focusable* target);
  // Takes over a plain record of relation 8 read from disk: its fields 1
  // and 2, GUID, slot index and relation. The target stays null until
  // PreLoading. record is not kept; null does nothing.
  void SetFocusableLink(Focusable* record);
  // The target, or null. Not reserved for the caller.
  Focusable* GetLinkedFocusable();
  // The link status (bit 64: marked deleted).
  int GetFocusableLinkStatus();

  // --- Focusable, on the link's own data ------------------------------------

  // Target's DecorateFocusable with the attributes linked="true" and, when
  // the link is marked deleted, deleted="true". Null with no target. The
  // caller owns the result.
  PrintTemplate* DecorateFocusable(int escape) override;
  std::vector<int>* GetHeaderPossessors() override;
  // Removes the link's slot from its database, never the target. 1 when not
  // savable; 0 without a database or on failure; on success the database is
  // null and the own slot index -1.
  int DeleteFocusable() override;
  // The link's database (read only by DeleteFocusable; GetDB is the base
  // record's, which is null).
  void SetDB(AZeusDB* db) override;
  // Nothing to prepare: a link is written by its controller, not by
  // SaveFocusable.
  void PreSaving() override;
  // Finds the target by GUID, database id and slot index (waiting for its
  // controller as Focusable::GetFocusable_wDBLocation does). 1 if found. The
  // target is not reserved. A record found that is itself a link is not
  // taken (0).
  int PreLoading() override;
  CString GetGUID() override;
  // Marks the link changed when guid differs.
  void SetGUID(CString guid) override;
  int GetDBSlotIndex() override;
  void SetDBSlotIndex(int slotIndex) override;
  // Sets the link's origin and adds id to the target's header holders (with
  // no target only the link's origin is set).
  void SetOriginedResourceControllerID(int id, int part) override;
  int GetOriginedResourceControllerID() override;
  // Always 8.
  int GetFocusableRelation() override;
  // The target's relation is 4 or 11 (0 with no target).
  int IsPostFocusable() override;
  // The target's answer (0 with no target).
  int IsTreeItemFocusable() override;
  // The link's own count above 0, or a possessor list exists.
  int IsInUse() override;
  // 0 with no target; 1 if the target is deleted or the target's status has
  // bit 64. The link status bit does not count here.
  int IsFocusableDeleted() override;
  // Bit 64 of set or clear changes the link status (and is taken out); the
  // rest goes to the target, even when both are 0. The target's result, 0
  // with no target.
  int ReSetFocusableStatus(int set, int clear) override;
  // Clears the link's changed flag.
  void FocusableSaved() override;
  // Ids below 4 set the link's changed flag; others do nothing.
  void ChangeItemChangeStatus(int id, int value) override;
  // Always 0, whatever the target answers: a link never asks to be saved.
  int NeedToSave() override;

  // --- Own or target ---------------------------------------------------------

  // own: 4. Otherwise the target's GetFieldCount(0), 0 with no target.
  int GetFieldCount(int own) override;
  // own: 0 the GUID, 1 and 2 the numbers in decimal, others "". Otherwise
  // the target's GetFieldString(id, 0), "" with no target.
  CString GetFieldString(int id, int own) override;
  // own: the link's changed flag for every id. Otherwise the target's
  // IsItemChanged(id, 1), 0 with no target.
  int IsItemChanged(int id, int own) override;
  // own: 1 for ids below 4. Otherwise the target's IsFieldActive(id, 1), 0
  // with no target.
  int IsFieldActive(int id, int own) override;
  // The database reading the link: ids 0 to 2 (type and first are not
  // read). Id 0 is assigned, or appended to when partial (even for a first
  // piece). Ids 1 and 2 are read with _wtoi; in pieces they are gathered
  // and read when last is set. Returns 1 for ids 0 to 3, else 0.
  // SetValue reaches this too.
  int SetValuePiece(int id, int type, std::u16string_view piece, int partial, int first,
                    int last) override;
  // Id 0 the GUID, 1 and 2 the numbers through _wtoi.
  int SetValue_wStr(int id, int type, CString text) override;

  // --- Forwarded to the target (fallbacks with no target) --------------------

  int LoadFocusable(DBTaskItem* task) override;                        // 1 if the target's is not 0
  COleDateTime GetReceiveDate() override;                              // invalid date
  COleDateTime GetPublicationDate() override;                          // invalid date
  int SaveFocusable() override;                                        // 1 if the target's is not 0
  int GetFlagImage() override;                                         // -1
  int GetStatusImage() override;                                       // 4
  int GetFocusableStatus() override;                                   // 0
  int SetFocusableStatus(int status) override;                         // 0
  int IsFullyLoaded(int reserve) override;                             // 0
  void PerformMaintenance(int flag) override;                          // nothing
  Focusable* CreateCopyFocusable(int full) override;                   // null; a copy of the target
  void CopyFocusable(Focusable* src, int full) override;               // nothing
  int GetSourceResourceControllerID() override;                        // -1
  int GetFieldInt(int id) override;                                    // -1
  COleDateTime GetFieldDate(int id) override;                          // invalid date
  int GetValueStr(int id, CString* out) override;                      // 0
  int GetValueInt(int id, int* out) override;                          // 0
  int GetValueDouble(int id, double* out) override;                    // 0
  int GetValueDate(int id, COleDateTime* out) override;                // 0
  int GetValueBOOL(int id, int* out) override;                         // 0
  int SetValueStr(int id, CString text, int markChanged) override;     // 0
  int SetValueInt(int id, int value, int markChanged) override;        // 0
  int SetValueDouble(int id, double value, int markChanged) override;  // 0
  int SetValueDate(int id, COleDateTime value, int markChanged) override;  // 0
  int SetValueBOOL(int id, int value, int markChanged) override;           // 0
  COleDateTime GetPublicationDateTime() override;                          // invalid date
  COleDateTime GetReceiveDateTime() override;                              // invalid date
  int SetPublicationDateTime(COleDateTime date) override;                  // 0
  int SetReceiveDateTime(COleDateTime date) override;                      // 0
  // The target's Release; always 0. *destroyed is left alone. A target
  // destroyed by this call is forgotten.
  int Release(int* destroyed = nullptr) override;
  // The target's Reserve; 0 with no target.
  int Reserve() override;
  // The target's header holders and the link's own list both get
  // controller. Returns 1.
  int ReserveHeader(int controller) override;
  // Drops controller from the target and from the link. A target destroyed
  // by this is forgotten. Returns 1 when the link deleted itself (nobody
  // holds it any more), else 0.
  int ReleaseHeader(int controller) override;
  int IsFieldItemSame(int id, Item* item) override;  // 0
  int GetFieldType(int id) override;                 // 0

 private:
  // Takes GUID, database id and slot index from target.
  void TakeTargetPlace(Focusable* target);

  // Shared between copies of this link; never null.
  std::shared_ptr<FocusableLinkImpl> link_;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_FOCUSABLELINK_H_
