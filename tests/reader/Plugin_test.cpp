// Drives the built plug-in the way a host does: dlopen, look up the entry
// points by name, and call the reader only through its virtual interface.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "VekChrometraceProfilingReader.h"
#include "support/LogWriter.h"

namespace vek {
namespace profiling {
namespace {

using namespace testlog;
using Reader = IVekProfileLogReader<VisibilityLevel>;
using LoadableReader = IVekLoadableProfileLogReader<VisibilityLevel>;
using CreateReaderFn = Reader* (*)(const std::string&, VisibilityLevel);
using DeleteReaderFn = void (*)(Reader*);
using RegisterLoggerFn = void (*)(uint64_t, LogCallback, int32_t);

std::vector<std::string>& pluginMessages() {
    static std::vector<std::string> messages;
    return messages;
}

void collect(const char* format, uint32_t, uint64_t, va_list arguments) {
    char text[512];
    std::vsnprintf(text, sizeof text, format, arguments);
    pluginMessages().push_back(text);
}

// The mangled name of a C++ function of the public header, as this test
// binary's own copy of the library knows it.
std::string symbolNameOf(void* function) {
    Dl_info info{};
    if (dladdr(function, &info) == 0 || info.dli_sname == nullptr) return std::string();
    return info.dli_sname;
}

class PluginTest : public ::testing::Test {
protected:
    void SetUp() override {
        handle_ = dlopen(VEK_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle_, nullptr) << dlerror();
        createReader_ = reinterpret_cast<CreateReaderFn>(dlsym(handle_, "createReader"));
        deleteReader_ = reinterpret_cast<DeleteReaderFn>(dlsym(handle_, "deleteReader"));
        ASSERT_NE(createReader_, nullptr);
        ASSERT_NE(deleteReader_, nullptr);
    }
    void TearDown() override {
        if (handle_ != nullptr) dlclose(handle_);
    }

    void* handle_ = nullptr;
    CreateReaderFn createReader_ = nullptr;
    DeleteReaderFn deleteReader_ = nullptr;
};

TEST_F(PluginTest, CreatesAndDeletesReadersAndIgnoresNull) {
    Reader* reader = createReader_("missing.bin", VisibilityLevel(5));
    ASSERT_NE(reader, nullptr);
    EXPECT_TRUE(static_cast<LoadableReader*>(reader)->isAvailable());
    EXPECT_EQ(reader->printHeader(), "");  // nothing loaded yet
    deleteReader_(reader);
    deleteReader_(nullptr);
}

TEST_F(PluginTest, ReportsThroughTheLoggerRegisteredInThePlugin) {
    const std::string name =
        symbolNameOf(reinterpret_cast<void*>(&vek::profiling::registerLogger));
    ASSERT_FALSE(name.empty());
    auto registerInPlugin = reinterpret_cast<RegisterLoggerFn>(dlsym(handle_, name.c_str()));
    ASSERT_NE(registerInPlugin, nullptr) << name;
    registerInPlugin(77, &collect, 1);
    pluginMessages().clear();

    Reader* reader = createReader_("/nonexistent/run.bin", VisibilityLevel(5));
    EXPECT_FALSE(static_cast<LoadableReader*>(reader)->loadLog(false));
    EXPECT_FALSE(reader->writeOutput(""));
    deleteReader_(reader);
    registerInPlugin(77, nullptr, 0);

    const std::vector<std::string> expected = {"Invalid or nonexistent file: /nonexistent/run.bin",
                                               "Output chrometraceFile not provided."};
    EXPECT_EQ(pluginMessages(), expected);
}

TEST_F(PluginTest, OffersTheSummariesOnlyLoad) {
    using SetLoadScopeFn = bool (*)(Reader*, LoadScope);
    const std::string name = symbolNameOf(reinterpret_cast<void*>(&vek::profiling::setLoadScope));
    auto setLoadScopeInPlugin = reinterpret_cast<SetLoadScopeFn>(dlsym(handle_, name.c_str()));
    ASSERT_NE(setLoadScopeInPlugin, nullptr) << name;
    TempDir dir;
    LogWriter log;
    log.chunk().message(MessageSpec(kExecute).graph("g0").times(1, 2));
    log.writeTo(dir.file("run.bin"));

    Reader* reader = createReader_(dir.file("run.bin"), VisibilityLevel(5));
    EXPECT_TRUE(setLoadScopeInPlugin(reader, LoadScope::SummariesOnly));
    EXPECT_TRUE(static_cast<LoadableReader*>(reader)->loadLog(false));
    EXPECT_FALSE(setLoadScopeInPlugin(reader, LoadScope::Full));
    deleteReader_(reader);
}

TEST_F(PluginTest, LoadsALintingLogAndWritesTheTrace) {
    TempDir dir;
    LogWriter log;
    log.chunk()
        .header(HeaderSpec{}.tool("net-run", "2.0").backendText("Backend 1"))
        .message(MessageSpec(kExecute).graph("g0").times(100, 350).withEvents({
            EventSpec::u64("Accelerator", 200).withChildren({
                EventSpec::u64("conv", 40, 1, 404).withChildren({
                    EventSpec::u64("wait", 5, 1, 5001),
                    EventSpec::u64("bg", 30, 1, 5002).withChildren(
                        {EventSpec::u64("dma in", 0, 1, 5005)}),
                    EventSpec::u64("bg wait", 3, 1, 5003),
                    EventSpec::u64("resources", 3, 1, 5004),
                }),
            }),
        }));
    log.writeTo(dir.file("run.bin"));

    Reader* reader = createReader_(dir.file("run.bin"), VisibilityLevel(5));
    ASSERT_TRUE(static_cast<LoadableReader*>(reader)->loadLog(false));
    testing::internal::CaptureStdout();
    const bool written = reader->writeOutput(dir.file("trace.json"));
    const std::string summary = testing::internal::GetCapturedStdout();
    deleteReader_(reader);

    ASSERT_TRUE(written);
    EXPECT_NE(summary.find("Execute Stats (Average):"), std::string::npos);
    EXPECT_NE(summary.find("Graph 0 (g0):"), std::string::npos);
    const std::string trace = readFile(dir.file("trace.json"));
    EXPECT_NE(trace.find("\"name\": \"Wait\""), std::string::npos);
    EXPECT_NE(trace.find("\"Resources\": \"PQA, PQB\""), std::string::npos);
    EXPECT_EQ(trace.back(), '\n');
}

}  // namespace
}  // namespace profiling
}  // namespace vek
