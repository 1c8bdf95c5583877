// ReaderCommands: what the sample reader does for a person at the command
// line, over the controllers its plug-in made (channels, id 7; posts, id 3).
//
//   add URL        reads the feed at URL (a web address, through the
//                  network side; a file address "file:///..." or a path),
//                  stores the channel once and every post not stored yet
//                  that passes the user's filters; the download list makes
//                  an entry for each enclosure of those posts
//   update         reads every channel's feed again: new posts that pass
//                  the filters are stored, the known ones are not stored
//                  twice
//   run MINUTES    update, then keep refreshing each channel at its
//                  interval (its time to live in minutes) on the library's
//                  scheduler until MINUTES have passed on the clock
//   list [WORD]    the stored posts, or those holding WORD in any field
//   show GUID      one post or channel, field by field
//   downloads      the enclosures of the stored posts, numbered, each with
//                  the state of its entry in the download list
//   download N     downloads enclosure N: the download list hands it to the
//                  network side and records how it ended; the list's talk
//                  "Downloaded : <title>" tells the user
//   talks [open]   the talks of this run; with open, each is opened as the
//                  user would, and the host's answer removes it
//   filters [accept WORD | reject WORD | clear]
//                  the user's accept and reject filters, stored as filter
//                  lines in the application's profile
//
// Requires: the user platform is started and the plug-in has made both
// controllers. Records added here are saved to the controller's database at
// once and held by the controller like the ones it loaded, so a later start
// finds them. Several commands joined by "+" run in order in one start
// (talks live as long as the run), stopping at the first that fails.

#ifndef KORDLL_EXAMPLES_READER_READERCOMMANDS_H_
#define KORDLL_EXAMPLES_READER_READERCOMMANDS_H_

#include <mutex>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "kordll/control/ResourceController.h"

namespace sample {

constexpr int kPostsController = 3;
constexpr int kChannelsController = 7;
// The id the watch below goes by (it is never registered as a controller).
constexpr int kWatchController = 41;

// True when args[0] names a command above.
bool IsReaderCommand(const std::vector<std::string>& args);

// Runs the command. Exit status: 0 done, 1 failed (the reason on err, in
// words a person can act on), 2 usage error.
int RunReaderCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

// Keeps the channels fresh while the reader runs: each channel held when
// the watch starts is read again every time its interval passes on the
// scheduler's clock, on the scheduler's thread, what it stores and why a
// read failed written to out and err. Requires the scheduler to run.
class FeedWatch : public kordll::ResourceController {
 public:
  static constexpr int kLongestInterval = 999;  // minutes

  // Null (and nothing registered) without a scheduler or the plug-in's
  // controllers. The caller ends the watch with Stop.
  static FeedWatch* Start(std::ostream& out, std::ostream& err);

  // Refreshes the channels of that interval.
  void PerformMaintenance(int minutes) override;

  int GetChannelCount() const { return channels_; }
  // How many refreshes ran, and how many channels could not be read.
  int GetRefreshCount();
  int GetFailedCount();

  // Waits for a refresh under way, leaves the scheduler and lets the watch
  // go. No refresh starts after Stop.
  void Stop();

 private:
  FeedWatch(std::ostream& out, std::ostream& err);

  std::ostream& out_;
  std::ostream& err_;
  std::set<int> minutes_;  // the intervals registered
  int channels_ = 0;
  std::mutex mutex_;  // held for the time of a refresh
  bool stopped_ = false;
  int refreshes_ = 0, failed_ = 0;
};

}  // namespace sample

#endif  // KORDLL_EXAMPLES_READER_READERCOMMANDS_H_
