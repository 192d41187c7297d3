# Words for what is done often. CMakePresets.json says what each build is.

RELEASE := build/release
DEMO    := $(RELEASE)/demo
TOUR    := build/tour
STATE   := build/demo-state
REAL    := build/real
UNITS   := build/lint
PICTURES := docs/screenshots
JOBS    ?= $(shell nproc 2>/dev/null || echo 2)
# How long `make fuzz` runs each fuzzer.
SECONDS ?= 60

# Looked up when used: the compiler cache is optional and may come or go. It passes precompiled headers by unless told
# that all their macros stand in the command.
LAUNCHER = -DCMAKE_CXX_COMPILER_LAUNCHER=$(shell command -v ccache)
export CCACHE_SLOPPINESS ?= pch_defines,time_macros
# ThreadSanitizer cannot lay out its memory under some kernels' address randomisation.
FIXED_ADDRESSES = $(shell setarch -R true 2>/dev/null && echo setarch -R)

SOURCES = $(shell find src tools demo tests bench -name '*.cpp' -o -name '*.h')
FUZZERS = $(wildcard fuzz/*.cpp fuzz/*.h)

configure-and-build = cmake --preset $(1) $(LAUNCHER) && cmake --build --preset $(1) --parallel $(JOBS)
# Most tests wait for something most of the time.
run-tests = ctest --test-dir build/$(1) --output-on-failure --no-tests=error --parallel $$(( 2 * $(JOBS) ))

.DEFAULT_GOAL := help
.PHONY: help deps deps-bench deps-lint deps-package deps-fuzz build test run run-real demo-tour screenshots bench asan \
        tsan lint format fuzz package package-trial clean

help: ## this list
	@sed -n 's/^\([a-z -]*\):[^#]*## \(.*\)/  make \1\t\2/p' $(firstword $(MAKEFILE_LIST)) | expand -t 24

deps: ## install the Debian packages that are missing
	@tools/install-packages

build: deps ## build everything, optimised
	$(call configure-and-build,release)

test: build ## build and run all tests
	$(call run-tests,release)

# The window where there is a display to show it on, pictures of it elsewhere.
run: build ## start Zarvo with the demonstration's phones and store
	@if [ -n "$$DISPLAY$$WAYLAND_DISPLAY" ]; then \
	    ZARVO_DEMO_STATE=$(CURDIR)/$(STATE) $(DEMO)/bin/with-phones $(DEMO)/bin/zarvo; \
	else \
	    echo "No display: playing the tour offscreen instead."; \
	    $(MAKE) --no-print-directory tour; \
	fi

.PHONY: ipatool-given
ipatool-given:
	@[ -n "$(IPATOOL)" ] || { \
	    echo "Say where the store tool is: make run-real IPATOOL=/path/to/ipatool" >&2; exit 1; }
	@[ -f "$(IPATOOL)" ] && [ -x "$(IPATOOL)" ] || { echo "$(IPATOOL) is no program that can be run." >&2; exit 1; }

# A tree like an installed one; the store tool is linked, so that it stays where its owner keeps it up to date.
run-real: ipatool-given build ## start Zarvo with real phones and the real store: IPATOOL=path
	@rm -rf $(REAL)
	@cmake --install $(RELEASE) --prefix $(REAL) >/dev/null
	@ln -s "$$(realpath "$(IPATOOL)")" $(REAL)/lib/zarvo/Tools/ipatool
	$(REAL)/bin/zarvo

demo-tour: build ## play every flow offscreen: a line a step, pictures in build/tour
	@$(MAKE) --no-print-directory tour

.PHONY: tour
tour:
	@rm -rf $(TOUR)-state
	@ZARVO_DEMO_STATE=$(CURDIR)/$(TOUR)-state $(DEMO)/bin/with-phones $(DEMO)/bin/tour $(TOUR)
	@echo "Pictures: $(TOUR)/"

screenshots: build ## take the pictures of docs/screenshots anew, from the tour
	@$(MAKE) --no-print-directory tour
	@mkdir -p $(PICTURES)
	for name in window sign-in phone; do cp $(TOUR)/$$name.png $(PICTURES)/; done

deps-bench: deps
	@tools/install-packages packaging/debian-packages-bench.txt

bench: deps-bench build ## measure
	cmake --build --preset release --target zarvo_bench --parallel $(JOBS)
	$(RELEASE)/bench/zarvo_bench

asan: deps ## build and test with AddressSanitizer and UndefinedBehaviorSanitizer
	$(call configure-and-build,asan)
	$(call run-tests,asan)

tsan: deps ## build and test with ThreadSanitizer
	$(call configure-and-build,tsan)
	$(FIXED_ADDRESSES) $(call run-tests,tsan)

deps-lint: deps
	@tools/install-packages packaging/debian-packages-lint.txt

# The build comes first: clang-tidy needs its compile commands and the files that it generates. Tests and fuzzers run under
# the sanitizers, so they are spared the analyser's walk through every branch, which takes half the time, and the tests
# are spared cppcheck, which gives up at most of them.
lint: deps-lint build ## check format and look for faults without running
	clang-format --dry-run -Werror $(SOURCES) $(FUZZERS)
	cppcheck --quiet --error-exitcode=1 --enable=warning,performance,portability --inline-suppr --library=qt \
	    --std=c++20 --template='{file}:{line}:{column}: error: {message} [{id}]' -j $(JOBS) -I src src tools demo bench fuzz
	rm -rf $(UNITS) && tools/lint-units $(RELEASE) $(UNITS)
	ls $(UNITS)/tests-*.cpp $(UNITS)/fuzz.cpp | xargs -P $(JOBS) -n 1 clang-tidy -p $(UNITS) --quiet --checks=-clang-analyzer-*
	ls $(UNITS)/[!ft]*.cpp $(UNITS)/tools*.cpp | xargs -P $(JOBS) -n 1 clang-tidy -p $(UNITS) --quiet
	@echo "Nothing found."

format: deps-lint ## format the sources in place
	clang-format -i $(SOURCES) $(FUZZERS)

deps-package: deps
	@tools/install-packages packaging/debian-packages-package.txt

package: deps-package build ## make the Debian package and check it: build/package
	@rm -rf build/package
	cd $(RELEASE) && cpack -B $(CURDIR)/build/package
	@rm -rf build/package/_CPack_Packages
	packaging/check-package build/package/*.deb

package-trial: package ## as root: install the package on a bare Debian, show its window, remove it (MIRROR=address)
	packaging/try-on-bare-system build/package/*.deb build/package/window.png $(MIRROR)

deps-fuzz: deps
	@tools/install-packages packaging/debian-packages-fuzz.txt

fuzz: deps-fuzz ## run each fuzzer for a while on its corpus: SECONDS=60
	$(call configure-and-build,fuzz)
	fuzz/run build/fuzz $(SECONDS) $(JOBS)

clean: ## remove all that was built
	rm -rf build
