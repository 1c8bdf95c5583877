// Reads hostile bytes as a text file with both readers of the toolkit: byte
// order marks, encoding declarations that lie or name unknown charsets, NUL
// bytes, truncated and overlong multi-byte groups, UTF-16.
//
// The hand-made UTF-8 reader is checked against a plain reference decoder
// written here from its rules; what it gives, written back by the UTF-8
// writer, reads back the same; and the scrambling gives every text back.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "FuzzFields.h"
#include "FuzzScratch.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/toolkit/Utility.h"

namespace {

using kordll::CString;
using kordll::FileSystem;
using kordll::Utility;
using kordll_fuzz::Check;

// The reader's rules, step by step: blocks of 10,000 bytes kept up to their
// first NUL, then each byte by its count of leading one bits.
std::u16string Reference(std::string_view bytes) {
  std::string content;
  for (size_t start = 0;; start += 10000) {
    std::string_view block = bytes.substr(std::min(start, bytes.size()), 10000);
    content.append(block.substr(0, block.find('\0')));
    if (block.size() < 10000) break;
  }
  std::u16string out;
  for (size_t i = 0; i < content.size();) {
    const unsigned char b = static_cast<unsigned char>(content[i]);
    auto next = [&](size_t k) { return static_cast<unsigned char>(content[i + k]) & 0x3F; };
    if (b < 0x80) {
      out.push_back(b);
      i += 1;
    } else if ((b & 0xE0) == 0xC0 && i + 1 < content.size()) {
      out.push_back(static_cast<char16_t>(((b & 0x1F) << 6) | next(1)));
      i += 2;
    } else if ((b & 0xF0) == 0xE0 && i + 2 < content.size()) {
      out.push_back(static_cast<char16_t>(((b & 0x0F) << 12) | (next(1) << 6) | next(2)));
      i += 3;
    } else if ((b & 0xE0) == 0xC0 || (b & 0xF0) == 0xE0) {
      break;  // a group cut off by the end
    } else {
      i += 1;
    }
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const CString& folder = kordll_fuzz::ScratchFolder("kordll-utility-fuzz-");
  const CString path = folder + CString("/input.txt");
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Check(FileSystem::WriteWholeFile(path, bytes) == 1);

  const CString content = Utility::ReadFileContent(path);
  (void)content;
  const CString text = Utility::ReadFile_wUTF8(path);
  Check(text.str() == Reference(bytes));

  // Written back and read again, a text without U+0000 is unchanged.
  if (text.Find(u'\0') < 0) {
    const CString copy = folder + CString("/copy.txt");
    Utility::SaveIntoFile_wUTF8(copy, text, 1, 0);
    Check(Utility::ReadFile_wUTF8(copy) == text);
  }

  const CString scrambled = Utility::EncriptString(text);
  Check(scrambled.GetLength() == text.GetLength() + 3);
  Check(Utility::DecriptString(scrambled) == text);
  return 0;
}
