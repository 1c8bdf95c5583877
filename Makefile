# Two commands for a fresh machine:
#   make demo   configure, build and run `kordll demo`, then the sample podcast reader
#   make test   build with AddressSanitizer and UndefinedBehaviorSanitizer and run every test
# Further targets: bench (optimised build, runs the benchmarks), fuzz (clang libFuzzer
# build), tsan (ThreadSanitizer build of the concurrency tests), install.

JOBS      ?= $(shell nproc 2>/dev/null || echo 2)
BUILD     ?= build
PACKAGES  := cmake make g++ pkg-config ninja-build libsqlite3-dev libxml2-dev libxslt1-dev \
             libicu-dev libgtest-dev libbenchmark-dev clang-format \
             libcurl4-openssl-dev libnotify-dev dbus-daemon python3
GENERATOR := $(shell command -v ninja >/dev/null 2>&1 && echo "-G Ninja")
# Where ccache is installed, rebuilds reuse earlier compilations.
LAUNCHER  := $(shell command -v ccache >/dev/null 2>&1 && echo "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache")

.PHONY: demo test bench fuzz tsan install deps clean

deps:
	@missing=""; for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing:$$missing"; \
	  SUDO=""; [ "$$(id -u)" = 0 ] || SUDO=sudo; \
	  $$SUDO apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq $$missing; \
	fi

# The demo's user platform takes its plug-ins from the folder KORDLL_DEMO_PLUGINS
# names: the build's folder of the sample plug-in, so that its controller is made.
demo: deps
	cmake -S . -B $(BUILD)/release $(GENERATOR) $(LAUNCHER) -DCMAKE_BUILD_TYPE=Release -DKORDLL_TESTS=OFF -DKORDLL_BENCH=OFF
	cmake --build $(BUILD)/release -j $(JOBS)
	@mkdir -p $(BUILD)/demo-root
	KORDLL_ROOT=$(abspath $(BUILD)/demo-root) KORDLL_DEMO_PLUGINS=$(abspath $(BUILD)/release/examples/SampleReader) \
	  $(BUILD)/release/kordll demo
	@echo; echo "== The sample podcast reader: the typical event on the bundled podcast, served on 127.0.0.1"
	@rm -rf $(BUILD)/reader-demo-root
	sh examples/data/podcast/run_with_server.sh $(abspath $(BUILD)/release/examples/SampleReader/kordll_sample_reader) \
	  $(abspath $(BUILD)/reader-demo-root) add FEED + download 1 + talks open + downloads
	@echo "The reader's profile, data and downloads are in $(abspath $(BUILD)/reader-demo-root)"

test: deps
	cmake -S . -B $(BUILD)/asan $(GENERATOR) $(LAUNCHER) -DCMAKE_BUILD_TYPE=Debug -DKORDLL_SANITIZE=address,undefined -DKORDLL_BENCH=OFF -DKORDLL_WERROR=ON
	cmake --build $(BUILD)/asan -j $(JOBS)
	cd $(BUILD)/asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS) --timeout 300

bench: deps
	cmake -S . -B $(BUILD)/bench $(GENERATOR) $(LAUNCHER) -DCMAKE_BUILD_TYPE=Release -DKORDLL_TESTS=OFF
	cmake --build $(BUILD)/bench -j $(JOBS)
	@for b in $(BUILD)/bench/*_bench; do echo "== $$b"; KORDLL_ROOT=$$(mktemp -d) $$b || exit 1; done

fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(BUILD)/fuzz $(GENERATOR) $(LAUNCHER) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DKORDLL_SANITIZE=address,undefined -DKORDLL_TESTS=OFF -DKORDLL_BENCH=OFF -DKORDLL_EXAMPLES=OFF
	cmake --build $(BUILD)/fuzz -j $(JOBS)
	@echo "Fuzzers are in $(BUILD)/fuzz; run e.g. mkdir -p $(BUILD)/fuzz/new && $(BUILD)/fuzz/date_fuzz $(BUILD)/fuzz/new fuzz/corpus/date_fuzz -max_total_time=60"

tsan: deps
	cmake -S . -B $(BUILD)/tsan $(GENERATOR) $(LAUNCHER) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORDLL_SANITIZE=thread \
	  -DKORDLL_BENCH=OFF -DKORDLL_EXAMPLES=OFF
	cmake --build $(BUILD)/tsan -j $(JOBS)
	cd $(BUILD)/tsan && TSAN_OPTIONS=halt_on_error=1 ctest --output-on-failure -j $(JOBS) -R 'Concurren|^control\.|CWinThread|EnvClock|Timer|^periodic\.|^talk\.|^transfer\.|NetworkSide'

install: deps
	cmake -S . -B $(BUILD)/release $(GENERATOR) $(LAUNCHER) -DCMAKE_BUILD_TYPE=Release -DKORDLL_TESTS=OFF -DKORDLL_BENCH=OFF
	cmake --build $(BUILD)/release -j $(JOBS)
	cmake --install $(BUILD)/release

clean:
	rm -rf $(BUILD)
