// FeedReader: how the sample reader turns a feed document into records.
//
// A feed is read from a file (the network side saves what it fetched, the
// file addresses name one directly) with the library's XML wrapper. Three
// families are known, told apart by the document element:
//   "rss"      RSS 0.9x and 2.0, items in channel/item
//   "rdf:RDF"  RSS 1.0, channel and items side by side under the root
//   "feed"     Atom 1.0, entries under the root
// Elements of the usual extensions are read by their usual prefixes: "dc:"
// (creator, date, subject), "content:encoded", "itunes:" (author, summary,
// subtitle, keywords, duration), "media:content" and, for RSS 1.0,
// "enc:enclosure". An unprefixed name also matches the same name with the
// prefix "atom:", so Atom written with a prefix reads as well.
//
// Texts: titles, names and categories are plain text (markup removed,
// entities decoded); descriptions and contents keep their markup, as a
// reader view shows them. Dates are read by the library's date reader
// (every shape it knows) and moved to local time.
//
// A document that is not a feed gives 0 and an error text "not a feed: ...".

#ifndef KORDLL_EXAMPLES_READER_FEEDREADER_H_
#define KORDLL_EXAMPLES_READER_FEEDREADER_H_

#include <vector>

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"

namespace kordll {
class Focusable;
}

namespace sample {

using kordll::COleDateTime;
using kordll::CString;

// One item of a feed, as the feed gives it.
struct FeedItem {
  CString id;  // the feed's own identity of the item (guid, id, rdf:about)
  CString title;
  CString link;
  std::vector<CString> authors;
  std::vector<CString> categories;
  CString description;     // markup kept
  CString content;         // content:encoded or Atom content, markup kept
  CString comments;        // address of the comments page
  CString enclosure;       // "URL|length|type"; length and type may be empty
  COleDateTime published;  // invalid when the feed gave none or none could be read
};

// The channel of a feed.
struct FeedChannel {
  CString title;
  CString link;
  CString description;
  CString language;
  CString generator;
  CString managingEditor;
  CString webMaster;
  CString publisher;
  CString creator;
  COleDateTime published;
  COleDateTime lastBuild;
  int ttl = -1;  // minutes, -1 when the feed gives none
};

struct Feed {
  CString format;  // "RSS 2.0", "RSS 1.0" or "Atom"
  FeedChannel channel;
  std::vector<FeedItem> items;
};

// Reads the feed document at `path`. Answers 1, or 0 with *error set to
// "not a feed: " and the reason.
int ReadFeedFile(const CString& path, Feed* feed, CString* error);

// A title, a name or a category as plain text: markup removed, every
// entity the library's decoder knows and every numeric reference decoded,
// white space runs made one blank.
CString PlainText(const CString& text);

// Fills a post record (relation 4) with an item: publication date (3),
// title (4), author names (5, "|"-separated, a "|" in a name written
// "&898989;"), categories (6, "|"-separated), description (7), the channel's
// title (8), link (10, the item's id when it has no link), encoded content
// (11), comment link (12) and enclosure (15). The GUID, status and receive
// date are the owner's.
void FillPost(const FeedItem& item, const CString& channelTitle, kordll::Focusable* post);

// Fills a channel record (relation 3): title (4), description (5), link
// (6), feed address (7), managing editor (9), publication date (10), web
// master (11), publisher (12), creator (13), generator (14), language (16),
// last build date (17) and ttl (25, when the feed gives one).
void FillChannel(const Feed& feed, const CString& feedAddress, kordll::Focusable* channel);

}  // namespace sample

#endif  // KORDLL_EXAMPLES_READER_FEEDREADER_H_
