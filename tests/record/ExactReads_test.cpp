// Reads that take exactly the bytes asked: the file's exact read against
// pending writes, and a start that maps a file and reads one record by its
// slot without reading the slots it skips.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "kordll/record/SlotFile.h"
#include "tests/support/MemEnv.h"

namespace kordll {
namespace {

// Counts the bytes read through the files it opens.
class CountingEnv : public EnvWrapper {
 public:
  explicit CountingEnv(Env* base) : EnvWrapper(base) {}
  std::atomic<int64_t> bytes{0};

  int OpenFile(const std::string& path, uint32_t access, int disposition,
               std::unique_ptr<EnvFile>* file) override {
    const int r = base()->OpenFile(path, access, disposition, file);
    if (*file) *file = std::make_unique<File>(std::move(*file), this);
    return r;
  }

 private:
  class File : public EnvFileWrapper {
   public:
    File(std::unique_ptr<EnvFile> base, CountingEnv* env)
        : EnvFileWrapper(std::move(base)), env_(env) {}
    int ReadAt(int64_t offset, void* buffer, uint32_t count, uint32_t* read) override {
      const int r = EnvFileWrapper::ReadAt(offset, buffer, count, read);
      env_->bytes += *read;
      return r;
    }

   private:
    CountingEnv* env_;
  };
};

TEST(SlotFileExactReadTest, SeesPendingWritesAndReadsOnlyWhatTheCacheLacks) {
  test::MemEnv mem;
  CountingEnv counting(&mem);
  ScopedEnv use(&counting);
  SlotFile file;
  ASSERT_EQ(1, file.Open(CString("/tmp/f.kdb"), SlotFile::kCreate, nullptr));
  // Three pages on disk, then writes that wait in the cache: one across a
  // page boundary and one past the end that leaves a gap.
  std::string model(3 * SlotFile::kPageSize, 'a');
  ASSERT_EQ(1, file.WriteAt(0, model.data(), static_cast<uint32_t>(model.size())));
  ASSERT_EQ(1, file.Flush());
  file.Close();
  ASSERT_EQ(1, file.Open(CString("/tmp/f.kdb"), SlotFile::kOpenReadWrite, nullptr));
  // Bytes that the cache does not hold come from the file, exactly those.
  const int64_t before = counting.bytes;
  char buffer[151];
  uint32_t n = 0;
  ASSERT_EQ(1, file.ReadExact(2 * SlotFile::kPageSize + 7, buffer, 151, &n));
  EXPECT_EQ(151u, n);
  EXPECT_EQ(151, counting.bytes - before);
  const std::string cross(100, 'b');
  ASSERT_EQ(1, file.WriteAt(SlotFile::kPageSize - 50, cross.data(), 100));
  model.replace(SlotFile::kPageSize - 50, 100, cross);
  const uint64_t far = 5 * SlotFile::kPageSize + 10;
  ASSERT_EQ(1, file.WriteAt(far, "zz", 2));
  model.resize(far, '\0');
  model += "zz";

  const struct {
    uint64_t offset;
    uint32_t count;
  } ranges[] = {{0, 30},
                {SlotFile::kPageSize - 60, 200},
                {2 * SlotFile::kPageSize + 7, 151},
                {3 * SlotFile::kPageSize - 5, 100},
                {0, static_cast<uint32_t>(model.size() + 50)}};
  for (const auto& r : ranges) {
    std::string got(r.count, '?');
    uint32_t n = 0;
    ASSERT_EQ(1, file.ReadExact(r.offset, got.data(), r.count, &n)) << r.offset;
    got.resize(n);
    EXPECT_EQ(model.substr(r.offset, r.count), got) << r.offset;
  }
}

TEST(AZeusDBExactReadTest, StartReadsHeadersAndTheWantedFrontOnly) {
  test::MemEnv mem;
  CountingEnv counting(&mem);
  ScopedEnv use(&counting);
  RGDBTemplate tmpl(4);
  tmpl.AddField(0, 20, 4, "", "guid", 0, 0);
  tmpl.AddField(1, 10, 0, "", "status", 0, 0);
  tmpl.AddField(4, 200, 4, "", "title", 0, 0);
  RelationsEntryPoints::SetTemplate(4, &tmpl);
  constexpr int kRecords = 30 * 40;
  {
    AZeusDB db(CString("/tmp"), CString("posts"), 10, 0);
    std::vector<Focusable*> batch;
    for (int i = 0; i < kRecords; ++i) {
      auto* r = new Focusable(4, nullptr);
      r->SetValueStr(0, CString(("G" + std::to_string(i)).c_str()), 1);
      r->SetValueInt(1, i % 7, 1);
      r->SetValueStr(4, CString("a title"), 1);
      batch.push_back(r);
    }
    ASSERT_EQ(1, db.writeFocusablesSlot(&batch, nullptr, nullptr));
    for (Focusable* r : batch) delete r;
  }

  counting.bytes = 0;
  AZeusDB db(CString("/tmp"), CString("posts"), 10, 0);
  DBTaskItem task;
  task.DefineFieldTaskType(0, DBTaskItem::kTaskLoad);
  task.DefineFieldTaskType(1, DBTaskItem::kTaskLoad);
  Focusable r(4, nullptr);
  r.SetDBSlotIndex(kRecords - 1);
  ASSERT_EQ(1, db.readFocusableSlot(&r, nullptr, &task));
  EXPECT_EQ(CString("G1199"), r.GetFieldString(0, 0));
  EXPECT_EQ(1199 % 7, r.GetFieldInt(1));
  // The database header, every sub-table header, and of the one slot its
  // header, items status and the first two areas.
  const std::vector<_struct_SubTableInfo> infos = db.GetSubTableInfos();
  ASSERT_EQ(30u, infos.size());
  int64_t needed = 1000;
  for (const _struct_SubTableInfo& info : infos) needed += info.GetHeaderSize();
  needed += 25 + infos.back().fieldCount + 2 + 20 + 10;
  EXPECT_EQ(needed, counting.bytes.load());
}

}  // namespace
}  // namespace kordll
