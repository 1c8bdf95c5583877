// RecordsCtrl: a controller of the sample application with a record
// database of its own (posts, id 3, in SamplePosts.kdb; channels, id 7, in
// SampleChannels.kdb).
//
// Made by the plug-in at start-up: it registers itself under its id and
// holds every record of its database, each entered and reserved once. New
// records of its relations come from GenerateFocusable, laid out for its
// database; AddFocusable gives them a GUID ("R<id>_G<serial>") past every
// serial stored. Closing de-registers it and drops its reference; the last
// Release deletes it, and with it the database.

#ifndef KORDLL_EXAMPLES_READER_RECORDSCTRL_H_
#define KORDLL_EXAMPLES_READER_RECORDSCTRL_H_

#include <memory>

#include "kordll/control/ResourceController.h"
#include "kordll/platform/CString.h"
#include "kordll/record/AZeusDB.h"

namespace sample {

class RecordsCtrl : public kordll::ResourceController {
 public:
  // Unless a controller has the id already: makes one over
  // <folder>/<database>.kdb. A controller the registry did not take is
  // ended here (registered, the log-off closes it).
  static void Make(const kordll::CString& folder, int id, const char16_t* database);

  void LoadResources(kordll::CString folder) override;
  kordll::Focusable* GenerateFocusable(int relation) override;
  void CloseResourceCtrl() override;

 private:
  RecordsCtrl(const kordll::CString& folder, int id, const char16_t* database);
  ~RecordsCtrl() override;

  kordll::CString database_;
  std::unique_ptr<kordll::AZeusDB> db_;  // outlives the records: members go after the body
};

}  // namespace sample

#endif  // KORDLL_EXAMPLES_READER_RECORDSCTRL_H_
