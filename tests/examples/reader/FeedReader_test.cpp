// The sample reader's feed reading on documents of the kinds met in the
// wild (tests/examples/feeds): what reaches each field of the post and
// channel records, and the words for what is not a feed.

#include "examples/reader/FeedReader.h"

#include <gtest/gtest.h>

#include <string>

#include "kordll/platform/TimeZone.h"
#include "kordll/record/Focusable.h"

namespace sample {
namespace {

CString FeedPath(const char* name) {
  return CString(KORDLL_SOURCE_DIR "/tests/examples/feeds/") + CString(name);
}

struct Expect {
  int item;  // -1: the channel record
  int field;
  const char* text;
};

// Reads the feed, makes its records and compares the fields named.
void Check(const char* file, const char* format, size_t items,
           std::initializer_list<Expect> expected) {
  kordll::ScopedTimeZone utc("UTC");
  Feed feed;
  CString error;
  ASSERT_EQ(1, ReadFeedFile(FeedPath(file), &feed, &error)) << error.ToUtf8();
  EXPECT_EQ(CString(format), feed.format) << file;
  ASSERT_EQ(items, feed.items.size()) << file;
  kordll::Focusable channel(3, nullptr);
  FillChannel(feed, "file:///feed", &channel);
  for (const Expect& e : expected) {
    kordll::Focusable post(4, nullptr);
    if (e.item >= 0) FillPost(feed.items[e.item], feed.channel.title, &post);
    kordll::Focusable& record = e.item >= 0 ? post : channel;
    EXPECT_EQ(std::string(e.text), record.GetFieldString(e.field, 0).ToUtf8())
        << file << " item " << e.item << " field " << e.field;
  }
}

// RSS 2.0 without and with extension namespaces (iTunes), Atom and RSS 1.0.
TEST(FeedReaderTest, EveryKindOfFeedFillsTheRecords) {
  Check("rss2_plain.xml", "RSS 2.0", 3,
        {{-1, 4, "Café Radio"},
         {0, 6, "Music|Live&898989;Recorded"},
         {0, 15, "http://radio.example.org/1.mp3|12345|audio/mpeg"},
         // CDATA is read whole.
         {1, 7, "<p>A <b>CDATA</b> body &amp; more</p>"},
         // An unreadable date is left out; white space runs become one blank.
         {2, 3, ""},
         {2, 4, "White space"}});
  Check("rss2_itunes.xml", "RSS 2.0", 2,
        {{0, 5, "Kim|Lee"},
         {0, 11, "<p>Full <i>notes</i> &eacute;</p>"},
         {1, 15, "https://cdn.example.com/e2.mp3||audio/mpeg"}});
  Check("atom.xml", "Atom", 2,
        {{-1, 4, "Atom & Eve"},
         {0, 11, "<p>Long <b>text</b></p>"},
         {0, 15, "http://atom.example.net/a.mp3|2048|audio/mpeg"}});
  Check("rss1.xml", "RSS 1.0", 2,
        {{0, 3, "11/07/05@08:00"}, {0, 15, "http://rdf.example.org/one.mp3||audio/mpeg"}});
}

TEST(FeedReaderTest, WhatIsNotAFeedIsSaid) {
  for (const char* name : {"not_a_feed.xml", "broken.txt", "missing.xml"}) {
    Feed feed;
    CString error;
    EXPECT_EQ(0, ReadFeedFile(FeedPath(name), &feed, &error)) << name;
    EXPECT_EQ(0, error.Find(CString("not a feed: "))) << error.ToUtf8();
    EXPECT_LT(0, error.Find(CString(name))) << error.ToUtf8();
    // A well-formed document of another kind is named by its root.
    EXPECT_EQ(name[0] == 'n', error.ToUtf8().find("\"html\" document") != std::string::npos);
  }
}

}  // namespace
}  // namespace sample
