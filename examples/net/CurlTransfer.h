// CurlTransfer: one transfer of the sample network side, carried out on a
// worker thread with libcurl. Private to examples/net.

#ifndef KORDLL_EXAMPLES_NET_CURLTRANSFER_H_
#define KORDLL_EXAMPLES_NET_CURLTRANSFER_H_

#include <atomic>
#include <cstdint>

#include "examples/net/NetworkSide.h"
#include "kordll/platform/CString.h"

namespace kordll {
class FileRequest;
}

namespace kordll_net {

// Why a running transfer is asked to stop.
enum class StopReason : int { kNone = 0, kPause = 1, kCancel = 2, kShutdown = 3 };

// How a run of a transfer ended, for the network thread's table.
enum class Outcome : int {
  kEnded = 0,   // reported finished or aborted: the request is no longer ours
  kPaused = 1,  // reported paused: the request is still held (one reservation)
};

struct TransferJob {
  kordll::FileRequest* request = nullptr;
  kordll::CString url;
  bool resume = false;  // this run continues a partial file
  std::atomic<int> stop{0};
  Outcome outcome = Outcome::kEnded;
};

// Runs one transfer to its end on the calling thread and sends the message
// that ends it (see NetworkSide.h). Sets job->outcome.
void RunTransfer(TransferJob* job, const NetworkOptions& options);

// The byte counts of a ".spawn" partial file, segment by segment, as its
// headers tell them. False when the file is missing or its headers do not
// describe contiguous segments from 0 (the file is then not resumable).
struct SpawnSegment {
  uint64_t start = 0;
  uint64_t reached = 0;
  uint64_t end = 0;
};
bool ReadSpawnHeaders(const kordll::CString& path, std::vector<SpawnSegment>* segments);

// Joins the segments of a complete ".spawn" file into the final file (made
// or replaced). 1 on success.
int JoinSpawnFile(const kordll::CString& spawnPath, const std::vector<SpawnSegment>& segments,
                  const kordll::CString& finalPath);

}  // namespace kordll_net

#endif  // KORDLL_EXAMPLES_NET_CURLTRANSFER_H_
