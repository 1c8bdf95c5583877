// Helpers shared by the source files of the record file engine. Private to
// the library.

#ifndef KORDLL_RECORD_AZEUSDBINTERNAL_H_
#define KORDLL_RECORD_AZEUSDBINTERNAL_H_

#include <string>

#include "kordll/record/AZeusDB.h"
#include "kordll/record/KdbFormat.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RelationsEntryPoints.h"

namespace kordll {
namespace azeus {

constexpr int kSlotsPer = KdbFormat::kSlotsPerSubTable;
constexpr int kSlotHeader = KdbFormat::kSlotHeaderSize;
constexpr int kLine = KdbFormat::kSubTableLineSize;

inline RGDBTemplate* CatalogueTemplate(int relation) {
  return RelationsEntryPoints::Get()->GetRGDBTemplate(relation);
}

// The four numbers of a slot header in the order they stand on disk.
inline std::string FormatSlotHeader(const _struct_SLOTHEADER& h) {
  const int v[4] = {h.relation, h.next, h.sequence, h.previous};
  return KdbFormat::FormatInts(v, 4);
}

}  // namespace azeus
}  // namespace kordll

#endif  // KORDLL_RECORD_AZEUSDBINTERNAL_H_
