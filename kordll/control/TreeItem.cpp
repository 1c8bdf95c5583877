#include "kordll/control/TreeItem.h"

#include <atomic>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/ResourceController.h"
#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/platform/CRuntime.h"

namespace kordll {

namespace {

std::atomic<const TreeItem::ErrorHooks*> g_errorHooks{nullptr};

const CString kGuidForm(u"R%d_G%d");

// Reads "R<controller>_G<id>"; true when both numbers were read.
bool ParseGUID(const CString& guid, int* controller, int* id) {
  return swscanf(guid, kGuidForm, {controller, id}) == 2;
}

struct FieldsOf {
  int caption;
  int parent;  // -1: the relation has no parent field
};

FieldsOf Fields(int relation) {
  switch (relation) {
    case 2:
    case 27:
      return {7, 4};
    case 22:
      return {5, 4};
    case 23:
      return {6, 4};
    case 5:
    case 6:
      return {4, 9};
    case 30:
      return {4, -1};
    case 9:
      return {11, 9};
    case 7:
      return {6, 8};
    case 10:
      return {6, 10};
    default:
      return {7, -1};
  }
}

}  // namespace

void TreeItem::SetErrorHooks(const ErrorHooks* hooks) { g_errorHooks.store(hooks); }

TreeItem::TreeItem(ResourceController* parent, int relation)
    : Focusable(relation, nullptr), parentCtrl_(parent) {}

TreeItem::~TreeItem() {
  for (auto& entry : errors_) EndError(entry.second);
}

CString TreeItem::CaptionOfTable() {
  return GetFieldString(Fields(GetFocusableRelation()).caption, 0);
}

CString TreeItem::GetTreeItemCaption() { return CaptionOfTable(); }
CString TreeItem::GetTreeCaption() { return CaptionOfTable(); }
CString TreeItem::GetFocusableTitle() { return CaptionOfTable(); }

void TreeItem::SetTreeItemCaption(CString caption) {
  SetValueStr(Fields(GetFocusableRelation()).caption, caption, 1);
}

CString TreeItem::GetPathToRoot() { return CString(); }

int TreeItem::GetTreeItemType() {
  switch (GetFocusableRelation()) {
    case 2:
    case 27:
      return GetFieldInt(5);
    case 22:
      return GetFieldInt(7);
    case 23:
      return 3;
    case 5:
      return 7;
    case 6:
      return 8;
    case 30:
      return 21;
    case 9:
      return (GetFocusableStatus() & 0x400) != 0 ? 4 : 6;
    case 7:
      return 19;
    default:
      return -1;
  }
}

void TreeItem::SetTreeItemType(int type) {
  const int relation = GetFocusableRelation();
  if (relation == 2 || relation == 27) {
    SetValueInt(5, type, 1);
  } else if (relation == 22) {
    SetValueInt(7, type, 1);
  }
}

int TreeItem::GetTreeItemStatus() { return GetFocusableStatus(); }

void TreeItem::SetTreeItemStatus(int set, int clear) {
  const int status = GetFocusableStatus();
  int updated = status | set;
  if ((updated & clear) != 0) updated &= ~clear;
  if (updated != status) SetValueInt(1, updated, 1);
}

int TreeItem::DoesThisTreeItemHaveProperties() { return 0; }
int TreeItem::GetTreeItemIconIndex() { return 0; }
int TreeItem::GetTreeItemSelectedIconIndex() { return 0; }
CString TreeItem::GetTreeItemTypeName() { return CString(u"treeitem"); }
PostCtrl* TreeItem::GetPostCtrl(int) { return nullptr; }
int TreeItem::GetTreeItemTypeIcon() { return 0; }
int TreeItem::IsBinItem() { return 0; }
int TreeItem::IsThisTreeItemLeave() { return 1; }
int TreeItem::IsResourceItem() { return 0; }

int TreeItem::IsFolder() {
  const int type = GetTreeItemType();
  return (type == 2 || type == 13 || type == 14 || type == 15) ? 1 : 0;
}

int TreeItem::IsThisTreeItemDeletable() { return 0; }
int TreeItem::IsThisTreeItemMovable() { return 0; }

int TreeItem::BroadCastTreeItemUpdate(_struct_RESCTRLNOTIFMSG* message) {
  if (message == nullptr) {
    return GlobalResourceCtrl::SendRC2PanelMessage(parentCtrl_, kChangedMessage, kChangedKind,
                                                   this);
  }
  if (parentCtrl_ == nullptr) return 0;
  const int id = GetParentResourceCtrlID();
  if (id != -1) message->originatorID = id;
  parentCtrl_->OnUpdateResourceCtrl(message);
  return 1;
}

int TreeItem::GetPostCtrlID() { return -1; }

int TreeItem::GetParentResourceCtrlID() {
  return parentCtrl_ != nullptr ? parentCtrl_->GetResourceControllerID() : -1;
}

void TreeItem::Load(ResourceController*) {}

void TreeItem::UpdateItem(int) {
  if (parentCtrl_ != nullptr) parentCtrl_->UpdateFocusable(this, 1);
}

void TreeItem::DeleteItem(int) {}

int TreeItem::IsBoldFocusable() { return (GetFocusableStatus() & 0x80) != 0 ? 1 : 0; }

void TreeItem::SetGUID(CString guid) {
  if (focusableID_ == -1) {
    Focusable::SetGUID(std::move(guid));
    return;
  }
  int controller = 0;
  int id = 0;
  if (!ParseGUID(guid, &controller, &id)) return;
  Focusable::SetGUID(CString::Formatted(kGuidForm, controller, focusableID_));
}

int TreeItem::GetFocusableID() {
  if (focusableID_ != -1) return focusableID_;
  int controller = 0;
  int id = 0;
  if (ParseGUID(GetGUID(), &controller, &id) && id != -1) focusableID_ = id;
  return focusableID_;
}

void TreeItem::SetFocusableID(int id) {
  focusableID_ = id;
  int controller = 0;
  int old = 0;
  if (ParseGUID(GetGUID(), &controller, &old) && old != -1) {
    SetGUID(CString::Formatted(kGuidForm, controller, id));
  }
}

int TreeItem::GetParentFocusableID() {
  const int field = Fields(GetFocusableRelation()).parent;
  return field == -1 ? -1 : GetFieldInt(field);
}

void TreeItem::SetParentFocusableID(int id) {
  const int field = Fields(GetFocusableRelation()).parent;
  SetValueInt(field == -1 ? 4 : field, id, 1);
}

int TreeItem::GetFocusableImage() { return GetTreeItemIconIndex(); }

void TreeItem::SetTreeItem(TreeItem* source, int position, int copyArgument) {
  if (source == nullptr) return;
  CopyFocusable(source, copyArgument);
  treeData_[0] = source->treeData_[0];
  treeData_[1] = source->treeData_[1];
  treePosition_ = position;
  parentCtrl_ = source->parentCtrl_;
  focusableID_ = source->focusableID_;
}

void TreeItem::InsertErrorMsg(int code, CString text) {
  const ErrorHooks* hooks = g_errorHooks.load();
  if (GlobalResourceCtrl::IsGlobalResourceValid() == 0 || hooks == nullptr) return;
  ErrorMsg*& error = errors_[code];
  if (error == nullptr) error = hooks->make(code, text);
  if (error == nullptr) {
    errors_.erase(code);
    return;
  }
  hooks->stamp(error, GetTreeItemCaption(), GetFocusableID());
}

int TreeItem::ReleaseError(int code) {
  auto found = errors_.find(code);
  if (found == errors_.end()) return 0;
  EndError(found->second);
  errors_.erase(found);
  if (errors_.empty() && parentCtrl_ != nullptr) TellChanged();
  return 1;
}

void TreeItem::ReleaseAllErrorMsgs() {
  for (auto& entry : errors_) EndError(entry.second);
  errors_.clear();
  TellChanged();
}

void TreeItem::EndError(ErrorMsg* error) {
  const ErrorHooks* hooks = g_errorHooks.load();
  if (error != nullptr && hooks != nullptr) hooks->end(error);
}

void TreeItem::TellChanged() {
  GlobalResourceCtrl::SendRC2PanelMessage(parentCtrl_, kChangedMessage, kChangedKind, this);
}

}  // namespace kordll
