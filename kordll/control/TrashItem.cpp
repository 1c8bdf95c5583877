#include "kordll/control/TrashItem.h"

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/Clock.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/toolkit/KorlanDateTime.h"

namespace kordll {

namespace {

const CString kBar(u"|");
const CString kEscapedBar(u"&898989;");

}  // namespace

TrashItem::TrashItem() : Focusable(-1, nullptr) {}

TrashItem::TrashItem(Focusable* source) : Focusable(-1, nullptr) {
  if (source == nullptr) return;
  CopyFocusable(source, 0);
  SetFocusableDeleted(0);
  ReSetFocusableStatus(kStatusTrashed, 0);
  trashedDate_ = Clock::Now();
  AZeusDB* db = source->GetDB();
  rescueDBID_ = db != nullptr ? db->GetDBID() : -1;
  sourceGUID_ = source->GetGUID();
  sourceGUID_.Replace(kBar, kEscapedBar);
  Focusable::SetGUID(CString::Formatted(CString(u"%s|%s|%d"), sourceGUID_,
                                        KorlanDateTime::DateTimeToSimpleString(trashedDate_, 0),
                                        rescueDBID_));
}

TrashItem::TrashItem(const TrashItem& other)
    : Focusable(-1, nullptr),
      trashedDate_(other.trashedDate_),
      rescueDBID_(other.rescueDBID_),
      sourceGUID_(other.sourceGUID_) {
  CopyFocusable(const_cast<TrashItem*>(&other), 0);
}

TrashItem& TrashItem::operator=(const TrashItem& other) {
  if (this == &other) return *this;
  CopyFocusable(const_cast<TrashItem*>(&other), 0);
  trashedDate_ = other.trashedDate_;
  rescueDBID_ = other.rescueDBID_;
  sourceGUID_ = other.sourceGUID_;
  return *this;
}

CString TrashItem::GetGUID() {
  if (sourceGUID_.IsEmpty()) LoadGUID();
  return sourceGUID_;
}

COleDateTime TrashItem::GetTrashedDate() {
  if (sourceGUID_.IsEmpty()) LoadGUID();
  return trashedDate_;
}

int TrashItem::GetRescueDBID() {
  if (sourceGUID_.IsEmpty()) LoadGUID();
  return rescueDBID_;
}

void TrashItem::LoadGUID() {
  const CString composite = Focusable::GetGUID();
  int start = 0;
  CString piece = composite.Tokenize(kBar, start);
  if (start == -1) return;
  piece.Replace(kEscapedBar, kBar);
  sourceGUID_ = piece;
  piece = composite.Tokenize(kBar, start);
  if (start == -1) return;
  trashedDate_ = KorlanDateTime::StringToDateTime(piece, 0);
  piece = composite.Tokenize(kBar, start);
  if (start == -1) return;
  rescueDBID_ = _wtoi(piece);
}

CString TrashItem::GetTrashItemTitle() {
  switch (GetFocusableRelation()) {
    case 3:
    case 4:
    case 5:
    case 6:
    case 11:
    case 26:
      return GetFieldString(4, 0);
    default:
      return CString();
  }
}

CString TrashItem::GetFocusableTitle() { return GetTrashItemTitle(); }

CString TrashItem::GetSourceTitle() {
  const int relation = GetFocusableRelation();
  if (relation == 4 || relation == 11 || relation == 26) return GetFieldString(8, 0);
  return CString();
}

Focusable* TrashItem::RescueTrash() {
  const int relation = GetFocusableRelation();
  if (relation != 4 && relation != 11) return nullptr;
  auto* record = new Focusable(-1, nullptr);
  record->CopyFocusable(this, 0);
  record->SetGUID(GetGUID());
  return record;
}

}  // namespace kordll
