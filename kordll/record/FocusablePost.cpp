// Focusable: the accessors of post fields, the title and the tags. Each
// tests the record's relation; other relations get an empty text, an
// invalid date or no change.

#include "kordll/record/Focusable.h"
#include "kordll/record/FocusableInternal.h"
#include "kordll/record/RecordIds.h"

namespace kordll {

namespace {

// A "|" inside an author name or category is written as this text.
const CString kEscapedBar(u"&898989;");

bool IsPostFieldRelation(int relation) {
  return relation == kRelationPost || relation == kRelationFocusableLink ||
         relation == kRelationSecondPost || relation == kRelationSavedPost;
}
// The tag field of a relation, or -1.
int TagField(int relation) {
  switch (relation) {
    case 2:
      return 20;
    case 4:
      return 16;
    case 7:
      return 17;
    case 11:
      return 19;
    case 18:
      return 13;
    case 23:
      return 11;
    case 25:
      return 9;
    case 26:
      return 19;
    case 27:
      return 20;
    case 30:
      return 5;
    default:
      return -1;
  }
}

// Splits text at every "|", keeping empty pieces.
CStringArray SplitAtBar(const CString& text) {
  CStringArray pieces;
  int start = 0;
  for (;;) {
    const int bar = text.Find(u'|', start);
    if (bar < 0) {
      pieces.push_back(text.Mid(start));
      return pieces;
    }
    pieces.push_back(text.Mid(start, bar - start));
    start = bar + 1;
  }
}
}  // namespace

// --- Post fields
// ----------------------------------------------------------------------------------
CString Focusable::GetFocusableTitle() { return GetPostTitle(); }

CString Focusable::GetFocusableTags_InStr() {
  const int field = TagField(GetFocusableRelation());
  return field < 0 ? CString() : GetFieldString(field, 0);
}

void Focusable::SetFocusableTags_InStr(CString tags) {
  const int field = TagField(GetFocusableRelation());
  if (field >= 0) SetValueStr(field, std::move(tags), 1);
}
CString Focusable::GetPostTitle() {
  const int relation = GetFocusableRelation();
  if (IsPostFieldRelation(relation) || relation == kRelationHelpSection ||
      relation == kRelationHelpTopic) {
    return GetFieldString(kPostFieldTitle, 0);
  }
  return relation == kRelationNote ? GetFieldString(kNoteFieldTitle, 0) : CString();
}

void Focusable::SetPostTitle(CString title) {
  const int relation = GetFocusableRelation();
  if (IsPostFieldRelation(relation)) {
    SetValueStr(kPostFieldTitle, std::move(title), 1);
  } else if (relation == kRelationNote) {
    SetValueStr(kNoteFieldTitle, std::move(title), 1);
  }
}

CString Focusable::GetPostLink() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldString(kPostFieldLink, 0)
                                                     : CString();
}

CString Focusable::GetPostDescription() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldString(kPostFieldDescription, 0)
                                                     : CString();
}

CString Focusable::GetPostEncodedContent() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldString(kPostFieldEncodedContent, 0)
                                                     : CString();
}

CString Focusable::GetPostAuthorName() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldString(kPostFieldAuthors, 0)
                                                     : CString();
}

CString Focusable::GetPostCategory() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldString(kPostFieldCategories, 0)
                                                     : CString();
}

CString Focusable::GetPostPublishedChannel() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldString(kPostFieldChannel, 0)
                                                     : CString();
}

void Focusable::SetPostPublishedChannel(CString channel) {
  if (IsPostFieldRelation(GetFocusableRelation()))
    SetValueStr(kPostFieldChannel, std::move(channel), 1);
}

COleDateTime Focusable::GetPostPublicationDate() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldDate(kFieldPublicationDate)
                                                     : COleDateTime::Invalid();
}

COleDateTime Focusable::GetPostReceivedDate() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldDate(kFieldReceiveDate)
                                                     : COleDateTime::Invalid();
}

void Focusable::GetPostAuthorNames(CStringArray* out, CString) {
  if (out == nullptr) return;
  const int relation = GetFocusableRelation();
  if (relation != kRelationPost && relation != kRelationSecondPost) return;
  for (CString name : SplitAtBar(GetFieldString(kPostFieldAuthors, 0))) {
    // Relation 11 writes "name:more" entries; the name is what precedes the
    // first ":".
    if (relation == kRelationSecondPost) {
      const int colon = name.Find(u':');
      if (colon >= 0) name = name.Left(colon);
    }
    name.Replace(kEscapedBar, CString(u"|"));
    if (!name.IsEmpty()) out->push_back(name);
  }
}

void Focusable::GetPostCategories(CStringArray* out, CString separator) {
  if (out == nullptr) return;
  const int relation = GetFocusableRelation();
  CString text = (relation == kRelationPost || relation == kRelationSecondPost)
                     ? GetFieldString(kPostFieldCategories, 0)
                     : CString();
  if (!separator.IsEmpty() && separator != CString(u"|")) {
    // Another separator: bring the text to the "|" form first.
    text.Remove(u'|');
    CString joined;
    int start = 0;
    for (;;) {
      CString piece = text.Tokenize(separator, start);
      if (start < 0) break;
      joined += piece;
      joined += u'|';
    }
    text = joined;
  }
  for (const CString& piece : SplitAtBar(text)) {
    if (!piece.IsEmpty()) out->push_back(piece);
  }
}
}  // namespace kordll
