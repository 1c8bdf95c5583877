// ContentFilter: the stored text, in its present and its older form.

#include <vector>

#include "kordll/filter/ContentFilter.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/record/Item.h"
#include "kordll/record/RecordIds.h"
#include "kordll/toolkit/KorlanDateTime.h"

namespace kordll {

namespace {

// A ":" inside a keyword of the stored text.
const CString kEscapedColon(u"&9877;");
const CString kColon(u":");

// The entries of section 5, separated by "|": an empty entry between two
// bars counts, none follows a last bar.
std::vector<CString> SplitEntries(const CString& entries) {
  std::vector<CString> result;
  int first = 0;
  while (first < entries.GetLength()) {
    int bar = entries.Find(u'|', first);
    if (bar < 0) bar = entries.GetLength();
    result.push_back(entries.Mid(first, bar - first));
    first = bar + 1;
  }
  return result;
}

}  // namespace

// --- Stored text -----------------------------------------------------------------------------

CString ContentFilter::GetFilter() {
  if (changed_ == 0) return definition_;
  CString text;
  text.Format(u"(%d)(", status_);
  text += KorlanDateTime::DateTimeToSimpleString(start_, 0);
  text += u':';
  text += KorlanDateTime::DateTimeToSimpleString(end_, 0);
  text.AppendFormat(u")(%d)(", mask_);
  for (const CString& keyword : keywords_) {
    if (keyword.IsEmpty()) continue;
    CString escaped = keyword;
    escaped.Replace(kColon, kEscapedColon);
    text += escaped;
    text += u':';
  }
  text += u")(";
  for (const auto& [relation, fields] : filteredFields_) {
    text.AppendFormat(u"%d:", relation);
    bool any = false;
    for (const auto& [field, items] : fields) {
      if (items.empty() || items.front() == nullptr) continue;
      text.AppendFormat(u"%d:%d:", field, items.front()->GetItemTypeID());
      any = true;
    }
    if (!any) text += u"-1:4";
    text += u'|';
  }
  text += u")(";
  for (int resource : resources_) {
    if (resource > 0) text.AppendFormat(u"%d,", resource);
  }
  text += u')';
  definition_ = text;
  return text;
}

int ContentFilter::ReadHead(const CString& text, char16_t open, char16_t close, CString* fourth,
                            int* fourthEnd) {
  if (text.GetAt(0) != open) return 0;
  // The indices follow the text's own brackets; a missing closing bracket
  // gives -1 and the section is then cut by the clamped extraction, as it
  // always was. No loop depends on it.
  int end = text.Find(close);
  status_ = _wtoi(text.Mid(1, end - 1));

  int start = end + 1;
  if (text.GetAt(start) != open) return 0;
  end = text.Find(close, start);
  const int colon = text.Find(u':', start);
  if (colon < 0 || end < colon) return 0;
  const CString startText = text.Mid(start + 1, colon - start - 1);
  const CString endText = text.Mid(colon + 1, end - colon - 1);
  // The split takes the first ":", which for a start date lies inside its
  // time: a date interval does not survive the text, and the date test is
  // not switched on here.
  if (!startText.IsEmpty()) start_ = KorlanDateTime::StringToDateTime(startText, 0);
  if (!endText.IsEmpty()) end_ = KorlanDateTime::StringToDateTime(endText, 0);

  start = end + 1;
  if (text.GetAt(start) != open) return 0;
  end = text.Find(close, start);
  mask_ = _wtoi(text.Mid(start + 1, end - start - 1));

  start = end + 1;
  if (text.GetAt(start) != open) return 0;
  *fourthEnd = text.Find(close, start);
  *fourth = text.Mid(start + 1, *fourthEnd - start - 1);
  return 1;
}

void ContentFilter::ReadResources(const CString& text, int pos, char16_t close) {
  const int end = text.Find(close, pos);
  const CString section = text.Mid(pos + 1, end - pos - 1);
  if (section.IsEmpty()) {
    changed_ = 1;
    return;
  }
  TokenState state;
  CString token;
  for (int more = wcstok(&token, &section, CString(u","), state); more;
       more = wcstok(&token, nullptr, CString(u","), state)) {
    const int resource = _wtoi(token);
    if (resource > 0) resources_.push_back(resource);
  }
}

int ContentFilter::SetFilter(CString text) {
  if (text.GetAt(0) == u'[') {
    SetFilterOld(text);
    changed_ = 1;
    return 1;
  }
  // Sections 1 to 4; the fourth holds the keywords.
  CString words;
  int end = 0;
  if (ReadHead(text, u'(', u')', &words, &end) == 0) return 0;
  if (!words.IsEmpty()) {
    TokenState state;
    CString token;
    for (int more = wcstok(&token, &words, kColon, state); more;
         more = wcstok(&token, nullptr, kColon, state)) {
      token.Replace(kEscapedColon, kColon);
      keywords_.push_back(token);
    }
  }

  // Section 5: relations with their fields and item types. Its opening
  // bracket is not looked at.
  int pos = end + 1;
  end = text.Find(u')', pos);
  const CString entries = text.Mid(pos + 1, end - pos - 1);
  int items = CountItems();
  // The keywords that become items, gathered once: empty ones (which an
  // older text read before may have left) make none, and must not cost a
  // pass for every field listed.
  std::vector<const CString*> itemWords;
  for (const CString& keyword : keywords_) {
    if (!keyword.IsEmpty()) itemWords.push_back(&keyword);
  }
  for (const CString& entry : SplitEntries(entries)) {
    const int colon = entry.Find(u':');
    if (colon < 0 || entry.Find(u':', colon + 1) < 0) continue;
    const int relation = _wtoi(entry.Left(colon));
    FieldMap& fields = filteredFields_[relation];
    const CString rest = entry.Mid(colon + 1);
    TokenState state;
    CString fieldToken;
    CString typeToken;
    for (int more = wcstok(&fieldToken, &rest, kColon, state); more;
         more = wcstok(&fieldToken, nullptr, kColon, state)) {
      if (!wcstok(&typeToken, nullptr, kColon, state)) break;  // a lone last token
      const int type = _wtoi(typeToken);
      ItemArray& array = fields[_wtoi(fieldToken)];
      for (const CString* keyword : itemWords) {
        // Every keyword becomes an item of every listed field: a text that
        // would make more items than any rule needs is refused.
        if (++items > kMaxItems) return 0;
        if (Item* item = Item::CreateTypedItem(type, *keyword)) array.push_back(item);
      }
    }
  }

  // Section 6: resources.
  ReadResources(text, end + 1, u')');
  definition_ = text;
  return 1;
}

int ContentFilter::SetFilterOld(CString text) {
  // Sections 1 to 4; the fourth holds the one relation, empty meaning
  // every relation.
  CString relationText;
  int end = 0;
  if (ReadHead(text, u'[', u']', &relationText, &end) == 0) return 0;
  int relation = relationText.IsEmpty() ? -1 : _wtoi(relationText);

  // Section 5: field, type and word, the word keeping any ":" it holds.
  FieldMap fields;
  int pos = end + 1;
  end = text.Find(u']', pos);
  const CString entries = text.Mid(pos + 1, end - pos - 1);
  for (const CString& entry : SplitEntries(entries)) {
    const int colon = entry.Find(u':');
    const int second = colon < 0 ? -1 : entry.Find(u':', colon + 1);
    if (second < 0) continue;
    const int field = _wtoi(entry.Left(colon));
    const int type = _wtoi(entry.Mid(colon + 1, second - colon - 1));
    const CString word = entry.Mid(second + 1);
    keywords_.push_back(word);
    // One item per entry: what this form makes grows with the text alone,
    // so it needs no limit of its own.
    if (Item* item = Item::CreateTypedItem(type, word)) fields[field].push_back(item);
  }

  ReadResources(text, end + 1, u']');
  definition_ = text;
  // An old filter on posts, or on every relation, acts on both post
  // relations.
  if (relation == kRelationPost || relation == -1) {
    relation = kRelationPost;
    StoreCopy(kRelationSecondPost, fields);
  }
  StoreFields(relation, std::move(fields));
  return 1;
}

}  // namespace kordll
