// Saves the raw data of an object event under the file name it carries,
// never overwriting an existing file.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string>

#include "logging/Log.h"
#include "reader/VekProfileLogReader.h"
#include "stats/ObjectDirectory.h"

namespace vek {
namespace profiling {
namespace {

// Enough for any real run; stops the search should a directory be flooded
// with candidates (or a file system report every name as present).
constexpr unsigned kMaxNameCounter = 1000000;

bool fileExists(const std::string& name) {
    std::FILE* file = std::fopen(name.c_str(), "rb");
    if (file == nullptr) return false;
    std::fclose(file);
    return true;
}

// Offset of the dot that starts the extension, or npos. Only the last path
// component can hold an extension: "dir.v2/file" has none.
size_t extensionStart(const std::string& name) {
#if defined(_WIN32)
    const size_t componentStart = name.find_last_of("/\\");
#else
    const size_t componentStart = name.find_last_of('/');
#endif
    const size_t dot = name.find_last_of('.');
    if (dot == std::string::npos) return std::string::npos;
    if (componentStart != std::string::npos && dot < componentStart) return std::string::npos;
    return dot;
}

// The first of name, stem_1.ext, stem_2.ext, ... that does not exist yet;
// empty when the counter runs out.
template <typename Exists>
std::string freeFileName(const std::string& name, const Exists& fileExists) {
    if (!fileExists(name)) return name;
    const size_t dot = extensionStart(name);
    const std::string stem = name.substr(0, dot);
    const std::string extension = dot == std::string::npos ? std::string() : name.substr(dot);
    for (unsigned counter = 1; counter <= kMaxNameCounter; ++counter) {
        std::string candidate = stem + "_" + std::to_string(counter) + extension;
        if (!fileExists(candidate)) return candidate;
    }
    return std::string();
}

bool writeAll(int fd, const uint8_t* data, size_t size) {
    for (size_t done = 0; done < size;) {
        const ssize_t written = ::write(fd, data + done, size - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        done += static_cast<size_t>(written);
    }
    return true;
}

void refuseObjectFile(const ProfileEvent& event, const std::string& name, const char* why) {
    vekLog(kLogError, "Object event [%s]: file name [%s] %s; not saved", event.name.c_str(),
           name.c_str(), why);
}

// Saves the event beneath `directory`, or says why not; the report goes on.
void saveConfined(const ObjectDirectory& directory, const ProfileEvent& event,
                  const std::string& requested) {
    if (const char* refusal = ObjectDirectory::refusalOf(requested)) {
        refuseObjectFile(event, requested, refusal);
        return;
    }
    const std::string fileName = freeFileName(
        requested, [&directory](const std::string& name) { return directory.exists(name); });
    const int fd = fileName.empty() ? -1 : directory.create(fileName);
    if (fd < 0 && (errno == EXDEV || errno == ELOOP)) {
        refuseObjectFile(event, requested, "resolves outside the object directory");
        return;
    }
    const bool written = fd >= 0 && writeAll(fd, event.bytes.data(), event.bytes.size());
    const bool closed = fd < 0 || ::close(fd) == 0;
    if (!written || !closed) {
        vekLog(kLogError, "Invalid output fileName: [%s]",
               (fileName.empty() ? requested : fileName).c_str());
    }
}

}  // namespace

// Every call picks a fresh name, so the same event handed over twice is saved
// twice; the report relies on that.
void VekProfileLogReader::writeObjectEventFile(const ProfileEvent& event) {
    if (event.detail.empty()) return;
    // The file system sees a name only up to its first NUL byte; searching
    // under the whole text would find every candidate taken.
    const std::string requested(event.detail.c_str());
    if (objectDirectory) {
        saveConfined(*objectDirectory, event, requested);
        return;
    }
    const std::string fileName = freeFileName(requested, fileExists);
    // Binary, so the object's bytes land unchanged on every platform.
    std::ofstream file;
    if (!fileName.empty()) file.open(fileName, std::ios::out | std::ios::trunc | std::ios::binary);
    if (!file.is_open()) {
        vekLog(kLogError, "Invalid output fileName: [%s]",
               (fileName.empty() ? requested : fileName).c_str());
        return;
    }
    file.write(reinterpret_cast<const char*>(event.bytes.data()),
               static_cast<std::streamsize>(event.bytes.size()));
    // A failure on close only sets the stream's state; the report goes on.
    file.close();
    // A full disk leaves a cut-off file behind: say so, as for a file that
    // cannot be opened, so that the host does not take it for a good one.
    if (file.fail()) vekLog(kLogError, "Invalid output fileName: [%s]", fileName.c_str());
}

}  // namespace profiling
}  // namespace vek
