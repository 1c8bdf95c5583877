#include "kordll/record/SubTableIndex.h"

#include <algorithm>
#include <cstring>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/WinFile.h"
#include "kordll/record/KdbFormat.h"
#include "kordll/record/LittleEndian.h"

namespace kordll {

namespace {

constexpr char kMagic[8] = {'K', 'O', 'R', 'M', 'A', 'P', '0', '1'};
constexpr size_t kHeaderSize = sizeof(kMagic);
constexpr size_t kEntrySize = 24;
// The smallest sub-table the format allows (one field of length 0): no map
// holds more entries than the record file has room for such sub-tables.
constexpr int64_t kSmallestSubTable = 42 + 42 + 7 + 40 * 29;
// Field counts beyond this would give a header no sub-table line can carry.
constexpr int kMostFields = 1 << 20;

void PutEntry(unsigned char* out, const SubTableIndex::Entry& entry) {
  LittleEndian::Put(out, entry.firstSlotPosition, 8);
  LittleEndian::Put(out + 8, static_cast<uint32_t>(entry.id), 4);
  LittleEndian::Put(out + 12, static_cast<uint32_t>(entry.relation), 4);
  LittleEndian::Put(out + 16, static_cast<uint32_t>(entry.fieldCount), 4);
  LittleEndian::Put(out + 20, static_cast<uint32_t>(entry.slotSize), 4);
}

}  // namespace

CString SubTableIndex::PathFor(const CString& storePath) { return storePath + "-map"; }

bool SubTableIndex::Inspect(const CString& storePath, int64_t storeSize, size_t* count, Entry* last,
                            bool* whole) {
  *count = 0;
  *whole = false;
  WinFile file;
  if (!file.Open(PathFor(storePath), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING)) return false;
  const int64_t size = file.GetFileSize();
  char magic[kHeaderSize];
  uint32_t got = 0;
  if (size < static_cast<int64_t>(kHeaderSize + kEntrySize) ||
      storeSize < KdbFormat::kDBHeaderSize || !file.ReadFileAt(0, magic, kHeaderSize, &got) ||
      got != kHeaderSize || std::memcmp(magic, kMagic, kHeaderSize) != 0) {
    return false;
  }
  const int64_t stored = (size - static_cast<int64_t>(kHeaderSize)) / kEntrySize;
  // No map holds more sub-tables than the record file has room for.
  if (stored > (storeSize - KdbFormat::kDBHeaderSize) / kSmallestSubTable) return false;
  if (!ReadRange(&file, static_cast<size_t>(stored - 1), 1, last)) return false;
  const uint64_t end = last->firstSlotPosition +
                       static_cast<uint64_t>(KdbFormat::kSlotsPerSubTable) * last->slotSize;
  if (!Plausible(*last) || last->id != stored - 1 || end > static_cast<uint64_t>(storeSize)) {
    return false;
  }
  *count = static_cast<size_t>(stored);
  *whole = size == static_cast<int64_t>(kHeaderSize + stored * kEntrySize);
  return true;
}

bool SubTableIndex::ReadEntries(const CString& storePath, size_t first, size_t n, Entry* out) {
  WinFile file;
  if (!file.Open(PathFor(storePath), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING)) return false;
  if (!ReadRange(&file, first, n, out)) return false;
  for (size_t i = 0; i < n; ++i) {
    if (!Plausible(out[i])) return false;
  }
  return true;
}

bool SubTableIndex::ReadRange(WinFile* file, size_t first, size_t n, Entry* out) {
  if (n > UINT32_MAX / kEntrySize) return false;
  const int64_t at = static_cast<int64_t>(kHeaderSize + first * kEntrySize);
  const uint32_t span = static_cast<uint32_t>(n * kEntrySize);
  uint32_t got = 0;
  std::vector<unsigned char> bytes(span);
  if (!file->ReadFileAt(at, bytes.data(), span, &got) || got != span) return false;
  for (size_t i = 0; i < n; ++i) {
    const unsigned char* in = bytes.data() + i * kEntrySize;
    out[i].firstSlotPosition = LittleEndian::Get(in, 8);
    out[i].id = LittleEndian::GetInt32(in + 8);
    out[i].relation = LittleEndian::GetInt32(in + 12);
    out[i].fieldCount = LittleEndian::GetInt32(in + 16);
    out[i].slotSize = LittleEndian::GetInt32(in + 20);
  }
  return true;
}

bool SubTableIndex::Plausible(const Entry& entry) {
  if (entry.id < 0 || entry.id > KdbFormat::kMaxSubTableID || entry.fieldCount < 1 ||
      entry.fieldCount > kMostFields || entry.slotSize < entry.fieldCount + 28) {
    return false;
  }
  const uint64_t header = static_cast<uint64_t>(
      KdbFormat::SubTableHeaderSize(KdbFormat::kSlotsPerSubTable, entry.fieldCount));
  return entry.firstSlotPosition >= KdbFormat::kDBHeaderSize + header;
}

bool SubTableIndex::Write(const CString& storePath, const std::vector<Entry>& entries) {
  std::vector<unsigned char> bytes(kHeaderSize + entries.size() * kEntrySize);
  std::memcpy(bytes.data(), kMagic, kHeaderSize);
  for (size_t i = 0; i < entries.size(); ++i) {
    PutEntry(bytes.data() + kHeaderSize + i * kEntrySize, entries[i]);
  }
  WinFile file;
  uint32_t written = 0;
  const bool ok =
      bytes.size() <= UINT32_MAX &&
      file.Open(PathFor(storePath), GENERIC_READ | GENERIC_WRITE, 0, CREATE_ALWAYS) &&
      file.WriteFileAt(0, bytes.data(), static_cast<uint32_t>(bytes.size()), &written) &&
      written == bytes.size();
  if (file.IsOpen()) file.Close();
  if (!ok) Discard(storePath);
  return ok;
}

bool SubTableIndex::Append(const CString& storePath, const Entry& entry, size_t count) {
  unsigned char bytes[kEntrySize];
  PutEntry(bytes, entry);
  WinFile file;
  uint32_t written = 0;
  const bool ok = file.Open(PathFor(storePath), GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING) &&
                  file.WriteFileAt(static_cast<int64_t>(kHeaderSize + count * kEntrySize), bytes,
                                   kEntrySize, &written) &&
                  written == kEntrySize;
  if (file.IsOpen()) file.Close();
  // A map that may now be torn is dropped: the next opening maps the file
  // whole and writes it again.
  if (!ok) Discard(storePath);
  return ok;
}

void SubTableIndex::Discard(const CString& storePath) {
  FileSystem::DeleteFile(PathFor(storePath));
}

void SubTableIndex::Move(const CString& from, const CString& to) {
  Discard(to);
  if (FileSystem::Exists(PathFor(from))) FileSystem::MoveFile(PathFor(from), PathFor(to));
}

}  // namespace kordll
