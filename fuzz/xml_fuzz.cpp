// Loads hostile text as an XML document and, when it loads, walks it with
// the reading operations: no crash, no hang, no unbounded allocation, no
// network or file access. Load errors go to a host that shows nothing.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "FuzzScratch.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/HeadlessHost.h"
#include "kordll/toolkit/CXMLFile.h"

namespace {

// Answers message boxes silently, so that a run is not a flood of output.
using kordll_fuzz::QuietHost;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace kordll;
  static QuietHost host;
  static Host* installed = Host::Install(&host);
  (void)installed;

  CXMLFile xml;
  if (!xml.LoadFromString(
          CString::FromUtf8(std::string_view(reinterpret_cast<const char*>(data), size)))) {
    return 0;
  }
  CString text;
  xml.GetXML(text);
  IXMLDOMNodeList* all = nullptr;
  if (xml.GetNamedNodeList(CString("*"), &all)) {
    IXMLDOMNode* node = nullptr;
    int seen = 0;
    while (seen < 1000 && all->nextNode(&node)) {
      IXMLDOMElement* element = node->AsElement();
      xml.GetNodeValue(element, text);
      double number = 0;
      xml.GetNodeValue(element, number);
      COleDateTime date;
      xml.GetNodeValue(element, date);
      xml.GetAttributeValue(element, CString("id"), text);
      IXMLDOMNode* parent = nullptr;
      if (xml.GetParentNode(node, &parent)) parent->Release();
      node->Release();
      node = nullptr;
      ++seen;
    }
    all->Release();
  }
  xml.GetSingleNodeValue(CString("channel/item/title"), text);
  IXMLDOMNode* found = nullptr;
  if (xml.GetPathedNodeWithText(CString("//*"), CString("x"), &found)) found->Release();
  CXMLFile copy(xml);
  copy.EmptyDocument();
  return 0;
}
