#include "kordll/platform/Host.h"

#include <atomic>

#include "kordll/platform/HeadlessHost.h"

namespace kordll {

namespace {

// The default is never destroyed, so that a call from a thread that outlives
// static destruction still finds a host.
HeadlessHost* DefaultHost() {
  static HeadlessHost* host = new HeadlessHost();
  return host;
}

std::atomic<Host*> g_installed{nullptr};

}  // namespace

Host* Host::Install(Host* host) {
  Host* previous = g_installed.exchange(host, std::memory_order_acq_rel);
  return previous != nullptr ? previous : DefaultHost();
}

int Host::ShowNotice(const HostNotice&) { return 0; }

Host* Host::Current() {
  Host* host = g_installed.load(std::memory_order_acquire);
  return host != nullptr ? host : DefaultHost();
}

}  // namespace kordll
