// Both stores, with their journal on, killed at random moments while they
// save: a child process
// saves and re-saves records and texts of changing length (chains that grow
// and shrink), reporting each save before it starts and after it returned;
// the parent kills it with SIGKILL after a random number of reports, opens
// the files again and checks that every record and text reads back as its
// last returned save, or, for the one under way, as the save before it or
// the new one, and that the record file holds no damage at all.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <random>
#include <sstream>
#include <string>

#include "kordll/platform/FileSystem.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/KdbExaminer.h"
#include "kordll/record/StringDB.h"
#include "tests/record/FocusableTestSupport.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

constexpr int kKills = 200;
constexpr int kItems = 6;  // records 0..5 in the record file, texts 6..11 in the string file

// The text of save v of item k: its length runs from 1 to 150 characters,
// so that chains grow and shrink from one save to the next.
std::string Text(int k, int v) {
  std::string text = "k" + std::to_string(k) + "v" + std::to_string(v) + ":";
  text.resize(1 + (k * 37 + v * 53) % 150, static_cast<char>('a' + (k + v) % 26));
  return text;
}

struct Item {
  int slot = -1;  // where it is stored; -1 until a save of it returned
  int version = -1;
};

// What the child tells of a save: 'B' before it begins, 'E' once it
// returned. One write each, so that the parent reads them whole.
struct Report {
  char what;
  int k, version, slot;
};

// The child: saves forever, reporting each save. Never returns.
[[noreturn]] void SaveForever(const CString& dir, std::map<int, Item> items, int fd,
                              unsigned seed) {
  std::mt19937 random(seed);
  AZeusDB db(dir, "crash", 10, 0);
  StringDB texts(dir, "crash", 30, 4);
  db.SetJournal(1);
  texts.SetJournal(1);
  db.openDB(0);
  texts.openDB(0);
  for (;;) {
    const int k = static_cast<int>(random() % (2 * kItems));
    Item& item = items[k];
    const int v = item.version + 1;
    Report report{'B', k, v, item.slot};
    if (write(fd, &report, sizeof(report)) != sizeof(report)) _exit(3);
    int ok;
    if (k < kItems) {
      Focusable record(4, nullptr);
      record.SetDBSlotIndex(item.slot);
      record.SetValueStr(0, CString(("R3_G" + std::to_string(k)).c_str()), 1);
      record.SetValueStr(4, CString(Text(k, v).c_str()), 1);
      ok = db.writeFocusableSlot(&record, nullptr, nullptr) == 1 && record.NeedToSave() == 0;
      item.slot = record.GetDBSlotIndex();
    } else {
      ok = texts.WriteStringSlot(&item.slot, CString(Text(k, v).c_str())) > 0;
    }
    if (!ok) _exit(2);
    item.version = v;
    report = {'E', k, v, item.slot};
    if (write(fd, &report, sizeof(report)) != sizeof(report)) _exit(3);
  }
}

// What item k at slot reads back as.
std::string Read(AZeusDB* db, StringDB* texts, int k, int slot) {
  CString text;
  if (slot < 0) return "<never stored>";
  if (k < kItems) return test::ReadField(db, slot);
  return texts->ReadStringSlot(slot, text) > 0 ? text.ToUtf8() : "<unreadable>";
}

TEST(CrashLoopTest, EverySaveReadsBackAfterAKillAtAnyMoment) {
  test::TempRoot root;
  ASSERT_TRUE(root.ok());
  const CString dir = root.DataRoot();
  test::PostLayout layout;
  std::map<int, Item> items;
  std::mt19937 random(20261124);
  int cut_off = 0;  // kills that landed before the save under way returned
  for (int kill_no = 0; kill_no < kKills && !HasFailure(); ++kill_no) {
    SCOPED_TRACE("kill " + std::to_string(kill_no));
    int pipe_fds[2];
    ASSERT_EQ(0, pipe(pipe_fds));
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      close(pipe_fds[0]);
      SaveForever(dir, items, pipe_fds[1], static_cast<unsigned>(random()));
    }
    close(pipe_fds[1]);
    // Kill right after the child reports that its first, second or third
    // save begins: the kill lands somewhere inside that save.
    int starts_left = 1 + static_cast<int>(random() % 3);
    int busy = -1, busy_version = -1;  // the save under way
    Report r;
    while (read(pipe_fds[0], &r, sizeof(r)) == sizeof(r)) {
      if (r.what == 'E') {
        items[r.k] = {r.slot, r.version};
        busy = -1;
        continue;
      }
      busy = r.k;
      busy_version = r.version;
      if (--starts_left == 0) kill(pid, SIGKILL);
    }
    close(pipe_fds[0]);
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "child ended " << status;
    if (busy != -1) ++cut_off;
    // Opening undoes what the kill cut off.
    AZeusDB db(dir, "crash", 10, 0);
    StringDB texts(dir, "crash", 30, 4);
    db.SetJournal(1);
    texts.SetJournal(1);
    db.openDB(0);
    texts.openDB(0);
    std::string kdb, sdb;
    ASSERT_EQ(1, FileSystem::ReadWholeFile(dir + "/crash.kdb", &kdb));
    ASSERT_EQ(1, FileSystem::ReadWholeFile(dir + "/crash.sdb", &sdb));
    std::ostringstream problems;
    EXPECT_EQ(0, KdbExaminer::CheckKdb(kdb, problems) + KdbExaminer::CheckSdb(sdb, problems))
        << problems.str();
    for (auto& [k, item] : items) {
      const std::string got = Read(&db, &texts, k, item.slot);
      if (k == busy && got == Text(k, busy_version)) {
        item.version = busy_version;  // the save was made; its report was not
        continue;
      }
      EXPECT_EQ(item.version < 0 ? "<never stored>" : Text(k, item.version), got)
          << "item " << k << " at slot " << item.slot;
    }
    db.closeDB();
    texts.closeDB();
  }
  // Most kills cut a save off, not only fell between saves.
  RecordProperty("kills_during_a_save", cut_off);
  EXPECT_GE(cut_off, kKills / 4);
}

}  // namespace
}  // namespace kordll
