#include "kordll/record/RGDBTemplate.h"

#include "kordll/record/Item.h"

namespace kordll {

namespace {

int EditKindForType(int type) {
  switch (type) {
    case Item::kTypeString:
      return 1;
    case Item::kTypeInt:
      return 3;
    case Item::kTypeDouble:
      return 3;
    case Item::kTypeDate:
      return 4;
    default:
      return 0;  // bool and unknown types stay 0
  }
}

}  // namespace

RGDBTemplate::RGDBTemplate(int relationID) : relationID_(relationID) {}

RGDBTemplate::~RGDBTemplate() {
  for (FieldInfo* field : fields_) delete field;
}

void RGDBTemplate::AddField(int id, int size, int type, CString defaultValue, CString decoration,
                            int cdata, int indexable) {
  if (id < 0 || id > kMaxFieldID) return;
  auto* field = new FieldInfo();
  field->id = id;
  field->size = size;
  field->type = type;
  field->defaultValue = std::move(defaultValue);
  field->decoration = std::move(decoration);
  field->cdata = cdata;
  field->indexable = indexable;
  field->editKind = EditKindForType(type);
  if (id >= GetFieldCount()) fields_.resize(static_cast<size_t>(id) + 1, nullptr);
  // The schema never defines a field twice; if it happens the new
  // definition wins and the old one is freed rather than lost.
  delete fields_[id];
  fields_[id] = field;
}

void RGDBTemplate::SetFieldEditProperties(int id, CString label, int kind) {
  FieldInfo* field = GetField(id);
  if (field == nullptr) return;
  field->editLabel = std::move(label);
  field->editKind = kind;
}

FieldInfo* RGDBTemplate::GetField(int id) const {
  if (id < 0 || id >= GetFieldCount()) return nullptr;
  return fields_[id];
}

int RGDBTemplate::GetFieldID(int index) const {
  const FieldInfo* field = GetField(index);
  return field != nullptr ? field->id : -1;
}

int RGDBTemplate::GetFieldSize(int id) const {
  const FieldInfo* field = GetField(id);
  return field != nullptr ? field->size : 0;
}

int RGDBTemplate::IsFieldIndexable(int id) const {
  const FieldInfo* field = GetField(id);
  return field != nullptr ? field->indexable : 0;
}

int RGDBTemplate::GetFieldType(int id) const {
  const FieldInfo* field = GetField(id);
  return field != nullptr ? field->type : -1;
}

}  // namespace kordll
