// ContentFilter: telling a filter as one sentence.

#include <set>
#include <vector>

#include "kordll/filter/ContentFilter.h"
#include "kordll/record/Item.h"
#include "kordll/record/RecordIds.h"

namespace kordll {

namespace {

// How the sentences render a date.
const CString kSentenceDateFormat(u"%B %d, %Y");

// The four post fields a sentence names, in the order it names them.
struct NamedField {
  int id;
  const char16_t* name;
};
constexpr NamedField kNamedFields[] = {{kPostFieldDescription, u"body"},
                                       {kPostFieldTitle, u"title"},
                                       {kPostFieldAuthors, u"author"},
                                       {kPostFieldCategories, u"category"}};

bool IsValid(const COleDateTime& date) { return date.GetStatus() == COleDateTime::valid; }

}  // namespace

// --- Sentences --------------------------------------------------------------------------------

CString ContentFilter::WordSeparator(int i, int n, const CString& join) {
  if (i == n - 1 && i == 2) return u" " + join + u" ";
  if (i == n - 1 && i >= 1) return u", " + join + u" ";
  if (i < n - 1 && i >= 1 && n > 2) return CString(u", ");
  return CString();
}

CString ContentFilter::WordList(const CStringArray& words, const CString& join) {
  const int n = static_cast<int>(words.size());
  CString list;
  for (int i = 0; i < n; ++i) {
    list += WordSeparator(i, n, join);
    list += u'"';
    list += words[i];
    list += u'"';
  }
  return list;
}

CString ContentFilter::CreateStringDefinition() {
  CStringArray words;
  GetFilterKeywords(&words);
  const size_t n = words.size();
  if (n == 0) return CString();
  const CString list = WordList(words, CString(IsWordDependent() ? u"and" : u"or"));
  auto hasArray = [this](int relation, int field) {
    return GetFilteredFieldItems(relation, field) != nullptr;
  };
  std::vector<const NamedField*> present;
  for (const NamedField& named : kNamedFields) {
    if (hasArray(kRelationPost, named.id) || hasArray(kRelationSecondPost, named.id)) {
      present.push_back(&named);
    }
  }

  CString sentence;
  if (status_ & kSearchFilter) {
    sentence = u"Searching ";
    sentence += n > 1 ? u"words " : u"word ";
    sentence += list;
    // The second test looks for absence, the opposite of the reject
    // sentence: the applications' texts rely on it.
    if (hasArray(kRelationPost, -1) || !hasArray(kRelationSecondPost, -1)) {
      sentence += u" in ";
    } else {
      const size_t total = present.size();
      size_t named = 0;
      for (size_t i = 0; i < total; ++i) {
        const NamedField* field = present[i];
        if (named > 0) {
          sentence += u", ";
        } else if (field->id == kPostFieldAuthors) {
          // Before "author" the opening replaces what was built: kept as
          // the applications show it.
          sentence = u" in ";
        } else {
          sentence += u" in ";
        }
        if (total - i == 1 && total > 1) sentence += u"and ";
        sentence += field->name;
        ++named;
      }
      if (named >= 2) {
        sentence += u" fields of ";
      } else if (named == 1) {
        sentence += u" field of ";
      }
    }
    if (mask_ != kMaskShowAll) {
      if (mask_ & kMaskUnread) sentence += u"unread ";
      if (mask_ & kMaskRead) sentence += u"read ";
      if (mask_ & kMaskFlagged) sentence += u"starred ";
    }
    sentence += u"posts ";
    if (IsValid(start_) && IsValid(end_)) {
      sentence += (status_ & kReceivedDate) ? u"received " : u"published ";
      if (start_.GetYear() == end_.GetYear() && start_.GetMonth() == end_.GetMonth() &&
          start_.GetDay() == end_.GetDay()) {
        sentence += u"on ";
        sentence += start_.Format(kSentenceDateFormat);
      } else {
        sentence += u"between dates ";
        sentence += start_.Format(kSentenceDateFormat);
        sentence += u" and ";
        sentence += end_.Format(kSentenceDateFormat);
      }
    }
    return sentence;
  }

  sentence = (status_ & kFilterOut) ? u"Filter out retrieved post when "
                                    : u"Accept retrieved post only when ";
  sentence += n < 2 ? u"word " : u"words ";
  sentence += list;
  if (n > 1) {
    sentence += u" occur";
    if (IsWordDependent()) sentence += u" together";
  } else {
    sentence += u" occurs";
  }
  if (hasArray(kRelationPost, -1) || hasArray(kRelationSecondPost, -1)) {
    sentence += u" in any part of it.";
    return sentence;
  }
  size_t named = 0;
  for (size_t i = 0; i < present.size(); ++i) {
    sentence += named > 0 ? u", " : u" in ";
    if (i == present.size() - 1 && named > 0) sentence += u"and ";
    sentence += present[i]->name;
    ++named;
  }
  if (named >= 2) {
    sentence += u" fields of the post.";
  } else if (named == 1) {
    sentence += u" field of the post.";
  }
  return sentence;
}

CString ContentFilter::GetFilterDefinition() {
  CString sentence = notificationFilter_ ? u"Notify me when " : u"Message related when ";
  auto it = filteredFields_.find(kRelationPost);
  if (it == filteredFields_.end()) it = filteredFields_.find(kRelationSecondPost);
  if (it == filteredFields_.end()) return CString();
  // The words are those of the items (the keyword list is not used), each
  // once; an empty text counts as a word.
  std::set<CString> distinct;
  for (const auto& [field, items] : it->second) {
    for (Item* item : items) {
      if (item != nullptr) distinct.insert(item->GetItemString());
    }
  }
  const CStringArray words(distinct.begin(), distinct.end());
  const int n = static_cast<int>(words.size());
  sentence += n < 2 ? u"word " : u"words ";
  const bool together = (status_ & kWordDependent) != 0;
  const CString join(together ? u"and" : u"or");
  for (int i = 0; i < n; ++i) {
    sentence += WordSeparator(i, n, join);
    sentence += u'"';
    sentence += words[i];
    sentence += u'"';
    if (i == n - 1 && i > 0) {
      sentence += u" occur ";
      if (together) sentence += u" together";
      sentence += u".";
    } else if (i == 0 && n == 1) {
      sentence += u" occurs.";
    }
  }
  return sentence;
}

}  // namespace kordll
