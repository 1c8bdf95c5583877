// Test doubles for the record core's entry points: a registry, a settings
// owner and a catalogue that tests fill with answers, installed for the
// length of a scope; and the post layout and reads the store tests share.

#ifndef KORDLL_TESTS_RECORD_FOCUSABLETESTSUPPORT_H_
#define KORDLL_TESTS_RECORD_FOCUSABLETESTSUPPORT_H_

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "kordll/record/AZeusDB.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RegistryEntryPoints.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "kordll/record/SettingsEntryPoints.h"

namespace kordll {
namespace test {

// Installs entry for the life of the scope and puts back what was there.
// Tests of records start the library first (starting is idempotent).
class FocusableTest : public ::testing::Test {
 protected:
  void SetUp() override { KordllProcessAttach(); }
};

template <class Entry>
class ScopedEntry {
 public:
  explicit ScopedEntry(Entry* entry) : previous_(Entry::Install(entry)) {}
  ~ScopedEntry() { Entry::Install(previous_); }
  ScopedEntry(const ScopedEntry&) = delete;
  ScopedEntry& operator=(const ScopedEntry&) = delete;

 private:
  Entry* previous_;
};

class FakeSettings : public SettingsEntryPoints {
 public:
  int GetCurrentPreferencesIntValue(int field) override {
    return field == kRankModeField ? rankMode : 0;
  }
  int rankMode = 0;
};

// A controller stand-in: the record core only passes its pointer back.
struct FakeController {
  int id = -1;
  std::map<int, Focusable*> byID;
  std::map<CString, Focusable*> byGUID;
  std::function<Focusable*(int)> generate;
  int refuseRegistration = 0;
  std::vector<Focusable*> registered;
};

inline ResourceController* AsController(FakeController* c) {
  return reinterpret_cast<ResourceController*>(c);
}
inline FakeController* FromController(ResourceController* c) {
  return reinterpret_cast<FakeController*>(c);
}

// The value of key in m, or null.
template <class Map, class Key>
typename Map::mapped_type Find(const Map& m, const Key& key) {
  auto it = m.find(key);
  return it != m.end() ? it->second : nullptr;
}

class FakeRegistry : public RegistryEntryPoints {
 public:
  struct Sent {
    ResourceController* controller;
    int message;
    int kind;
    Focusable* record;
    bool posted;
  };

  int IsGlobalResourceValid() override {
    ++validityQuestions;
    if (onValidityQuestion) onValidityQuestion(validityQuestions);
    return valid;
  }
  int AreDBsCleared() override { return cleared; }
  ResourceController* GetResourceController(int id) override {
    return AsController(Find(controllers, id));
  }
  ResourceController* GetPostCtrl(int dbID) override {
    ++postCtrlQuestions;
    if (onPostCtrlQuestion) onPostCtrlQuestion(postCtrlQuestions);
    return AsController(Find(byDatabase, dbID));
  }
  AZeusDB* GetDBCtrl(int dbID) override { return Find(databases, dbID); }
  IIPanel* GetPanel(int id) override { return id == 1 ? panelOne : nullptr; }
  int SendRC2PanelMessage(ResourceController* c, int message, int kind, Focusable* r) override {
    sent.push_back({c, message, kind, r, false});
    return 7;
  }
  int PostRC2PanelMessage(ResourceController* c, int message, int kind, Focusable* r) override {
    sent.push_back({c, message, kind, r, true});
    return 9;
  }
  long SendPanelMessage_wRequest(IIPanel* panel, unsigned int message,
                                 const PanelViewRequest& request) override {
    panelMessages.push_back({panel, message, request});
    return 1;
  }
  Focusable* GenerateFocusable(ResourceController* c, int relation) override {
    FakeController* fake = FromController(c);
    return fake->generate ? fake->generate(relation) : nullptr;
  }
  Focusable* GetFocusable_wID(ResourceController* c, int id) override {
    return Find(FromController(c)->byID, id);
  }
  Focusable* CheckFocusable(ResourceController* c, CString guid, int) override {
    return Find(FromController(c)->byGUID, guid);
  }
  int RegisterFocusable(ResourceController* c, Focusable* record, int, int) override {
    FakeController* fake = FromController(c);
    if (fake->refuseRegistration) return 0;
    fake->registered.push_back(record);
    fake->byGUID[record->GetGUID()] = record;
    return 1;
  }
  int GetResourceControllerID(ResourceController* c) override { return FromController(c)->id; }

  struct PanelMessage {
    IIPanel* panel;
    unsigned int message;
    PanelViewRequest request;
  };

  int valid = 1;
  int cleared = 0;
  int validityQuestions = 0;
  int postCtrlQuestions = 0;
  std::function<void(int)> onValidityQuestion;
  std::function<void(int)> onPostCtrlQuestion;
  std::map<int, FakeController*> controllers;
  std::map<int, FakeController*> byDatabase;
  std::map<int, AZeusDB*> databases;
  IIPanel* panelOne = nullptr;
  std::vector<Sent> sent;
  std::vector<PanelMessage> panelMessages;
};

// Relation 4 as the store tests lay it out, for the life of the object: the
// GUID (20 long), the status (an int, 10), a title of titleLength and, when
// wide > 0, an int field 5 that no record uses (it spreads the slots over
// many pages).
struct PostLayout {
  explicit PostLayout(int titleLength = 10, int wide = 0) {
    tmpl.AddField(0, 20, 4, "", "guid", 0, 0);
    tmpl.AddField(1, 10, 0, "", "status", 0, 0);
    tmpl.AddField(4, titleLength, 4, "", "title", 0, 0);
    if (wide > 0) tmpl.AddField(5, wide, 0, "", "wide", 0, 0);
    RelationsEntryPoints::SetTemplate(4, &tmpl);
  }
  ~PostLayout() { RelationsEntryPoints::ClearTemplates(); }
  RGDBTemplate tmpl{4};
};

// Field `field` of the record at slot as db reads it, or "<error N>".
inline std::string ReadField(AZeusDB* db, int slot, int field = 4) {
  Focusable record(-1, nullptr);
  record.SetDBSlotIndex(slot);
  if (!db->readFocusableSlot(&record, nullptr, nullptr)) {
    return "<error " + std::to_string(db->GetLastDBErrorMsgCode()) + ">";
  }
  return record.GetFieldString(field, 0).ToUtf8();
}

// A record that counts its destruction.
class CountedRecord : public Focusable {
 public:
  CountedRecord(int relation, int* deaths) : Focusable(relation, nullptr), deaths_(deaths) {}
  ~CountedRecord() override { ++*deaths_; }

 private:
  int* deaths_;
};

}  // namespace test
}  // namespace kordll

#endif  // KORDLL_TESTS_RECORD_FOCUSABLETESTSUPPORT_H_
