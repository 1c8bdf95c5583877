#include "examples/net/CurlTransfer.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/WinFile.h"
#include "kordll/transfer/FileRequest.h"

namespace kordll_net {

using kordll::CString;
using kordll::FileRequest;
using kordll::FileSystem;
using kordll::WinFile;

namespace {

constexpr uint64_t kUnknown = ~uint64_t{0};
constexpr int kMaxSegments = 64;

// What the headers of one response said. A redirect starts a new block of
// headers, which starts the record again.
struct Response {
  long status = 0;
  std::string reason;
  uint64_t contentLength = kUnknown;
  uint64_t rangeTotal = kUnknown;  // the "/total" of Content-Range
  bool acceptRanges = false;
  std::string lastModified;
  std::string date;
};

bool ParseNumber(std::string_view text, uint64_t* out) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  const char* end = text.data() + text.size();
  auto [at, error] = std::from_chars(text.data(), end, *out);
  return error == std::errc() && at != text.data();
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) != prefix[i]) return false;
  }
  return true;
}

size_t OnHeader(char* data, size_t size, size_t count, void* user) {
  auto* response = static_cast<Response*>(user);
  std::string_view line(data, size * count);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  if (line.substr(0, 5) == "HTTP/") {
    *response = Response();
    const size_t space = line.find(' ');
    if (space != std::string_view::npos) {
      std::string_view rest = line.substr(space + 1);
      uint64_t status = 0;
      if (ParseNumber(rest.substr(0, 3), &status)) response->status = static_cast<long>(status);
      if (rest.size() > 4) response->reason = std::string(rest.substr(4));
    }
    return size * count;
  }
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos) return size * count;
  std::string_view value = line.substr(colon + 1);
  while (!value.empty() && value.front() == ' ') value.remove_prefix(1);
  std::string_view name = line.substr(0, colon);
  if (StartsWithNoCase(name, "content-length") && name.size() == 14) {
    uint64_t length = 0;
    if (ParseNumber(value, &length)) response->contentLength = length;
  } else if (StartsWithNoCase(name, "content-range") && name.size() == 13) {
    const size_t slash = value.rfind('/');
    uint64_t total = 0;
    if (slash != std::string_view::npos && ParseNumber(value.substr(slash + 1), &total)) {
      response->rangeTotal = total;
    }
  } else if (StartsWithNoCase(name, "accept-ranges") && name.size() == 13) {
    response->acceptRanges = StartsWithNoCase(value, "bytes");
  } else if (StartsWithNoCase(name, "last-modified") && name.size() == 13) {
    response->lastModified = std::string(value);
  } else if (StartsWithNoCase(name, "date") && name.size() == 4) {
    response->date = std::string(value);
  }
  return size * count;
}

int MapCurlError(CURLcode code) {
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
      return kNetErrorTimeout;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return kNetErrorNameNotResolved;
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL:
      return kNetErrorBadAddress;
    case CURLE_COULDNT_CONNECT:
      return kNetErrorCannotConnect;
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_GOT_NOTHING:
      return kNetErrorConnectionAborted;
    default:
      return kNetErrorInternal;
  }
}

// The server's date of the content: its Last-Modified, else its Date.
CString ContentDate(const Response& response) {
  return CString::FromUtf8(!response.lastModified.empty() ? response.lastModified : response.date);
}

struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
using Easy = std::unique_ptr<CURL, EasyDeleter>;

int Progress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  return static_cast<TransferJob*>(user)->stop.load() != 0 ? 1 : 0;
}

// The options every request of a transfer shares.
Easy MakeEasy(const std::string& url, const NetworkOptions& options, Response* response,
              TransferJob* job) {
  Easy easy(curl_easy_init());
  if (!easy) return easy;
  CURL* e = easy.get();
  curl_easy_setopt(e, CURLOPT_URL, url.c_str());
  curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(e, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(e, CURLOPT_MAXREDIRS, 10L);
  curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(e, CURLOPT_USERAGENT, "KorDLL-sample/1.0");
  curl_easy_setopt(e, CURLOPT_CONNECTTIMEOUT, options.connectTimeoutSeconds);
  curl_easy_setopt(e, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(e, CURLOPT_LOW_SPEED_TIME, options.lowSpeedSeconds);
  curl_easy_setopt(e, CURLOPT_BUFFERSIZE, 256L * 1024L);
  curl_easy_setopt(e, CURLOPT_HEADERFUNCTION, OnHeader);
  curl_easy_setopt(e, CURLOPT_HEADERDATA, response);
  curl_easy_setopt(e, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(e, CURLOPT_XFERINFOFUNCTION, Progress);
  curl_easy_setopt(e, CURLOPT_XFERINFODATA, job);
  return easy;
}

std::string RangeText(uint64_t from, uint64_t to_inclusive) {
  std::string text = std::to_string(from) + "-";
  if (to_inclusive != kUnknown) text += std::to_string(to_inclusive);
  return text;
}

// --- One stream of bytes into the request -----------------------------------

struct Stream {
  FileRequest* request = nullptr;  // the request (or segment child) written through
  Response response;
  uint64_t offset = 0;        // bytes already in the file before this response
  uint64_t written = 0;       // bytes of this response written
  uint64_t limit = kUnknown;  // at most this many bytes are taken
  bool segment = false;       // a segment must be answered 206
  bool decided = false;
  bool saving = false;
  bool failed = false;  // a write failed, or a segment came whole
};

size_t OnBody(char* data, size_t size, size_t count, void* user) {
  auto* s = static_cast<Stream*>(user);
  const size_t total = size * count;
  if (!s->decided) {
    s->decided = true;
    const long status = s->response.status;
    if (s->segment) {
      s->saving = status == 206;
      if (!s->saving) {
        s->failed = true;
        return 0;
      }
    } else if (status == 206 && s->offset > 0) {
      s->saving = true;
    } else if (status == 200 || status == 206) {
      // The server sends the whole file: what was kept is dropped.
      if (s->offset > 0) s->request->DeleteSavedFile();
      s->offset = 0;
      s->saving = true;
      if (s->response.contentLength != kUnknown) s->limit = s->response.contentLength;
    }
  }
  if (!s->saving) return total;  // an error page is not the file
  uint64_t take = total;
  if (s->limit != kUnknown) take = std::min<uint64_t>(take, s->limit - s->written);
  if (take > 0 && s->request->SaveContent(data, take) == 0) {
    s->failed = true;
    return 0;
  }
  s->written += take;
  return total;
}

// --- Ending a transfer ----------------------------------------------------------

void DeletePartialFiles(FileRequest* request) {
  request->DeleteSavedFile();
  FileSystem::DeleteFile(request->GetFullFilePath2Save() + CString(kordll::kPartialFileSuffix));
}

// Sends what ends (or pauses) this run and tells the table what happened.
// A pause (or the network side's shutdown) that comes after the last byte
// has arrived changes nothing: the transfer is reported finished. A cancel
// always holds: the user wants no file.
void Finish(TransferJob* job, bool interrupted) {
  FileRequest* r = job->request;
  r->CloseSavedFile();
  StopReason stop = static_cast<StopReason>(job->stop.load());
  if (!interrupted && stop != StopReason::kCancel) stop = StopReason::kNone;
  switch (stop) {
    case StopReason::kPause:
      // Kept for a resume: the handler of the pause takes one reservation.
      r->Reserve();
      if (r->SendPausedMessage(0) == 0) r->Release();
      job->outcome = Outcome::kPaused;
      return;
    case StopReason::kShutdown:
      if (r->SendPausedMessage(1) == 0) r->Release();
      job->outcome = Outcome::kEnded;
      return;
    case StopReason::kCancel:
      DeletePartialFiles(r);
      r->httpStatus = 0;
      r->receivedSize = 0;
      r->statusText = CString("Request canceled");
      if (r->SendAbortMsg(0) == 0) r->Release();
      job->outcome = Outcome::kEnded;
      return;
    case StopReason::kNone:
      break;
  }
  r->finished = 1;
  if (r->SendFinishedMessage() == 0) r->Release();
  job->outcome = Outcome::kEnded;
}

void FillFailure(FileRequest* r, CURLcode code) {
  r->httpStatus = MapCurlError(code);
  r->statusText = CString(curl_easy_strerror(code));
}

// --- A transfer in one piece ------------------------------------------------------

void RunSingle(TransferJob* job, const NetworkOptions& options, uint64_t offset) {
  FileRequest* r = job->request;
  Stream stream;
  stream.request = r;
  stream.offset = offset;
  Easy easy = MakeEasy(job->url.ToUtf8(), options, &stream.response, job);
  if (!easy) {
    FillFailure(r, CURLE_FAILED_INIT);
    return Finish(job, false);
  }
  curl_easy_setopt(easy.get(), CURLOPT_WRITEFUNCTION, OnBody);
  curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, &stream);
  const std::string range = RangeText(offset, kUnknown);
  if (offset > 0) curl_easy_setopt(easy.get(), CURLOPT_RANGE, range.c_str());
  const CURLcode code = curl_easy_perform(easy.get());

  const Response& response = stream.response;
  r->responseDate = ContentDate(response);
  r->reportedSize = response.contentLength != kUnknown ? response.contentLength : 0;
  if (stream.saving) {
    r->receivedSize = stream.offset + stream.written;
    if (response.status == 206 && response.rangeTotal != kUnknown) {
      r->totalSize = response.rangeTotal;
    } else if (response.contentLength != kUnknown) {
      r->totalSize = stream.offset + response.contentLength;
    } else if (code == CURLE_OK) {
      r->totalSize = r->receivedSize;  // no length announced: what came is all
    }
  } else {
    r->receivedSize = 0;
  }
  if (code == CURLE_OK || (code == CURLE_WRITE_ERROR && !stream.failed)) {
    r->httpStatus = static_cast<int>(response.status);
    r->statusText = CString::FromUtf8(response.reason);
    if (response.status == 416 && offset > 0 && response.rangeTotal == offset) {
      // Nothing was missing: the partial file is the whole file.
      r->httpStatus = 206;
      r->totalSize = r->receivedSize = offset;
    }
  } else if (stream.failed) {
    r->httpStatus = kNetErrorInternal;
    r->statusText = CString("The file could not be written.");
  } else {
    FillFailure(r, code);
  }
  Finish(job, code == CURLE_ABORTED_BY_CALLBACK);
}

// --- A transfer in segments ----------------------------------------------------------

struct MultiDeleter {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};

void RunSegments(TransferJob* job, const NetworkOptions& options,
                 std::vector<SpawnSegment> segments, const Response& head) {
  FileRequest* r = job->request;
  r->requestFlags |= kordll::kRequestFlagNoSeekToEnd;  // every part writes where it belongs
  const CString finalPath = r->GetFullFilePath2Save();
  const CString spawnPath = finalPath + CString(kordll::kPartialFileSuffix);
  const bool fresh = !job->resume;

  struct Part {
    std::unique_ptr<FileRequest> child;
    Stream stream;
    Easy easy;
    std::string range;
    CURLcode code = CURLE_OK;
  };
  std::vector<std::unique_ptr<Part>> parts;
  std::unique_ptr<CURLM, MultiDeleter> multi(curl_multi_init());
  bool setupFailed = !multi;
  for (size_t i = 0; i < segments.size() && !setupFailed; ++i) {
    const SpawnSegment& seg = segments[i];
    auto part = std::make_unique<Part>();
    part->child = std::make_unique<FileRequest>(r, 0);
    FileRequest* c = part->child.get();
    c->parentRequest = r;
    c->segmentStart = seg.start;
    c->segmentEnd = seg.end;
    c->segmentSlot = seg.start + kordll::kSegmentHeaderSize * i;
    c->segmentBase = seg.start;
    c->segmentWritten = seg.reached - seg.start;
    // Every header is in place before any data, so that a later run finds
    // every segment even if this one stops early.
    if (fresh && c->SaveContent("", 0) == 0) setupFailed = true;
    if (seg.reached < seg.end) {
      part->stream.request = c;
      part->stream.segment = true;
      part->stream.limit = seg.end - seg.reached;
      part->easy = MakeEasy(job->url.ToUtf8(), options, &part->stream.response, job);
      if (!part->easy) {
        setupFailed = true;
      } else {
        part->range = RangeText(seg.reached, seg.end - 1);
        curl_easy_setopt(part->easy.get(), CURLOPT_RANGE, part->range.c_str());
        curl_easy_setopt(part->easy.get(), CURLOPT_WRITEFUNCTION, OnBody);
        curl_easy_setopt(part->easy.get(), CURLOPT_WRITEDATA, &part->stream);
        curl_easy_setopt(part->easy.get(), CURLOPT_PRIVATE, part.get());
        curl_multi_add_handle(multi.get(), part->easy.get());
      }
    }
    parts.push_back(std::move(part));
  }

  int running = 0;
  CURLcode failure = setupFailed ? CURLE_FAILED_INIT : CURLE_OK;
  bool writeFailed = false;
  while (!setupFailed) {
    if (curl_multi_perform(multi.get(), &running) != CURLM_OK) {
      failure = CURLE_FAILED_INIT;
      break;
    }
    int left = 0;
    while (CURLMsg* msg = curl_multi_info_read(multi.get(), &left)) {
      if (msg->msg != CURLMSG_DONE) continue;
      Part* part = nullptr;
      curl_easy_getinfo(msg->easy_handle, CURLINFO_PRIVATE, reinterpret_cast<char**>(&part));
      part->code = msg->data.result;
      if (part->stream.failed) writeFailed = true;
      if (part->code != CURLE_OK && failure == CURLE_OK && job->stop.load() == 0) {
        failure = part->code;
      }
    }
    // One failed segment ends the run; the others keep what they have.
    if (running == 0 || job->stop.load() != 0 || failure != CURLE_OK || writeFailed) break;
    curl_multi_poll(multi.get(), nullptr, 0, 200, nullptr);
  }
  uint64_t received = 0;
  bool complete = !setupFailed;
  for (auto& part : parts) {
    if (part->easy) curl_multi_remove_handle(multi.get(), part->easy.get());
    FileRequest* c = part->child.get();
    received += c->segmentWritten;
    if (c->segmentStart + c->segmentWritten != c->segmentEnd) complete = false;
    c->parentRequest = nullptr;  // children never own a file: nothing to close
  }
  r->CloseSavedFile();
  r->totalSize = r->reportedSize = segments.back().end;
  r->receivedSize = received;
  r->responseDate = ContentDate(head);
  const bool interrupted = !complete && job->stop.load() != 0;
  if (!interrupted) {
    if (complete && JoinSpawnFile(spawnPath, segments, finalPath) == 1) {
      FileSystem::DeleteFile(spawnPath);
      r->httpStatus = 200;
      r->statusText = CString("OK");
    } else if (writeFailed || complete) {
      r->httpStatus = kNetErrorInternal;
      r->statusText = CString("The file could not be written.");
    } else {
      FillFailure(r, failure != CURLE_OK ? failure : CURLE_PARTIAL_FILE);
    }
  }
  Finish(job, interrupted);
}

// Asks for the headers alone, to learn the size and whether ranges are taken.
bool Probe(TransferJob* job, const NetworkOptions& options, Response* head) {
  Easy easy = MakeEasy(job->url.ToUtf8(), options, head, job);
  if (!easy) return false;
  curl_easy_setopt(easy.get(), CURLOPT_NOBODY, 1L);
  return curl_easy_perform(easy.get()) == CURLE_OK;
}

}  // namespace

bool ReadSpawnHeaders(const CString& path, std::vector<SpawnSegment>* segments) {
  segments->clear();
  WinFile file;
  if (file.Open(path, kordll::GENERIC_READ, kordll::FILE_SHARE_READ, kordll::OPEN_EXISTING) == 0) {
    return false;
  }
  const int64_t size = file.GetFileSize();
  uint64_t at = 0;
  uint64_t expected = 0;
  while (size > 0 && at < static_cast<uint64_t>(size)) {
    if (segments->size() >= kMaxSegments) return false;
    unsigned char record[kordll::kSegmentHeaderSize];
    uint32_t read = 0;
    if (file.ReadFileAt(static_cast<int64_t>(at), record, sizeof(record), &read) == 0 ||
        read != sizeof(record)) {
      return false;
    }
    std::string text;
    for (size_t i = 0; i + 1 < sizeof(record) && (record[i] != 0 || record[i + 1] != 0); i += 2) {
      if (record[i + 1] != 0) return false;
      text.push_back(static_cast<char>(record[i]));
    }
    SpawnSegment seg;
    const size_t c1 = text.find(':');
    const size_t c2 = c1 == std::string::npos ? c1 : text.find(':', c1 + 1);
    if (c2 == std::string::npos || !ParseNumber(std::string_view(text).substr(0, c1), &seg.start) ||
        !ParseNumber(std::string_view(text).substr(c1 + 1, c2 - c1 - 1), &seg.reached) ||
        !ParseNumber(std::string_view(text).substr(c2 + 1), &seg.end)) {
      return false;
    }
    if (seg.start != expected || seg.reached < seg.start || seg.end < seg.reached ||
        seg.end - seg.start > (uint64_t{1} << 48)) {
      return false;
    }
    // What the header claims must be in the file.
    if (at + kordll::kSegmentHeaderSize + (seg.reached - seg.start) > static_cast<uint64_t>(size)) {
      seg.reached = seg.start;  // claimed but not there: fetched again
    }
    segments->push_back(seg);
    expected = seg.end;
    at += kordll::kSegmentHeaderSize + (seg.end - seg.start);
  }
  return !segments->empty();
}

int JoinSpawnFile(const CString& spawnPath, const std::vector<SpawnSegment>& segments,
                  const CString& finalPath) {
  WinFile in, out;
  if (in.Open(spawnPath, kordll::GENERIC_READ, kordll::FILE_SHARE_READ, kordll::OPEN_EXISTING) ==
          0 ||
      out.Open(finalPath, kordll::GENERIC_WRITE, 0, kordll::CREATE_ALWAYS) == 0) {
    return 0;
  }
  std::vector<char> buffer(1 << 20);
  uint64_t slot = 0;
  for (const SpawnSegment& seg : segments) {
    uint64_t at = slot + kordll::kSegmentHeaderSize;
    uint64_t left = seg.end - seg.start;
    while (left > 0) {
      const uint32_t want = static_cast<uint32_t>(std::min<uint64_t>(left, buffer.size()));
      uint32_t read = 0;
      if (in.ReadFileAt(static_cast<int64_t>(at), buffer.data(), want, &read) == 0 ||
          read != want) {
        return 0;
      }
      if (out.WriteFile(buffer.data(), read, nullptr) == 0) return 0;
      at += read;
      left -= read;
    }
    slot += kordll::kSegmentHeaderSize + (seg.end - seg.start);
  }
  return out.Close();
}

void RunTransfer(TransferJob* job, const NetworkOptions& options) {
  FileRequest* r = job->request;
  if (job->resume) r->SendResumedMessage();
  const CString path = r->GetFullFilePath2Save();
  if (path.IsEmpty()) {
    r->httpStatus = kNetErrorInternal;
    r->statusText = CString("The request names no file to save.");
    return Finish(job, false);
  }
  const CString spawn = path + CString(kordll::kPartialFileSuffix);
  std::vector<SpawnSegment> segments;
  if (job->resume) {
    if (ReadSpawnHeaders(spawn, &segments)) {
      Response head;
      Probe(job, options, &head);
      return RunSegments(job, options, std::move(segments), head);
    }
    const int64_t size = FileSystem::GetFileSize(path);
    return RunSingle(job, options, size > 0 ? static_cast<uint64_t>(size) : 0);
  }
  Response head;
  const int count = std::clamp(options.segments, 1, kMaxSegments);
  if (options.multiPartThreshold > 0 && count > 1 && !FileSystem::Exists(spawn) &&
      Probe(job, options, &head) && head.status == 200 && head.acceptRanges &&
      head.contentLength != kUnknown && head.contentLength >= options.multiPartThreshold &&
      job->stop.load() == 0) {
    const uint64_t total = head.contentLength;
    const uint64_t length = (total + count - 1) / count;
    for (uint64_t start = 0; start < total; start += length) {
      SpawnSegment seg;
      seg.start = seg.reached = start;
      seg.end = std::min(total, start + length);
      segments.push_back(seg);
    }
    return RunSegments(job, options, std::move(segments), head);
  }
  RunSingle(job, options, 0);
}

}  // namespace kordll_net
