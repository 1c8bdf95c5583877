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

  // Loads text that must be well-formed.
  void Load(CXMLFile& xml, const char* text) {
    ASSERT_EQ(1, xml.LoadFromString(CString(text)));
    ASSERT_EQ(0, MessageBoxes());
  }

  // "<answer>:<value>" of a path read, so one line checks both.
  static std::string Read(CXMLFile& xml, const char* path) {
    CString value("stale");
    int answer = xml.GetSingleNodeValue(CString(path), value);
    return std::to_string(answer) + ":" + value.ToUtf8();
  }
  // The same for a child of an element, and for an attribute (which leaves
  // the output alone when missing).
  static std::string Child(CXMLFile& xml, IXMLDOMElement* element, const char* path) {
    CString value("stale");
    int answer = xml.GetChildNodeValue(element, CString(path), value);
    return std::to_string(answer) + ":" + value.ToUtf8();
  }
  static std::string Attribute(CXMLFile& xml, IXMLDOMElement* element, const char* name) {
    CString value("stale");
    int answer = xml.GetAttributeValue(element, CString(name), value);
    return std::to_string(answer) + ":" + value.ToUtf8();
  }
  static std::string Name(IXMLDOMNode* node) {
    CString name;
    node->get_nodeName(&name);
    return name.ToUtf8();
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

const char kFeed[] =
    "<?xml version=\"1.0\"?>\n"
    "<rss version=\"2.0\">\n"
    "  <channel>\n"
    "    <title>News</title>\n"
    "    <item><title>One</title><guid>R1_G1</guid></item>\n"
    "    <item><title>Two</title><guid>R1_G2</guid></item>\n"
    "  </channel>\n"
    "</rss>\n";

// --- Loading and its error ---------------------------------------------------

TEST_F(CXMLFileTest, LoadFromStringAndReadByPathIgnoringTheEncodingDeclaration) {
  CXMLFile xml;
  Load(xml, kFeed);
  EXPECT_EQ("1:News", Read(xml, "channel/title"));
  EXPECT_EQ("1:R1_G2", Read(xml, "channel/item[2]/guid"));
  EXPECT_EQ("0:", Read(xml, "channel/missing"));
  Load(xml, "<?xml version='1.0' encoding='ISO-8859-1'?><a>caf\xC3\xA9 \xE2\x82\xAC</a>");
  EXPECT_EQ("1:caf\xC3\xA9 \xE2\x82\xAC", Read(xml, "."));
}

TEST_F(CXMLFileTest, BrokenTextShowsTheLoadErrorOnceAndKeepsTheDocument) {
  CXMLFile xml;
  Load(xml, "<a>kept</a>");
  EXPECT_EQ(0, xml.LoadFromString(CString("<a>\n<b></a>")));
  ASSERT_EQ(1, MessageBoxes());
  TestHost::Call call = *host_.LastOf(TestHost::CallKind::kMessageBox);
  EXPECT_EQ(CString("Error Loading XML"), call.caption);
  EXPECT_EQ(48u, call.flags);
  std::string text = call.text.ToUtf8();
  EXPECT_TRUE(text.find("Error 0x") == 0 &&
              text.find(" on line 2, position ") != std::string::npos &&
              text.find("\r\nReason: ") != std::string::npos && text.back() != '\n')
      << text;
  EXPECT_EQ("1:kept", Read(xml, "."));
  // Every kind of broken text fails the same way.
  for (const char* broken_text :
       {"", "   ", "<a>", "<a></b>", "<a x=1/>", "<a>&bogus;</a>", "<a/><b/>", "text",
        "<a x='1' x='2'/>", "<?xml version='1.0'?>"}) {
    SCOPED_TRACE(broken_text);
    CXMLFile fresh;
    host_.ClearCalls();
    EXPECT_EQ(0, fresh.LoadFromString(CString(broken_text)));
    EXPECT_EQ(1, MessageBoxes());
    EXPECT_EQ(nullptr, fresh.GetDocument());
  }
}

TEST_F(CXMLFileTest, LoadFileOfBrokenOrMissingFileLeavesNoDocument) {
  CString path = root_.Path(CString("data/broken.xml"));
  ASSERT_EQ(1, FileSystem::WriteWholeFile(path, "<a><b></a>"));
  CXMLFile xml;
  Load(xml, "<held/>");
  EXPECT_EQ(0, xml.LoadFile(path));
  EXPECT_EQ(1, MessageBoxes());
  EXPECT_EQ(nullptr, xml.GetDocument());
  Held<IXMLDOMElement> root;
  EXPECT_EQ(0, xml.GetRootNode(&root));
  EXPECT_EQ(0, xml.LoadFile(root_.Path(CString("data/none.xml"))));
  ASSERT_EQ(2, MessageBoxes());
  std::string text = host_.LastOf(TestHost::CallKind::kMessageBox)->text.ToUtf8();
  EXPECT_EQ(0u, text.find("Error 0x80070002 on line 0, position 0\r\nReason: ")) << text;
}

TEST_F(CXMLFileTest, LoadFileWithOutArgumentReplacesWhatItHeld) {
  CString path = root_.Path(CString("data/a.xml"));
  ASSERT_EQ(1, FileSystem::WriteWholeFile(path, "<a>1</a>"));
  CXMLFile xml;
  IXMLDOMDocument* document = nullptr;
  ASSERT_EQ(1, xml.LoadFile(path, &document));
  ASSERT_NE(nullptr, document);
  IXMLDOMDocument* first = document;
  first->AddRef();  // watch the first one: the second load releases it once
  ASSERT_EQ(1, xml.LoadFile(path, &document));
  EXPECT_NE(first, document);
  EXPECT_EQ(0u, first->Release());
  // A failed load leaves the out-argument alone.
  ASSERT_EQ(1, FileSystem::WriteWholeFile(path, "<a>"));
  IXMLDOMDocument* second = document;
  EXPECT_EQ(0, xml.LoadFile(path, &document));
  EXPECT_EQ(second, document);
  document->Release();
  EXPECT_EQ(nullptr, xml.GetDocument());
}

TEST_F(CXMLFileTest, NoNetworkNoDtdNoExternalEntities) {
  CString secret = root_.Path(CString("data/secret.txt"));
  ASSERT_EQ(1, FileSystem::WriteWholeFile(secret, "SECRET"));
  std::string uri = "file://" + secret.ToUtf8();
  CXMLFile xml;
  std::string text = "<!DOCTYPE a [<!ENTITY e SYSTEM \"" + uri + "\">]><a>x&e;y</a>";
  if (xml.LoadFromString(CString(text.c_str()))) {
    CString all;
    ASSERT_EQ(1, xml.GetXML(all));
    EXPECT_EQ(std::string::npos, all.ToUtf8().find("SECRET"));
    Held<IXMLDOMElement> root;
    ASSERT_EQ(1, xml.GetRootNode(&root));
    CString content;
    root->get_text(&content);
    EXPECT_EQ(std::string::npos, content.ToUtf8().find("SECRET"));
  }
  // An external DTD is not fetched: its default attribute never appears.
  CString dtd = root_.Path(CString("data/a.dtd"));
  ASSERT_EQ(1, FileSystem::WriteWholeFile(dtd, "<!ATTLIST a x CDATA \"fromdtd\">"));
  std::string with_dtd = "<!DOCTYPE a SYSTEM \"file://" + dtd.ToUtf8() + "\"><a/>";
  ASSERT_EQ(1, xml.LoadFromString(CString(with_dtd.c_str())));
  Held<IXMLDOMElement> root;
  ASSERT_EQ(1, xml.GetRootNode(&root));
  EXPECT_EQ("0:stale", Attribute(xml, root, "x"));
}

TEST_F(CXMLFileTest, WhiteSpaceOnlyTextIsDroppedUnlessPreserved) {
  CXMLFile xml;
  Load(xml, "<a>\n  <b> x </b>\n  <c xml:space='preserve'>  <d/></c>\n</a>");
  Held<IXMLDOMElement> root;
  ASSERT_EQ(1, xml.GetRootNode(&root));
  Held<IXMLDOMNode> first;
  ASSERT_EQ(1, root->get_firstChild(&first));
  EXPECT_EQ("b", Name(first));  // the blank text before <b> is gone
  EXPECT_EQ("1: x |1:  ", Child(xml, root, "b") + "|" + Child(xml, root, "c"));
  CString value;
  EXPECT_EQ(0, xml.GetNodeValue(root, value));
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
                   xml.EmptyDocument() + xml.SaveFile(root_.Path(CString("data/x.xml"))) +
                   xml.GetNodeValue(nullptr, value) +
                   xml.AddNewNode(nullptr, CString("a"), CString("b")) + MessageBoxes());
  EXPECT_EQ(nullptr, xml.GetDocument());

  Load(xml, "<a><b>1</b></a>");
  Held<IXMLDOMNode> b;
  ASSERT_EQ(1, xml.GetPathedNode(CString("b"), &b));
  EXPECT_EQ(1, xml.EmptyDocument());
  EXPECT_EQ(0, xml.GetRootNode(&root));
  // A node taken before still reads its old tree.
  EXPECT_EQ(1, xml.GetNodeValue(b->AsElement(), value));
  EXPECT_EQ(CString("1"), value);
  EXPECT_EQ(1, xml.CreateRootNode(CString("fresh")));
  ASSERT_EQ(1, xml.GetRootNode(&root));
}

// --- Reading values -------------------------------------------------------------

TEST_F(CXMLFileTest, NodeValueIsTheFirstTextChildOnlyAndAttributesReadByNameOrPath) {
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

TEST_F(CXMLFileTest, ChildValueOfMissingChildIsZeroAndEmpty) {
  CXMLFile xml;
  Load(xml, "<a><n>42</n><d>3.5</d><t>7/4/2005 1:02:03 PM</t><bad>soon</bad></a>");
  Held<IXMLDOMElement> root;
  ASSERT_EQ(1, xml.GetRootNode(&root));
  EXPECT_EQ("0:", Child(xml, root, "missing"));
  int n = 5;
  EXPECT_EQ(1, xml.GetChildNodeValue(root, CString("n"), n));
  EXPECT_EQ(42, n);
  EXPECT_EQ(0, xml.GetChildNodeValue(root, CString("missing"), n));
  double d = 0;
  EXPECT_EQ(1, xml.GetChildNodeValue(root, CString("d"), d));
  EXPECT_DOUBLE_EQ(3.5, d);
  COleDateTime date;
  EXPECT_EQ(1, xml.GetChildNodeValue(root, CString("t"), date));
  EXPECT_EQ(CString("2005-07-04 13:02:03"), date.Format("%Y-%m-%d %H:%M:%S"));
  // The answer is the text's, not the date reader's.
  EXPECT_EQ(1, xml.GetChildNodeValue(root, CString("bad"), date));
  EXPECT_EQ(COleDateTime::invalid, date.GetStatus());
}

// --- Finding nodes ------------------------------------------------------------------

TEST_F(CXMLFileTest, ListsByPathAndByTagName) {
  CXMLFile xml;
  Load(xml, "<a><title>t0</title><b><title>t1</title></b><title>t2</title></a>");
  Held<IXMLDOMNodeList> list;
  ASSERT_EQ(1, xml.GetNamedNodeList(CString("title"), &list));
  long length = 0;
  ASSERT_EQ(1, list->get_length(&length));
  ASSERT_EQ(3, length);
  CString value, all;
  for (int i = 0; i < 3; ++i) {
    Held<IXMLDOMNode> node;
    ASSERT_EQ(1, list->nextNode(&node));
    xml.GetNodeValue(node->AsElement(), value);
    all += value;
  }
  EXPECT_EQ(CString("t0t1t2"), all);
  Held<IXMLDOMNode> beyond;
  EXPECT_EQ(0, list->nextNode(&beyond) + list->get_item(3, &beyond) + list->get_item(-1, &beyond));

  Held<IXMLDOMNodeList> direct;
  ASSERT_EQ(1, xml.GetPathedNodeList(CString("title"), &direct));
  direct->get_length(&length);
  EXPECT_EQ(2, length);  // a path finds children only
  Held<IXMLDOMNode> node;
  EXPECT_EQ(0, xml.GetPathedNode(CString("nothing"), &node));
}

TEST_F(CXMLFileTest, MalformedOrNonNodePathsAnswerZero) {
  CXMLFile xml;
  Load(xml, "<a><b/></a>");
  Held<IXMLDOMNodeList> list;
  for (const char* path : {"b[", "", "count(b)"})
    EXPECT_EQ(0, xml.GetPathedNodeList(CString(path), &list)) << path;
  // Namespace nodes are never handed out.
  ASSERT_EQ(1, xml.GetPathedNodeList(CString("namespace::*"), &list));
  long length = -1;
  list->get_length(&length);
  EXPECT_EQ(0, length);
  EXPECT_EQ(0, MessageBoxes());
}

TEST_F(CXMLFileTest, PathedNodeWithTextIsCaseSensitiveAndParentsGoUpToTheDocument) {
  CXMLFile xml;
  Load(xml, "<a><g>R1_G1</g><g>r1_g2</g><g>R1_G2</g></a>");
  Held<IXMLDOMNode> node;
  ASSERT_EQ(1, xml.GetPathedNodeWithText(CString("g"), CString("R1_G2"), &node));
  CString xml_text;
  ASSERT_EQ(1, node->get_xml(&xml_text));
  EXPECT_EQ(CString("<g>R1_G2</g>"), xml_text);
  Held<IXMLDOMNode> none;
  EXPECT_EQ(0, xml.GetPathedNodeWithText(CString("g"), CString("R1_G3"), &none));

  Load(xml, "<a x='1'><b/></a>");
  Held<IXMLDOMNode> b;
  ASSERT_EQ(1, xml.GetPathedNode(CString("b"), &b));
  Held<IXMLDOMNode> a;
  ASSERT_EQ(1, xml.GetParentNode(b, &a));
  Held<IXMLDOMNode> document;
  ASSERT_EQ(1, xml.GetParentNode(a, &document));
  int type = 0;
  document->get_nodeType(&type);
  EXPECT_EQ(IXMLDOMNode::NODE_DOCUMENT, type);
  Held<IXMLDOMNode> attribute;
  ASSERT_EQ(1, xml.GetPathedNode(CString("@x"), &attribute));
  EXPECT_EQ(nullptr, attribute->AsElement());
  EXPECT_EQ(0, xml.GetParentNode(document, &none) + xml.GetParentNode(attribute, &none));
}

// --- Building ---------------------------------------------------------------------------

TEST_F(CXMLFileTest, CreateRootNodeOnlyOnceAndSetNodeTextAddsAndDoesNotReplace) {
  CXMLFile xml;
  EXPECT_EQ(0, xml.CreateRootNode(CString("bad name")));
  EXPECT_EQ(1, xml.CreateRootNode(CString("a")));
  EXPECT_EQ(0, xml.CreateRootNode(CString("second")));
  CString text;
  ASSERT_EQ(1, xml.GetXML(text));
  EXPECT_NE(std::string::npos, text.ToUtf8().find("<a/>")) << text.ToUtf8();
  Held<IXMLDOMElement> root;
  ASSERT_EQ(1, xml.GetRootNode(&root));
  EXPECT_EQ(1, xml.SetNodeText(root, CString("one")));
  EXPECT_EQ(1, xml.SetNodeText(root, CString("two")));
  Held<IXMLDOMNode> first;
  ASSERT_EQ(1, root->get_firstChild(&first));
  CString value;
  EXPECT_EQ(1, xml.GetNodeValue(root, value));
  EXPECT_EQ(CString("one"), value);
  ASSERT_EQ(1, root->get_text(&value));
  EXPECT_EQ(CString("onetwo"), value);
  // Text cannot be added under a text node.
  EXPECT_EQ(0, xml.SetNodeText(first, CString("x")));
}

TEST_F(CXMLFileTest, AddNewNodeOfEveryTypeReadsBack) {
  CXMLFile xml;
  ASSERT_EQ(1, xml.CreateRootNode(CString("r")));
  Held<IXMLDOMElement> root;
  ASSERT_EQ(1, xml.GetRootNode(&root));
  COleDateTime date(2005, 11, 7, 21, 5, 0);
  EXPECT_EQ(6, xml.AddNewNode(root, CString("s"), CString("a<&>b")) +
                   xml.AddNewNode(root, CString("i"), -12) +
                   xml.AddNewNode(root, CString("l"), 5000000000L) +
                   xml.AddNewNode(root, CString("f"), 1.5f) +
                   xml.AddNewNode(root, CString("d"), 2.25) +
                   xml.AddNewNode(root, CString("t"), date));
  EXPECT_EQ(0, xml.AddNewNode(root, CString("no good"), 1));

  CString all;
  ASSERT_EQ(1, xml.GetXML(all));
  CXMLFile back;
  Load(back, all.ToUtf8().c_str());
  EXPECT_EQ("1:a<&>b|1:1.500000|1:11/7/2005 9:05:00 PM",
            Read(back, "s") + "|" + Read(back, "f") + "|" + Read(back, "t"));
  Held<IXMLDOMElement> r;
  ASSERT_EQ(1, back.GetRootNode(&r));
  int i = 0;
  long l = 0;
  double d = 0;
  COleDateTime t;
  EXPECT_EQ(4, back.GetChildNodeValue(r, CString("i"), i) +
                   back.GetChildNodeValue(r, CString("l"), l) +
                   back.GetChildNodeValue(r, CString("d"), d) +
                   back.GetChildNodeValue(r, CString("t"), t));
  EXPECT_EQ(-12, i);
  EXPECT_EQ(5000000000L, l);
  EXPECT_DOUBLE_EQ(2.25, d);
  EXPECT_DOUBLE_EQ(date.GetDATE(), t.GetDATE());
}

TEST_F(CXMLFileTest, AddNewNodeReleasesWhatTheOutArgumentHeldAndAttributesAreReplaced) {
  CXMLFile xml;
  ASSERT_EQ(1, xml.CreateRootNode(CString("r")));
  Held<IXMLDOMElement> root;
  ASSERT_EQ(1, xml.GetRootNode(&root));
  IXMLDOMNode* node = nullptr;
  ASSERT_EQ(1, xml.AddNewNode(&node, root, CString("a"), CString("1")));
  IXMLDOMNode* first = node;
  first->AddRef();
  ASSERT_EQ(1, xml.AddNewNode(&node, node, CString("b"), CString("2")));
  EXPECT_EQ(0u, first->Release());  // the out-argument's reference went
  node->Release();
  CString text;
  xml.GetXML(text);
  EXPECT_NE(std::string::npos, text.ToUtf8().find("<r><a>1<b>2</b></a></r>")) << text.ToUtf8();
  EXPECT_EQ(1, xml.AddAttribute(root, CString("k"), CString("1")));
  EXPECT_EQ(1, xml.AddAttribute(root, CString("k"), CString("\"2\" & <3>")));
  EXPECT_EQ(0, xml.AddAttribute(root, CString("1bad"), CString("x")));
  ASSERT_EQ(1, xml.GetXML(text));
  CXMLFile back;
  Load(back, text.ToUtf8().c_str());
  EXPECT_EQ("1:\"2\" & <3>", Read(back, "@k"));
}

// --- Ownership -------------------------------------------------------------------------

TEST_F(CXMLFileTest, CopiesAndNodesShareTheDocumentAndOutliveEachOther) {
  auto* original = new CXMLFile;
  Load(*original, "<a>1</a>");
  CXMLFile copy(*original);
  EXPECT_EQ(original->GetDocument(), copy.GetDocument());
  CXMLFile assigned;
  assigned = copy;
  delete original;
  EXPECT_EQ("1:1", Read(copy, "."));
  assigned = assigned;
  EXPECT_EQ("1:1", Read(assigned, "."));
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
  CString path = root_.Path(CString("data/out.xml"));
  ASSERT_EQ(1, xml.SaveFile(path));
  std::string bytes;
  ASSERT_EQ(1, FileSystem::ReadWholeFile(path, &bytes));
  EXPECT_EQ(0u, bytes.find("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"));
  CXMLFile back;
  ASSERT_EQ(1, back.LoadFile(path));
  EXPECT_EQ("1:caf\xC3\xA9 \xE2\x82\xAC", Read(back, "v"));
  EXPECT_EQ(0, xml.SaveFile(root_.Path(CString("data/no/such/folder/x.xml"))));
}

const char kSheet[] =
    "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
    "<xsl:output method='text'/>"
    "<xsl:template match='/'><xsl:for-each select='a/b'>[<xsl:value-of select='.'/>]"
    "</xsl:for-each></xsl:template></xsl:stylesheet>";

TEST_F(CXMLFileTest, TransformNodeByStylesheetThatMayNotWriteFiles) {
  CXMLFile xml;
  Load(xml, "<a><b>1</b><b>2</b></a>");
  CXMLFile sheet;
  Load(sheet, kSheet);
  CString out;
  // The stylesheet can be used again: it was not consumed.
  for (int pass = 0; pass < 2; ++pass) {
    ASSERT_EQ(1, xml.TransformNode(sheet, out));
    EXPECT_EQ(CString("[1][2]"), out);
  }
  CXMLFile not_a_sheet;
  Load(not_a_sheet, "<x/>");
  out = CString("keep");
  EXPECT_EQ(0, xml.TransformNode(not_a_sheet, out));
  CXMLFile empty;
  EXPECT_EQ(0, xml.TransformNode(empty, out) + empty.TransformNode(sheet, out));
  // A sheet that would write a file is refused and writes nothing.
  CString target = root_.Path(CString("data/written.txt"));
  std::string writer =
      "<xsl:stylesheet version='1.1' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
      "<xsl:template match='/'><xsl:document href='" +
      target.ToUtf8() + "' method='text'>x</xsl:document></xsl:template></xsl:stylesheet>";
  CXMLFile writing_sheet;
  Load(writing_sheet, writer.c_str());
  EXPECT_EQ(0, xml.TransformNode(writing_sheet, out));
  EXPECT_FALSE(FileSystem::Exists(target));
}

TEST_F(CXMLFileTest, TransformNodeGivesTheCharactersWhateverTheOutputEncoding) {
  CXMLFile xml;
  ASSERT_EQ(1, xml.LoadFromString(CString(u"<a>caf\u00e9 \u20ac</a>")));
  for (const char* encoding : {"UTF-8", "ISO-8859-1", "windows-1252", "UTF-16"}) {
    for (const char* method : {"text", "xml"}) {
      std::string sheet_text =
          std::string(
              "<xsl:stylesheet version='1.0' "
              "xmlns:xsl='http://www.w3.org/1999/XSL/Transform'><xsl:output method='") +
          method + "' encoding='" + encoding +
          "'/><xsl:template match='/'><r><xsl:value-of select='a'/></r></xsl:template>"
          "</xsl:stylesheet>";
      CXMLFile sheet;
      Load(sheet, sheet_text.c_str());
      CString out;
      ASSERT_EQ(1, xml.TransformNode(sheet, out)) << encoding << " " << method;
      EXPECT_NE(-1, out.Find(CString(u"caf\u00e9 \u20ac")))
          << encoding << " " << method << ": " << out.ToUtf8();
    }
  }
}

}  // namespace
}  // namespace kordll
