# A thin front of the CMake presets: each target installs what is missing and does the rest.

JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
export PATH := $(shell tools/node.sh path):$(PATH)

.PHONY: all run check test arm bench fuzz install packages check-packages test-packages arm-packages build web

# Everything, the tests' programs included.
all: build web
	@cmake --build --preset release --parallel $(JOBS)

# The antenna of the virtual television: a folder of multiplexes. The first start makes them, and every start puts the
# guide of the day into them.
ANTENNA = "$${XDG_CACHE_HOME:-$$HOME/.cache}/dtv_js_plugin/antenna"

# Builds and starts the host with the virtual television; ARGS go to dtv-host, for example ARGS="--listen 127.0.0.1:9000".
run: build web
	@build/bin/dtv-multiplexes $(ANTENNA)
	@build/bin/dtv-host --antenna $(ANTENNA) $(ARGS)

# What to run before each commit: builds, and runs the quick tests and the checks of what has changed.
check: check-packages
	@python3 tests/run.py --jobs $(JOBS) --check

# Builds and runs every test; STAGE=names runs these stages of it, RACE=seconds the race tests for so long.
test: test-packages
	@python3 tests/run.py --jobs $(JOBS) $(if $(RACE),--race $(RACE)) $(STAGE)

# Builds the plugin for the set's machine, 32-bit ARM, and runs its tests there, under emulation.
arm: arm-packages
	@python3 tests/run.py --jobs $(JOBS) arm-build arm

# Measures, beside a floor in the same run, and what the plugin takes of a set; also writes build/bench.json.
bench: test-packages all
	@python3 bench/run.py --build build --out build/bench.json
	@cmake --preset arm >/dev/null
	@cmake --build --preset arm --parallel $(JOBS) -- --quiet
	@python3 bench/budgets.py --build build --arm build-arm

# Fuzzes every target for SECONDS each, two at a time; what fails is kept in the target's corpus.
SECONDS ?= 60
fuzz: test-packages
	@cmake --preset asan >/dev/null
	@cmake --build --preset asan --parallel $(JOBS) -- --quiet
	@python3 tests/fuzz/run.py $(SECONDS)

install: build web
	@cmake --install build --prefix $(PREFIX)

packages:
	@tools/install_packages.sh build
	@tools/node.sh install

check-packages:
	@tools/install_packages.sh check

test-packages:
	@tools/install_packages.sh test
	@tools/node.sh install

arm-packages:
	@tools/install_packages.sh arm

build: packages
	@cmake --preset release >/dev/null
	@cmake --build --preset release --parallel $(JOBS) --target dtv_js_plugin dtv_tap dtv_tv dtv_host dtvctl dtv_multiplexes

web: web/dist/index.html

web/node_modules/.package-lock.json: web/package-lock.json | packages
	@cd web && npm ci --no-audit --no-fund --loglevel=error

web/dist/index.html: web/node_modules/.package-lock.json $(shell find web/src web/public -type f 2>/dev/null) \
                     web/index.html web/package.json web/vite.config.ts web/tsconfig.json web/compress.mjs
	@cd web && npm run --silent build
