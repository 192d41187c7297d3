# Words for what is done often. CMakePresets.json says what each build is.

DEMO  := build/release/demo/bin
TOUR  := build/tour
REAL  := build/real
JOBS  ?= $(shell nproc 2>/dev/null || echo 2)
# How long `make fuzz` runs each fuzzer.
SECONDS ?= 60

# The compiler cache is optional. It passes precompiled headers by unless told that all their macros stand in the command.
export CMAKE_CXX_COMPILER_LAUNCHER ?= $(shell command -v ccache)
export CCACHE_SLOPPINESS ?= pch_defines,time_macros

# Most tests wait for something most of the time.
CTEST = ctest --parallel $$(( 2 * $(JOBS) )) --preset

.DEFAULT_GOAL := help
.PHONY: help deps build test asan tsan run run-real demo-tour screenshots bench lint format fuzz package package-trial clean

help: ## this list
	@sed -n 's/^\([a-z -]*\):[^#]*## \(.*\)/  make \1\t\2/p' $(firstword $(MAKEFILE_LIST)) | expand -t 24

deps: ## install the Debian packages that are missing
	@scripts/install-packages

deps-%: deps
	@scripts/install-packages packaging/debian-packages-$*.txt

build-%:
	cmake --preset $* $(CMAKE_FLAGS)
	cmake --build --preset $* --parallel $(JOBS)

build: build-release ## build everything, optimised; installs nothing

test: deps build ## build and run all tests
	$(CTEST) release

asan: deps build-asan ## build and test with AddressSanitizer and UndefinedBehaviorSanitizer
	$(CTEST) asan

# ThreadSanitizer cannot lay out its memory under some kernels' address randomisation.
tsan: deps build-tsan ## build and test with ThreadSanitizer
	$(shell setarch -R true 2>/dev/null && echo setarch -R) $(CTEST) tsan

run: deps build ## start Zarvo with the demonstration's phones and store; without a display: the tour
	@if [ -n "$$DISPLAY$$WAYLAND_DISPLAY" ]; then ZARVO_DEMO_STATE=$(CURDIR)/build/demo-state $(DEMO)/with-phones $(DEMO)/zarvo; \
	else echo "No display: playing the tour offscreen instead."; $(MAKE) --no-print-directory demo-tour; fi

# A tree like an installed one; the store tool is linked, so that it stays where its owner keeps it up to date.
run-real: deps build ## start Zarvo with real phones and the real store: IPATOOL=path
	@[ -f "$(IPATOOL)" ] && [ -x "$(IPATOOL)" ] || { echo "Say where the store tool is: make run-real IPATOOL=path" >&2; exit 1; }
	@rm -rf $(REAL) && cmake --install build/release --prefix $(REAL) >/dev/null
	@ln -s "$$(realpath "$(IPATOOL)")" $(REAL)/lib/zarvo/Tools/ipatool
	$(REAL)/bin/zarvo

demo-tour: build ## play every flow offscreen: a line a step, pictures in build/tour
	@rm -rf $(TOUR)-state
	@ZARVO_DEMO_STATE=$(CURDIR)/$(TOUR)-state $(DEMO)/with-phones $(DEMO)/tour $(TOUR)
	@echo "Pictures: $(TOUR)/"

screenshots: demo-tour ## take the pictures of docs/screenshots anew, from the tour
	for name in window sign-in phone; do cp $(TOUR)/$$name.png docs/screenshots/; done

bench: deps-bench build ## measure
	cmake --build --preset release --target zarvo_bench --parallel $(JOBS)
	build/release/bench/zarvo_bench

lint: deps-lint build ## check format and look for faults without running
	scripts/lint build/release $(JOBS)

format: deps-lint ## format the sources in place
	clang-format -i $$(git ls-files '*.cpp' '*.h')

fuzz: deps-fuzz build-fuzz ## run each fuzzer for a while on its corpus: SECONDS=60
	fuzz/run build/fuzz $(SECONDS) $(JOBS)

package: deps-package build ## make the Debian package and check it: build/package
	@rm -rf build/package
	cd build/release && cpack -B $(CURDIR)/build/package
	@rm -rf build/package/_CPack_Packages
	packaging/check-package build/package/*.deb

package-trial: package ## as root: install the package on a bare Debian, show its window, remove it (MIRROR=address)
	packaging/try-on-bare-system build/package/*.deb build/package/window.png $(MIRROR)

clean: ## remove all that was built
	rm -rf build
