#include "kordll/record/StoreJournal.h"

#include <cstring>

#include "kordll/platform/FileSystem.h"
#include "kordll/record/LittleEndian.h"

namespace kordll {

namespace {

constexpr char kMagic[8] = {'K', 'O', 'R', 'J', 'R', 'N', 'L', '1'};
constexpr size_t kHeaderSize = 20;  // magic, size, checksum
constexpr size_t kRecordHead = 16;  // offset, length, checksum

}  // namespace

CString StoreJournal::PathFor(const CString& storePath) { return storePath + "-journal"; }

StoreJournal::~StoreJournal() {
  if (file_.IsOpen()) file_.Close();
}

uint32_t StoreJournal::Checksum(const unsigned char* bytes, size_t size, uint32_t seed) {
  uint32_t h = seed;
  for (size_t i = 0; i < size; ++i) {
    h ^= bytes[i];
    h *= 16777619u;
  }
  return h;
}

int StoreJournal::Append(uint64_t originalSize, const std::vector<Image>& images, bool toDisk) {
  buffer_.clear();
  if (!file_.IsOpen()) {
    if (!file_.Open(path_, GENERIC_READ | GENERIC_WRITE, 0, CREATE_ALWAYS)) return 0;
    buffer_.insert(buffer_.end(), kMagic, kMagic + sizeof(kMagic));
    LittleEndian::Append(&buffer_, originalSize, 8);
    LittleEndian::Append(&buffer_, Checksum(buffer_.data(), buffer_.size(), 2166136261u), 4);
    end_ = 0;
  }
  for (const Image& image : images) {
    const size_t at = buffer_.size();
    LittleEndian::Append(&buffer_, image.offset, 8);
    LittleEndian::Append(&buffer_, image.bytes.size(), 4);
    uint32_t sum = Checksum(buffer_.data() + at, 12, 2166136261u);
    sum = Checksum(image.bytes.data(), image.bytes.size(), sum);
    LittleEndian::Append(&buffer_, sum, 4);
    buffer_.insert(buffer_.end(), image.bytes.begin(), image.bytes.end());
  }
  uint32_t written = 0;
  if (!buffer_.empty() && (!file_.WriteFileAt(static_cast<int64_t>(end_), buffer_.data(),
                                              static_cast<uint32_t>(buffer_.size()), &written) ||
                           written != buffer_.size())) {
    return 0;
  }
  end_ += buffer_.size();
  if (toDisk && !file_.FlushFileBuffers()) return 0;
  return 1;
}

int StoreJournal::Remove() {
  if (!file_.IsOpen()) return 1;
  if (FileSystem::DeleteFile(path_)) {
    file_.Close();
    return 1;
  }
  // A journal that cannot be removed is emptied: without its header it
  // holds nothing to undo.
  const bool emptied = file_.SetFilePointer(0, FILE_BEGIN) == 0 && file_.SetEndOfFile();
  file_.Close();
  return emptied ? 1 : 0;
}

bool StoreJournal::Exists(const CString& storePath) {
  return FileSystem::Exists(PathFor(storePath));
}

void StoreJournal::Discard(const CString& storePath) { FileSystem::DeleteFile(PathFor(storePath)); }

int StoreJournal::Recover(const CString& storePath, WinFile* store, bool toDisk, bool* undone) {
  if (undone != nullptr) *undone = false;
  const CString path = PathFor(storePath);
  WinFile journal;
  if (!journal.Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING)) {
    return journal.GetLastError() == ERROR_FILE_NOT_FOUND ? 1 : 0;
  }
  const int64_t size = journal.GetFileSize();
  unsigned char head[kHeaderSize];
  uint32_t got = 0;
  const bool valid = size >= static_cast<int64_t>(kHeaderSize) &&
                     journal.ReadFileAt(0, head, kHeaderSize, &got) && got == kHeaderSize &&
                     std::memcmp(head, kMagic, sizeof(kMagic)) == 0 &&
                     LittleEndian::Get(head + 16, 4) == Checksum(head, 16, 2166136261u);
  if (valid) {
    const uint64_t original = LittleEndian::Get(head + 8, 8);
    std::vector<unsigned char> bytes;
    int64_t at = kHeaderSize;
    unsigned char rec[kRecordHead];
    while (at + static_cast<int64_t>(kRecordHead) <= size &&
           journal.ReadFileAt(at, rec, kRecordHead, &got) && got == kRecordHead) {
      const uint64_t offset = LittleEndian::Get(rec, 8);
      const uint64_t length = LittleEndian::Get(rec + 8, 4);
      if (static_cast<int64_t>(length) > size - at - static_cast<int64_t>(kRecordHead)) break;
      bytes.resize(length);
      if (!journal.ReadFileAt(at + kRecordHead, bytes.data(), static_cast<uint32_t>(length),
                              &got) ||
          got != length) {
        break;
      }
      const uint32_t sum = Checksum(bytes.data(), length, Checksum(rec, 12, 2166136261u));
      if (sum != LittleEndian::Get(rec + 12, 4)) break;  // the record was being written
      uint32_t written = 0;
      if (!store->WriteFileAt(static_cast<int64_t>(offset), bytes.data(),
                              static_cast<uint32_t>(length), &written) ||
          written != length) {
        return 0;
      }
      if (undone != nullptr) *undone = true;
      at += static_cast<int64_t>(kRecordHead + length);
    }
    // What the change added behind the old end goes.
    if (store->GetFileSize() > static_cast<int64_t>(original)) {
      if (store->SetFilePointer(static_cast<int64_t>(original), FILE_BEGIN) < 0 ||
          !store->SetEndOfFile()) {
        return 0;
      }
      if (undone != nullptr) *undone = true;
    }
    if (toDisk && !store->FlushFileBuffers()) return 0;
  }
  journal.Close();
  if (FileSystem::DeleteFile(path)) return 1;
  // A journal that stays would undo later changes at the next opening: it
  // is emptied, or the store must not be written.
  WinFile empty;
  return empty.Open(path, GENERIC_WRITE, 0, TRUNCATE_EXISTING) ? 1 : 0;
}

}  // namespace kordll
