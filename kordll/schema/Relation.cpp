#include "kordll/schema/Relation.h"

#include "kordll/platform/CRuntime.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/Item.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RecordIds.h"
#include "kordll/toolkit/KorlanDateTime.h"
#include "kordll/toolkit/PrintTemplate.h"

namespace kordll {

namespace {

// Relations whose decorated GUID carries the originating controller id.
bool IsGuidPrefixedRelation(int relation) {
  return relation == kRelationPost || relation == kRelationSecondPost ||
         relation == kRelationNote || relation == kRelationSavedPost;
}

constexpr char16_t kCDataOpen[] = u"<![CDATA[";
constexpr char16_t kCDataClose[] = u"]]>";

// Splits at the first two "|": URL, length, and the rest as MIME type.
// Empty parts stay (an empty URL part must be seen as empty).
void SplitEnclosure(const CString& value, CString* url, CString* length, CString* type) {
  *url = value;
  length->Empty();
  type->Empty();
  const int first = value.Find(u'|');
  if (first < 0) return;
  *url = value.Left(first);
  const int second = value.Find(u'|', first + 1);
  if (second < 0) {
    *length = value.Mid(first + 1);
    return;
  }
  *length = value.Mid(first + 1, second - first - 1);
  *type = value.Mid(second + 1);
}

// Makes a decorated value safe for XML (see DecorateFocusable).
CString EscapeDecoratedValue(CString value, int cdata) {
  if (value.Find(CString(kCDataOpen)) < 0) {
    if (cdata) return kCDataOpen + value + kCDataClose;
    value.Replace(CString(u"&"), CString(u"&amp;"));
    value.Replace(CString(u"<"), CString(u"&lt;"));
    value.Replace(CString(u">"), CString(u"&gt;"));
    return value;
  }
  // The value already carries a CDATA section (text that was decorated once
  // before): a CDATA field ends up with exactly one section around all of
  // it; any other field is left as it is.
  if (!cdata) return value;
  value.Replace(CString(kCDataOpen), CString());
  value.Replace(CString(kCDataClose), CString());
  return kCDataOpen + value + kCDataClose;
}

}  // namespace

Relation::Relation(CString name) : name_(name) {}

Relation::Relation(const Relation& other) = default;

Relation& Relation::operator=(const Relation& other) = default;

Relation::~Relation() = default;

RGDBTemplate* Relation::EnsureTemplate() {
  if (!layout_) {
    layout_ = std::make_shared<RGDBTemplate>(-1);
    layout_->SetRelationID(id_);
  }
  return layout_.get();
}

int Relation::AddField(int id, int size, int type, CString defaultValue, CString decoration,
                       int cdata, int indexable) {
  EnsureTemplate()->AddField(id, size, type, defaultValue, decoration, cdata, indexable);
  return 1;
}

int Relation::AddFieldString(int id, int size, int indexable, CString defaultValue,
                             CString decoration, int cdata) {
  return AddField(id, size, Item::kTypeString, defaultValue, decoration, cdata, indexable);
}

int Relation::AddFieldInt(int id, int size, int defaultValue, CString decoration) {
  return AddField(id, size, Item::kTypeInt, CString::Formatted("%d", defaultValue), decoration, 0,
                  0);
}

int Relation::AddFieldBool(int id, int defaultValue, CString decoration) {
  return AddField(id, 1, Item::kTypeBool, CString(defaultValue != 0 ? "1" : "0"), decoration, 0, 0);
}

int Relation::AddFieldDate(int id, CString decoration) {
  return AddField(id, 30, Item::kTypeDate, CString(), decoration, 0, 0);
}

int Relation::AddFieldDouble(int id, double defaultValue, CString decoration) {
  return AddField(id, 10, Item::kTypeDouble, CString::Formatted("%f", defaultValue), decoration, 0,
                  0);
}

void Relation::SetFieldEditProperties(int id, CString label, int kind) {
  if (layout_) layout_->SetFieldEditProperties(id, label, kind);
}

CString Relation::GetFieldDecorationName(int id) const {
  const FieldInfo* field = layout_ ? layout_->GetField(id) : nullptr;
  return field ? field->decoration : CString();
}

CString Relation::GetFieldDefaultValueName(int id) const {
  const FieldInfo* field = layout_ ? layout_->GetField(id) : nullptr;
  return field ? field->defaultValue : CString();
}

CString Relation::FormatByteSize(long long bytes) {
  if (bytes > 0x100000) return CString::Formatted("%1.1f MBs", bytes / 1048576.0);
  const long long kilobytes = bytes / 1024;
  if (kilobytes == 0) return CString();
  return CString::Formatted("%d KBs", kilobytes);
}

PrintTemplate* Relation::PrintFocusableBackup(Focusable* record) const {
  if (record == nullptr) return nullptr;
  // The print leaves the record as it found it and saves nothing.
  Focusable::PrintHold hold;
  if (!record->BeginPrint(&hold)) return nullptr;

  PrintTemplate* printed = PrintTemplate::GeneratePrintTemplate(CString::Formatted("R%d", id_));
  if (printed != nullptr) {
    const int count = layout_ ? layout_->GetFieldCount() : 0;
    for (int index = 0; index < count; ++index) {
      const FieldInfo* field = layout_->GetField(index);
      if (field == nullptr) continue;
      const int fieldId = field->id;
      CString value;
      // The int fields of a link's pointer record are copied from another
      // record's header: they are backed up as stored text.
      if (id_ != kRelationFocusableLink && field->type == Item::kTypeInt) {
        value = CString::Formatted("%d", record->GetFieldInt(fieldId));
      } else {
        value = record->GetFieldString(fieldId, 1);
      }
      if (index == 0) value = record->GetGUID();
      if (value.IsEmpty()) continue;
      // Only the angle brackets are escaped: a backup has always kept "&"
      // as it is, and readers of backups expect that.
      value.Replace(CString(u"<"), CString(u"&lt;"));
      value.Replace(CString(u">"), CString(u"&gt;"));
      printed->AddTag(CString::Formatted("%d:%d", field->type, fieldId), value, 0);
    }
    AZeusDB* db = record->GetDB();
    if (db != nullptr) {
      printed->AddTag(CString(u"SysGUID"),
                      CString::Formatted("%d:%d", db->GetDBID(), record->GetDBSlotIndex()), 0);
    }
  }
  record->EndPrint(&hold);
  return printed;
}

PrintTemplate* Relation::DecorateFocusable(Focusable* record, int escape) const {
  if (record == nullptr) return nullptr;
  // The print leaves the record as it found it and saves nothing.
  Focusable::PrintHold hold;
  if (!record->BeginPrint(&hold)) return nullptr;

  PrintTemplate* printed = PrintTemplate::GeneratePrintTemplate(name_);
  if (printed != nullptr) {
    const int count = layout_ ? layout_->GetFieldCount() : 0;
    for (int index = 0; index < count; ++index) {
      const FieldInfo* field = layout_->GetField(index);
      if (field == nullptr || field->decoration.IsEmpty()) continue;
      const int fieldId = field->id;
      CString value;
      if (field->type == Item::kTypeDate) {
        value = KorlanDateTime::GetAgo_COleDateTime(record->GetFieldDate(fieldId), 0, 1, 0, 1);
      } else if (field->type == Item::kTypeInt) {
        value = CString::Formatted("%d", record->GetFieldInt(fieldId));
      } else {
        value = record->GetFieldString(fieldId, 0);
      }
      if (index == 0) {
        value = record->GetGUID();
        if (IsGuidPrefixedRelation(id_)) {
          value = CString::Formatted("%d:", record->GetOriginedResourceControllerID()) + value;
        }
      }
      if (value.IsEmpty()) continue;

      if (id_ == kRelationPost && fieldId == kPostFieldEnclosure) {
        CString url, length, type;
        SplitEnclosure(value, &url, &length, &type);
        if (url.IsEmpty()) continue;
        PrintTemplate* enclosure = PrintTemplate::GeneratePrintTemplate(CString(u"enclosure"));
        if (enclosure == nullptr) continue;
        enclosure->AddTag(CString(u"link"), url, 0);
        const CString size = FormatByteSize(_wtoi64(length));
        if (!size.IsEmpty()) enclosure->AddTag(CString(u"size"), size, 0);
        if (!type.IsEmpty()) enclosure->AddTag(CString(u"type"), type, 0);
        if (!printed->AddPrintTemplate(enclosure)) delete enclosure;
        continue;
      }
      // Fields 10 and 11 of a file are byte counts.
      if (id_ == kRelationFile && (fieldId == 10 || fieldId == 11)) {
        // Read from the text, so that a size beyond the int range (a file
        // of several gigabytes) keeps its value.
        const CString size = FormatByteSize(_wtoi64(record->GetFieldString(fieldId, 0)));
        if (!size.IsEmpty()) printed->AddTag(field->decoration, size, 0);
        continue;
      }
      if (escape) value = EscapeDecoratedValue(value, field->cdata);
      printed->AddTag(field->decoration, value, 0);
    }

    const int status = record->GetFocusableStatus();
    printed->SetAttribute(CString(u"read"), CString((status & 0x01) ? "true" : "false"));
    printed->SetAttribute(CString(u"trashed"), CString((status & 0x10) ? "true" : "false"));
    printed->SetAttribute(CString(u"deleted"),
                          CString(record->IsFocusableDeleted() ? "true" : "false"));
    printed->SetAttribute_wInt(CString(u"statusvalue"), status);
  }
  record->EndPrint(&hold);
  return printed;
}

}  // namespace kordll
