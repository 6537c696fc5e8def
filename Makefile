# The README's two commands and the helpers around them.
#   make demo   set up, build (release) and show the program working
#   make test   set up, build with AddressSanitizer + UBSan, run all tests and a fuzz smoke
#   make bench  build (release) and print the benchmark tables
#   make fuzz   build the fuzz targets and run each for FUZZ_SECONDS (default 60)
#   make install  build (release) and install under PREFIX (default /usr/local; DESTDIR honoured)
#   make deb    build (release) and make the Debian packages in build/release/

CXX_COMPILER ?= clang++-16
C_COMPILER ?= clang-16
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 60
SMOKE_SECONDS ?= 10
PREFIX ?= /usr/local
CMAKE_COMMON = -G Ninja -DCMAKE_CXX_COMPILER=$(CXX_COMPILER) -DCMAKE_C_COMPILER=$(C_COMPILER)

.PHONY: setup demo test bench fuzz build-release build-test install deb clean

setup:
	./scripts/setup

build-release: setup
	cmake -S . -B build/release $(CMAKE_COMMON) -DCMAKE_BUILD_TYPE=Release -DOMBRINE_TESTS=OFF -DOMBRINE_BENCH=ON >/dev/null
	cmake --build build/release -j $(JOBS)

build-test: setup
	cmake -S . -B build/test $(CMAKE_COMMON) -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O0 -g" -DCMAKE_C_FLAGS_DEBUG="-O0 -g" \
	  -DOMBRINE_SANITIZE=ON -DOMBRINE_FUZZ=ON >/dev/null
	cmake --build build/test -j $(JOBS)

demo: build-release
	./build/release/bin/ombrine --help
	./build/release/bin/ombrine units --locale en_GB
	./build/release/bin/ombrine --services sim forecast Munich
	./build/release/bin/ombrine --services sim storms --near Okinawa

test: build-test
	cd build/test && ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS) --timeout 600
	./scripts/fuzz-smoke build/test $(SMOKE_SECONDS)

bench: build-release
	./scripts/bench build/release

fuzz: build-test
	./scripts/fuzz-smoke build/test $(FUZZ_SECONDS)

install: build-release
	cmake --install build/release --prefix $(PREFIX)

deb: build-release
	cd build/release && cpack -G DEB
	@ls build/release/*.deb

clean:
	rm -rf build
