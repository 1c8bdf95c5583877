// TreeItem: a record that stands as a node of the resource tree (folders,
// channels, authors, categories and the other kinds shown on the left of the
// main window).
//
// Besides its fields a node has a parent controller (not owned), an id taken
// from its GUID "R<controller>_G<id>", a place in the tree, and the errors
// that currently stand against it, one per error code.
//
// Which field holds the caption, the tree type and the parent id depends on
// the relation:
//
//   relation   tree type                  caption  parent id
//   2, 27      field 5                    7        4
//   22         field 7                    5        4
//   23         3                          6        4
//   5          7                          4        9
//   6          8                          4        9
//   30         21                         4        (none: -1)
//   9          4 with status 0x400, else 6 11      9
//   7          19                         6        8
//   10         -1                         6        10
//   others     -1                         7        (none: -1)
//
// Writing the parent id of a relation without a parent field writes field 4,
// although reading it answers -1. Every write marks the field changed.
//
// Once a node knows its id (from its GUID or SetFocusableID) the id is fixed:
// a GUID assigned afterwards keeps its controller part but gets the node's
// id, and a text that is no GUID is ignored.
//
// Errors: the error records (ErrorMsg) belong to the talk layer above this
// one, so a node holds them only by pointer and makes, stamps and ends them
// through the hooks the talk layer installs when the library is loaded
// (SetErrorHooks). The node owns the records of its map.
//
// Thread safety: the node's lock (lock_) is for derived classes; nothing here
// takes it. The error map is not locked: one thread at a time.

#ifndef KORDLL_CONTROL_TREEITEM_H_
#define KORDLL_CONTROL_TREEITEM_H_

#include <cstdint>
#include <map>

#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CString.h"
#include "kordll/record/Focusable.h"

namespace kordll {

class ErrorMsg;
class PostCtrl;
class ResourceController;
struct _struct_RESCTRLNOTIFMSG;

class TreeItem : public Focusable {
 public:
  // The error records of a node, by error code. Owned by the node.
  using ErrorMap = std::map<int, ErrorMsg*>;

  // How nodes make, stamp and end error records. make gives a new record of
  // code with the caller's text (or null); stamp sets its time to now and
  // its source to caption and id; end deletes it.
  struct ErrorHooks {
    ErrorMsg* (*make)(int code, const CString& text);
    void (*stamp)(ErrorMsg* error, const CString& caption, int id);
    void (*end)(ErrorMsg* error);
  };
  // Installs the hooks for the whole process; hooks must outlive every
  // node. Until they are installed InsertErrorMsg files nothing.
  static void SetErrorHooks(const ErrorHooks* hooks);

  // Panel message for "a record changed", sent with kind 3.
  static constexpr int kChangedMessage = 1041;
  static constexpr int kChangedKind = 3;

  // A node of relation owned by parent (may be null), without a database
  // and without a known id.
  TreeItem(ResourceController* parent, int relation);
  // Ends the error records.
  ~TreeItem() override;

  // --- Operations of tree nodes, in the order derived classes override them.

  // 1-3. The caption field of the relation (see the table at the top).
  virtual CString GetTreeItemCaption();
  virtual CString GetTreeCaption();
  virtual void SetTreeItemCaption(CString caption);
  // 4. "" here.
  virtual CString GetPathToRoot();
  // 5, 6. See the table; the setter writes field 5 for relations 2 and 27,
  // field 7 for relation 22, and nothing for the others.
  virtual int GetTreeItemType();
  virtual void SetTreeItemType(int type);
  // 7. The status word.
  virtual int GetTreeItemStatus();
  // 8. Sets the bits of set, then takes out the bits of clear when the old
  // status or set has any of them; writes only when the status changes.
  virtual void SetTreeItemStatus(int set, int clear);
  // 9-11. 0 here.
  virtual int DoesThisTreeItemHaveProperties();
  virtual int GetTreeItemIconIndex();
  virtual int GetTreeItemSelectedIconIndex();
  // 12. "treeitem".
  virtual CString GetTreeItemTypeName();
  // 13. Null here.
  virtual PostCtrl* GetPostCtrl(int which);
  // 14, 15. 0 here.
  virtual int GetTreeItemTypeIcon();
  virtual int IsBinItem();
  // 16. 1 here.
  virtual int IsThisTreeItemLeave();
  // 17. 0 here.
  virtual int IsResourceItem();
  // 18. Tree types 2, 13, 14 and 15 are folders.
  virtual int IsFolder();
  // 19, 20. 0 here.
  virtual int IsThisTreeItemDeletable();
  virtual int IsThisTreeItemMovable();
  // 21. With a message: the parent controller hears it (OnUpdateResourceCtrl,
  // on this thread) as coming from the parent's id, unless that id is -1;
  // 1, or 0 without a parent. Without a message: the panels of the parent
  // hear message 1041 (kind 3) for this node; the registry's answer.
  virtual int BroadCastTreeItemUpdate(_struct_RESCTRLNOTIFMSG* message);
  // 22. -1 here.
  virtual int GetPostCtrlID();
  // 23. The parent controller's id, or -1 without a parent.
  virtual int GetParentResourceCtrlID();
  // 24. Nothing here.
  virtual void Load(ResourceController* controller);
  // 25. The parent controller's UpdateFocusable(this, 1), whatever flag is.
  virtual void UpdateItem(int flag);
  // 26. Nothing here.
  virtual void DeleteItem(int flag);

  // --- Record operations with a node's meaning -----------------------------

  // Status bit 0x80.
  int IsBoldFocusable() override;
  void SetGUID(CString guid) override;
  // The caption.
  CString GetFocusableTitle() override;
  // The cached id; while unknown, read from the GUID each time asked (a
  // GUID without both numbers, or with id -1, leaves it unknown: -1).
  int GetFocusableID() override;
  // Caches id and, when the GUID has both numbers and its id is not -1,
  // writes the GUID again with the new id.
  void SetFocusableID(int id) override;
  int GetParentFocusableID() override;
  void SetParentFocusableID(int id) override;
  // GetTreeItemIconIndex().
  int GetFocusableImage() override;

  // --- Place in the tree ----------------------------------------------------

  // Copies source's fields (CopyFocusable with copyArgument) and tree data,
  // takes its parent controller and id, and sets the position. Nothing for
  // a null source.
  void SetTreeItem(TreeItem* source, int position, int copyArgument);
  int GetTreePosition() const { return treePosition_; }
  ResourceController* GetParentCtrl() const { return parentCtrl_; }

  // --- Errors ---------------------------------------------------------------

  // While the registry is valid: files the error of code, or refreshes the
  // one already filed (its text stays), stamping it with now, the caption
  // and the id. Nobody is told: the caller broadcasts.
  void InsertErrorMsg(int code, CString text);
  // 0 when code has no error; else ends it and answers 1, and when it was
  // the last one and there is a parent, the panels hear message 1041.
  int ReleaseError(int code);
  // Ends every error; the panels hear message 1041 in any case.
  void ReleaseAllErrorMsgs();
  ErrorMap* GetErrorMsgMap() { return &errors_; }
  int IsErrorExist() const { return errors_.empty() ? 0 : 1; }

 protected:
  CCriticalSection lock_;
  uint32_t treeData_[2] = {0, 0};
  int treePosition_ = 0;
  ResourceController* parentCtrl_;
  ErrorMap errors_;
  int focusableID_ = -1;

 private:
  // The caption field's value, for the three getters that share it.
  CString CaptionOfTable();
  void EndError(ErrorMsg* error);
  void TellChanged();
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_TREEITEM_H_
