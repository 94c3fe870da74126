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

std::vector<std::string> pluginMessages;

void collect(const char* format, uint32_t, uint64_t, va_list arguments) {
    char text[512];
    std::vsnprintf(text, sizeof text, format, arguments);
    pluginMessages.push_back(text);
}

class PluginTest : public ::testing::Test {
protected:
    void SetUp() override {
        handle_ = dlopen(VEK_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle_, nullptr) << dlerror();
        createReader_ = reinterpret_cast<decltype(createReader_)>(dlsym(handle_, "createReader"));
        deleteReader_ = reinterpret_cast<decltype(deleteReader_)>(dlsym(handle_, "deleteReader"));
        ASSERT_NE(createReader_, nullptr);
        ASSERT_NE(deleteReader_, nullptr);
    }
    void TearDown() override {
        if (handle_ != nullptr) dlclose(handle_);
    }

    // The plug-in's own copy of a C++ function of the public header, found
    // by the mangled name this test binary's copy has.
    template <typename Function>
    Function* inPlugin(Function* function) {
        Dl_info info{};
        if (dladdr(reinterpret_cast<void*>(function), &info) == 0 || info.dli_sname == nullptr) return nullptr;
        return reinterpret_cast<Function*>(dlsym(handle_, info.dli_sname));
    }

    LoadableReader* create(const std::string& path) {
        return static_cast<LoadableReader*>(createReader_(path, VisibilityLevel(5)));
    }

    TempDir dir_;
    void* handle_ = nullptr;
    Reader* (*createReader_)(const std::string&, VisibilityLevel) = nullptr;
    void (*deleteReader_)(Reader*) = nullptr;
};

TEST_F(PluginTest, ReportsThroughTheLoggerRegisteredInThePlugin) {
    auto registerInPlugin = inPlugin(&registerLogger);
    ASSERT_NE(registerInPlugin, nullptr);
    registerInPlugin(77, &collect, 1);
    pluginMessages.clear();
    LoadableReader* reader = create("/nonexistent/run.bin");
    ASSERT_NE(reader, nullptr);
    EXPECT_TRUE(reader->isAvailable());
    EXPECT_EQ(reader->printHeader(), "");  // nothing loaded yet
    EXPECT_FALSE(reader->loadLog(false));
    EXPECT_FALSE(reader->writeOutput(""));
    deleteReader_(reader);
    deleteReader_(nullptr);
    registerInPlugin(77, nullptr, 0);
    EXPECT_EQ(pluginMessages, (std::vector<std::string>{"Invalid or nonexistent file: /nonexistent/run.bin",
                                                        "Output chrometraceFile not provided."}));
}

TEST_F(PluginTest, LoadsALintingLogAndWritesTheTraceOrOnlyTheSummaries) {
    LogWriter log;
    log.chunk()
        .header(HeaderSpec{}.tool("net-run", "2.0").backendText("Backend 1"))
        .message(MessageSpec(kExecute).graph("g0").times(100, 350).withEvents({
            EventSpec::u64("Accelerator", 200).withChildren({
                EventSpec::u64("conv", 40, 1, 404).withChildren({
                    EventSpec::u64("wait", 5, 1, 5001),
                    EventSpec::u64("bg", 30, 1, 5002).withChildren({EventSpec::u64("dma in", 0, 1, 5005)}),
                    EventSpec::u64("bg wait", 3, 1, 5003), EventSpec::u64("resources", 3, 1, 5004)})})}));
    log.writeTo(dir_.file("run.bin"));

    LoadableReader* reader = create(dir_.file("run.bin"));
    ASSERT_TRUE(reader->loadLog(false));
    testing::internal::CaptureStdout();
    const bool written = reader->writeOutput(dir_.file("trace.json"));
    const std::string summary = testing::internal::GetCapturedStdout();
    deleteReader_(reader);
    ASSERT_TRUE(written);
    EXPECT_NE(summary.find("Execute Stats (Average):"), std::string::npos);
    EXPECT_NE(summary.find("Graph 0 (g0):"), std::string::npos);
    const std::string trace = readFile(dir_.file("trace.json"));
    EXPECT_NE(trace.find("\"name\": \"Wait\""), std::string::npos);
    EXPECT_NE(trace.find("\"Resources\": \"PQA, PQB\""), std::string::npos);
    EXPECT_EQ(trace.back(), '\n');

    // The summaries-only load is offered too, chosen before loading.
    auto setLoadScopeInPlugin = inPlugin(&setLoadScope);
    ASSERT_NE(setLoadScopeInPlugin, nullptr);
    reader = create(dir_.file("run.bin"));
    EXPECT_TRUE(setLoadScopeInPlugin(reader, LoadScope::SummariesOnly));
    EXPECT_TRUE(reader->loadLog(false));
    EXPECT_FALSE(setLoadScopeInPlugin(reader, LoadScope::Full));
    deleteReader_(reader);
}

}  // namespace
}  // namespace profiling
}  // namespace vek
