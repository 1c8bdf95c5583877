#include "examples/reader/FeedReader.h"

#include <initializer_list>
#include <memory>
#include <string>

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/record/Focusable.h"
#include "kordll/toolkit/CXMLFile.h"
#include "kordll/toolkit/IXMLDOMElement.h"
#include "kordll/toolkit/IXMLDOMNode.h"
#include "kordll/toolkit/KorlanDateTime.h"
#include "kordll/toolkit/KorlanHTMLCtrl.h"

namespace sample {

namespace {

using kordll::IXMLDOMNode;
using kordll::KorlanDateTime;
using kordll::KorlanHTMLCtrl;

// Node handles carry a reference: these give it back.
struct NodeRelease {
  void operator()(IXMLDOMNode* node) const { node->Release(); }
};
using Node = std::unique_ptr<IXMLDOMNode, NodeRelease>;

CString NameOf(IXMLDOMNode* node) {
  CString name;
  node->get_nodeName(&name);
  return name;
}

// True when the element name `actual` is `wanted`: an unprefixed wanted
// name also takes the prefix "atom:".
bool NameIs(const CString& actual, const char* wanted) {
  const CString want(wanted);
  return actual == want || (want.Find(u':') < 0 && actual == CString("atom:") + want);
}

std::vector<Node> Children(IXMLDOMNode* parent) {
  std::vector<Node> children;
  IXMLDOMNode* raw = nullptr;
  if (!parent->get_firstChild(&raw)) return children;
  Node child(raw);
  while (child) {
    int type = 0;
    child->get_nodeType(&type);
    IXMLDOMNode* next = nullptr;
    child->get_nextSibling(&next);
    if (type == IXMLDOMNode::NODE_ELEMENT) children.push_back(std::move(child));
    child.reset(next);
  }
  return children;
}

// The children named by any of `names`, in document order.
std::vector<IXMLDOMNode*> Named(const std::vector<Node>& children,
                                std::initializer_list<const char*> names) {
  std::vector<IXMLDOMNode*> found;
  for (const Node& child : children) {
    const CString name = NameOf(child.get());
    for (const char* wanted : names) {
      if (NameIs(name, wanted)) {
        found.push_back(child.get());
        break;
      }
    }
  }
  return found;
}

// The text of the first child with the first of `names` that has one, in
// the order of the names (the earlier name is the better source).
CString FirstText(const std::vector<Node>& children, std::initializer_list<const char*> names) {
  for (const char* wanted : names) {
    for (IXMLDOMNode* node : Named(children, {wanted})) {
      CString text;
      node->get_text(&text);
      text.Trim();
      if (!text.IsEmpty()) return text;
    }
  }
  return CString();
}

CString Attribute(IXMLDOMNode* node, const char* name) {
  CString value;
  if (node != nullptr && node->AsElement() != nullptr) {
    node->AsElement()->getAttribute(CString(name), &value);
  }
  return value;
}

COleDateTime ReadDate(const CString& text) {
  if (text.IsEmpty()) {
    COleDateTime none;
    none.SetStatus(COleDateTime::invalid);
    return none;
  }
  return KorlanDateTime::StringToDateTime(text, 1);
}

// Decodes "&#NNN;" and "&#xHH;" (what the library's decoder leaves) into
// characters; anything else stays as written.
CString DecodeNumericReferences(const CString& text) {
  const std::u16string& in = text.str();
  std::u16string out;
  for (size_t i = 0; i < in.size(); ++i) {
    if (in[i] == u'&' && i + 2 < in.size() && in[i + 1] == u'#') {
      const bool hex = in[i + 2] == u'x' || in[i + 2] == u'X';
      size_t j = i + (hex ? 3 : 2);
      uint32_t code = 0;
      const size_t digits_from = j;
      for (; j < in.size() && j - digits_from < 7; ++j) {
        const char16_t c = in[j];
        int digit = -1;
        if (c >= u'0' && c <= u'9') digit = c - u'0';
        if (hex && c >= u'a' && c <= u'f') digit = c - u'a' + 10;
        if (hex && c >= u'A' && c <= u'F') digit = c - u'A' + 10;
        if (digit < 0) break;
        code = code * (hex ? 16 : 10) + static_cast<uint32_t>(digit);
      }
      if (j > digits_from && j < in.size() && in[j] == u';' && code > 0 && code <= 0x10FFFF &&
          (code < 0xD800 || code > 0xDFFF)) {
        if (code >= 0x10000) {
          code -= 0x10000;
          out.push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
          out.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
        } else {
          out.push_back(static_cast<char16_t>(code));
        }
        i = j;
        continue;
      }
    }
    out.push_back(in[i]);
  }
  return CString(std::move(out));
}

// The library's decoder takes a group of entities only when the text holds
// the group's first letters; each guard word is put in front (cut off by
// U+0001, which no entity holds) so that every group it knows is decoded.
const char16_t kGuards[] =
    u"&#\x01&a\x01&A\x01&e\x01&E\x01&i\x01&I\x01&o\x01&O\x01&u\x01&U\x01&y\x01&Y\x01&Y\x01";

CString DecodeEntities(const CString& text) {
  if (text.Find(u'&') < 0) return text;
  const CString guards(kGuards);
  CString decoded = KorlanHTMLCtrl::DecodeString(guards + text);
  decoded = decoded.Mid(guards.GetLength());
  return DecodeNumericReferences(decoded);
}

std::vector<CString> PlainTexts(const std::vector<Node>& children,
                                std::initializer_list<const char*> names) {
  std::vector<CString> texts;
  for (IXMLDOMNode* node : Named(children, names)) {
    CString text;
    // An Atom person has its name in a child; RSS gives the text itself.
    const std::vector<Node> inner = Children(node);
    if (!inner.empty()) {
      text = FirstText(inner, {"name"});
    } else {
      node->get_text(&text);
    }
    // An Atom category names itself in its "term", an iTunes one in "text".
    if (text.IsEmpty()) text = Attribute(node, "term");
    if (text.IsEmpty()) text = Attribute(node, "text");
    text = PlainText(text);
    if (!text.IsEmpty()) texts.push_back(text);
  }
  return texts;
}

CString Join(const std::vector<CString>& parts) {
  CString joined;
  for (const CString& part : parts) {
    CString piece = part;
    piece.Replace(CString("|"), CString("&898989;"));
    if (!joined.IsEmpty()) joined += CString("|");
    joined += piece;
  }
  return joined;
}

// An Atom link: the href of the first link with the relation asked for (no
// "rel" counts as "alternate").
IXMLDOMNode* AtomLink(const std::vector<Node>& children, const char* rel) {
  for (IXMLDOMNode* link : Named(children, {"link"})) {
    CString kind = Attribute(link, "rel");
    if (kind.IsEmpty()) kind = CString("alternate");
    if (kind == CString(rel) && !Attribute(link, "href").IsEmpty()) return link;
  }
  return nullptr;
}

CString Enclosure(const std::vector<Node>& children) {
  struct Source {
    const char* element;
    const char* url;
    const char* length;
    const char* type;
  };
  for (const Source& s : {Source{"enclosure", "url", "length", "type"},
                          Source{"enc:enclosure", "rdf:resource", "enc:length", "enc:type"},
                          Source{"media:content", "url", "fileSize", "type"}}) {
    for (IXMLDOMNode* node : Named(children, {s.element})) {
      const CString url = Attribute(node, s.url).Trim();
      if (url.IsEmpty()) continue;
      CString length = Attribute(node, s.length).Trim();
      // A length that is no number of bytes is left out, as if not given.
      if (kordll::_wtoi64(length) <= 0) length = CString();
      return url + CString("|") + length + CString("|") + Attribute(node, s.type).Trim();
    }
  }
  IXMLDOMNode* link = AtomLink(children, "enclosure");
  if (link == nullptr) return CString();
  CString length = Attribute(link, "length").Trim();
  if (kordll::_wtoi64(length) <= 0) length = CString();
  return Attribute(link, "href").Trim() + CString("|") + length + CString("|") +
         Attribute(link, "type").Trim();
}

// Atom content and summary: XHTML content is its markup, anything else
// its text.
CString AtomText(const std::vector<Node>& children, const char* name) {
  for (IXMLDOMNode* node : Named(children, {name})) {
    if (Attribute(node, "type") == CString("xhtml")) {
      CString markup;
      for (const Node& part : Children(node)) {
        for (const Node& inner : Children(part.get())) {
          CString xml;
          inner->get_xml(&xml);
          markup += xml;
        }
      }
      if (!markup.IsEmpty()) return markup;
    }
    CString text;
    node->get_text(&text);
    text.Trim();
    if (!text.IsEmpty()) return text;
  }
  return CString();
}

FeedItem ReadItem(IXMLDOMNode* node, bool atom) {
  const std::vector<Node> c = Children(node);
  FeedItem item;
  item.title = PlainText(FirstText(c, {"title", "itunes:title"}));
  item.authors = PlainTexts(c, {"author", "dc:creator"});
  if (item.authors.empty()) item.authors = PlainTexts(c, {"itunes:author"});
  item.categories = PlainTexts(c, {"category", "dc:subject"});
  if (item.categories.empty()) {
    for (const CString& words : PlainTexts(c, {"itunes:keywords"})) {
      for (CString word : words.Split(u',')) {
        word.Trim();
        if (!word.IsEmpty()) item.categories.push_back(word);
      }
    }
  }
  item.comments = FirstText(c, {"comments"});
  item.enclosure = Enclosure(c);
  if (atom) {
    item.id = FirstText(c, {"id"});
    IXMLDOMNode* link = AtomLink(c, "alternate");
    item.link = link != nullptr ? Attribute(link, "href").Trim() : CString();
    item.description = AtomText(c, "summary");
    item.content = AtomText(c, "content");
    item.published = ReadDate(FirstText(c, {"published", "updated", "issued", "modified"}));
  } else {
    item.id = FirstText(c, {"guid"});
    if (item.id.IsEmpty()) item.id = Attribute(node, "rdf:about");
    item.link = FirstText(c, {"link"});
    // A guid that is a permanent address stands for a missing link.
    if (item.link.IsEmpty() && Named(c, {"guid"}).size() == 1 &&
        Attribute(Named(c, {"guid"})[0], "isPermaLink") != CString("false")) {
      item.link = item.id;
    }
    item.description = FirstText(c, {"description", "itunes:summary", "itunes:subtitle"});
    item.content = FirstText(c, {"content:encoded"});
    item.published = ReadDate(FirstText(c, {"pubDate", "dc:date"}));
  }
  return item;
}

void ReadChannel(const std::vector<Node>& c, bool atom, FeedChannel* channel) {
  channel->title = PlainText(FirstText(c, {"title"}));
  channel->language = FirstText(c, {"language", "dc:language"});
  channel->publisher = PlainText(FirstText(c, {"dc:publisher"}));
  channel->creator = PlainText(FirstText(c, {"dc:creator", "itunes:author"}));
  if (atom) {
    IXMLDOMNode* link = AtomLink(c, "alternate");
    channel->link = link != nullptr ? Attribute(link, "href").Trim() : CString();
    channel->description = AtomText(c, "subtitle");
    channel->generator = PlainText(FirstText(c, {"generator"}));
    const std::vector<CString> authors = PlainTexts(c, {"author"});
    if (!authors.empty()) channel->managingEditor = authors[0];
    channel->lastBuild = ReadDate(FirstText(c, {"updated", "modified"}));
    channel->published = channel->lastBuild;
    return;
  }
  channel->link = FirstText(c, {"link"});
  channel->description = FirstText(c, {"description", "itunes:summary", "itunes:subtitle"});
  channel->generator = PlainText(FirstText(c, {"generator", "admin:generatorAgent"}));
  channel->managingEditor = PlainText(FirstText(c, {"managingEditor"}));
  channel->webMaster = PlainText(FirstText(c, {"webMaster"}));
  channel->published = ReadDate(FirstText(c, {"pubDate", "dc:date"}));
  channel->lastBuild = ReadDate(FirstText(c, {"lastBuildDate"}));
  const CString ttl = FirstText(c, {"ttl"});
  if (!ttl.IsEmpty() && kordll::_wtoi(ttl) > 0) channel->ttl = kordll::_wtoi(ttl);
}

int NotAFeed(CString* error, const CString& reason) {
  if (error != nullptr) *error = CString("not a feed: ") + reason;
  return 0;
}

}  // namespace

CString PlainText(const CString& text) {
  CString plain = DecodeEntities(KorlanHTMLCtrl::EscapeHTML(text, nullptr, 0));
  std::u16string out;
  for (char16_t unit : plain.str()) {
    const bool blank = unit == u' ' || unit == u'\t' || unit == u'\n' || unit == u'\r' ||
                       unit == u'\v' || unit == u'\f' || unit == 0xA0;
    if (blank) {
      if (!out.empty() && out.back() != u' ') out.push_back(u' ');
    } else {
      out.push_back(unit);
    }
  }
  while (!out.empty() && out.back() == u' ') out.pop_back();
  return CString(std::move(out));
}

int ReadFeedFile(const CString& path, Feed* feed, CString* error) {
  *feed = Feed();
  if (!kordll::FileSystem::IsFile(path)) return NotAFeed(error, path + CString(" cannot be read"));
  kordll::CXMLFile xml;
  if (!xml.LoadFile(path)) return NotAFeed(error, path + CString(" is not an XML document"));
  kordll::IXMLDOMElement* root_element = nullptr;
  if (!xml.GetRootNode(&root_element)) return NotAFeed(error, path + CString(" is empty"));
  Node root(root_element);
  const CString kind = NameOf(root.get());
  const std::vector<Node> top = Children(root.get());
  if (kind == CString("rss")) {
    feed->format = CString("RSS 2.0");
    const std::vector<IXMLDOMNode*> channels = Named(top, {"channel"});
    if (channels.empty()) return NotAFeed(error, path + CString(" has no channel"));
    const std::vector<Node> c = Children(channels[0]);
    ReadChannel(c, false, &feed->channel);
    for (IXMLDOMNode* item : Named(c, {"item"})) feed->items.push_back(ReadItem(item, false));
    // RSS 0.91 style: items beside the channel.
    for (IXMLDOMNode* item : Named(top, {"item"})) feed->items.push_back(ReadItem(item, false));
  } else if (kind == CString("rdf:RDF")) {
    feed->format = CString("RSS 1.0");
    const std::vector<IXMLDOMNode*> channels = Named(top, {"channel"});
    if (channels.empty()) return NotAFeed(error, path + CString(" has no channel"));
    ReadChannel(Children(channels[0]), false, &feed->channel);
    for (IXMLDOMNode* item : Named(top, {"item"})) feed->items.push_back(ReadItem(item, false));
  } else if (NameIs(kind, "feed")) {
    feed->format = CString("Atom");
    ReadChannel(top, true, &feed->channel);
    for (IXMLDOMNode* entry : Named(top, {"entry"})) feed->items.push_back(ReadItem(entry, true));
  } else {
    return NotAFeed(error, path + CString(" is a \"") + kind + CString("\" document"));
  }
  return 1;
}

void FillPost(const FeedItem& item, const CString& channelTitle, kordll::Focusable* post) {
  if (item.published.GetStatus() == COleDateTime::valid) {
    post->SetPublicationDateTime(item.published);
  }
  post->SetPostTitle(item.title);
  post->SetValueStr(5, Join(item.authors), 1);
  post->SetValueStr(6, Join(item.categories), 1);
  post->SetValueStr(7, item.description, 1);
  post->SetPostPublishedChannel(channelTitle);
  post->SetValueStr(10, item.link.IsEmpty() ? item.id : item.link, 1);
  post->SetValueStr(11, item.content, 1);
  post->SetValueStr(12, item.comments, 1);
  post->SetValueStr(15, item.enclosure, 1);
}

void FillChannel(const Feed& feed, const CString& feedAddress, kordll::Focusable* channel) {
  const FeedChannel& c = feed.channel;
  channel->SetValueStr(4, c.title, 1);
  channel->SetValueStr(5, c.description, 1);
  channel->SetValueStr(6, c.link, 1);
  channel->SetValueStr(7, feedAddress, 1);
  channel->SetValueStr(9, c.managingEditor, 1);
  if (c.published.GetStatus() == COleDateTime::valid) channel->SetValueDate(10, c.published, 1);
  channel->SetValueStr(11, c.webMaster, 1);
  channel->SetValueStr(12, c.publisher, 1);
  channel->SetValueStr(13, c.creator, 1);
  channel->SetValueStr(14, c.generator, 1);
  channel->SetValueStr(16, c.language, 1);
  if (c.lastBuild.GetStatus() == COleDateTime::valid) channel->SetValueDate(17, c.lastBuild, 1);
  if (c.ttl > 0) channel->SetValueInt(25, c.ttl, 1);
}

}  // namespace sample
