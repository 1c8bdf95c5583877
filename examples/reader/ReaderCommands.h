// ReaderCommands: what the sample reader does for a person at the command
// line, over the controllers its plug-in made (channels, id 7; posts, id 3).
//
//   add URL        reads the feed at URL (a file address "file:///..." or a
//                  path; web addresses need the network side), stores the
//                  channel once and every post not stored yet that passes
//                  the user's filters
//   list [WORD]    the stored posts, or those holding WORD in any field
//   show GUID      one post or channel, field by field
//   filters [accept WORD | reject WORD | clear]
//                  the user's accept and reject filters, stored as filter
//                  lines in the application's profile
//
// Requires: the user platform is started and the plug-in has made both
// controllers. Records added here are saved to the controller's database at
// once and held by the controller like the ones it loaded, so a later start
// finds them.

#ifndef KORDLL_EXAMPLES_READER_READERCOMMANDS_H_
#define KORDLL_EXAMPLES_READER_READERCOMMANDS_H_

#include <ostream>
#include <string>
#include <vector>

namespace sample {

constexpr int kPostsController = 3;
constexpr int kChannelsController = 7;

// True when args[0] names a command above.
bool IsReaderCommand(const std::vector<std::string>& args);

// Runs the command. Exit status: 0 done, 1 failed (the reason on err, in
// words a person can act on), 2 usage error.
int RunReaderCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace sample

#endif  // KORDLL_EXAMPLES_READER_READERCOMMANDS_H_
