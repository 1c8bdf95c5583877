// Loads hostile bytes as an XML file, the way a feed or settings file found
// on disk is loaded: byte order marks, encoding declarations that lie or name
// unknown encodings, truncated multi-byte sequences. The bytes go to a file in
// a scratch folder and CXMLFile::LoadFile reads it, in both of its forms.
//
// Whatever loads must also serialise to text that loads again as text, and
// that second text must serialise the same: the document read from the file
// is the document the rest of the library works on.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "FuzzFields.h"
#include "FuzzScratch.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/HeadlessHost.h"
#include "kordll/toolkit/CXMLFile.h"

namespace {

using kordll::CString;
using kordll::CXMLFile;
using kordll::FileSystem;
using kordll_fuzz::Check;

// Answers message boxes silently and counts them.
using kordll_fuzz::QuietHost;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static QuietHost host;
  static kordll::Host* installed = kordll::Host::Install(&host);
  (void)installed;
  static const CString& folder = kordll_fuzz::ScratchFolder("kordll-xmlfile-fuzz-");
  const CString path = folder + CString("/document.xml");
  Check(FileSystem::WriteWholeFile(
            path, std::string_view(reinterpret_cast<const char*>(data), size)) == 1);

  host.boxes = 0;
  CXMLFile xml;
  const int loaded = xml.LoadFile(path);
  // A failed load is told once, and leaves no document.
  Check(loaded == 1 || (host.boxes == 1 && xml.GetDocument() == nullptr));

  // The other form: on failure the caller's document stays as it was.
  CXMLFile holder;
  Check(holder.LoadFromString(CString("<keep/>")) == 1);
  kordll::IXMLDOMDocument* doc = holder.GetDocument();
  doc->AddRef();
  const int loaded_again = CXMLFile().LoadFile(path, &doc);
  Check(loaded_again == loaded);
  if (!loaded_again) Check(doc == holder.GetDocument());
  doc->Release();

  if (loaded) {
    CString first;
    Check(xml.GetXML(first) == 1);
    CXMLFile reread;
    host.boxes = 0;
    Check(reread.LoadFromString(first) == 1);
    CString second;
    Check(reread.GetXML(second) == 1);
    CXMLFile third;
    Check(third.LoadFromString(second) == 1);
    CString again;
    Check(third.GetXML(again) == 1);
    Check(again == second);
    kordll::IXMLDOMElement* root = nullptr;
    if (xml.GetRootNode(&root)) {
      CString value;
      xml.GetNodeValue(root, value);
      root->Release();
    }
  }
  return 0;
}
