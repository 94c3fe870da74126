#include "TemporaryFileCleanup.h"

#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>

namespace vek {
namespace tools {
namespace {

// A tool has a handful of outputs; each slot holds one path.
constexpr int kSlots = 16;
char watchedPaths[kSlots][PATH_MAX];
std::atomic<bool> slotUsed[kSlots];
std::mutex slotsMutex;

constexpr int kStoppingSignals[] = {SIGINT, SIGTERM, SIGHUP};

void removeWatchedFiles(int signalNumber) {
    for (int i = 0; i < kSlots; ++i) {
        if (slotUsed[i].load()) unlink(watchedPaths[i]);
    }
    // Ended by the signal itself, so that the parent sees why.
    signal(signalNumber, SIG_DFL);
    raise(signalNumber);
}

void installHandlersOnce() {
    static std::once_flag installed;
    std::call_once(installed, [] {
        for (const int signalNumber : kStoppingSignals) {
            struct sigaction current {};
            sigaction(signalNumber, nullptr, &current);
            // A signal the caller chose to ignore stays ignored.
            if (current.sa_handler == SIG_IGN) continue;
            struct sigaction action {};
            action.sa_handler = removeWatchedFiles;
            sigemptyset(&action.sa_mask);
            for (const int other : kStoppingSignals) sigaddset(&action.sa_mask, other);
            sigaction(signalNumber, &action, nullptr);
        }
    });
}

}  // namespace

bool watchTemporaryFile(const std::string& path) {
    if (path.size() >= PATH_MAX) return false;
    installHandlersOnce();
    std::lock_guard<std::mutex> lock(slotsMutex);
    for (int i = 0; i < kSlots; ++i) {
        if (slotUsed[i].load()) continue;
        std::memcpy(watchedPaths[i], path.c_str(), path.size() + 1);
        slotUsed[i].store(true);
        return true;
    }
    return false;
}

void unwatchTemporaryFile(const std::string& path) {
    std::lock_guard<std::mutex> lock(slotsMutex);
    for (int i = 0; i < kSlots; ++i) {
        if (slotUsed[i].load() && path == watchedPaths[i]) {
            slotUsed[i].store(false);
            return;
        }
    }
}

}  // namespace tools
}  // namespace vek
