// Preferences: the user's web search engine definitions, kept by shortcut
// term and stored as one text in "MySearchEngineDefinitions".
//
// Stored form: for each definition, in term order,
//   part1!part2!part3!term!first!default!title!id|
// where "!" inside a text is written "&77889" and "|" "&77890"; an empty
// part 2, term or title is written "_NOENTRY_" and read back as empty (a
// definition without a term is dropped); an empty part 3 is written "?"
// and read back as "?". Empty pieces between separators are kept, so a
// definition with an empty part 1 survives.

#include <algorithm>
#include <climits>
#include <memory>
#include <utility>
#include <vector>

#include "kordll/platform/CRuntime.h"
#include "kordll/settings/Preferences.h"

namespace kordll {

namespace {

const char16_t kNoEntry[] = u"_NOENTRY_";
const char16_t kBang[] = u"&77889";
const char16_t kBar[] = u"&77890";

CString Escaped(CString text) {
  text.Replace(CString(u"!"), CString(kBang));
  text.Replace(CString(u"|"), CString(kBar));
  return text;
}

CString Unescaped(CString text) {
  text.Replace(CString(kBang), CString(u"!"));
  text.Replace(CString(kBar), CString(u"|"));
  return text;
}

CString OrNoEntry(const CString& text) { return text.IsEmpty() ? CString(kNoEntry) : text; }

// A token of a text slot: "_NOENTRY_" stands for nothing.
CString Entry(const CString& token) { return token == CString(kNoEntry) ? CString() : token; }

}  // namespace

void Preferences::EnsureSearchEngines() {
  if (!enginesLoaded_) LoadMySearchEngineDefinitions();
}

void Preferences::LoadMySearchEngineDefinitions() {
  ReleaseSearchEngineDefinitions();
  enginesLoaded_ = true;
  const CString stored = GetFieldString(kMySearchEngineDefinitions, 0);
  if (stored.IsEmpty()) return;
  for (const CString& piece : stored.Split(u'|')) {
    if (piece.IsEmpty()) continue;
    auto engine = std::make_unique<SearchEngine>();
    const std::vector<CString> tokens = piece.Split(u'!');
    for (size_t i = 0; i < tokens.size() && i < 8; ++i) {
      const CString token = Unescaped(tokens[i]);
      switch (i) {
        case 0:
          engine->part1 = token;
          break;
        case 1:
          engine->part2 = Entry(token);
          break;
        case 2:
          engine->part3 = Entry(token);
          break;
        case 3:
          engine->term = Entry(token);
          break;
        case 4:
          engine->firstFlag = token == CString(u"1") ? 1 : 0;
          break;
        case 5:
          engine->defaultFlag = token == CString(u"1") ? 1 : 0;
          break;
        case 6:
          engine->title = Entry(token);
          break;
        default:
          if (!token.IsEmpty()) engine->id = _wtoi(token);
          break;
      }
    }
    // A definition without a term cannot be reached and is dropped.
    if (engine->term.IsEmpty()) continue;
    // A term met again: the later definition takes the place of the
    // earlier one, which stops being the default if it was.
    std::unique_ptr<SearchEngine>& slot = engines_[engine->term];
    if (slot != nullptr && slot.get() == defaultEngine_) defaultEngine_ = nullptr;
    slot = std::move(engine);
    // Flags are read as stored; the last flagged definition is the default.
    if (slot->defaultFlag != 0) defaultEngine_ = slot.get();
  }
}

int Preferences::SaveMySearchEngineDefinitions() {
  EnsureSearchEngines();
  CString text;
  for (const auto& [term, engine] : engines_) {
    text += CString::Formatted(
        u"%s!%s!%s!%s!%d!%d!%s!%d", Escaped(engine->part1), Escaped(OrNoEntry(engine->part2)),
        Escaped(engine->part3.IsEmpty() ? CString(u"?") : engine->part3),
        Escaped(OrNoEntry(engine->term)), engine->firstFlag != 0 ? 1 : 0,
        engine->defaultFlag != 0 ? 1 : 0, Escaped(OrNoEntry(engine->title)), engine->id);
    text += u"|";
  }
  return SetValueStr(kMySearchEngineDefinitions, text, 1);
}

void Preferences::ReleaseSearchEngineDefinitions() {
  engines_.clear();
  defaultEngine_ = nullptr;
  // The next use reads the stored definitions again.
  enginesLoaded_ = false;
}

void Preferences::GetSearchEngineShortcutTerms(std::vector<CString>* out) {
  if (out == nullptr) return;
  EnsureSearchEngines();
  for (const auto& entry : engines_) out->push_back(entry.first);
}

int Preferences::IsShurtcutInUse(CString term) {
  EnsureSearchEngines();
  return engines_.count(term) != 0 ? 1 : 0;
}

int Preferences::GetDefaultWebSearchEngineDefinition(CString& part1, CString& part2, CString& part3,
                                                     int& firstFlag) {
  EnsureSearchEngines();
  if (defaultEngine_ == nullptr) return 0;
  part1 = defaultEngine_->part1;
  part2 = defaultEngine_->part2;
  part3 = defaultEngine_->part3;
  firstFlag = defaultEngine_->firstFlag;
  return 1;
}

int Preferences::SetDefaultWebSearchEngineDefinition(CString term) {
  EnsureSearchEngines();
  auto found = engines_.find(term);
  if (found == engines_.end() || found->second.get() == defaultEngine_) return 0;
  if (defaultEngine_ != nullptr) defaultEngine_->defaultFlag = 0;
  defaultEngine_ = found->second.get();
  defaultEngine_->defaultFlag = 1;
  SaveMySearchEngineDefinitions();
  return 1;
}

int Preferences::AddWebSearchEngineDefinition(CString title, CString part1, CString part2,
                                              CString part3, CString term, int firstFlag) {
  EnsureSearchEngines();
  // An empty term is taken; the stored form cannot hold it, so the next
  // load drops that definition.
  if (engines_.count(term) != 0) return 0;
  int highest = 0;
  for (const auto& entry : engines_) highest = std::max(highest, entry.second->id);
  auto engine = std::make_unique<SearchEngine>();
  engine->title = std::move(title);
  engine->part1 = std::move(part1);
  engine->part2 = std::move(part2);
  engine->part3 = std::move(part3);
  engine->term = term;
  engine->firstFlag = firstFlag;
  engine->id = highest == INT_MAX ? -1 : highest + 1;
  engines_[term] = std::move(engine);
  SaveMySearchEngineDefinitions();
  return 1;
}

int Preferences::UpdateWebSearchEngineDefinition(CString oldTerm, CString title, CString part1,
                                                 CString part2, CString part3, CString newTerm,
                                                 int firstFlag, int defaultFlag) {
  EnsureSearchEngines();
  auto found = engines_.find(oldTerm);
  if (found == engines_.end()) return 0;
  // Moving onto another definition's term would lose that definition.
  if (newTerm != oldTerm && engines_.count(newTerm) != 0) return 0;
  std::unique_ptr<SearchEngine> engine = std::move(found->second);
  engines_.erase(found);
  engine->title = std::move(title);
  engine->part1 = std::move(part1);
  engine->part2 = std::move(part2);
  engine->part3 = std::move(part3);
  engine->term = newTerm;
  engine->firstFlag = firstFlag;
  engines_[newTerm] = std::move(engine);
  if (defaultFlag != 0) SetDefaultWebSearchEngineDefinition(newTerm);
  SaveMySearchEngineDefinitions();
  return 1;
}

int Preferences::RemoveWebSearchEngineDefinition(CString term) {
  EnsureSearchEngines();
  auto found = engines_.find(term);
  if (found == engines_.end()) return 0;
  if (found->second.get() == defaultEngine_) defaultEngine_ = nullptr;
  engines_.erase(found);
  SaveMySearchEngineDefinitions();
  return 1;
}

int Preferences::GetWebSearchEngineDefinition(CString term, CString& title, CString& part1,
                                              CString& part2, CString& part3, int& firstFlag,
                                              int& defaultFlag) {
  EnsureSearchEngines();
  auto found = engines_.find(term);
  if (found == engines_.end()) return 0;
  const SearchEngine& engine = *found->second;
  title = engine.title;
  part1 = engine.part1;
  part2 = engine.part2;
  part3 = engine.part3;
  firstFlag = engine.firstFlag;
  defaultFlag = engine.defaultFlag;
  return 1;
}

int Preferences::GetWebSearchEngine_wID(int id, CString& part1, CString& part2, CString& part3) {
  EnsureSearchEngines();
  for (const auto& entry : engines_) {
    if (entry.second->id != id) continue;
    part1 = entry.second->part1;
    part2 = entry.second->part2;
    part3 = entry.second->part3;
    return 1;
  }
  return 0;
}

}  // namespace kordll
