// Drives the built plug-in as a host does: dlopen, the entry points by name,
// the reader only through its virtual interface.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>

#include "VekChrometraceProfilingReader.h"
#include "support/LogWriter.h"

namespace vek::profiling {
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
        ASSERT_TRUE(createReader_ != nullptr && deleteReader_ != nullptr);
    }
    void TearDown() override { if (handle_ != nullptr) dlclose(handle_); }

    // The plug-in's own copy of a public C++ function, by the mangled name of this binary's copy.
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

TEST_F(PluginTest, LoadsTheSampleAndWritesItsTrace) {
    const std::string sample = VEK_SAMPLE_DIR "/linting_sample.log";
    LoadableReader* reader = create(sample);
    ASSERT_TRUE(reader->loadLog(false));
    testing::internal::CaptureStdout();
    const bool written = reader->writeOutput(dir_.file("trace.json"));
    const std::string summary = testing::internal::GetCapturedStdout();
    deleteReader_(reader);
    ASSERT_TRUE(written);
    EXPECT_NE(summary.find("Execute Stats (Average):"), std::string::npos);
    EXPECT_NE(summary.find("Graph 0 (mobilenet_v2):"), std::string::npos);
    const std::string trace = readFile(dir_.file("trace.json"));
    EXPECT_NE(trace.find("\"name\": \"Wait\""), std::string::npos);
    EXPECT_NE(trace.find("\"Resources\": \"PQA"), std::string::npos);
    EXPECT_EQ(trace.back(), '\n');
    EXPECT_NE(inPlugin(&setLoadScope), nullptr) << "the summaries-only load is offered too";
}

}  // namespace
}  // namespace vek::profiling
