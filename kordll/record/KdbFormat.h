// KdbFormat: the fixed numbers and the small text records of the record
// (".kdb") and string (".sdb") database files.
//
// Every number in these files is decimal text inside brackets, separated by
// colons: "[11:-1:]" heads a new record file, "[4:-1:0:-1]" heads a slot.
// The numbers below are written to disk and must not change.

#ifndef KORDLL_RECORD_KDBFORMAT_H_
#define KORDLL_RECORD_KDBFORMAT_H_

#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kordll {

class KdbFormat {
 public:
  static constexpr int kVersion = 11;
  static constexpr int kDBHeaderSize = 1000;
  static constexpr int kSlotHeaderSize = 25;
  static constexpr int kSlotsPerSubTable = 40;
  static constexpr int kSubTableLineSize = 42;
  static constexpr int kLengthGranularity = 10;
  static constexpr int kMaxFieldLength = 9999;
  // The largest sub-table id: every global slot index of it, 40 x id + place,
  // is still an int. A file grows until the disk is full; a sub-table line
  // with a larger id is damage.
  static constexpr int kMaxSubTableID = (INT_MAX - (kSlotsPerSubTable - 1)) / kSlotsPerSubTable;

  static constexpr int kStringHeaderSize = 20;
  static constexpr int kStringSlotHeaderSize = 19;
  static constexpr int kStringMinDataSize = 7;
  static constexpr int kStringMaxDataSize = 9999;

  // Scans text[0, size) with the meaning of sscanf and a format "[%d:%d...]"
  // of count numbers: "[" must come first, each number may be preceded by
  // white space and a sign, numbers are separated by ":" exactly. Values
  // beyond the int range saturate. Stops at the first NUL. Returns how many
  // numbers were read (0 when "[" is missing).
  static int ScanInts(const char* text, size_t size, int* values, int count);

  // "[a:b:c...]" of the values.
  static std::string FormatInts(const int* values, int count);
  // The bytes of a free slot of that size: the header "[-1:-1:-1:-1]",
  // NUL bytes, and the newline that ends every slot.
  static std::string FreeSlot(int size);

  // The sub-table's slot size for these lengths: sum + fieldCount + 28.
  static int64_t SlotSize(const std::vector<int>& lengths);
  // Bytes of a sub-table header: 42 + (slots + 2) + (6 x fields + 1).
  static int64_t SubTableHeaderSize(int slots, int fields);

  // Splits a field-lengths block at "," "[" "]" up to the first NUL; each
  // piece is read as a decimal number (_atoi meaning).
  static std::vector<int> ParseLengths(const char* text, size_t size);

  // Whether a database name stays inside the folder it is joined to: not
  // empty, not "." or "..", and free of "/", U+0000 and control characters.
  // Files of other names are neither made, opened, moved nor removed.
  static bool IsSafeName(std::u16string_view name);
};

}  // namespace kordll

#endif  // KORDLL_RECORD_KDBFORMAT_H_
