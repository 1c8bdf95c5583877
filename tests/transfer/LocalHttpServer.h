// LocalHttpServer: runs the tests' web server (tests/transfer/local_http_server.py,
// see its usage text for ranges, 404, ?stall=N, ?drop=N, ?noranges=1) on
// 127.0.0.1 for the length of a test, serving one folder.
//
//   kordll::test::LocalHttpServer server(served_folder, log_file);
//   ASSERT_TRUE(server.ok());
//   std::string url = server.Url("file.bin");   // http://127.0.0.1:<port>/file.bin
//
// The constructor starts python3 and reads the "PORT <n>" line the server
// prints once it listens (at most 60 seconds; no sleeping). WaitFor reads
// the server's later lines ("STALLED <path>", "DROPPED <path>") until one
// holds the word. The destructor
// closes the server's standard input, which ends it, and waits for it.
// The script's path comes from the build (KORDLL_SOURCE_DIR).

#ifndef KORDLL_TESTS_TRANSFER_LOCALHTTPSERVER_H_
#define KORDLL_TESTS_TRANSFER_LOCALHTTPSERVER_H_

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

extern char** environ;

namespace kordll {
namespace test {

class LocalHttpServer {
 public:
  LocalHttpServer(const std::string& folder, const std::string& log) {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0) return;
    if (pipe2(out, O_CLOEXEC) != 0) {
      close(in[0]), close(in[1]);
      return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    const std::string script =
        std::string(KORDLL_SOURCE_DIR) + "/tests/transfer/local_http_server.py";
    std::string args[] = {"python3", script, "--root", folder, "--log", log};
    char* argv[] = {args[0].data(), args[1].data(), args[2].data(), args[3].data(),
                    args[4].data(), args[5].data(), nullptr};
    if (posix_spawnp(&pid_, "python3", &actions, nullptr, argv, environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]), close(out[1]);
    stdin_ = in[1];
    stdout_ = out[0];
    if (pid_ > 0 && WaitFor("PORT ")) port_ = std::stoi(seen_.substr(seen_.find("PORT ") + 5));
  }
  // Reads the server's output until it holds word (at most 60 seconds).
  bool WaitFor(const std::string& word) {
    pollfd wait = {stdout_, POLLIN, 0};
    while (seen_.find(word) == std::string::npos) {
      char buffer[256];
      if (poll(&wait, 1, 60000) != 1) return false;
      const ssize_t got = read(stdout_, buffer, sizeof(buffer));
      if (got <= 0) return false;
      seen_.append(buffer, static_cast<size_t>(got));
    }
    return true;
  }
  ~LocalHttpServer() {
    if (stdin_ >= 0) close(stdin_);
    if (stdout_ >= 0) close(stdout_);
    if (pid_ > 0) waitpid(pid_, nullptr, 0);
  }
  LocalHttpServer(const LocalHttpServer&) = delete;
  LocalHttpServer& operator=(const LocalHttpServer&) = delete;

  bool ok() const { return port_ > 0; }
  int port() const { return port_; }
  std::string Url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/" + path;
  }

 private:
  pid_t pid_ = -1;
  int stdin_ = -1;
  int stdout_ = -1;
  std::string seen_;
  int port_ = 0;
};

}  // namespace test
}  // namespace kordll

#endif  // KORDLL_TESTS_TRANSFER_LOCALHTTPSERVER_H_
