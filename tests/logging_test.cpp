#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/config.h>
#include <TarnoMirelo/logging.h>
#include <TarnoMirelo/operators.h>

#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace TarnoMirelo {

struct MireloConfig::JNICapture {};  // the host's to define

namespace {

// Does with each entry what the test says.
class Sink : public ILogProcessor {
 public:
    explicit Sink(std::function<void(const LogEntry&)> work) : work_(std::move(work)) {}
    void Process(const LogEntry& entry) override { work_(entry); }

 private:
    std::function<void(const LogEntry&)> work_;
};

LogEntry entryOf(const std::string& message, int severity = 0, int target = 0) {
    return {message, static_cast<LogProcessorTarget>(target), static_cast<LogSeverity>(severity), -1, 0};
}

const std::string kCut("text\0behind", 11);

TEST(LogProcessors, WriteMessagesUpToTheirFirstNul) {
    std::ostringstream stream;
    LogProcessorOStream(stream).Process(entryOf(kCut));
    LogProcessorContainer container;
    const auto processor = std::make_shared<LogProcessorOStream>(stream);
    for (const auto& each : {processor, decltype(processor)(), processor}) container.AddProcessor(each);
    container.Process(entryOf("both"));
    EXPECT_EQ(stream.str(), "text\nboth\nboth\n");
    EXPECT_EQ(container.GetProcessorCount(), 2U);
    container.AddProcessor(std::make_shared<Sink>([](const LogEntry& /*entry*/) { throw std::runtime_error("x"); }));
    EXPECT_THROW(container.Process(entryOf("")), std::runtime_error);
    stream.str("");
    LogProcessorContainer growing;
    growing.AddProcessor(std::make_shared<Sink>([&](const LogEntry& /*entry*/) {
        for (int i = 0; i < 9; ++i) growing.AddProcessor(std::make_shared<LogProcessorOStream>(stream));
    }));
    growing.Process(entryOf("not for those that come meanwhile"));
    EXPECT_EQ(list(growing.GetProcessorCount(), stream.str()), "10 ");
    LogProcessorFormatter<DebugLogFormat>(nullptr, DebugLogFormat()).Process(entryOf(""));  // nobody is there
}

TEST(DebugLogFormat, CountsTheTimeSinceItsStart) {
    constexpr int64_t kHour = 36'000'000'000;
    constexpr int64_t kLast = std::numeric_limits<int64_t>::max();
    const std::tuple<int64_t, int64_t, const char*> cases[] = {
        {0, 37'230'040'000, "(01:02:03:04) text[-1]"}, {5, 5 + 100 * kHour, "(100:00:00:00) text[-1]"},
        {0, 9'990'000, "(00:00:00:999) text[-1]"},     {50'000'000, 0, "(00:00:-5:00) text[-1]"},
        {0, kLast, "(256204778:48:05:477) text[-1]"},  {kLast, -kLast - 1, "(00:00:00:00) text[-1]"}};
    for (const auto& [start, time, expected] : cases) {
        LogEntry in = entryOf(kCut, 3, 2);
        in.timestamp = time;
        LogEntry out;
        EXPECT_TRUE(DebugLogFormat(start).Format(out, in));
        EXPECT_EQ(out.message, expected);
        EXPECT_TRUE(out.target == in.target && out.severity == in.severity && out.value == -1 && out.timestamp == time);
    }
}

// A log file reopened, byte for byte.
TEST(LogFile, MarksEachOpening) {
    const TempDir directory;
    const std::string rule = std::string(60, '=') + "\n";
    std::string expected;
    for (int opening = 0; opening < 3; ++opening) {
        LogProcessorFileSystem file(directory.native().string(), "log", false);
        expected += (opening > 0 ? "\n\n\n" : "") + rule + rule;
        file.Process(entryOf(kCut));
        file.WriteHeader("Model", "beta");
        file.WriteHeader("Number", -12);
        file.WriteHeader(std::string(12, 't'), std::string(35, 'v'));
        file.WriteHeader("t", std::string(36, 'v'));
        expected += "text\n===== Model: beta" + std::string(38, ' ') + "=====\n===== Number: -12" +
                    std::string(38, ' ') + "=====\n";
        expected += "===== " + std::string(12, 't') + ": " + std::string(35, 'v') +
                    "=====\n===== t: " + std::string(36, 'v') + "\n";
        std::ofstream(directory.native() / "log", std::ios::app | std::ios::binary)
            << "another process\n";  // may write meanwhile
        file.Close();
        file.Process(entryOf("dropped"));
        file.WriteSeparator();
        EXPECT_TRUE(file.Open((directory.native() / "log").string()));
        expected += "another process\n\n\n\n" + rule + rule;
    }
    EXPECT_EQ(directory.read("log"), expected);
    LogProcessorFileSystem disabled(directory.native().string(), "none", true);
    LogProcessorFileSystem nowhere(directory.native().string() + "/missing", "log", false);
    LogProcessorFileSystem unspeakable(directory.native().string(), "\x80", false);
    for (LogProcessorFileSystem* const inert : {&disabled, &nowhere, &unspeakable}) inert->Process(entryOf("dropped"));
    EXPECT_FALSE(nowhere.Open(directory.native().string()));
    EXPECT_FALSE(std::filesystem::exists(directory.native() / "none"));
}

class LoggerTest : public testing::Test {
 protected:
    ~LoggerTest() override {
        logger.SetDefaultLogProcessor(nullptr);
        logger.ClearErrorMessages();
    }
    void install(std::function<void(const LogEntry&)> work) {
        logger.SetDefaultLogProcessor(std::make_shared<Sink>(std::move(work)));
    }
    Logger& logger = Logger::GetInstance();
};

TEST_F(LoggerTest, RecordsErrorsBeforeTheyAreProcessed) {
    std::string seen;
    install([&](const LogEntry& entry) {
        seen += entry.message + std::to_string(logger.GetErrorCount()) + " ";
        throw 1;
    });
    const std::pair<int, int> cases[] = {{2, 0}, {0, 4}, {0, 1}, {0, 2}, {3, 0}, {4, 4}, {-1, 0}};
    for (const auto& [severity, target] : cases) logger.Report(entryOf("m", severity, target));
    EXPECT_EQ(seen, "m0 m0 m1 m2 m3 m4 m4 ");
    for (int i = 0; i < 18; ++i) logger.Report(entryOf(std::to_string(i), 3));
    EXPECT_EQ(logger.GetErrorCount(), 17U);
    EXPECT_EQ(logger.GetErrorMessageAt(0) + logger.GetErrorMessageAt(16) + logger.GetErrorMessageAt(17), "117");
}

TEST_F(LoggerTest, ReplacesAProcessorThatReportsAtItsEnd) {
    std::string seen;
    const auto report = [](const int* /*none*/) { Logger::GetInstance().Report(entryOf("gone", 3)); };
    install([held = std::shared_ptr<int>(nullptr, report)](const LogEntry& /*entry*/) {});
    install([&](const LogEntry& entry) { seen += entry.message; });
    EXPECT_EQ(list(seen, logger.GetErrorCount()), "gone 1");
}

TEST_F(LoggerTest, ReportsAtMostNineDeep) {
    int processed = 0;
    install([&](const LogEntry& entry) {
        ++processed;
        logger.Report(entry);
        if (processed == 9) logger.SetDefaultLogProcessor(nullptr);  // the one at work stays alive
    });
    for (int expected : {9, 0}) {
        processed = 0;
        testing::internal::CaptureStdout();
        logger.Report(entryOf("deep", 3));
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(processed, expected);
    }
    EXPECT_EQ(logger.GetErrorCount(), 10U);  // and the depth was back at 0
}

TEST_F(LoggerTest, WritesToStandardOutputUnlessAProcessorIsInstalled) {
    testing::internal::CaptureStdout();
    _Report_(false, LogProcessorTarget::None, LogSeverity::Error, "built in");
    std::string seen;
    install([&](const LogEntry& entry) { seen += entry.message + std::to_string(entry.value); });
    _Report_(false, LogProcessorTarget::None, LogSeverity::Info, "installed");
    _Report_(true, LogProcessorTarget::None, LogSeverity::Error, "direct");
    const std::string written = testing::internal::GetCapturedStdout();
    EXPECT_EQ(seen, "installed-1");
    EXPECT_EQ(written.substr(0, 4) + written.substr(written.find(')')), "(00:) built in[-1]\ndirect\n");
    EXPECT_EQ(logger.GetErrorCount(), 1U);
    std::streambuf* const output = std::cout.rdbuf(nullptr);
    EXPECT_THROW(std::cout.exceptions(std::ios::badbit), std::ios::failure);
    EXPECT_NO_THROW(_Report_(true, LogProcessorTarget::None, LogSeverity::Error, "lost"));
    std::cout.exceptions(std::ios::goodbit);
    std::cout.rdbuf(output);
    LogEntry entry;
    EXPECT_TRUE(Logger::GenerateLogEntry(entry, "m", LogProcessorTarget::Console, LogSeverity::Fatal, 1ULL << 63));
    EXPECT_EQ(entry.value, std::numeric_limits<int64_t>::min());
    EXPECT_GT(entry.timestamp, 17'000'000'000'000'000);  // in 2023 already
}

// --- operators and configuration ---

using namespace CustomOperators;

struct Numbered : Operator {
    explicit Numbered(int n) : number(n) {}
    int number;
};

std::string numberOf(const std::unique_ptr<Operator>& created) {
    return created == nullptr ? "none" : std::to_string(dynamic_cast<Numbered&>(*created).number);
}

// What backends see of a registry: an operator of two names, all operators, the libraries.
std::string seen(const OperatorRegistry& registry) {
    std::string text = numberOf(registry.createOperator("a")) + " " + numberOf(registry.createOperator("A")) + ";";
    std::set<std::string> all;
    registry.enumerateThroughRegisteredOperators(
        [&](const std::string& name, std::unique_ptr<Operator> created) { all.insert(name + numberOf(created)); });
    for (const std::string& one : all) text += " " + one;
    for (const Filepath& library : registry.getCustomOperatorDLLList()) text += " " + library.getPathString();
    return text;
}

TEST(OperatorRegistry, IsFilledWhileOpenAndReadOnceReadOnly) {
    OperatorRegistry& registry = getMutableOperatorRegistry();
    registry.updateOpPlacement({{"first"}, {}});
    for (int round = 0; round < 2; ++round) {
        const auto factory = [](int number) { return [number] { return std::make_unique<Numbered>(number); }; };
        EXPECT_TRUE(registerCustomOperator("a", factory(1)) && registerCustomOperator("b", factory(2)));
        EXPECT_FALSE(registerCustomOperator("a", factory(3)) || registerCustomOperator("c", nullptr));
        for (const char* const library : {"l", "k", "l"}) registerCustomOperatorPluginDLL(Filepath(library));
        EXPECT_EQ(seen(registry), "none none;");
        finalizeOperatorRegistry();
        finalizeOperatorRegistry();
        EXPECT_FALSE(registerCustomOperator("d", factory(4)));
        registerCustomOperatorPluginDLL(Filepath("late"));
        const OperatorRegistry copy = getOperatorRegistry();
        for (const OperatorRegistry* const each : {&std::as_const(registry), &copy}) {
            EXPECT_EQ(seen(*each), "1 none; a1 b2 l k l");
            EXPECT_THROW(each->enumerateThroughRegisteredOperators(nullptr), std::bad_function_call);
        }
        registry.updateOpPlacement({{"first"}, {"second"}});
        registry.clear();
        EXPECT_FALSE(registry.isRegistryReadOnly() || !copy.isRegistryReadOnly());
        EXPECT_EQ(registry.getOpPlacement(), OperatorPlacement({"first"}, {"second"}));
    }
    const auto ask = [](const int* /*none*/) { EXPECT_EQ(getOperatorRegistry().createOperator("a"), nullptr); };
    for (const char* const name : {"a", "b", "c"}) {  // what they hold asks the registry while it is cleared
        registerCustomOperator(name, [held = std::shared_ptr<int>(nullptr, ask)] { return nullptr; });
    }
    finalizeOperatorRegistry();
    registry.clear();
    finalizeOperatorRegistry();
    EXPECT_EQ(seen(registry), "none none;");
    registry.clear();
}

TEST(Config, SharesItsSinkAndItsCallback) {
    MireloConfig config;
    const auto sink = std::make_shared<LogProcessorContainer>();
    config.SetLogger(sink);
    config.RegisterGetJNIEnvFxn([] { return std::make_shared<MireloConfig::JNICapture>(); });
    const MireloConfig copy = config;
    config.SetLogger(nullptr);
    EXPECT_EQ(copy.GetLogger(), sink);
    EXPECT_NE(copy.GetRegisteredJNIEnvFxn()(), nullptr);
    EXPECT_EQ(text(config.load()), "2: ");
}

}  // namespace
}  // namespace TarnoMirelo
