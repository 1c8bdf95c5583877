#include "kordll/toolkit/PrintTemplate.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kordll/platform/Host.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/MemoryHeap.h"
#include "kordll/toolkit/CXMLFile.h"
#include "kordll/toolkit/PrintTag.h"
#include "tests/support/TestHost.h"

namespace kordll {

void PrintTo(const CString& s, std::ostream* os) { *os << '"' << s.ToUtf8() << '"'; }

namespace {

struct TemplateDeleter {
  void operator()(PrintTemplate* t) const { delete t; }
};
using TemplatePtr = std::unique_ptr<PrintTemplate, TemplateDeleter>;

TemplatePtr Make(const char* name) {
  return TemplatePtr(PrintTemplate::GeneratePrintTemplate(CString(name)));
}

// A post as a record would print it: an enclosing "post" with attributes,
// plain tags, and an "author" child level.
TemplatePtr MakePost() {
  TemplatePtr post = Make("post");
  post->SetAttribute(CString("guid"), CString("R3_G7"));
  post->SetAttribute_wInt(CString("status"), 2);
  post->AddTag(CString("title"), CString("Caf&amp;e"), 0);
  post->AddTag_wIntValue(CString("rank"), 0);
  PrintTemplate* author = PrintTemplate::GeneratePrintTemplate(CString("author"));
  author->AddTag(CString("name"), CString("Ann"), 0);
  author->SetAttribute(CString("kind"), CString("person"));
  EXPECT_EQ(1, post->AddPrintTemplate(author));
  post->AddTag(CString("body"), CString("<b>x</b>"), 1);
  return post;
}

// --- Building -------------------------------------------------------------------

TEST(PrintTemplate, TagWithoutValueIsNeverAddedNorAttributeOfEmptyValueWritten) {
  TemplatePtr t = Make("r");
  EXPECT_EQ(nullptr, t->AddTag(CString("x"), CString(""), 0));
  EXPECT_EQ(nullptr, t->AddTag(CString(""), CString("v"), 0));
  EXPECT_EQ(nullptr, t->GetTag(CString("x")));
  PrintTag* zero = t->AddTag_wIntValue(CString("x"), 0);
  ASSERT_NE(nullptr, zero);
  EXPECT_EQ(t.get(), zero->GetOwnerTemplate());
  EXPECT_EQ(1, t->SetAttribute(CString("a"), CString("")));
  EXPECT_EQ(1, t->SetAttribute(CString("b"), CString("2")));
  EXPECT_EQ(CString("<r b=\"2\"><x>0</x>\n</r>"), t->FlushTemplate(0));

  EXPECT_EQ(0, t->GetRootTag()->AddTagAttribute(CString("a"), CString("now"), 0));
}

TEST(PrintTemplate, WithoutRootTheRootOperationsFailUntilReinitialized) {
  TemplatePtr t = Make("");
  EXPECT_EQ(nullptr, t->GetRootTag());
  TemplatePtr parent = Make("p");
  EXPECT_EQ(0, t->SetAttribute(CString("a"), CString("1")) + t->SetAttribute_wInt(CString("a"), 1) +
                   t->RemoveAttribute(CString("a")) + t->SetRootTagName(CString("n")) +
                   parent->AddPrintTemplate(t.get()) + parent->AddPrintTemplate(nullptr));
  EXPECT_EQ(nullptr, t->GetParentPrintTemplate());
  // Reset empties a built template; it can be initialized again.
  t = MakePost();
  t->ResetPrintTemplate();
  EXPECT_EQ(nullptr, t->GetRootTag());
  EXPECT_EQ(CString(), t->FlushTemplate(0));
  t->InitializePrintTemplate(CString("again"));
  EXPECT_EQ(CString("<again></again>"), t->FlushTemplate(0));
}

TEST(PrintTemplate, AddPrintTemplateRefusesLoopsAndSecondOwners) {
  TemplatePtr top = Make("top");
  PrintTemplate* mid = PrintTemplate::GeneratePrintTemplate(CString("mid"));
  ASSERT_EQ(1, top->AddPrintTemplate(mid));
  EXPECT_EQ(top.get(), mid->GetParentPrintTemplate());
  TemplatePtr other = Make("other");
  // Already added, itself, its ancestor, a second owner.
  EXPECT_EQ(0, top->AddPrintTemplate(mid) + mid->AddPrintTemplate(mid) +
                   mid->AddPrintTemplate(top.get()) + other->AddPrintTemplate(mid));
  EXPECT_EQ(CString("<top><mid></mid>\n</top>"), top->FlushTemplate(0));
}

TEST(PrintTemplate, RemoveTagTakesEveryTagOfTheNameOutOfTheOrder) {
  TemplatePtr t = Make("r");
  t->AddTag(CString("a"), CString("1"), 0);
  t->AddTag(CString("b"), CString("2"), 0);
  t->AddTag(CString("a"), CString("3"), 0);
  PrintTemplate* child = PrintTemplate::GeneratePrintTemplate(CString("a"));
  child->AddTag(CString("c"), CString("4"), 0);
  ASSERT_EQ(1, t->AddPrintTemplate(child));
  ASSERT_EQ(3u, t->GetTags(CString("a"))->size());
  EXPECT_EQ(1, t->RemoveTag(CString("a")));  // destroys the child level too
  EXPECT_EQ(0, t->RemoveTag(CString("a")));
  EXPECT_EQ(CString("<b>2</b>\n"), t->FlushTemplate(1));
}

TEST(PrintTemplate, ObjectTagsAreTakenOverWithoutOwnerAndDeletedChildrenLeaveTheParentSound) {
  TemplatePtr t = Make("r");
  auto* tag = new PrintTag(CString("x"));
  tag->SetTagValue(CString("v"));
  EXPECT_EQ(tag, t->AddTag_wObj(tag));
  EXPECT_EQ(nullptr, t->AddTag_wObj(tag));  // listed once only
  EXPECT_EQ(nullptr, t->AddTag_wObj(nullptr));
  EXPECT_EQ(nullptr, tag->GetOwnerTemplate());
  EXPECT_EQ(tag, t->GetTag(CString("x")));
  EXPECT_EQ(CString("<x>v</x>\n"), t->FlushTemplate(1));
  PrintTemplate* child = PrintTemplate::GeneratePrintTemplate(CString("c"));
  ASSERT_EQ(1, t->AddPrintTemplate(child));
  delete child;
  EXPECT_EQ(nullptr, t->GetTag(CString("c")));
  EXPECT_EQ(CString("<r><x>v</x>\n</r>"), t->FlushTemplate(0));
}

// --- XML flush ------------------------------------------------------------------

class FlushIntoXML : public ::testing::Test {
 protected:
  void SetUp() override { previous_ = Host::Install(&host_); }
  void TearDown() override {
    Host::Install(previous_);
    EXPECT_EQ(0, host_.CountOf(TestHost::CallKind::kMessageBox));
  }

  // Flushes `t` as the document of a fresh file and reads it back from its
  // text, so that the check covers what a reader of the saved file sees.
  void RoundTrip(PrintTemplate* t, CXMLFile& back) {
    CXMLFile xml;
    IXMLDOMNode* out = nullptr;
    ASSERT_EQ(1, t->FlushTemplateIntoXMLFile(&xml, nullptr, &out, 0));
    ASSERT_NE(nullptr, out);
    out->Release();
    CString text;
    ASSERT_EQ(1, xml.GetXML(text));
    ASSERT_EQ(1, back.LoadFromString(text)) << text.ToUtf8();
  }

  // The values the paths read, joined by "|" ("-" where nothing was found).
  static std::string Reads(CXMLFile& xml, std::initializer_list<const char*> paths) {
    std::string out;
    for (const char* path : paths) {
      CString value;
      out += (out.empty() ? "" : "|") +
             (xml.GetSingleNodeValue(CString(path), value) ? value.ToUtf8() : std::string("-"));
    }
    return out;
  }

  TestHost host_;
  Host* previous_ = nullptr;
};

TEST_F(FlushIntoXML, PrintedRecordReadsBackByPath) {
  TemplatePtr post = MakePost();
  CXMLFile back;
  RoundTrip(post.get(), back);
  // Stored text goes in as text: the entity the caller wrote stays written,
  // and a CDATA wrapper becomes plain text.
  EXPECT_EQ(
      "R3_G7|2|0|Ann|person|Caf&amp;e|<![CDATA[<b>x</b>]]>",
      Reads(back, {"@guid", "@status", "rank", "author/name", "author/@kind", "title", "body"}));
}

// In text, tags stand in the order of adding and a level's value hides its
// children; in XML, tags of one name stand together and the children show.
TEST_F(FlushIntoXML, TagsOfOneNameStandTogetherAndAValueHidesChildrenInTextOnly) {
  TemplatePtr t = Make("r");
  t->AddTag(CString("b"), CString("1"), 0);
  t->AddTag(CString("a"), CString("2"), 0);
  t->AddTag(CString("b"), CString("3"), 0);
  PrintTemplate* child = PrintTemplate::GeneratePrintTemplate(CString("c"));
  child->AddTag(CString("inner"), CString("i"), 0);
  ASSERT_EQ(1, t->AddPrintTemplate(child));
  child->GetRootTag()->SetTagValue(CString("shown"));
  EXPECT_EQ(CString("<r><b>1</b>\n<a>2</a>\n<b>3</b>\n<c>shown</c>\n</r>"), t->FlushTemplate(0));
  CXMLFile back;
  RoundTrip(t.get(), back);
  CString text;
  ASSERT_EQ(1, back.GetXML(text));
  EXPECT_NE(std::string::npos, text.ToUtf8().find("<r><a>2</a><b>1</b><b>3</b><c>"))
      << text.ToUtf8();
  EXPECT_EQ("shown|i", Reads(back, {"c", "c/inner"}));
}

TEST_F(FlushIntoXML, LevelOnlyUnderAGivenParent) {
  CXMLFile xml;
  ASSERT_EQ(1, xml.CreateRootNode(CString("doc")));
  IXMLDOMElement* root = nullptr;
  ASSERT_EQ(1, xml.GetRootNode(&root));
  TemplatePtr t = MakePost();
  IXMLDOMNode* out = nullptr;
  EXPECT_EQ(1, t->FlushTemplateIntoXMLFile(&xml, root, &out, 1));
  ASSERT_NE(nullptr, out);
  out->Release();
  root->Release();
  EXPECT_EQ("Ann", Reads(xml, {"author/name"}));
}

}  // namespace
}  // namespace kordll
