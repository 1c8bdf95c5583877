#include "kordll/platform/Registry.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>
#include <string>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Host.h"
#include "tests/support/TempRoot.h"
#include "tests/support/TestHost.h"

namespace kordll {
namespace {

constexpr RegHive kUser = RegHive::kCurrentUser;
using Kind = TestHost::CallKind;

class RegistryTest : public ::testing::Test {
 protected:
  RegistryTest() {
    Registry::CloseCurrent();
    Host::Install(&host_);
    folder_ = root_.ProfileFolder().ToUtf8();
  }
  ~RegistryTest() override {
    Registry::CloseCurrent();
    Host::Install(nullptr);
  }

  // The value, with a test failure when it cannot be read.
  static RegValue Get(Registry* r, const CString& key, const CString& name) {
    RegValue v;
    EXPECT_EQ(r->QueryValue(kUser, key, name, &v), ERROR_SUCCESS) << name.ToUtf8();
    return v;
  }
  static int Put(Registry* r, const CString& key, const CString& name, const RegValue& v) {
    return r->SetValue(kUser, key, name, v, true);
  }

  test::TempRoot root_;
  TestHost host_;
  std::string folder_;
};

TEST_F(RegistryTest, ValuesSurviveCloseAndReopenWithTheirTypesAndEveryUnitOfTheirText) {
  const std::u16string tricky = {u'a', 0x0000, u'b', 0xD800, u'c', 0xDFFF, 0xDBFF, 0x0000};
  const struct {
    const char* key;
    const char* name;
    RegValue value;
  } rows[] = {
      {"Software\\Kor\\App", "Count", RegValue::Dword(0xFFFFFFFFu)},
      {"Software\\Kor\\App", "Big", RegValue::Qword(1ull << 40)},
      {"Software\\Kor\\App", "Name", RegValue::String("Tidrel")},
      {"Software\\Kor\\App", "Blob", RegValue::Binary(std::string("\0\x01\xFF", 3))},
      {"K", "Password", RegValue::String(CString(tricky))},
      {"K", "Empty", RegValue::String(CString())},
  };
  {
    Registry r(folder_);
    ASSERT_FALSE(r.in_memory());
    for (const auto& row : rows) ASSERT_EQ(Put(&r, row.key, row.name, row.value), ERROR_SUCCESS);
  }
  Registry r(folder_);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    RegValue v = Get(&r, row.key, row.name);
    EXPECT_EQ(v.type, row.value.type);
    EXPECT_EQ(v.integer, row.value.integer);
    EXPECT_EQ(v.text.str(), row.value.text.str());
    EXPECT_EQ(v.bytes, row.value.bytes);
  }
  EXPECT_EQ(host_.CountOf(Kind::kMessageBox), 0);
  // Two connections, as two applications of the family would have, see each
  // other's writes.
  Registry second(folder_);
  ASSERT_EQ(Put(&second, "Software\\Marsek", "UseGecko", RegValue::String("1")), ERROR_SUCCESS);
  EXPECT_EQ(Get(&r, "Software\\Marsek", "UseGecko").text, CString("1"));
}

TEST_F(RegistryTest, KeysAndValueNamesIgnoreCaseAndKeepTheirSpelling) {
  Registry r(folder_);
  ASSERT_EQ(Put(&r, "Software\\Kor\\Über", "Größe", RegValue::Dword(7)), ERROR_SUCCESS);
  RegValue v;
  ASSERT_EQ(r.QueryValue(kUser, "SOFTWARE\\kor\\über", "GRÖSSE", &v), ERROR_FILE_NOT_FOUND)
      << "simple case mapping does not turn ß into SS";
  EXPECT_EQ(Get(&r, "SOFTWARE\\kor\\über", "GRößE").integer, 7u);

  // Writing through another spelling replaces the same value.
  ASSERT_EQ(Put(&r, "software\\KOR\\ÜBER", "größe", RegValue::Dword(8)), ERROR_SUCCESS);
  std::vector<CString> names;
  ASSERT_EQ(r.EnumValues(kUser, "Software\\Kor\\Über", &names), ERROR_SUCCESS);
  ASSERT_EQ(names.size(), 1u);
  EXPECT_EQ(Get(&r, "Software\\Kor\\Über", "Größe").integer, 8u);
  // The key keeps the spelling it was created with.
  ASSERT_EQ(r.EnumKeys(kUser, "software\\kor", &names), ERROR_SUCCESS);
  EXPECT_EQ(names, (std::vector<CString>{"Über"}));
  // Hives are apart.
  EXPECT_FALSE(r.KeyExists(RegHive::kLocalMachine, "Software\\Kor"));
}

TEST_F(RegistryTest, OnlyWrittenKeysOpenAndParentsComeWithThem) {
  Registry r(folder_);
  EXPECT_FALSE(r.KeyExists(kUser, "Software\\Kor"));
  EXPECT_TRUE(r.KeyExists(kUser, "")) << "the hive itself always exists";
  RegValue v;
  EXPECT_EQ(r.QueryValue(kUser, "Software\\Kor", "x", &v), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(r.SetValue(kUser, "Software\\Kor", "x", RegValue::Dword(1), false),
            ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(r.KeyExists(kUser, "Software\\Kor")) << "a refused write makes no key";

  ASSERT_EQ(r.CreateKey(kUser, "Software\\Kor\\App\\Section", nullptr), ERROR_SUCCESS);
  // Parents come along; empty parts are ignored.
  EXPECT_TRUE(r.KeyExists(kUser, "\\Software\\\\Kor\\App\\"));
}

TEST_F(RegistryTest, DeletingKeysKeepsNeighboursWithSimilarNamesAndValuesGoAlone) {
  Registry r(folder_);
  for (const char* key : {"A\\B", "A\\B\\C", "A\\B\\C\\D", "A\\B]", "A\\Bz", "A\\B2\\C"}) {
    ASSERT_EQ(Put(&r, key, "v", RegValue::String(key)), ERROR_SUCCESS) << key;
  }
  EXPECT_EQ(r.DeleteKey(kUser, "A\\B"), ERROR_ACCESS_DENIED) << "it has subkeys";
  EXPECT_EQ(r.DeleteKey(kUser, "A\\Missing"), ERROR_FILE_NOT_FOUND);
  ASSERT_EQ(r.DeleteKey(kUser, "A\\B\\C\\D"), ERROR_SUCCESS);
  RegValue v;
  EXPECT_EQ(r.QueryValue(kUser, "A\\B\\C\\D", "v", &v), ERROR_FILE_NOT_FOUND);

  ASSERT_EQ(r.DeleteTree(kUser, "a\\b"), ERROR_SUCCESS);
  EXPECT_EQ(r.QueryValue(kUser, "A\\B\\C", "v", &v), ERROR_FILE_NOT_FOUND);
  for (const char* key : {"A\\B]", "A\\Bz", "A\\B2\\C"}) {
    EXPECT_EQ(Get(&r, key, "v").text, CString(key)) << key;
  }
  std::vector<CString> names;
  ASSERT_EQ(r.EnumKeys(kUser, "A", &names), ERROR_SUCCESS);
  EXPECT_EQ(names, (std::vector<CString>{"B2", "B]", "Bz"}));
  EXPECT_EQ(r.EnumKeys(kUser, "A\\B", &names), ERROR_FILE_NOT_FOUND);

  // Values change type in place and go without their key.
  ASSERT_EQ(Put(&r, "K", "v", RegValue::Dword(3)), ERROR_SUCCESS);
  ASSERT_EQ(Put(&r, "K", "v", RegValue::String("3")), ERROR_SUCCESS);
  EXPECT_EQ(Get(&r, "K", "V").type, REG_SZ);
  EXPECT_EQ(r.DeleteValue(kUser, "K", "V"), ERROR_SUCCESS);
  EXPECT_EQ(r.DeleteValue(kUser, "K", "v"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(r.QueryValue(kUser, "K", "v", &v), ERROR_FILE_NOT_FOUND);
  EXPECT_TRUE(r.KeyExists(kUser, "K")) << "a key outlives its values";
}

// A registry file written in `folder` and read back into *bytes.
void WriteRegistry(const std::string& folder, int keys, const CString& file, std::string* bytes) {
  {
    Registry r(folder);
    for (int i = 0; i < keys; ++i) {
      ASSERT_EQ(r.SetValue(kUser, CString::Formatted("Software\\Kor\\Key%d", i), "value",
                           RegValue::String(CString(u'x', 200)), true),
                ERROR_SUCCESS);
    }
  }
  ASSERT_EQ(FileSystem::ReadWholeFile(file, bytes), 1);
}

TEST_F(RegistryTest, UnusableFilesAreSetAsideUnchangedAndTheHostHears) {
  // Each way a file can be unusable: the damage writes the file into `folder`
  // and gives the bytes that must be kept aside unchanged.
  using Make = std::function<void(const std::string& folder, const CString& file, std::string*)>;
  const std::pair<const char*, Make> damages[] = {
      {"garbage",
       [](const std::string&, const CString& file, std::string* bytes) {
         *bytes = "not a database file " + std::string(4980, 'x');
         ASSERT_EQ(FileSystem::WriteWholeFile(file, *bytes), 1);
       }},
      // Not even switched to another journal mode.
      {"another program's database",
       [](const std::string&, const CString& file, std::string* bytes) {
         sqlite3* db = nullptr;
         ASSERT_EQ(sqlite3_open(file.ToUtf8().c_str(), &db), SQLITE_OK);
         ASSERT_EQ(sqlite3_exec(db, "CREATE TABLE notes(x); INSERT INTO notes VALUES(1);", nullptr,
                                nullptr, nullptr),
                   SQLITE_OK);
         sqlite3_close(db);
         ASSERT_EQ(FileSystem::ReadWholeFile(file, bytes), 1);
       }},
      // A schema format number from the future: SQLite answers "unsupported
      // file format" (SQLITE_ERROR) when it reads the schema, not NOTADB or
      // CORRUPT; such a file is set aside too.
      {"a file SQLite refuses with an ordinary error",
       [](const std::string& folder, const CString& file, std::string* bytes) {
         WriteRegistry(folder, 1, file, bytes);
         ASSERT_GT(bytes->size(), 48u);
         bytes->replace(44, 4, std::string("\0\0\0\x09", 4));
         ASSERT_EQ(FileSystem::WriteWholeFile(file, *bytes), 1);
       }},
      // Every page but the first (the header and schema) overwritten with noise.
      {"damaged pages inside a real registry",
       [](const std::string& folder, const CString& file, std::string* bytes) {
         WriteRegistry(folder, 400, file, bytes);
         ASSERT_GT(bytes->size(), 40000u) << "the closing connection folds the journal in";
         for (size_t i = 4096; i < bytes->size(); ++i) (*bytes)[i] = (i * 131) & 0xFF;
         ASSERT_EQ(FileSystem::WriteWholeFile(file, *bytes), 1);
       }},
  };
  int row = 0;
  for (const auto& [name, make] : damages) {
    SCOPED_TRACE(name);
    const std::string folder = folder_ + "/" + std::to_string(++row);
    const CString file = CString::FromUtf8(folder + "/registry.sqlite3");
    ASSERT_EQ(FileSystem::CreateDirectoryTree(CString::FromUtf8(folder)), 1);
    std::string bytes, kept;
    make(folder, file, &bytes);
    host_.ClearCalls();
    {
      Registry r(folder);
      EXPECT_EQ(r.set_aside_path(), folder + "/registry.sqlite3.damaged");
      ASSERT_EQ(FileSystem::ReadWholeFile(file + ".damaged", &kept), 1);
      EXPECT_EQ(kept, bytes) << "the damaged file is renamed, never changed";
      ASSERT_EQ(host_.CountOf(Kind::kMessageBox), 1);
      EXPECT_NE(host_.LastOf(Kind::kMessageBox)->text.Find(CString("sqlite3.damaged")), -1);
      EXPECT_FALSE(r.KeyExists(kUser, "Software\\Kor\\Key1"));
      ASSERT_EQ(Put(&r, "K", "new", RegValue::Dword(5)), ERROR_SUCCESS);
    }
    // The fresh file works and keeps what was written.
    Registry again(folder);
    EXPECT_FALSE(again.in_memory());
    EXPECT_EQ(Get(&again, "K", "new").integer, 5u);
    EXPECT_EQ(host_.CountOf(Kind::kMessageBox), 1);
  }
  // A second damage does not replace the first one set aside.
  const std::string folder = folder_ + "/1";
  Registry::CloseCurrent();
  ASSERT_EQ(FileSystem::WriteWholeFile(CString::FromUtf8(folder + "/registry.sqlite3"), "junk"), 1);
  Registry third(folder);
  EXPECT_EQ(third.set_aside_path(), folder + "/registry.sqlite3.damaged-2");
  std::string kept;
  ASSERT_EQ(
      FileSystem::ReadWholeFile(CString::FromUtf8(folder + "/registry.sqlite3.damaged"), &kept), 1);
  EXPECT_EQ(kept.size(), 5000u);
  EXPECT_EQ(kept.substr(0, 20), "not a database file ");
}

TEST_F(RegistryTest, NoUsableFolderKeepsTheSessionInMemory) {
  // The profile folder's name is taken by a file.
  ASSERT_EQ(FileSystem::WriteWholeFile(root_.Path("notafolder"), "x"), 1);
  Registry r(root_.Path("notafolder").ToUtf8());
  EXPECT_TRUE(r.in_memory());
  EXPECT_EQ(host_.CountOf(Kind::kMessageBox), 1);
  ASSERT_EQ(Put(&r, "K", "v", RegValue::Dword(9)), ERROR_SUCCESS);
  EXPECT_EQ(Get(&r, "K", "v").integer, 9u);
  std::string content;
  ASSERT_EQ(FileSystem::ReadWholeFile(root_.Path("notafolder"), &content), 1);
  EXPECT_EQ(content, "x");
}

// ---- The Win32-shaped calls --------------------------------------------------

TEST_F(RegistryTest, Win32OpenCreateAndClose) {
  HKEY key = nullptr, sub = nullptr;
  EXPECT_EQ(RegOpenKeyEx(HKEY_CURRENT_USER, "Software\\Kor", 0, KEY_READ, &key),
            ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(key, nullptr);
  uint32_t disposition = 0;
  ASSERT_EQ(RegCreateKeyEx(HKEY_CURRENT_USER, "Software\\Kor", 0, nullptr, 0, KEY_ALL_ACCESS,
                           nullptr, &key, &disposition),
            ERROR_SUCCESS);
  EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
  ASSERT_EQ(RegCreateKeyEx(key, "App", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &sub, &disposition),
            ERROR_SUCCESS);
  EXPECT_EQ(RegCloseKey(sub) + RegCloseKey(key), ERROR_SUCCESS);
  EXPECT_EQ(RegCloseKey(key), ERROR_INVALID_HANDLE);
  const uint8_t four[4] = {1, 0, 0, 0};
  EXPECT_EQ(RegSetValueEx(key, "x", 0, REG_DWORD, four, 4), ERROR_INVALID_HANDLE);

  // A handle to a key deleted meanwhile refuses writes and brings nothing back.
  ASSERT_EQ(RegCreateKey(HKEY_CURRENT_USER, "Software\\Kor\\Gone", &key), ERROR_SUCCESS);
  ASSERT_EQ(RegDeleteKey(HKEY_CURRENT_USER, "Software\\Kor"), ERROR_ACCESS_DENIED);
  ASSERT_EQ(RegDeleteTree(HKEY_CURRENT_USER, "Software\\Kor"), ERROR_SUCCESS);
  EXPECT_EQ(RegSetValueEx(key, "n", 0, REG_DWORD, four, 4), ERROR_KEY_DELETED);
  RegCloseKey(key);
}

TEST_F(RegistryTest, Win32StringsComeWithOneTerminatorAndBufferSizesAreChecked) {
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKey(HKEY_CURRENT_USER, "Software\\Kor", &key), ERROR_SUCCESS);
  const char16_t text[] = u"abc";
  const uint8_t* bytes = reinterpret_cast<const uint8_t*>(text);
  // Written without a terminator, as the start-up entry writer does, and with
  // one, as most writers do.
  ASSERT_EQ(RegSetValueEx(key, "NoTerm", 0, REG_SZ, bytes, 6), ERROR_SUCCESS);
  ASSERT_EQ(RegSetValueEx(key, "Term", 0, REG_SZ, bytes, 8), ERROR_SUCCESS);
  for (const char* name : {"NoTerm", "Term"}) {
    SCOPED_TRACE(name);
    uint32_t type = 0, size = 0;
    ASSERT_EQ(RegQueryValueEx(key, name, nullptr, &type, nullptr, &size), ERROR_SUCCESS);
    EXPECT_EQ(type * 100 + size, REG_SZ * 100 + 8u);
    char16_t buffer[8] = {u'?', u'?', u'?', u'?', u'?', u'?', u'?', u'?'};
    uint8_t* out = reinterpret_cast<uint8_t*>(buffer);
    size = 6;
    EXPECT_EQ(RegQueryValueEx(key, name, nullptr, &type, out, &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(buffer[0], u'?') << "nothing is copied into a short buffer";
    size = sizeof(buffer);
    ASSERT_EQ(RegQueryValueEx(key, name, nullptr, &type, out, &size), ERROR_SUCCESS);
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(std::u16string(buffer, 4), std::u16string(u"abc\0", 4));
  }
  EXPECT_EQ(Get(Registry::Current(), "Software\\Kor", "Term").text, CString("abc"))
      << "the terminator is not part of the text";
  uint32_t size = 8;
  EXPECT_EQ(RegQueryValueEx(key, "Missing", nullptr, nullptr, nullptr, &size),
            ERROR_FILE_NOT_FOUND);
  RegCloseKey(key);
}

TEST_F(RegistryTest, Win32IntegersNeedFourBytesAndAReadOnlyKeyRefusesWrites) {
  HKEY key = nullptr;
  ASSERT_EQ(RegCreateKey(HKEY_CURRENT_USER, "Software\\Kor", &key), ERROR_SUCCESS);
  const uint8_t four[4] = {0x78, 0x56, 0x34, 0x12};
  EXPECT_EQ(RegSetValueEx(key, "n", 0, REG_DWORD, four, 3), ERROR_INVALID_PARAMETER);
  ASSERT_EQ(RegSetValueEx(key, "n", 0, REG_DWORD, four, 4), ERROR_SUCCESS);
  RegCloseKey(key);

  ASSERT_EQ(RegOpenKeyEx(HKEY_CURRENT_USER, "Software\\Kor", 0, KEY_READ, &key), ERROR_SUCCESS);
  uint32_t type = 0, value = 0, size = sizeof(value);
  ASSERT_EQ(RegQueryValueEx(key, "N", nullptr, &type, reinterpret_cast<uint8_t*>(&value), &size),
            ERROR_SUCCESS);
  EXPECT_EQ(value, 0x12345678u);
  EXPECT_EQ(type * 100 + size, REG_DWORD * 100 + 4u);
  EXPECT_EQ(RegSetValueEx(key, "n", 0, REG_DWORD, four, 4), ERROR_ACCESS_DENIED);
  RegCloseKey(key);
}

}  // namespace
}  // namespace kordll
