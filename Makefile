# Front door. `make run` runs the main job, `make test` every test; both install what they need.
CMAKE_BUILD := cmake --build --preset

.PHONY: all deps build run test test-asan test-tsan bench fuzz fuzz-build clean

all: build

deps:
	@scripts/install-deps

build/%/build.ninja: | deps
	cmake --preset $* >/dev/null

build: deps build/default/build.ninja
	$(CMAKE_BUILD) default

# The main job: a host program opens a viewer on a sample archive and walks its items.
run: build
	build/default/bin/rkview --demo

test: build
	ctest --preset default

test-asan: deps build/asan/build.ninja
	$(CMAKE_BUILD) asan
	ctest --preset asan

test-tsan: deps build/tsan/build.ninja
	$(CMAKE_BUILD) tsan
	ctest --preset tsan

# Each benchmark runs its peers (zlib, libdeflate, cp, unzip, 7zz, bsdtar) on the same input and
# prints the ratios.
bench: build
	build/default/bin/RkCrc32Bench
	build/default/bin/RkPipeBench
	build/default/bin/RkZipListBench
	build/default/bin/RkInflateBench
	build/default/bin/RkLibDecodersBench
	bench/zip-extract-bench

# Builds the fuzz targets and replays each briefly from its seeds: a smoke run, not a campaign.
FUZZ_SECONDS ?= 20
fuzz: deps build/fuzz/build.ninja
	$(CMAKE_BUILD) fuzz
	scripts/run-fuzz build/fuzz/bin $(FUZZ_SECONDS)

clean:
	rm -rf build
