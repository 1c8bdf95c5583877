#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "kordll/platform/CodePage.h"
#include "kordll/platform/WinFile.h"
#include "kordll/record/MarkedText.h"
#include "kordll/toolkit/Utility.h"

namespace kordll {

namespace {

// The charset names this library recognises, one code page per line: the
// code page in decimal, then its names. A line starting with a blank goes on
// with the names of the line before. Lines are in ascending code page order,
// which is the order of the table.
constexpr std::string_view kCharsets = R"(
37 cp037 csibm037 ebcdic-cp-ca ebcdic-cp-nl ebcdic-cp-us ebcdic-cp-wt ibm037
437 cp437 cspc8codepage437 ibm437
500 cp500 csibm500 ebcdic-cp-be ebcdic-cp-ch ibm500
708 asmo-708
720 dos-720
737 ibm737
775 ibm775
850 cp850 ibm850
852 cp852 ibm852
855 cp855 ibm855
857 cp857 ibm857
858 ccsid00858 cp00858 cp858 ibm00858 pc-multilingual-850+euro
860 cp860 ibm860
861 cp861 ibm861
862 cp862 dos-862 ibm862
863 cp863 ibm863
864 cp864 ibm864
865 cp865 ibm865
866 cp866 ibm866
869 cp869 ibm869
870 cp870 csibm870 ebcdic-cp-roece ebcdic-cp-yu ibm870
874 dos-874 iso-8859-11 tis-620 windows-874
875 cp875
932 csshiftjis cswindows31j ms_kanji shift-jis shift_jis sjis x-ms-cp932 x-sjis
936 chinese cn-gb csgb2312 csgb231280 csiso58gb231280 gb2312 gb2312-80 gb231280 gb_2312-80
    gbk iso-ir-58
949 csksc56011987 iso-ir-149 korean ks-c-5601 ks-c5601 ks_c_5601 ks_c_5601-1987
    ks_c_5601-1989 ks_c_5601_1987 ksc5601 ksc_5601
950 big5 big5-hkscs cn-big5 csbig5 x-x-big5
1026 cp1026 csibm1026 ibm1026
1047 ibm01047
1140 ccsid01140 cp01140 ebcdic-us-37+euro ibm01140
1141 ccsid01141 cp01141 ebcdic-de-273+euro ibm01141
1142 ccsid01142 cp01142 ebcdic-dk-277+euro ebcdic-no-277+euro ibm01142
1143 ccsid01143 cp01143 ebcdic-fi-278+euro ebcdic-se-278+euro ibm01143
1144 ccsid01144 cp01144 ebcdic-it-280+euro ibm01144
1145 ccsid01145 cp01145 ebcdic-es-284+euro ibm01145
1146 ccsid01146 cp01146 ebcdic-gb-285+euro ibm01146
1147 ccsid01147 cp01147 ebcdic-fr-297+euro ibm01147
1148 ccsid01148 cp01148 ebcdic-international-500+euro ibm01148
1149 ccsid01149 cp01149 ebcdic-is-871+euro ibm01149
1200 iso-10646-ucs-2 ucs-2 unicode utf-16 utf-16le
1201 unicodefffe utf-16be
1250 windows-1250 x-cp1250
1251 windows-1251 x-cp1251
1252 windows-1252 x-ansi
1253 windows-1253
1254 windows-1254
1255 windows-1255
1256 cp1256 windows-1256
1257 windows-1257
1258 windows-1258
1361 johab
10000 macintosh
10001 x-mac-japanese
10002 x-mac-chinesetrad
10003 x-mac-korean
10004 x-mac-arabic
10005 x-mac-hebrew
10006 x-mac-greek
10007 x-mac-cyrillic
10008 x-mac-chinesesimp
10010 x-mac-romanian
10017 x-mac-ukrainian
10021 x-mac-thai
10029 x-mac-ce
10079 x-mac-icelandic
10081 x-mac-turkish
10082 x-mac-croatian
20000 x-chinese-cns
20001 x-cp20001
20002 x-chinese-eten
20003 x-cp20003
20004 x-cp20004
20005 x-cp20005
20105 irv x-ia5
20106 din_66003 german x-ia5-german
20107 sen_850200_b swedish x-ia5-swedish
20108 norwegian ns_4551-1 x-ia5-norwegian
20127 ansi_x3.4-1968 ansi_x3.4-1986 ascii cp367 csascii ibm367 iso-ir-6 iso646-us
    iso_646.irv:1991 us us-ascii
20261 x-cp20261
20269 x-cp20269
20273 cp273 csibm273 ibm273
20277 csibm277 ebcdic-cp-dk ebcdic-cp-no ibm277
20278 cp278 csibm278 ebcdic-cp-fi ebcdic-cp-se ibm278
20280 cp280 csibm280 ebcdic-cp-it ibm280
20284 cp284 csibm284 ebcdic-cp-es ibm284
20285 cp285 csibm285 ebcdic-cp-gb ibm285
20290 cp290 csibm290 ebcdic-jp-kana ibm290
20297 cp297 csibm297 ebcdic-cp-fr ibm297
20420 cp420 csibm420 ebcdic-cp-ar1 ibm420
20423 cp423 csibm423 ebcdic-cp-gr ibm423
20424 cp424 csibm424 ebcdic-cp-he ibm424
20833 x-ebcdic-koreanextended
20838 csibmthai ibm-thai
20866 cskoi8r koi koi8 koi8-r koi8r
20871 cp871 csibm871 ebcdic-cp-is ibm871
20880 cp880 csibm880 ebcdic-cyrillic ibm880
20905 cp905 csibm905 ebcdic-cp-tr ibm905
20924 ccsid00924 cp00924 ebcdic-latin9--euro ibm00924
20936 x-cp20936
20949 x-cp20949
21025 cp1025
21027 x-cp21027
21866 koi8-ru koi8-u
28591 cp819 csisolatin1 ibm819 iso-8859-1 iso-ir-100 iso8859-1 iso_8859-1 iso_8859-1:1987
    l1 latin1
28592 csisolatin2 iso-8859-2 iso-ir-101 iso8859-2 iso_8859-2 iso_8859-2:1987 l2 latin2
28593 csisolatin3 iso-8859-3 iso-ir-109 iso_8859-3 iso_8859-3:1988 l3 latin3
28594 csisolatin4 iso-8859-4 iso-ir-110 iso_8859-4 iso_8859-4:1988 l4 latin4
28595 csisolatincyrillic cyrillic iso-8859-5 iso-ir-144 iso_8859-5 iso_8859-5:1988
28596 arabic csisolatinarabic ecma-114 iso-8859-6 iso-ir-127 iso_8859-6 iso_8859-6:1987
28597 csisolatingreek ecma-118 elot_928 greek greek8 iso-8859-7 iso-ir-126 iso_8859-7
    iso_8859-7:1987
28598 csisolatinhebrew hebrew iso-8859-8 iso-ir-138 iso_8859-8 iso_8859-8:1988 logical
    visual
28599 csisolatin5 iso-8859-9 iso-ir-148 iso_8859-9 iso_8859-9:1989 l5 latin5
28603 iso-8859-13
28605 csisolatin9 iso-8859-15 iso_8859-15 l9 latin9
29001 x-europa
38598 iso-8859-8-i
50220 iso-2022-jp
50221 csiso2022jp
50225 csiso2022kr iso-2022-kr iso-2022-kr-7 iso-2022-kr-7bit
50227 cp50227 x-cp50227
50930 cp930
50931 x-ebcdic-japaneseanduscanada
50933 cp933
50935 cp935
50937 cp937
50939 cp939
51932 cseucpkdfmtjapanese euc-jp extended_unix_code_packed_format_for_japanese
    iso-2022-jpeuc x-euc x-euc-jp
51936 euc-cn x-euc-cn
51949 cseuckr euc-kr iso-2022-kr-8 iso-2022-kr-8bit
52936 hz-gb-2312
54936 gb18030
57002 x-iscii-de
57003 x-iscii-be
57004 x-iscii-ta
57005 x-iscii-te
57006 x-iscii-as
57007 x-iscii-or
57008 x-iscii-ka
57009 x-iscii-ma
57010 x-iscii-gu
57011 x-iscii-pa
65000 csunicode11utf7 unicode-1-1-utf-7 unicode-2-0-utf-7 utf-7 x-unicode-1-1-utf-7
    x-unicode-2-0-utf-7
65001 unicode-1-1-utf-8 unicode-2-0-utf-8 utf-8 x-unicode-1-1-utf-8 x-unicode-2-0-utf-8
)";

struct CharsetTable {
  std::vector<CharsetInfo> entries;  // ends with the empty entry
};

CharsetTable* BuildCharsetTable() {
  auto* table = new CharsetTable();
  unsigned code_page = 0;
  size_t pos = 0;
  while (pos < kCharsets.size()) {
    size_t end = kCharsets.find('\n', pos);
    if (end == std::string_view::npos) end = kCharsets.size();
    std::string_view line = kCharsets.substr(pos, end - pos);
    pos = end + 1;
    const bool continued = !line.empty() && line[0] == ' ';
    size_t i = 0;
    bool first = !continued;
    while (i < line.size()) {
      while (i < line.size() && line[i] == ' ') ++i;
      size_t j = i;
      while (j < line.size() && line[j] != ' ') ++j;
      if (j > i) {
        std::string_view word = line.substr(i, j - i);
        if (first) {
          code_page = 0;
          for (char c : word) code_page = code_page * 10 + static_cast<unsigned>(c - '0');
          first = false;
        } else {
          table->entries.push_back(CharsetInfo{CString::FromUtf8(word), code_page});
        }
      }
      i = j;
    }
  }
  table->entries.push_back(CharsetInfo{CString(), 0});
  return table;
}

const CharsetTable& Charsets() {
  static const CharsetTable* table = BuildCharsetTable();  // never destroyed
  return *table;
}

// Reading stops with an empty answer past this size: the converter refuses
// larger input, and a text this long is no text file of this system.
constexpr size_t kMaxContent = size_t{1} << 30;
constexpr uint32_t kChunk = 10000;

// The content of a text file read the way the readers of this system read:
// in chunks of kChunk bytes, each kept up to its first NUL byte. The first
// chunk, as kept, goes to *first when first is given. False when the file
// cannot be opened or the content grows past kMaxContent.
bool ReadChunked(const CString& path, std::string* content, std::string* first) {
  WinFile file;
  if (!file.Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING)) return false;
  std::vector<char> buffer(kChunk + 1);
  bool is_first = true;
  for (;;) {
    std::fill(buffer.begin(), buffer.end(), '\0');
    uint32_t read = 0;
    const int ok = file.ReadFile(buffer.data(), kChunk, &read);
    const std::string_view chunk(buffer.data(), ::strnlen(buffer.data(), read));
    if (is_first && first != nullptr) first->assign(chunk);
    is_first = false;
    if (content->size() + chunk.size() > kMaxContent) return false;
    content->append(chunk);
    if (!ok || read < kChunk) break;
  }
  return true;
}

bool IsAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// The code page the first chunk of a file declares: a UTF-8 byte order mark,
// or the name behind "encoding" in a file that holds an XML declaration.
// 0 when none is known.
unsigned DecideCodePage(std::string_view chunk) {
  if (chunk.size() > 3 && chunk.substr(0, 3) == "\xEF\xBB\xBF") return CP_UTF8;
  if (chunk.find("<?xml ") == std::string_view::npos) return 0;
  const size_t word = chunk.find("encoding");
  if (word == std::string_view::npos) return 0;
  CString name;
  bool started = false;
  for (size_t i = word + 8; i < chunk.size(); ++i) {
    const char c = chunk[i];
    if (!started) {
      started = c == '"' || c == '\'' || IsAsciiLetter(c);
      continue;
    }
    if (c == '"' || c == '\'' || c == '?') break;
    name += static_cast<char16_t>(static_cast<unsigned char>(c));
  }
  return name.IsEmpty() ? 0 : Utility::GetCodePage(name);
}

// Encoded length of one unit by the format's rule.
int EncodedLength(char16_t unit) { return unit < 127 ? 1 : unit < 2048 ? 2 : 3; }

}  // namespace

const CharsetInfo* Utility::GetCharsetTable() { return Charsets().entries.data(); }

unsigned Utility::GetCodePage(CString name) {
  name.MakeLower();
  for (const CharsetInfo* entry = GetCharsetTable();; ++entry) {
    if (entry->name.IsEmpty()) return 0;
    if (entry->name == name) return entry->codePage;
  }
}

CString Utility::ReadFileContent(CString path) {
  try {
    std::string content;
    std::string first;
    if (!ReadChunked(path, &content, &first)) return CString();
    unsigned code_page = DecideCodePage(first);
    if (code_page == 0) code_page = CP_ACP;
    return CodePage::ToUnicode(code_page, content);
  } catch (const std::bad_alloc&) {
    return CString();
  }
}

CString Utility::ReadFile_wUTF8(CString path) {
  try {
    std::string content;
    if (!ReadChunked(path, &content, nullptr)) return CString();
    std::u16string text;
    MarkedText::AppendMultiByte(reinterpret_cast<const unsigned char*>(content.data()),
                                static_cast<int>(content.size()), &text);
    return CString(std::move(text));
  } catch (const std::bad_alloc&) {
    return CString();
  }
}

void Utility::SaveIntoFile_wUTF8(CString path, CString text, int truncate, int writeBOM) {
  WinFile file;
  bool append = false;
  if (truncate) {
    file.Open(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
              CREATE_ALWAYS);
  } else if (file.Open(path, GENERIC_WRITE, FILE_SHARE_WRITE, OPEN_EXISTING)) {
    if (file.GetFileSize() != 0) {
      append = true;
      file.SetFilePointer(0, FILE_END);
    }
  } else {
    file.Open(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
              CREATE_ALWAYS);
  }
  if (!file.IsOpen()) return;
  if (writeBOM && !append) file.WriteFile("\xEF\xBB\xBF", 3, nullptr);

  // Units go out through a buffer of 1,024 bytes; a unit that would not
  // leave its margin free flushes the buffer first.
  constexpr int kBuffer = 1024;
  unsigned char buffer[kBuffer];
  int used = 0;
  for (char16_t unit : text.view()) {
    const int length = EncodedLength(unit);
    const int needed = length == 1 ? 2 : length == 2 ? 4 : 5;
    if (kBuffer - used < needed) {
      file.WriteFile(buffer, static_cast<uint32_t>(used), nullptr);
      used = 0;
    }
    if (length == 1) {
      buffer[used++] = static_cast<unsigned char>(unit);
    } else if (length == 2) {
      buffer[used++] = static_cast<unsigned char>((unit >> 6) | 0xC0);
      buffer[used++] = static_cast<unsigned char>((unit & 63) | 0x80);
    } else {
      buffer[used++] = static_cast<unsigned char>((unit >> 12) | 0xE0);
      buffer[used++] = static_cast<unsigned char>(((unit >> 6) & 63) | 0x80);
      buffer[used++] = static_cast<unsigned char>((unit & 63) | 0x80);
    }
  }
  if (used > 0) file.WriteFile(buffer, static_cast<uint32_t>(used), nullptr);
  file.Close();
}

}  // namespace kordll
