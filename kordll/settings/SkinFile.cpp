#include "kordll/settings/SkinFile.h"

#include <cstring>
#include <string>

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/WinFile.h"

namespace kordll {

namespace {

// The header's first token is split by "[|]" and the following by "|][":
// the same separators, so both walks cut the text at the same places.
const CString kFirstSeparators(u"[|]");
const CString kNextSeparators(u"|][");

CString JoinPath(const CString& directory, const CString& name) {
  return directory + CString(u"//") + name;
}

// A container needs both a folder and a name: without a folder, "//" + name
// would name a file at the top of the file system.
bool HasContainerPath(const CString& directory, const CString& name) {
  return !directory.IsEmpty() && !name.IsEmpty();
}

// The text of a record: little-endian 16-bit units up to the first NUL or
// the end of the bytes (an odd last byte is the low half of a unit whose
// high half is the cleared buffer's zero).
CString DecodeRecord(const uint8_t* bytes, size_t size) {
  std::u16string text;
  for (size_t i = 0; i < size; i += 2) {
    const uint16_t low = bytes[i];
    const uint16_t high = i + 1 < size ? bytes[i + 1] : 0;
    const char16_t unit = static_cast<char16_t>(low | (high << 8));
    if (unit == 0) break;
    text.push_back(unit);
  }
  return CString(std::move(text));
}

// Puts text and a NUL into a record of `size` bytes cleared whole. Answers
// false, leaving the record cleared, when they do not fit.
bool EncodeRecord(const CString& text, std::vector<uint8_t>* record, size_t size) {
  record->assign(size, 0);
  const std::u16string& units = text.str();
  if ((units.size() + 1) * 2 > size) return false;
  for (size_t i = 0; i < units.size(); ++i) {
    (*record)[2 * i] = static_cast<uint8_t>(units[i] & 0xFF);
    (*record)[2 * i + 1] = static_cast<uint8_t>(units[i] >> 8);
  }
  return true;
}

int Refuse(SkinParseReport* report, int64_t offset, const CString& reason) {
  if (report != nullptr) {
    report->offset = offset;
    report->reason = reason;
  }
  return 0;
}

}  // namespace

SkinFile::SkinFile() { ClearSkin(); }

SkinFile::~SkinFile() = default;

void SkinFile::ClearSkin() {
  for (CString& text : header_) text = CString();
  file_name_ = CString();
  directory_ = CString();
  entries_.clear();
  entry_sizes_.clear();
}

int SkinFile::ParseSkinFile(CString fileName, CString directory) {
  return ParseSkinFile(fileName, directory, nullptr);
}

int SkinFile::ParseSkinFile(CString fileName, CString directory, SkinParseReport* report) {
  if (report != nullptr) *report = SkinParseReport();
  WinFile file;
  if (!HasContainerPath(directory, fileName) ||
      !file.Open(JoinPath(directory, fileName), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING)) {
    return Refuse(report, -1, CString(u"the file cannot be opened"));
  }
  const int64_t file_size = file.GetFileSize();

  uint8_t header[kHeaderRecordSize] = {};
  uint32_t got = 0;
  if (!file.ReadFile(header, kHeaderRecordSize, &got)) {
    return Refuse(report, 0, CString(u"the header record cannot be read"));
  }
  const CString header_text = DecodeRecord(header, got);
  TokenState walk;
  CString token;
  int count = 0;
  for (int more = wcstok(&token, &header_text, kFirstSeparators, walk); more;
       more = wcstok(&token, nullptr, kNextSeparators, walk)) {
    // The fourth value is counted but, by the test against index 2, never
    // kept: the fourth text stays as it was.
    if (count <= 2) header_[count] = token;
    ++count;
  }
  if (count != 4) {
    return Refuse(
        report, 0,
        CString::Formatted("the header holds %d value(s), the reader takes exactly 4", count));
  }
  file_name_ = fileName;
  directory_ = directory;

  for (;;) {
    const int64_t record_offset = file.GetFilePointer();
    uint8_t record[kEntryRecordSize] = {};
    got = 0;
    if (!file.ReadFile(record, kEntryRecordSize, &got) || got == 0) return 1;
    if (got != kEntryRecordReadSize) {
      return Refuse(
          report, record_offset,
          CString::Formatted("the entry record read brought %d bytes, the reader takes exactly %d",
                             static_cast<int>(got), kEntryRecordReadSize));
    }
    const CString record_text = DecodeRecord(record, got);
    TokenState fields;
    CString name;
    CString size_text;
    if (wcstok(&name, &record_text, kFirstSeparators, fields)) {
      wcstok(&size_text, nullptr, kNextSeparators, fields);
    }
    if (name.IsEmpty()) {
      return Refuse(report, record_offset, CString(u"the entry record has no name"));
    }
    const int size = _wtoi(size_text);
    const int64_t data_offset = file.GetFilePointer();
    const int64_t left = file_size - data_offset;
    if (size <= 0 || size > left) {
      return Refuse(report, record_offset,
                    CString::Formatted("entry \"%s\" has size %d with %lld byte(s) left", name,
                                       size, static_cast<long long>(left < 0 ? 0 : left)));
    }
    std::vector<uint8_t> block(static_cast<size_t>(size));
    got = 0;
    if (!file.ReadFile(block.data(), static_cast<uint32_t>(size), &got)) return 1;
    if (got < static_cast<uint32_t>(size)) {
      return Refuse(report, data_offset, CString::Formatted("entry \"%s\" is cut short", name));
    }
    entries_[name] = std::move(block);
    entry_sizes_[name] = size;
    if (report != nullptr) ++report->entries;
  }
}

void SkinFile::FlushSkin() {
  if (!HasContainerPath(directory_, file_name_)) return;
  // Every record is made before the file is touched, so that a text that
  // does not fit leaves an existing container as it was.
  std::vector<uint8_t> header;
  const CString header_text = CString(u"[") + header_[0] + CString(u"|") + header_[1] +
                              CString(u"|") + header_[2] + CString(u"]");
  if (!EncodeRecord(header_text, &header, kHeaderRecordSize)) return;
  std::vector<std::vector<uint8_t>> records;
  std::vector<const std::vector<uint8_t>*> blocks;
  for (const auto& [name, bytes] : entries_) {
    auto size = entry_sizes_.find(name);
    if (name.IsEmpty() || bytes.empty() || size == entry_sizes_.end() || size->second <= 0) {
      continue;
    }
    std::vector<uint8_t> record;
    const CString text = CString(u"[") + name + CString(u"|") + _itow(size->second) + CString(u"]");
    if (!EncodeRecord(text, &record, kEntryRecordSize)) return;
    records.push_back(std::move(record));
    blocks.push_back(&bytes);
  }

  WinFile file;
  if (!file.Open(JoinPath(directory_, file_name_), GENERIC_WRITE, 0, CREATE_ALWAYS)) return;
  if (!file.WriteFile(header.data(), kHeaderRecordSize, nullptr)) return;
  for (size_t i = 0; i < records.size(); ++i) {
    if (!file.WriteFile(records[i].data(), kEntryRecordSize, nullptr)) return;
    if (!file.WriteFile(blocks[i]->data(), static_cast<uint32_t>(blocks[i]->size()), nullptr)) {
      return;
    }
  }
}

bool SkinFile::IsExportableEntryName(const CString& entryName) {
  const std::u16string& name = entryName.str();
  if (name.empty() || name == u"." || name == u".." || name[0] == u'~') return false;
  return name.find_first_of(std::u16string_view(u"/\\\0", 3)) == std::u16string::npos;
}

int SkinFile::ExportSkinFile(CString entryName, CString directory) {
  if (directory.IsEmpty()) return 0;
  auto entry = entries_.find(entryName);
  if (entry == entries_.end()) return 0;
  if (!IsExportableEntryName(entryName)) return 0;
  WinFile file;
  if (!file.Open(JoinPath(directory, entryName), GENERIC_WRITE, 0, CREATE_ALWAYS)) return 0;
  const std::vector<uint8_t>& bytes = entry->second;
  uint32_t written = 0;
  const int ok = file.WriteFile(bytes.data(), static_cast<uint32_t>(bytes.size()), &written);
  const int closed = file.Close();
  return ok && closed && written == bytes.size() ? 1 : 0;
}

int SkinFile::ExportAllSkinFiles(CString directory) {
  if (directory.IsEmpty()) return 0;
  for (const auto& entry : entries_) ExportSkinFile(entry.first, directory);
  return 1;
}

int SkinFile::AddSkinEntry(CString entryName, const void* bytes, int size) {
  if (entryName.IsEmpty() || size < 0 || (size > 0 && bytes == nullptr)) return 0;
  const auto* begin = static_cast<const uint8_t*>(bytes);
  entries_[entryName] = std::vector<uint8_t>(begin, begin + size);
  entry_sizes_[entryName] = size;
  return 1;
}

CString SkinFile::GetHeaderText(int index) const {
  return index >= 0 && index < 4 ? header_[index] : CString();
}

void SkinFile::SetHeaderText(int index, CString text) {
  if (index >= 0 && index < 4) header_[index] = text;
}

std::vector<CString> SkinFile::GetEntryNames() const {
  std::vector<CString> names;
  for (const auto& entry : entries_) names.push_back(entry.first);
  return names;
}

int SkinFile::GetEntrySize(const CString& entryName) const {
  auto size = entry_sizes_.find(entryName);
  return size == entry_sizes_.end() ? -1 : size->second;
}

const std::vector<uint8_t>* SkinFile::GetEntry(const CString& entryName) const {
  auto entry = entries_.find(entryName);
  return entry == entries_.end() ? nullptr : &entry->second;
}

}  // namespace kordll
