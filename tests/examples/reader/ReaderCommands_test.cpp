// The sample reader's refreshes in one process: channels read again on the
// scheduler's clock, each at its interval, through the user's filters, and
// the update command's failures in words a person can act on.

#include "examples/reader/ReaderCommands.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <sstream>
#include <thread>

#include "examples/reader/RecordsCtrl.h"
#include "kordll/periodic/PeriodicUpdateManager.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/MessageQueue.h"
#include "kordll/platform/TimerTable.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "tests/control/GlobalResourceCtrlTest.h"
#ifdef KORDLL_SAMPLE_NET
#include "examples/net/NetworkSide.h"
#include "tests/transfer/LocalHttpServer.h"
#endif

namespace sample {
namespace {

using kordll::GlobalResourceCtrl;
using P = kordll::PeriodicUpdateManager;

template <class F>
bool Until(F done) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!done() && std::chrono::steady_clock::now() < end) std::this_thread::yield();
  return done();
}

class ReaderTest : public kordll::test::RegistryTest {
 protected:
  ReaderTest() {
    P::Start();
    m_ = P::GetPeriodicUpdateManager();
    RecordsCtrl::Make(root_.DataRoot(), kPostsController, u"SamplePosts");
    RecordsCtrl::Make(root_.DataRoot(), kChannelsController, u"SampleChannels");
  }
  ~ReaderTest() override {
    const unsigned thread = m_->GetThreadId();
    GlobalResourceCtrl::DeRegisterResourceCtrl(m_), m_->StartClosingResourceCtrl();
    m_->CloseResourceCtrl();
    EXPECT_TRUE(Until([&] { return kordll::MessageQueue::FromThreadId(thread) == nullptr; }));
    for (int id : {kPostsController, kChannelsController}) {
      GlobalResourceCtrl::GetResourceController(id)->CloseResourceCtrl();
    }
  }
  // Moves the clock and returns once the scheduler has handled what that
  // made due: a timer it does not know is ended when it fires.
  void Step(int64_t ms) {
    clock_.Advance(ms);
    const unsigned probe = kordll::SetTimer(m_, INT_MAX);
    m_->PostThreadMessage(kordll::kMsgTimer, probe, 0);
    ASSERT_TRUE(Until([&] { return kordll::TimerTable::Instance().PeriodOf(probe) == 0; }));
  }
  int Run(std::vector<std::string> args) {
    out_.str(""), err_.str("");
    return RunReaderCommand(args, out_, err_);
  }
  // A feed with a time to live (none for 0) and the items titled.
  std::string Feed(const char* name, int ttl, std::vector<std::string> titles) {
    std::string xml = "<rss version=\"2.0\"><channel><title>" + std::string(name) + "</title>";
    if (ttl != 0) xml += "<ttl>" + std::to_string(ttl) + "</ttl>";
    for (const std::string& title : titles) {
      xml += "<item><title>" + title + "</title><link>http://example.org/" + name + "/" + title +
             "</link></item>";
    }
    const kordll::CString path = root_.Path(kordll::CString(name) + kordll::CString(".xml"));
    EXPECT_EQ(1, kordll::FileSystem::WriteWholeFile(path, xml + "</channel></rss>"));
    return "file://" + path.ToUtf8();
  }
  int Posts() {
    return int(GlobalResourceCtrl::GetResourceController(kPostsController)->GetFocusables().size());
  }

  kordll::GlobalRelationsCtrl catalogue_;
  P* m_;
  std::ostringstream out_, err_;
};

TEST_F(ReaderTest, WatchRefreshesEachChannelAtItsIntervalThroughTheFilters) {
  ASSERT_EQ(0, Run({"filters", "reject", "Skip"}));
  ASSERT_EQ(0, Run({"add", Feed("slow", 10, {"a1"})})) << err_.str();
  ASSERT_EQ(0, Run({"add", Feed("fast", 0, {"b1"})})) << err_.str();  // 5 minutes unless told
  ASSERT_EQ(2, Posts());

  FeedWatch* watch = FeedWatch::Start(out_, err_);
  ASSERT_NE(nullptr, watch);
  Feed("slow", 10, {"a1", "a2", "Skip"});
  Feed("fast", 0, {"b1", "b2"});
  out_.str("");
  Step(P::kHeartbeatMs);
  Step(5 * 60000 - 1);
  EXPECT_EQ(0, watch->GetRefreshCount());
  Step(1);  // the fast channel only
  EXPECT_EQ(1, watch->GetRefreshCount());
  EXPECT_EQ(3, Posts());
  Step(5 * 60000);  // both: the slow one's new post passes, the other is rejected
  EXPECT_EQ(3, watch->GetRefreshCount());
  EXPECT_EQ(4, Posts());
  EXPECT_NE(std::string::npos, out_.str().find("1 new post(s), 1 filtered out, 1 already stored"))
      << out_.str();

  watch->Stop();
  Feed("fast", 0, {"b1", "b2", "b3"});
  Step(10 * 60000);
  EXPECT_EQ(4, Posts());  // nothing refreshes once stopped

  // The update reads what the watch missed; a channel whose file went away
  // is told, and the other channels are still read.
  ASSERT_EQ(1, kordll::FileSystem::DeleteFile(root_.Path("slow.xml")));
  EXPECT_EQ(1, Run({"update"}));
  EXPECT_EQ(5, Posts());
  EXPECT_NE(std::string::npos, err_.str().find("cannot reach file://")) << err_.str();
  EXPECT_NE(std::string::npos, out_.str().find("1 channel(s) could not be read")) << out_.str();
}

#ifdef KORDLL_SAMPLE_NET
// Web addresses through the network side, on the tests' web server; the
// answers a person reads when the server or the network side fails.
TEST_F(ReaderTest, WebFeedsComeThroughTheNetworkSide) {
  kordll::test::LocalHttpServer server(KORDLL_SOURCE_DIR "/tests/examples/feeds",
                                       root_.Path("server.log").ToUtf8());
  ASSERT_TRUE(server.ok());
  kordll_net::NetworkSide* net = kordll_net::NetworkSide::Start({});
  ASSERT_NE(nullptr, net);
  EXPECT_EQ(0, Run({"add", server.Url("atom.xml")})) << err_.str();
  EXPECT_EQ(2, Posts());
  EXPECT_EQ(1, Run({"add", server.Url("gone.xml")}));
  EXPECT_NE(std::string::npos, err_.str().find("cannot reach " + server.Url("gone.xml") +
                                               ": status 404 (Requested file not found.)\n"))
      << err_.str();
  net->CloseResourceCtrl(), net->Release();
}
#endif

TEST_F(ReaderTest, CommandsRefuseWhatTheyCannotDo) {
  EXPECT_EQ(1, Run({"update"}));
  EXPECT_EQ("no channel to update: \"add URL\" subscribes to a feed\n", err_.str());
  EXPECT_EQ(1, Run({"add", "https://example.org/feed"}));
  EXPECT_NE(std::string::npos,
            err_.str().find("cannot reach https://example.org/feed: no network side is running\n"))
      << err_.str();
  EXPECT_EQ(2, Run({"run", "-1"}));
  EXPECT_EQ(0, Posts());
}

}  // namespace
}  // namespace sample
