# The two commands a fresh machine needs: `make demo` and `make check`.
JOBS ?= 2
CMAKE_FLAGS ?=
PREFIX ?= /usr/local
DESTDIR ?=

.PHONY: all deps build demo check check-plain check-asan check-tsan check-fuzz format clean \
	install uninstall deb bench-compare

all: build

deps:
	bash scripts/install-deps

build: deps
	cmake -S . -B build $(CMAKE_FLAGS) >/dev/null
	cmake --build build -j$(JOBS)

demo: build
	bash scripts/demo

check: deps
	$(MAKE) check-plain check-asan check-tsan check-fuzz

check-plain:
	cmake -S . -B build $(CMAKE_FLAGS) >/dev/null
	cmake --build build -j$(JOBS)
	ctest --test-dir build --output-on-failure -j$(JOBS)

check-asan:
	cmake -S . -B build-asan -DTOVRIN_SANITIZE=address $(CMAKE_FLAGS) >/dev/null
	cmake --build build-asan -j$(JOBS)
	ctest --test-dir build-asan --output-on-failure -j$(JOBS) -LE nosan

check-tsan:
	cmake -S . -B build-tsan -DTOVRIN_SANITIZE=thread $(CMAKE_FLAGS) >/dev/null
	cmake --build build-tsan -j$(JOBS)
	ctest --test-dir build-tsan --output-on-failure -j$(JOBS) -L threads -LE nosan

check-fuzz:
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -DTOVRIN_FUZZ=ON $(CMAKE_FLAGS) >/dev/null
	cmake --build build-fuzz -j$(JOBS) --target fuzz_targets
	ctest --test-dir build-fuzz --output-on-failure -L fuzz

# Tovrin beside aplay, mpv and ffmpeg on the virtual DAC in real time, about
# 40 minutes; SECONDS_PER_FILE=10 REPS=1 for a quick look. make check does not run it.
bench-compare:
	python3 bench/compare

# cmake --install takes DESTDIR from the environment.
install: build
	DESTDIR="$(DESTDIR)" cmake --install build --prefix "$(PREFIX)"

# Removes what the install rules would install, found by installing into a
# scratch folder, so the list of files lives in one place.
uninstall: build
	@stage=$$(mktemp -d) && trap 'rm -rf "$$stage"' EXIT && \
	DESTDIR="$$stage" cmake --install build --prefix "$(PREFIX)" >/dev/null && \
	cd "$$stage" && find . \( -type f -o -type l \) | while read -r f; do \
		echo "-- Removing: $(DESTDIR)$${f#.}"; rm -f "$(DESTDIR)$${f#.}"; done && \
	find . -depth -type d -name tovrin | while read -r d; do \
		rmdir "$(DESTDIR)$${d#.}" 2>/dev/null || true; done

deb: deps
	bash scripts/build-deb

format:
	git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format -i

clean:
	rm -rf build build-asan build-tsan build-fuzz
