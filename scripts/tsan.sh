#!/usr/bin/env bash
# Builds the repair engine, the workers and their tests with ThreadSanitizer in build-tsan/ and runs
# those tests. Only races inside Qt's and FFmpeg's own (uninstrumented) libraries are suppressed, in
# tests/tsan.supp. Extra arguments go to ctest, e.g. scripts/tsan.sh -R tst_hardening.
set -euo pipefail
cd "$(dirname "$0")/.."

targets=(tst_structuralpass tst_workers tst_reencode tst_rebuild tst_hardening)

# Qt's mutexes, wait conditions and thread ends synchronise inside its uninstrumented library:
# tests/hardening/TsanQtSync.cpp wraps the calls our code makes so that ThreadSanitizer sees the
# ordering they give. The shim needs QtCore, so every link (CMake's own compiler check too) names it.
mkdir -p build-tsan
shim=$PWD/build-tsan/tsan-qt-sync.o
g++ -std=c++17 -O1 -g -fPIC $(pkg-config --cflags Qt5Core) -c tests/hardening/TsanQtSync.cpp -o "$shim"
wraps=""
for symbol in _ZN6QMutex4lockEv _ZN6QMutex6unlockEv _ZN6QMutex7tryLockEi _ZN11QBasicMutex12lockInternalEv \
              _ZN11QBasicMutex14unlockInternalEv _ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer \
              _ZN14QWaitCondition4waitEP6QMutexm _ZN7QThread5startENS_8PriorityE _ZN7QThread4waitE14QDeadlineTimer \
              _ZN7QThread4waitEm _ZNK7QThread10isFinishedEv _ZNK7QThread9isRunningEv; do
    wraps="$wraps -Wl,--wrap=$symbol"
done

cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS="-fsanitize=thread -fno-omit-frame-pointer" \
    -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread$wraps $shim $(pkg-config --libs Qt5Core)" >/dev/null
cmake --build build-tsan -j"$(nproc)" --target "${targets[@]}"

regex="^($(IFS='|'; echo "${targets[*]}"))\$"
# FFmpeg's frame-threaded decoders hand frames between their own threads inside libavcodec, whose
# synchronisation ThreadSanitizer cannot see; ignore_noninstrumented_modules leaves out the reports
# whose racing access lies in such a library, and keeps every one in our code.
export CORVANE_SLOWDOWN=10 # the fuzz replays' time limits
export TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp:halt_on_error=1:second_deadlock_stack=1:ignore_noninstrumented_modules=1"
ctest --test-dir build-tsan --output-on-failure -R "$regex" "$@"
