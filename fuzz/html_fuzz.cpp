// Runs every text operation of KorlanHTMLCtrl over hostile text: no crash, no
// hang, no read outside the text, whatever the markup.
//
// The first byte chooses how the rest is read (as UTF-8, or as raw 16-bit
// units so that lone surrogates and U+0000 reach the operations) and where a
// base address ends and the page begins for NormalizeLinks. The same first
// line serves as the list of downloadable extensions of the settings.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kordll/platform/CString.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "kordll/toolkit/KorlanHTMLCtrl.h"

namespace {

// Settings whose downloadable extensions are whatever the input says.
class FuzzSettings : public kordll::SettingsEntryPoints {
 public:
  kordll::CString GetCurrentPreferencesStringValue(int field) override {
    return field == kordll::KorlanHTMLCtrl::kDownloadableExtensionsField ? extensions_
                                                                         : kordll::CString();
  }
  // Any non-null record stands for "settings exist"; it is never opened.
  kordll::Preferences* GetCurrentPreferences() override {
    return reinterpret_cast<kordll::Preferences*>(&marker_);
  }

  kordll::CString extensions_;

 private:
  int marker_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using kordll::CString;
  using kordll::KorlanHTMLCtrl;
  if (size == 0) return 0;
  const uint8_t mode = data[0];
  ++data;
  --size;
  CString text;
  if (mode & 1) {
    std::u16string units;
    for (size_t i = 0; i + 1 < size; i += 2) {
      units.push_back(static_cast<char16_t>(data[i] | (data[i + 1] << 8)));
    }
    text = CString(std::move(units));
  } else {
    text = CString::FromUtf8(std::string_view(reinterpret_cast<const char*>(data), size));
  }

  static FuzzSettings settings;
  static kordll::SettingsEntryPoints* installed = kordll::SettingsEntryPoints::Install(&settings);
  (void)installed;

  KorlanHTMLCtrl::DecodeString(text);
  KorlanHTMLCtrl::URLDecode(text);
  KorlanHTMLCtrl::UrlEncode(text);
  KorlanHTMLCtrl::NormalizeHTML(text);
  KorlanHTMLCtrl::EscapeHTML(text, nullptr, 0);

  // The base address is the text up to the first line feed.
  int split = text.Find(u'\n');
  CString base = split < 0 ? CString("http://host/dir/page.html") : text.Left(split);
  CString page = split < 0 ? text : text.Mid(split + 1);
  KorlanHTMLCtrl::NormalizeLinks(page, base);

  settings.extensions_ = split < 0 ? CString(".mp3;;.OGG;zip") : base;
  KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(page);

  int start = -1;
  int end = -1;
  int from = static_cast<int>(mode >> 1) - 8;  // also before the text
  KorlanHTMLCtrl::GetNextLink(text, text.GetLength(), from, start, end);
  KorlanHTMLCtrl::GetNextLink(text, text.GetLength() + 5, text.GetLength() - 1, start, end);
  return 0;
}
