// TempRoot: a fresh temporary folder that the library takes as its root for
// the length of a test.
//
// On construction it makes "<temp>/kordll-test-XXXXXX" and points every
// location of the library into it (Locations::SetRootForTesting): the profile
// folder is <root>/config, the data root <root>/data, the download folder
// <root>/downloads and HOME <root>/home, all made at once. With
// kWithProgramFolder the program folder becomes <root>/program (made too).
// On destruction it closes the process registry, puts the locations back
// (Locations::ResetForTesting: from then on they lie where nothing can be
// made, never in the real home folder) and removes the folder with
// everything in it. Only one
// TempRoot should be alive at a time.
//
//   #include "tests/support/TempRoot.h"
//
//   TEST(AZeusDBTest, FirstWriteMakesSubTableZero) {
//     kordll::test::TempRoot root;
//     kordll::CString folder = root.DataRoot();
//     ...                                       // the library writes there
//     EXPECT_TRUE(kordll::FileSystem::IsFile(root.Path("data/x.kdb")));
//   }
//
//   // Or as a fixture, with root_ ready in every test:
//   class FileManagerTest : public kordll::test::TempRootTest {};
//   TEST_F(FileManagerTest, Something) { ... root_.DownloadFolder() ... }

#ifndef KORDLL_TESTS_SUPPORT_TEMPROOT_H_
#define KORDLL_TESTS_SUPPORT_TEMPROOT_H_

#include <gtest/gtest.h>

#include "kordll/platform/CString.h"

namespace kordll {
namespace test {

class TempRoot {
 public:
  enum Options { kDefault = 0, kWithProgramFolder = 1 };

  explicit TempRoot(int options = kDefault);
  ~TempRoot();

  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;

  // False if the folder could not be made (the constructor then records a
  // test failure).
  bool ok() const { return !root_.IsEmpty(); }

  // The root folder, absolute, without a trailing "/".
  const CString& root() const { return root_; }
  // root() + "/" + relative.
  CString Path(const CString& relative) const;

  CString ProfileFolder() const;   // <root>/config
  CString DataRoot() const;        // <root>/data
  CString DownloadFolder() const;  // <root>/downloads
  CString ProgramFolder() const;   // <root>/program (made only with the option)

 private:
  CString root_;
};

// A fixture whose tests each run with a fresh TempRoot in root_.
class TempRootTest : public ::testing::Test {
 protected:
  TempRoot root_;
};

// The same with the program folder set to <root>/program.
class TempRootWithProgramTest : public ::testing::Test {
 protected:
  TempRootWithProgramTest() : root_(TempRoot::kWithProgramFolder) {}
  TempRoot root_;
};

}  // namespace test
}  // namespace kordll

#endif  // KORDLL_TESTS_SUPPORT_TEMPROOT_H_
