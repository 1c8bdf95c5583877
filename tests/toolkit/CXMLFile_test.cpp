#include "kordll/toolkit/CXMLFile.h"

#include <gtest/gtest.h>

#include <string>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Host.h"
#include "tests/support/TempRoot.h"
#include "tests/support/TestHost.h"

namespace kordll {

void PrintTo(const CString& s, std::ostream* os) { *os << '"' << s.ToUtf8() << '"'; }

namespace {

// Every test runs with a recording host, so that load errors can be counted,
// and in a fresh data root for its files.
class CXMLFileTest : public ::testing::Test {
 protected:
  void SetUp() override { previous_ = Host::Install(&host_); }
  void TearDown() override { Host::Install(previous_); }

  int MessageBoxes() const { return host_.CountOf(TestHost::CallKind::kMessageBox); }
  CString File(const char* name, const char* bytes = nullptr) {
    CString path = root_.Path(CString("data/") + name);
    if (bytes != nullptr) {
      EXPECT_EQ(1, FileSystem::WriteWholeFile(path, bytes));
    }
    return path;
  }

  // Loads text that must be well-formed.
  void Load(CXMLFile& xml, const std::string& text) {
    ASSERT_EQ(1, xml.LoadFromString(CString(text.c_str())));
    ASSERT_EQ(0, MessageBoxes());
  }

  // "<answer>:<value>" of a read, the output starting as "stale", so one
  // line checks both: by path or as an attribute.
  static std::string Read(CXMLFile& xml, const char* path) {
    CString value("stale");
    int answer = xml.GetSingleNodeValue(CString(path), value);
    return std::to_string(answer) + ":" + value.ToUtf8();
  }
  static std::string Attribute(CXMLFile& xml, IXMLDOMElement* element, const char* name) {
    CString value("stale");
    int answer = xml.GetAttributeValue(element, CString(name), value);
    return std::to_string(answer) + ":" + value.ToUtf8();
  }

  TestHost host_;
  Host* previous_ = nullptr;
  test::TempRoot root_;
};

// Releases a handle at the end of a scope.
template <class T>
struct Held {
  T* p = nullptr;
  ~Held() {
    if (p != nullptr) p->Release();
  }
  T** operator&() { return &p; }
  T* operator->() { return p; }
  operator T*() { return p; }
};

// --- Loading and its error ---------------------------------------------------

TEST_F(CXMLFileTest, LoadFromStringAndReadByPathIgnoringTheEncodingDeclaration) {
  CXMLFile xml;
  Load(xml,
       "<rss><channel><title>News</title><item><guid>R1_G1</guid></item>"
       "<item><guid>R1_G2</guid></item></channel></rss>");
  EXPECT_EQ("1:News|1:R1_G2|0:", Read(xml, "channel/title") + "|" +
                                     Read(xml, "channel/item[2]/guid") + "|" +
                                     Read(xml, "channel/missing"));
  Load(xml, "<?xml version='1.0' encoding='ISO-8859-1'?><a>caf\xC3\xA9 \xE2\x82\xAC</a>");
  EXPECT_EQ("1:caf\xC3\xA9 \xE2\x82\xAC", Read(xml, "."));
}

TEST_F(CXMLFileTest, BrokenTextShowsTheLoadErrorOnceAndKeepsTheDocument) {
  CXMLFile xml;
  Load(xml, "<a>kept</a>");
  EXPECT_EQ(0, xml.LoadFromString(CString("<a>\n<b></a>")));
  ASSERT_EQ(1, MessageBoxes());
  EXPECT_NE(std::string::npos,
            host_.LastOf(TestHost::CallKind::kMessageBox)->text.ToUtf8().find(" on line 2, "));
  EXPECT_EQ("1:kept", Read(xml, "."));
  // Every kind of broken text fails the same way.
  for (const char* broken_text : {"", "<a>&bogus;</a>", "<a/><b/>"}) {
    SCOPED_TRACE(broken_text);
    CXMLFile fresh;
    host_.ClearCalls();
    EXPECT_EQ(0, fresh.LoadFromString(CString(broken_text)));
    EXPECT_EQ(1, MessageBoxes());
    EXPECT_EQ(nullptr, fresh.GetDocument());
  }
}

// A file that fails to load drops what was held; the out-argument form
// releases what it held on success and leaves it alone on failure.
TEST_F(CXMLFileTest, LoadFileFailuresLeaveNoDocumentAndTheOutArgumentIsReplacedOnlyOnSuccess) {
  CXMLFile xml;
  Load(xml, "<held/>");
  EXPECT_EQ(0, xml.LoadFile(File("broken.xml", "<a><b></a>")));
  EXPECT_EQ(nullptr, xml.GetDocument());
  EXPECT_EQ(0, xml.LoadFile(File("none.xml")));
  EXPECT_EQ(2, MessageBoxes());

  CString path = File("a.xml", "<a>1</a>");
  IXMLDOMDocument* document = nullptr;
  ASSERT_EQ(1, xml.LoadFile(path, &document));
  IXMLDOMDocument* first = document;
  first->AddRef();  // watch the first one: the second load releases it once
  ASSERT_EQ(1, xml.LoadFile(path, &document));
  EXPECT_NE(first, document);
  EXPECT_EQ(0u, first->Release());
  IXMLDOMDocument* second = document;
  EXPECT_EQ(0, xml.LoadFile(File("a.xml", "<a>"), &document));
  EXPECT_EQ(second, document);
  document->Release();
}

TEST_F(CXMLFileTest, NoNetworkNoDtdNoExternalEntities) {
  std::string secret = "file://" + File("secret.txt", "SECRET").ToUtf8();
  CXMLFile xml;
  std::string text = "<!DOCTYPE a [<!ENTITY e SYSTEM \"" + secret + "\">]><a>x&e;y</a>";
  if (xml.LoadFromString(CString(text.c_str()))) {
    CString all;
    ASSERT_EQ(1, xml.GetXML(all));
    EXPECT_EQ(std::string::npos, all.ToUtf8().find("SECRET"));
    EXPECT_EQ(std::string::npos, Read(xml, ".").find("SECRET"));
  }
  // An external DTD is not fetched: its default attribute never appears.
  CString dtd = File("a.dtd", "<!ATTLIST a x CDATA \"fromdtd\">");
  Load(xml, "<!DOCTYPE a SYSTEM \"file://" + dtd.ToUtf8() + "\"><a/>");
  EXPECT_EQ("0:", Read(xml, "@x"));
}

// --- Without a document -------------------------------------------------------

TEST_F(CXMLFileTest, WithoutDocumentEverythingAnswersZeroAndEmptyDocumentClearsTheTree) {
  CXMLFile xml;
  Held<IXMLDOMElement> root;
  Held<IXMLDOMNode> node;
  Held<IXMLDOMNodeList> list;
  CString value("x");
  EXPECT_EQ("0:", Read(xml, "a"));
  // Every answer is 0 (their sum is), and nothing is shown.
  EXPECT_EQ(0, xml.GetRootNode(&root) + xml.GetPathedNode(CString("a"), &node) +
                   xml.GetPathedNodeList(CString("a"), &list) +
                   xml.GetNamedNodeList(CString("a"), &list) + xml.GetXML(value) +
                   xml.EmptyDocument() + xml.SaveFile(File("x.xml")) +
                   xml.GetNodeValue(nullptr, value) +
                   xml.AddNewNode(nullptr, CString("a"), CString("b")) + MessageBoxes());

  Load(xml, "<a><b>1</b></a>");
  EXPECT_EQ(1, xml.EmptyDocument());
  EXPECT_EQ(0, xml.GetRootNode(&root));
  EXPECT_EQ(1, xml.CreateRootNode(CString("fresh")));
}

// --- Reading values -------------------------------------------------------------

TEST_F(CXMLFileTest, NodeValueIsTheFirstTextChildAndAttributesReadByNameOrPath) {
  CXMLFile xml;
  Load(xml,
       "<a><cdata><![CDATA[hidden]]></cdata><mixed><i>x</i>first<i>y</i>second</mixed>"
       "<cdatathen><![CDATA[c]]>after</cdatathen><empty/></a>");
  EXPECT_EQ("0:|1:first|1:after|0:", Read(xml, "cdata") + "|" + Read(xml, "mixed") + "|" +
                                         Read(xml, "cdatathen") + "|" + Read(xml, "empty"));
  // Attributes: a missing one leaves the output alone; a path reads them too.
  Load(xml, "<a x='1 &amp; 2' empty=''/>");
  Held<IXMLDOMElement> root;
  ASSERT_EQ(1, xml.GetRootNode(&root));
  EXPECT_EQ("1:1 & 2|1:|0:stale", Attribute(xml, root, "x") + "|" + Attribute(xml, root, "empty") +
                                      "|" + Attribute(xml, root, "y"));
  EXPECT_EQ("1:1 & 2|1:", Read(xml, "@x") + "|" + Read(xml, "@empty"));
}

// --- Finding nodes ------------------------------------------------------------------

TEST_F(CXMLFileTest, ListsByTagNameFindAllAndByPathChildrenOnly) {
  CXMLFile xml;
  Load(xml, "<a><title>t0</title><b><title>t1</title></b><title>t2</title></a>");
  Held<IXMLDOMNodeList> list;
  ASSERT_EQ(1, xml.GetNamedNodeList(CString("title"), &list));
  long length = 0;
  ASSERT_EQ(1, list->get_length(&length));
  ASSERT_EQ(3, length);
  Held<IXMLDOMNode> beyond;
  EXPECT_EQ(0, list->get_item(3, &beyond) + list->get_item(-1, &beyond));
  Held<IXMLDOMNodeList> direct;
  ASSERT_EQ(1, xml.GetPathedNodeList(CString("title"), &direct));
  direct->get_length(&length);
  EXPECT_EQ(2, length);
  // Malformed or non-node paths answer 0; namespace nodes are never handed out.
  Held<IXMLDOMNodeList> bad;
  EXPECT_EQ(0, xml.GetPathedNodeList(CString("count(b)"), &bad));
  ASSERT_EQ(1, xml.GetPathedNodeList(CString("namespace::*"), &bad));
  bad->get_length(&length);
  EXPECT_EQ(0, length);
  EXPECT_EQ(0, MessageBoxes());
}

TEST_F(CXMLFileTest, PathedNodeWithTextIsCaseSensitiveAndParentsGoUpToTheDocument) {
  CXMLFile xml;
  Load(xml, "<a x='1'><g>r1_g2</g><g>R1_G2</g></a>");
  Held<IXMLDOMNode> node, none;
  ASSERT_EQ(1, xml.GetPathedNodeWithText(CString("g"), CString("R1_G2"), &node));
  CString xml_text;
  ASSERT_EQ(1, node->get_xml(&xml_text));
  EXPECT_EQ(CString("<g>R1_G2</g>"), xml_text);
  Held<IXMLDOMNode> a, document, attribute;
  ASSERT_EQ(1, xml.GetParentNode(node, &a));
  ASSERT_EQ(1, xml.GetParentNode(a, &document));
  int type = 0;
  document->get_nodeType(&type);
  EXPECT_EQ(IXMLDOMNode::NODE_DOCUMENT, type);
  ASSERT_EQ(1, xml.GetPathedNode(CString("@x"), &attribute));
  EXPECT_EQ(nullptr, attribute->AsElement());
  EXPECT_EQ(0, xml.GetParentNode(document, &none) + xml.GetParentNode(attribute, &none));
}

// --- Building ---------------------------------------------------------------------------

// Typed children read back through the typed readers; a child that is
// missing answers 0, and a date text that reads as no date still answers 1.
TEST_F(CXMLFileTest, AddNewNodeOfTypedValuesReadsBack) {
  CXMLFile xml;
  ASSERT_EQ(1, xml.CreateRootNode(CString("r")));
  Held<IXMLDOMElement> root;
  ASSERT_EQ(1, xml.GetRootNode(&root));
  COleDateTime date(2005, 11, 7, 21, 5, 0);
  EXPECT_EQ(4, xml.AddNewNode(root, CString("s"), CString("a<&>b")) +
                   xml.AddNewNode(root, CString("l"), 5000000000L) +
                   xml.AddNewNode(root, CString("t"), date) +
                   xml.AddNewNode(root, CString("bad"), CString("soon")));
  EXPECT_EQ(0, xml.AddNewNode(root, CString("no good"), 1));

  CString all;
  ASSERT_EQ(1, xml.GetXML(all));
  CXMLFile back;
  Load(back, all.ToUtf8());
  EXPECT_EQ("1:a<&>b", Read(back, "s"));
  Held<IXMLDOMElement> r;
  ASSERT_EQ(1, back.GetRootNode(&r));
  long l = 0;
  COleDateTime t, bad;
  EXPECT_EQ(3, back.GetChildNodeValue(r, CString("l"), l) +
                   back.GetChildNodeValue(r, CString("t"), t) +
                   back.GetChildNodeValue(r, CString("bad"), bad));
  EXPECT_EQ(5000000000L, l);
  EXPECT_DOUBLE_EQ(date.GetDATE(), t.GetDATE());
  EXPECT_EQ(COleDateTime::invalid, bad.GetStatus());
  EXPECT_EQ(0, back.GetChildNodeValue(r, CString("missing"), l));
}

// The root is made once; text is added, not replaced, and not under a text
// node; the out-argument's node is released; attributes are replaced.
TEST_F(CXMLFileTest, BuildingTheRootTextNodesAndAttributes) {
  CXMLFile xml;
  EXPECT_EQ(0, xml.CreateRootNode(CString("bad name")));
  EXPECT_EQ(1, xml.CreateRootNode(CString("r")));
  EXPECT_EQ(0, xml.CreateRootNode(CString("second")));
  Held<IXMLDOMElement> root;
  ASSERT_EQ(1, xml.GetRootNode(&root));
  EXPECT_EQ(2, xml.SetNodeText(root, CString("one")) + xml.SetNodeText(root, CString("two")));
  CString value;
  ASSERT_EQ(1, root->get_text(&value));
  EXPECT_EQ(CString("onetwo"), value);

  IXMLDOMNode* node = nullptr;
  ASSERT_EQ(1, xml.AddNewNode(&node, root, CString("a"), CString("1")));
  IXMLDOMNode* first = node;
  first->AddRef();
  ASSERT_EQ(1, xml.AddNewNode(&node, node, CString("b"), CString("2")));
  EXPECT_EQ(0u, first->Release());  // the out-argument's reference went
  node->Release();
  EXPECT_EQ(1, xml.AddAttribute(root, CString("k"), CString("\"2\" & <3>")));
  EXPECT_EQ(0, xml.AddAttribute(root, CString("1bad"), CString("x")));
  CString text;
  ASSERT_EQ(1, xml.GetXML(text));
  CXMLFile back;
  Load(back, text.ToUtf8());
  EXPECT_EQ("1:one|1:\"2\" & <3>|1:2",
            Read(xml, ".") + "|" + Read(back, "@k") + "|" + Read(back, "a/b"));
}

// --- Ownership -------------------------------------------------------------------------

TEST_F(CXMLFileTest, CopiesAndNodesShareTheDocumentAndOutliveEachOther) {
  auto* original = new CXMLFile;
  Load(*original, "<a>1</a>");
  CXMLFile copy(*original);
  CXMLFile assigned;
  assigned = copy;
  delete original;
  assigned = assigned;
  EXPECT_EQ("1:1|1:1", Read(copy, ".") + "|" + Read(assigned, "."));
  // Nodes outlive their file object and its later loads.
  IXMLDOMElement* root = nullptr;
  {
    CXMLFile xml;
    Load(xml, "<a>1</a>");
    ASSERT_EQ(1, xml.GetRootNode(&root));
    Load(xml, "<b>2</b>");
  }
  CString text;
  ASSERT_EQ(1, root->get_xml(&text));
  EXPECT_EQ(CString("<a>1</a>"), text);
  EXPECT_EQ(0u, root->Release());
}

// --- Files and transformations ------------------------------------------------------

TEST_F(CXMLFileTest, SaveFileAndLoadFileRoundTrip) {
  CXMLFile xml;
  ASSERT_EQ(1, xml.CreateRootNode(CString("r")));
  Held<IXMLDOMElement> root;
  ASSERT_EQ(1, xml.GetRootNode(&root));
  ASSERT_EQ(1, xml.AddNewNode(root, CString("v"), CString(u"caf\u00E9 \u20AC")));
  CString path = File("out.xml");
  ASSERT_EQ(1, xml.SaveFile(path));
  CXMLFile back;
  ASSERT_EQ(1, back.LoadFile(path));
  EXPECT_EQ("1:caf\xC3\xA9 \xE2\x82\xAC", Read(back, "v"));
  EXPECT_EQ(0, xml.SaveFile(File("no/such/folder/x.xml")));
}

std::string Sheet(const std::string& output, const std::string& body) {
  return "<xsl:stylesheet version='1.1' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>" +
         output + "<xsl:template match='/'>" + body + "</xsl:template></xsl:stylesheet>";
}

TEST_F(CXMLFileTest, TransformNodeByStylesheetThatMayNotWriteFiles) {
  CXMLFile xml;
  Load(xml, "<a><b>1</b><b>2</b></a>");
  CXMLFile sheet;
  Load(sheet, Sheet("<xsl:output method='text'/>",
                    "<xsl:for-each select='a/b'>[<xsl:value-of select='.'/>]</xsl:for-each>"));
  CString out;
  // The stylesheet can be used again: it was not consumed.
  for (int pass = 0; pass < 2; ++pass) {
    ASSERT_EQ(1, xml.TransformNode(sheet, out));
    EXPECT_EQ(CString("[1][2]"), out);
  }
  CXMLFile not_a_sheet, empty;
  Load(not_a_sheet, "<x/>");
  EXPECT_EQ(0, xml.TransformNode(not_a_sheet, out) + xml.TransformNode(empty, out) +
                   empty.TransformNode(sheet, out));
  // A sheet that would write a file is refused and writes nothing.
  CString target = File("written.txt");
  CXMLFile writing_sheet;
  Load(writing_sheet,
       Sheet("", "<xsl:document href='" + target.ToUtf8() + "' method='text'>x</xsl:document>"));
  EXPECT_EQ(0, xml.TransformNode(writing_sheet, out));
  EXPECT_FALSE(FileSystem::Exists(target));
}

TEST_F(CXMLFileTest, TransformNodeGivesTheCharactersWhateverTheOutputEncoding) {
  CXMLFile xml;
  ASSERT_EQ(1, xml.LoadFromString(CString(u"<a>caf\u00e9 \u20ac</a>")));
  for (const char* encoding : {"ISO-8859-1", "UTF-16"}) {
    for (const char* method : {"text", "xml"}) {
      CXMLFile sheet;
      Load(sheet,
           Sheet(std::string("<xsl:output method='") + method + "' encoding='" + encoding + "'/>",
                 "<r><xsl:value-of select='a'/></r>"));
      CString out;
      ASSERT_EQ(1, xml.TransformNode(sheet, out)) << encoding << " " << method;
      EXPECT_NE(-1, out.Find(CString(u"caf\u00e9 \u20ac")))
          << encoding << " " << method << ": " << out.ToUtf8();
    }
  }
}

}  // namespace
}  // namespace kordll
