#include "kordll/schema/Relation.h"

#include "kordll/platform/CRuntime.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/Item.h"
#include "kordll/record/RGDBTemplate.h"

namespace kordll {

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

}  // namespace kordll
